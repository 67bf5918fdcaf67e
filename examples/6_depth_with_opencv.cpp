// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Depth with OpenCV: the library writes into OpenCV's matrices, and a PNG file shows the depth, smoothed and coloured.
#include <cstdio>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <VQD_API.h>

// Near is red, far is blue, and pixels without a depth are black.
static cv::Mat coloured(const cv::Mat& depth)
{
    const cv::Mat invalid = depth == 0;
    double nearest = 0, farthest = 0;
    cv::minMaxIdx(depth, &nearest, &farthest, nullptr, nullptr, ~invalid);
    cv::Mat grey, colours;
    const double scale = farthest > nearest ? -255 / (farthest - nearest) : 0;
    depth.convertTo(grey, CV_8U, scale, -scale * farthest);
    cv::applyColorMap(grey, colours, cv::COLORMAP_JET);
    colours.setTo(cv::Scalar::all(0), invalid);
    return colours;
}

static bool grab(int n, cv::Mat& amplitude, cv::Mat& depth)
{
    if (vqdDeviceOpen(n) != VQD_OK || vqdSetUndistortion(n, 1) != VQD_OK || vqdGrabStart(n) != VQD_OK)
        return false;
    // The library writes 320 x 240 16-bit values row by row, and a new CV_16U matrix has exactly this form.
    uint16_t* images[] = {amplitude.ptr<uint16_t>(), depth.ptr<uint16_t>()};
    FrameInfo info;
    const bool read = vqdReadFromDevice(n, images, &info) == VQD_OK;
    vqdGrabStop(n);
    return read;
}

int main(int argc, char** argv)
{
    const std::string path = argc > 1 ? argv[1] : "depth.png";
    DevInfo cameras[VQD_MAX_DEVICES];
    int count = 0;
    if (vqdGetDeviceList(cameras, &count) != VQD_OK)
        return 1;
    cv::Mat amplitude(VQD_HEIGHT, VQD_WIDTH, CV_16U), depth = amplitude.clone(), smooth;
    const bool grabbed = grab(0, amplitude, depth);
    for (int n = 0; n < count; ++n)
        vqdDeviceClose(n);
    if (!grabbed)
        return 1;

    cv::medianBlur(depth, smooth, 5); // a mean would invent depths between two surfaces
    if (!cv::imwrite(path, coloured(smooth))) {
        std::fprintf(stderr, "cannot write %s\n", path.c_str());
        return 1;
    }
    std::printf("%.0f mm on average in %s\n", cv::mean(smooth, smooth != 0)[0], path.c_str());
}
