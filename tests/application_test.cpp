// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A whole session as an application runs it, and a second one that finds what the first has saved, on a model that the
// host corrects and on one that corrects itself.
#include <cmath>
#include <cstring>

#include "sim/scene.h"
#include "support/library_test.h"

namespace
{

struct Model {
    const char* product;
    bool hostCorrected;
};

void PrintTo(const Model& model, std::ostream* out)
{
    *out << model.product;
}

class Application : public LibraryTest, public testing::WithParamInterface<Model>
{
protected:
    void open()
    {
        EXPECT_EQ(list(), 1);
        EXPECT_EQ(vqdDeviceOpen(0), 1);
    }

    // How far the frame is from a wall at 2000 + 0.2 X, at its worst pixel.
    double worstError()
    {
        for (int i = 0; i < 2; ++i) // until a frame that was exposed after the latest setting
            EXPECT_EQ(vqdReadFromDevice(0, images.data(), &info), 1);
        double worst = 0;
        for (int i = 0; i < VQD_PIXELS; ++i) {
            const double wall = 2000 / (1 - 0.2 * (i % 320 - 160) / 204.0);
            worst = std::max(worst, std::fabs(depth[static_cast<size_t>(i)] - wall));
        }
        return worst;
    }

    void close()
    {
        EXPECT_EQ(vqdGrabStop(0), 1);
        EXPECT_FALSE(usb.camera(0).grabbing());
        EXPECT_EQ(vqdDeviceClose(0), 1);
        EXPECT_EQ(usb.openHandles() + usb.listsHeld + usb.configurationsHeld + usb.contextUses, 0);
    }
};
INSTANTIATE_TEST_SUITE_P(, Application, testing::Values(Model{"VQD-HT120", true}, Model{"VQD-WN120", false}));

TEST_P(Application, RunsASessionAndAnotherOne)
{
    const auto [product, hostCorrected] = GetParam();
    sim::Config config;
    config.product = product;
    config.source = sim::makeScene({.kind = sim::SceneKind::wall, .sensor = {.noise = 0}});
    usb.plug(config);

    open();
    EXPECT_STREQ(devices[0].szDeviceName, product);
    EXPECT_STREQ(devices[0].szSerialNumber, "24061100000001");
    EXPECT_EQ(devices[0].nModelFlag, 1);
    EXPECT_EQ(vqdSetFPSDelay(0, 5) + vqdSetRemoveMotionBlur(0, 1, 40) + vqdGrabStart(0), 3);
    EXPECT_GT(worstError(), 40); // neither undistorted nor corrected
    EXPECT_EQ(vqdSetUndistortion(0, 2) + vqdSetFPPN(0, 1) + vqdSetOrthogonal(0, 1) + vqdSetRemoveEdge(0, 1), 4);
    const sim::Image& registers = usb.camera(0).registers;
    EXPECT_EQ(registers[48], hostCorrected ? 18 : 2);
    EXPECT_EQ(registers[2], hostCorrected ? 2 : 19);
    EXPECT_EQ(registers[49], 17);
    EXPECT_EQ(registers[43], hostCorrected ? 0 : 31);
    EXPECT_LT(worstError(), 6);
    EXPECT_EQ(info.nFrameCount, 4u);
    EXPECT_NEAR(vqdGetTemperature(0), 38, 2);

    std::array<unsigned char, 512> image{};
    EXPECT_EQ(vqdParameterData_Load(0, image.data()), 1);
    EXPECT_EQ(vqdEEPROM_ParameterData_Save(0, image.data()), 1);
    close();

    open();
    EXPECT_EQ(vqdGetFPSDelay(0), 5);
    EXPECT_EQ(vqdGetUndistortion(0), 2);
    EXPECT_EQ(m_bFPPN + m_bOrthogonal + m_bRemoveEdge + m_bRemoveMotionBlur, 4);
    EXPECT_EQ(vqdGrabStart(0), 1);
    EXPECT_LT(worstError(), 6);
    close();
}

} // namespace
