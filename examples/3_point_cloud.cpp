// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A point cloud: writes one undistorted frame as points in metres (X right, Y up, Z ahead) to a PLY file.
#include <fstream>
#include <iostream>
#include <vector>

#include <VQD_API.h>

// Closes what listing has opened, however the program ends.
struct Cameras {
    DevInfo info[VQD_MAX_DEVICES] = {};
    int count = 0;
    bool found = vqdGetDeviceList(info, &count) == VQD_OK;

    ~Cameras()
    {
        for (int n = 0; n < VQD_MAX_DEVICES; ++n)
            vqdDeviceClose(n);
    }
};

int main(int argc, char** argv)
{
    const char* path = argc > 1 ? argv[1] : "points.ply";
    const Cameras cameras;
    if (!cameras.found || vqdDeviceOpen(0) != VQD_OK)
        return 1;

    // The rays are those of a lens without distortion, so the image has to be undistorted first. Mode 1 leaves out
    // pixels at a depth step, which would float between the two surfaces.
    if (vqdSetUndistortion(0, 1) != VQD_OK || vqdGrabStart(0) != VQD_OK)
        return 1;
    std::vector<uint16_t> amplitude(VQD_PIXELS), depth(VQD_PIXELS);
    uint16_t* images[] = {amplitude.data(), depth.data()};
    FrameInfo info;
    const int result = vqdReadFromDevice(0, images, &info);
    vqdGrabStop(0);
    if (result != VQD_OK)
        return 1;

    std::vector<Point3f> points(VQD_PIXELS);
    vqdDepthFrameToCameraSpace(depth.data(), points.data(), VQD_WIDTH, VQD_HEIGHT);
    size_t valid = 0;
    for (const uint16_t millimetres : depth)
        valid += millimetres != 0;

    std::ofstream file(path);
    file << "ply\nformat ascii 1.0\nelement vertex " << valid
         << "\nproperty float x\nproperty float y\nproperty float z\nend_header\n";
    for (size_t i = 0; i < points.size(); ++i)
        if (depth[i] != 0)
            file << points[i].x << ' ' << points[i].y << ' ' << points[i].z << '\n';
    file.close();
    if (!file) {
        std::cerr << "cannot write " << path << '\n';
        return 1;
    }
    std::cout << valid << " points in " << path << '\n';
}
