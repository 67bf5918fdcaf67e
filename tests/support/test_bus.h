// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The bus of a system test, chosen by VQD_TEST_BUS.
#pragma once

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "sim/bus.h"

inline std::unique_ptr<sim::Bus> testBus(const sim::BusOptions& options)
{
    const char* const set = getenv("VQD_TEST_BUS");
    const std::string name = set != nullptr ? set : "mock";
    if (name == "mock")
        return sim::makeMockBus(options);
    throw std::invalid_argument("VQD_TEST_BUS is not mock: " + name);
}
