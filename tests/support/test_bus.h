// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The bus of a system test: the mocked one, or with VQD_TEST_BUS=kernel that of the running kernel.
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
    if (name == "kernel")
        return sim::makeKernelBus(options);
    if (name == "mock")
        return sim::makeMockBus(options);
    throw std::invalid_argument("VQD_TEST_BUS is neither mock nor kernel: " + name);
}
