// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The mocked bus in a build without umockdev, which only says so. The kernel's bus is there.
#include "host/failure.h"
#include "sim/bus.h"
#include "sim_preload.h"

void enterPreload(char**) {}

namespace sim
{

std::unique_ptr<Bus> makeMockBus(const BusOptions&)
{
    throw Failure(kFailed,
                  "this build has no virtual camera but with --kernel, because libumockdev-dev was missing when "
                  "it was made");
}

} // namespace sim
