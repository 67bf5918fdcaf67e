// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Makes the pictures of filters.md: a scene of the virtual camera, room or wall by the first argument, before and after
// each filter and correction. make-pictures.sh runs it.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "VQD_API.h"
#include "sim/factory_tables.h"
#include "tools/vqd/pictures.h"

using Image = std::vector<uint16_t>;

struct Frame {
    Image amplitude = Image(VQD_PIXELS), depth = Image(VQD_PIXELS);
};

struct Crop {
    int x = 0, y = 0, width = VQD_WIDTH, height = VQD_HEIGHT, scale = 1;
};

static void require(bool good, const char* what)
{
    if (good)
        return;
    fprintf(stderr, "make-pictures: %s failed\n", what);
    exit(1);
}

static Frame grab()
{
    Frame frame;
    uint16_t* images[2] = {frame.amplitude.data(), frame.depth.data()};
    FrameInfo info;
    require(vqdReadFromDevice(0, images, &info) == VQD_OK, "vqdReadFromDevice");
    return frame;
}

// Writes panels side by side, with one colour scale for all of them.
static void write(const std::string& name, const std::vector<Image>& panels, const Crop& crop = {})
{
    constexpr int kGap = 6;
    const int width = crop.width * crop.scale, height = crop.height * crop.scale;
    const int step = width + kGap, total = step * static_cast<int>(panels.size()) - kGap;
    Image all(static_cast<size_t>(total * height));
    for (size_t p = 0; p < panels.size(); ++p)
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                all[static_cast<size_t>(total * y + static_cast<int>(p) * step + x)] =
                    panels[p][static_cast<size_t>(VQD_WIDTH * (crop.y + y / crop.scale) + crop.x + x / crop.scale)];
    Bytes colours = depthColours(all);
    for (int y = 0; y < height; ++y)
        for (int x = width; x < total; x += step)
            memset(&colours[static_cast<size_t>(3 * (total * y + x))], 255, 3 * kGap);
    const Bytes file = colourPicture(colours, static_cast<unsigned>(total), static_cast<unsigned>(height));
    FILE* out = fopen((name + ".png").c_str(), "wb");
    require(out != nullptr && fwrite(file.data(), 1, file.size(), out) == file.size() && fclose(out) == 0,
            name.c_str());
}

static void room()
{
    vqdSetOrthogonal(0, 1);
    std::vector<Image> modes;
    for (const int mode : {0, 1, 2, 3}) {
        vqdSetUndistortion(0, mode);
        modes.push_back(grab().depth);
    }
    const Crop corner{176, 96, 60, 60, 4}; // an object before the wall behind it
    write("undistortion", {modes[0], modes[2]});
    write("undistortion-modes", {modes[1], modes[2], modes[3]}, corner);

    vqdSetUndistortion(0, 2);
    vqdSetRemoveEdge(0, 1);
    write("remove-edge", {modes[2], grab().depth}, {176, 96, 90, 60, 4});
    vqdSetRemoveEdge(0, 0);

    vqdSetUndistortion(0, 1);
    const Frame frame = grab();
    Image filtered = frame.depth;
    vqdAmplitudeCheckFilter(frame.amplitude.data(), filtered.data(), 25, VQD_WIDTH, VQD_HEIGHT);
    write("amplitude-check", {frame.depth, filtered});
    filtered = frame.depth;
    fScatterScale = 5e-7f;
    vqdScatteringCheckFilter(frame.amplitude.data(), filtered.data(), 255, VQD_WIDTH, VQD_HEIGHT);
    write("scattering-check", {frame.depth, filtered});
    filtered = frame.depth;
    vqdMinMaxCheckFilter(filtered.data(), 1500, 3500, VQD_WIDTH, VQD_HEIGHT);
    write("min-max-check", {frame.depth, filtered});
}

// By how much the depth of the wall is too large, as the mean of some frames, in steps of 2 mm above -50 mm.
static Image wallError()
{
    constexpr int kFrames = 40;
    std::vector<double> sum(VQD_PIXELS);
    for (int i = 0; i < kFrames; ++i) {
        const Frame frame = grab();
        for (size_t pixel = 0; pixel < VQD_PIXELS; ++pixel)
            sum[pixel] += frame.depth[pixel];
    }
    Image error(VQD_PIXELS);
    for (size_t pixel = 0; pixel < VQD_PIXELS; ++pixel) {
        const double x = (static_cast<double>(pixel % VQD_WIDTH) - 160) / 204;
        const long steps = std::lround((sum[pixel] / kFrames - 2000 / (1 - 0.2 * x) + 50) / 2);
        error[pixel] = static_cast<uint16_t>(std::clamp(20 * steps, 1L, 2000L));
    }
    return error;
}

static void wall()
{
    vqdSetUndistortion(0, 2);
    vqdSetOrthogonal(0, 0);
    const Image off = grab().depth;
    vqdSetOrthogonal(0, 1);
    write("orthogonal", {off, grab().depth});

    const Image before = wallError();
    // libusb on Linux cannot read this table from the camera, so it comes from the same source as the camera's own.
    const std::vector<uint8_t> table = sim::fppnTable();
    for (size_t i = 0; i < 4800; ++i)
        m_nEEPROMFPPNBuf[i] = table[2 * i] * 256 + table[2 * i + 1];
    vqdSetFPPN(0, 1);
    write("fppn", {before, wallError()});
}

int main(int count, char** arguments)
{
    require(count == 2, "usage");
    DevInfo list[VQD_MAX_DEVICES];
    int cameras = 0;
    require(vqdGetDeviceList(list, &cameras) == VQD_OK && vqdDeviceOpen(0) == VQD_OK && vqdGrabStart(0) == VQD_OK,
            "opening");
    strcmp(arguments[1], "wall") == 0 ? wall() : room();
    vqdDeviceClose(0);
}
