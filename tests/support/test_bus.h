// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The bus of a system test: the mocked one, or with VQD_TEST_BUS=kernel that of the running kernel.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include "sim/bus.h"

inline bool isKernelBus()
{
    const char* const name = getenv("VQD_TEST_BUS");
    return name != nullptr && std::string(name) == "kernel";
}

inline std::unique_ptr<sim::Bus> testBus(const sim::BusOptions& options)
{
    return isKernelBus() ? sim::makeKernelBus(options) : sim::makeMockBus(options);
}
