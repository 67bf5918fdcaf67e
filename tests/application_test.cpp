// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A whole session as an application runs it, on a model that the host corrects and on one that corrects itself.
#include <cmath>
#include <cstring>

#include "sim/scene.h"
#include "support/library_test.h"

namespace
{

constexpr size_t kCentre = 120 * 320 + 160;

struct Model {
    const char* product;
    bool hostCorrected;
};

void PrintTo(const Model& model, std::ostream* out)
{
    *out << model.product;
}

#define CALL(...) #__VA_ARGS__, [&] { return __VA_ARGS__; }

class Application : public LibraryTest, public testing::WithParamInterface<Model>
{
protected:
    // The result of one call, with what it printed and sent.
    template <typename Call>
    void expect(const std::string& what, Call call, int result, const std::string& sent, const std::string& lines = "")
    {
        EXPECT_EQ(printed([&] { EXPECT_EQ(call(), result) << what; }), lines) << what;
        EXPECT_EQ(usb.conversation(), sent) << what;
    }

    void listCameras();
    void changeSettings();
    void grabInEveryMode();
    void correct();
    void filterAndMeasure();
    void saveAndLoad();

    // Frames until one that was exposed after the latest setting.
    void read()
    {
        for (int i = 0; i < 2; ++i)
            expect(CALL(vqdReadFromDevice(0, images.data(), &info)), 1, "in 307712");
    }

