// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Fault plans as text, for command lines and for tests: "third bulk IN stalls; 2: unplug after frame 40, back after
// 350 ms". docs/virtual-camera.md has the grammar.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fault_plan.h"

namespace sim
{

struct PlannedFault {
    size_t camera; // 1 is the first one plugged in, 0 each of them
    Fault fault;
};

// Its text has three lines: what is wrong, the plan's line, and a caret under the character.
struct FaultPlanError : std::runtime_error {
    FaultPlanError(const std::string& what, std::string_view plan, size_t at);
    size_t at; // in the plan, from 0
};

// Throws FaultPlanError, also for a camera number above `cameras`.
std::vector<PlannedFault> parseFaultPlan(std::string_view plan, size_t cameras);

} // namespace sim
