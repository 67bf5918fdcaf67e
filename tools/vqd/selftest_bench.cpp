// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Changing a camera for a while.
#include "selftest_bench.h"

#include "host/assignments.h"

#include "interrupt.h"

HostImage hostImage(int n)
{
    HostImage image{};
    vqdParameterData_Load(n, image.data());
    return image;
}

Bench::Bench(const ListedCamera& camera, LibraryLines& lines, int frames)
    : camera(camera), n(camera.nIndex), lines(lines), frameCount(frames), before(hostImage(n)),
      settingsBefore(settings())
{
}

bool Bench::putBack()
{
    if (!changed)
        return true;
    if (grabbing)
        vqdGrabStop(n);
    grabbing = false;
    HostImage image = before;
    if (vqdEEPROM_ParameterData_Load(n, image.data()) != 1 || vqdWriteToDevice(n, before.data()) != 1)
        return false;
    changed = false;
    return true;
}

std::vector<std::string> Bench::settings() const
{
    std::vector<std::string> values;
    for (const Setting& setting : allSettings())
        values.push_back(setting.needsFrame ? "" : settingText(setting.get(n)));
    return values;
}

bool Bench::read(DepthFrame& into)
{
    uint16_t* images[2] = {into.amplitude.data(), into.depth.data()};
    const int result = vqdReadFromDevice(n, images, &into.info);
    endIfInterrupted();
    lost = result <= 0;
    return !lost;
}