    const Model model = GetParam();
    const std::string table = model.hostCorrected ? ", BB 9600 at 4000, BB 4096 at 7000" : "";
    const std::string complete = model.hostCorrected ? "Orthogonal table data load complete.\n" : "";
};
INSTANTIATE_TEST_SUITE_P(, Application, testing::Values(Model{"VQD-HT120", true}, Model{"VQD-WN120", false}));

void Application::listCameras()
{
    expect(CALL(vqdGetDeviceList(devices.data(), &count)), 1,
           "init, list, open " + std::to_string(usb.address(0)) + ", B8 128 at 1200" + table,
           "VQD_Library_Ver2.4_180220\n" + complete);
    ASSERT_EQ(count, 1);
    EXPECT_STREQ(devices[0].szDeviceName, model.product);
    EXPECT_STREQ(devices[0].szSerialNumber, "24061100000001");
    EXPECT_EQ(devices[0].nModelFlag, 1);
}

void Application::changeSettings()
{
    const std::string shortWait = kImageSent + ", wait 100", longWait = kImageSent + ", wait 100000";
    const struct {
        const char* what;
        int (*set)(int, int);
        int value;
        std::string sent;
        int (*get)(int);
    } settings[] = {
        {"offset", vqdSetOffset, -7, kImageSent, vqdGetOffset},
        {"scatter", vqdSetScatterThreshold, 3, kImageSent, vqdGetScatterThreshold},
        {"check", vqdSetCheckThreshold, 12, kImageSent, vqdGetCheckThreshold},
        {"sync", vqdSetMultiSyncMode, 0, kImageSent, vqdGetMultiSyncMode},
        {"flip columns", vqdSetFlipHorizontal, 0, longWait, vqdGetFlipHorizontal},
        {"flip rows", vqdSetFlipVertical, 0, longWait, vqdGetFlipVertical},
        {"delay", vqdSetFPSDelay, 5, kImageSent, vqdGetFPSDelay},
        {"edges", vqdSetRemoveEdge, 0, kImageSent, vqdGetRemoveEdge},
    };
    for (const auto& s : settings) {
        expect(
            s.what, [&] { return s.set(0, s.value); }, 1, s.sent);
        expect(
            s.what, [&] { return s.get(0); }, s.value, "");
    }
    expect(CALL(vqdSetDepthRange(0, 500, 7000)), 1, shortWait);
    int least = 0, most = 0;
    expect(CALL(vqdGetDepthRange(0, &least, &most)), 1, "");
    EXPECT_EQ(least * 10000 + most, 5007000);
    expect(CALL(vqdSetModuleFrequency(0, 20)), 1, longWait);
    expect(CALL(vqdGetModuleFrequency(0)), 20, "");
    expect(CALL(vqdSetRemoveMotionBlur(0, 1, 40)), 1, kImageSent);
    const sim::Image& registers = usb.camera(0).registers;
    EXPECT_EQ(memcmp(registers.data(), stCamParam[0].image, 512), 0);
    EXPECT_EQ(registers[33], 5);
    EXPECT_EQ(registers[20] << 8 | registers[21], 500);
}

void Application::grabInEveryMode()
{
    expect(CALL(vqdGrabStart(0)), 1, kBurst + ", wait 100, " + kImageSent + ", " + kImageSent + ", wait 100000");
    for (const int mode : {0, 1, 2, 3}) {
        SCOPED_TRACE(mode);
        expect(CALL(vqdSetUndistortion(0, mode)), 1, kImageSent);
        expect(CALL(vqdGetUndistortion(0)), mode, "");
        EXPECT_EQ(usb.camera(0).registers[48], mode);
        read();
        EXPECT_NEAR(depth[kCentre], 2000, 45); // at most an uncorrected block offset away
        const bool copied = memcmp(depth.data(), buffers + 154112, sizeof depth) == 0;
        EXPECT_EQ(copied, mode == 0);
    }
    EXPECT_EQ(info.nFrameCount, 8u);
    EXPECT_NEAR(vqdGetTemperature(0), 38, 2);
    int first = 0, second = 0;
    EXPECT_EQ(vqdGetLogincVersion(0, &first, &second), 1);
    EXPECT_EQ(first * 10 + second, 25);
}

// A wall at 2000 + 0.2 X, seen with mode 2 and both corrections.
void Application::correct()
{
    expect(CALL(vqdSetUndistortion(0, 2)), 1, kImageSent);
    expect(CALL(vqdSetFPPN(0, 1)), 1, kImageSent);
    expect(CALL(vqdSetOrthogonal(0, 1)), 1, kImageSent);
    expect(CALL(vqdSetRemoveEdge(0, 1)), 1, kImageSent);
    const sim::Image& registers = usb.camera(0).registers;
    EXPECT_EQ(registers[48], model.hostCorrected ? 18 : 2);
    EXPECT_EQ(registers[2], model.hostCorrected ? 2 : 19);
    EXPECT_EQ(registers[49], model.hostCorrected ? 17 : 16);
    EXPECT_EQ(registers[43], model.hostCorrected ? 0 : 31);
    read();
    double worst = 0;
    for (int i = 0; i < VQD_PIXELS; ++i) {
        const double wall = 2000 / (1 - 0.2 * (i % 320 - 160) / 204.0);
        worst = std::max(worst, std::fabs(depth[static_cast<size_t>(i)] - wall));
    }
    EXPECT_LT(worst, 6);
}

void Application::filterAndMeasure()
{
    std::vector<Point3f> cloud(VQD_PIXELS);
    vqdDepthFrameToCameraSpace(depth.data(), cloud.data(), 320, 240);
    EXPECT_NEAR(cloud[kCentre].z, 2.0, 0.005);
    EXPECT_NEAR(cloud[kCentre + 100].z, 2 + 0.2 * cloud[kCentre + 100].x, 0.005);
    EXPECT_GT(cloud[kCentre - 320 * 100].y, 0.9); // up
    Point3f point{}, pixel{};
    const LensIntrinsic lens{204, 204, 160, 120};
    vqdDepthPointToCameraSpace(&point, {260, 20, static_cast<float>(depth[20 * 320 + 260])}, lens);
    vqdCameraSpacePointToDepth(&pixel, point, lens);
    EXPECT_EQ(static_cast<int>(pixel.x) * 1000 + static_cast<int>(pixel.y), 260020);

    const uint16_t nearest = depth[0], farthest = depth[319];
    vqdMinMaxCheckFilter(depth.data(), 0, farthest - 1u, 320, 240);
    EXPECT_EQ(depth[319], 0);
    EXPECT_EQ(depth[0], nearest);
    vqdScatteringCheckFilter(amplitude.data(), depth.data(), 0, 320, 240);
    vqdAmplitudeCheckFilter(amplitude.data(), depth.data(), 255, 320, 240);
    EXPECT_EQ(depth[0], amplitude[0] < 255 * 1.3f ? 0 : nearest);
    EXPECT_NE(depth[kCentre], 0);
    EXPECT_EQ(usb.conversation(), "");
}

void Application::saveAndLoad()
{
    const sim::Eeprom before = usb.camera(0).eeprom;
    std::array<unsigned char, 512> image{}, loaded{};
    expect(CALL(vqdParameterData_Load(0, image.data())), 1, "");
    expect(CALL(vqdEEPROM_ParameterData_Save(0, image.data())), 1, "B7 128 at 1200",
           "EEPROM Parameter Save Success.\n");
    EXPECT_NE(usb.camera(0).eeprom, before);
    expect(CALL(vqdEEPROM_ParameterData_Load(0, loaded.data())), 1, "B8 128 at 1200" + table, complete);
    EXPECT_EQ(loaded, image);
    EXPECT_EQ(m_nUndistortionMode, 2);
    EXPECT_EQ(m_bFPPN + m_bOrthogonal + m_bRemoveEdge + m_bRemoveMotionBlur, 4);
    expect(CALL(vqdSetLensParameter(0, {204, 204, 160, 120}, {-0.346f, 0.12f, 0, 0, 0, 0})), 1, "B7 128 at 1200",
           "EEPROM Parameter Save Success.\n");
}

TEST_P(Application, RunsASessionAndAnotherOne)
{
    sim::Config config;
    config.product = model.product;
    config.source = sim::makeScene({.kind = sim::SceneKind::wall, .noise = 0});
    usb.plug(config);
    const std::string stop = std::string("wait 100, ") + kImageSent + ", wait 100000";
    for (int session = 0; session < 2; ++session) {
        SCOPED_TRACE(session);
        if (session == 0)
            listCameras();
        else
            list(); // what the first session has saved
        expect(CALL(vqdDeviceOpen(0)), 1, "driver 0, config, claim 0, B2 64, wait 100000, B3 64");
        if (session == 0) {
            changeSettings();
            grabInEveryMode();
            correct();
            filterAndMeasure();
            saveAndLoad();
        } else {
            EXPECT_EQ(vqdGetFPSDelay(0), 5);
            EXPECT_EQ(vqdGetUndistortion(0), 2);
            EXPECT_EQ(vqdGrabStart(0), 1);
            usb.conversation();
            read();
            EXPECT_NEAR(depth[kCentre], 2000, 3);
        }
        expect(CALL(vqdGrabStop(0)), 1, stop);
        EXPECT_FALSE(usb.camera(0).grabbing());
        expect(CALL(vqdDeviceClose(0)), 1, stop + ", close " + std::to_string(usb.address(0)) + ", exit");
        EXPECT_EQ(usb.openHandles() + usb.listsHeld + usb.configurationsHeld + usb.contextUses, 0);
    }
}

} // namespace
