// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Settings as they show in the frames of a camera that obeys them.
#include <algorithm>

#include "support/library_test.h"

namespace
{

// Amplitude tells the column, depth the row; the right half lies a step behind.
struct Steps : sim::FrameSource {
    void render(const sim::FrameRequest&, std::span<uint16_t, sim::kPixels> amplitude,
                std::span<uint16_t, sim::kPixels> depth) override
    {
        for (size_t i = 0; i < sim::kPixels; ++i) {
            amplitude[i] = static_cast<uint16_t>(100 + i % 320);
            depth[i] = static_cast<uint16_t>((i % 320 < 160 ? 1000 : 6000) + i / 320);
        }
    }
};

class SettingsOnFrames : public LibraryTest
{
protected:
    void grab(const char* product, bool darkFrames = false)
    {
        sim::Config config;
        config.product = product;
        config.source = std::make_shared<Steps>();
        config.darkFrames = darkFrames;
        openCamera(config);
        EXPECT_EQ(vqdGrabStart(count - 1), 1);
        read();
    }

    // From the camera that was opened last.
    void read()
    {
        EXPECT_EQ(printed([&] { EXPECT_EQ(vqdReadFromDevice(count - 1, images.data(), &info), 1); }), "");
    }

    int amplitudeAt(int x, int y) const { return amplitude[static_cast<size_t>(320 * y + x)]; }
    int depthAt(int x, int y) const { return depth[static_cast<size_t>(320 * y + x)]; }
};

TEST_F(SettingsOnFrames, FlipsMirrorBothPlanes)
{
    const struct {
        int (*set)(int, int);
        int on, firstAmplitude, firstDepth;
    } steps[] = {{vqdSetFlipHorizontal, 1, 419, 6000},
                 {vqdSetFlipVertical, 1, 419, 6239},
                 {vqdSetFlipHorizontal, 0, 100, 1239},
                 {vqdSetFlipVertical, 0, 100, 1000}};
    grab("VQD-HT120");
    for (const auto& step : steps) {
        EXPECT_EQ(step.set(0, step.on), 1);
        read();
        EXPECT_EQ(amplitudeAt(0, 0), step.firstAmplitude);
        EXPECT_EQ(depthAt(0, 0), step.firstDepth);
    }
}

TEST_F(SettingsOnFrames, TheHostClipsOnlyAfterTheRangeIsReadBack)
{
    grab("VQD-HT120");
    EXPECT_EQ(vqdSetDepthRange(0, 1100, 6100), 1);
    read();
    EXPECT_EQ(depthAt(0, 0), 1000);
    EXPECT_EQ(vqdGetDepthRange(0, nullptr, nullptr), 1);
    read();
    EXPECT_EQ(depthAt(0, 99), 0);
    EXPECT_EQ(depthAt(0, 100), 1100);
    EXPECT_EQ(depthAt(160, 100), 6100);
    EXPECT_EQ(depthAt(160, 101), 0);
}

TEST_F(SettingsOnFrames, ACameraThatCorrectsItselfClipsAtOnce)
{
    grab("VQD-HT110");
    EXPECT_EQ(vqdSetRemoveEdge(0, 0), 1);
    EXPECT_EQ(vqdSetDepthRange(0, 1100, 6100), 1);
    read();
    EXPECT_EQ(depthAt(0, 99), 0);
    EXPECT_EQ(depthAt(0, 100), 1100);
    EXPECT_EQ(depthAt(160, 101), 0);
}

TEST_F(SettingsOnFrames, EdgeRemovalClearsTheStepOnEveryModel)
{
    for (const char* product : {"VQD-HT120", "VQD-HT110"}) {
        grab(product);
        for (const int on : {0, 1, 0}) {
            SCOPED_TRACE(std::string(product) + (on ? " on" : " off"));
            EXPECT_EQ(vqdSetRemoveEdge(count - 1, on), 1);
            read();
            EXPECT_EQ(depthAt(159, 10), on ? 0 : 1010);
            EXPECT_EQ(depthAt(158, 10), 1010);
            EXPECT_EQ(depthAt(160, 10), 6010);
            EXPECT_EQ(depthAt(159, 239), 1239);
        }
    }
}

TEST_F(SettingsOnFrames, FrameDelayLowersTheRate)
{
    grab("VQD-HT120");
    for (const int delay : {0, 50, 100}) {
        EXPECT_EQ(vqdSetFPSDelay(0, delay), 1);
        read();
        read(); // from here on in step with the camera
        const sim::TimeUs start = usb.now;
        for (int i = 0; i < 10; ++i)
            read();
        EXPECT_NEAR(static_cast<double>(usb.now - start), 333'333 + 10'000 * delay, 10) << delay;
    }
}

TEST_F(SettingsOnFrames, FrequencySetsWhereDepthStartsAnew)
{
    grab("VQD-HT120");
    EXPECT_EQ(depthAt(200, 0), 6000);
    EXPECT_EQ(vqdSetModuleFrequency(0, 30), 1);
    read();
    EXPECT_EQ(depthAt(200, 0), 1000);
    EXPECT_EQ(depthAt(0, 0), 1000);
    EXPECT_EQ(vqdSetModuleFrequency(0, 20), 1);
    read();
    EXPECT_EQ(depthAt(200, 0), 6000);
}

TEST_F(SettingsOnFrames, WithoutLightTheFrameIsDarkAndInvalid)
{
    grab("VQD-HT120", true);
    EXPECT_EQ(vqdIlluminationOnOff(0, 0), 1);
    read();
    EXPECT_LT(*std::ranges::max_element(amplitude), 10);
    EXPECT_EQ(*std::ranges::max_element(depth), 0);
    EXPECT_EQ(vqdIlluminationOnOff(0, 1), 1);
    read();
    EXPECT_EQ(amplitudeAt(0, 0), 100);
    EXPECT_EQ(depthAt(0, 0), 1000);
}

} // namespace
