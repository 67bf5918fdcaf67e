// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter load: the EEPROM's image or factory settings, and all that is derived from it in this order: lens,
// rays, tables, switches, maps.
#include <cstring>

#include "support/library_test.h"

namespace
{

const char kDefaults[] = "0 VQD EEPROM Parameter Load Fail, Load Default Parameter.\n";
const char kBadLens[] = "Lens Parameter Error, Set Default Param\n";
const char kTable[] = "Orthogonal table data load complete.\n";

sim::Config model(const char* product)
{
    sim::Config config;
    config.product = product;
    return config;
}

void putPair(sim::Camera& camera, size_t at, int value)
{
    camera.eeprom[at] = static_cast<uint8_t>(value >> 8);
    camera.eeprom[at + 1] = static_cast<uint8_t>(value & 0xFF);
}

class Load : public LibraryTest
{
protected:
    static std::string load(int n = 0)
    {
        return printed([=] { EXPECT_EQ(LoadParameter(n), 1); });
    }
};

TEST_F(Load, TheEepromsImageIsTakenAsFarAsItComes)
{
    sim::Camera& camera = openCamera(model("VQD-HT110"));
    std::array<unsigned char, 512> image{};
    for (const uint32_t bytes : {128u, 40u}) {
        camera.eeprom.fill(0x55);
        camera.eeprom[4] = 0x81;
        camera.addFault({.kind = sim::Fault::Kind::shortened, .request = 0xB8, .bytes = bytes});
        stCamParam[0].image[127] = stCamParam[0].image[130] = 0x77;
        EXPECT_EQ(printed([&] { EXPECT_EQ(vqdEEPROM_ParameterData_Load(0, image.data()), 1); }), kBadLens);
        std::fill(camera.eeprom.begin() + bytes, camera.eeprom.end(), uint8_t{0});
        EXPECT_EQ(memcmp(image.data(), camera.eeprom.data(), 128), 0) << bytes;
        EXPECT_EQ(image[130], 0x77); // the EEPROM does not hold bytes from 128 on
        EXPECT_EQ(stCamParam[0].nIntegrationTime, 8500);
        EXPECT_EQ(stCamParam[0].nThreshold, 0x55);
        EXPECT_EQ(stCamParam[0].nOffset, -0x55);
    }
}

TEST_F(Load, AnInvalidOrMissingImageGivesFactorySettings)
{
    const struct {
        size_t at;
        std::vector<unsigned char> bytes;
    } runs[] = {{0, {0, 10, 2, 0, 0x81, 2, 9, 0, 0, 0xE2}},
                {12, {0x13, 0xFA, 0x01, 0x08, 0x00, 0x66, 0x05, 0x60, 0x00, 0x00, 0x3A, 0x98}},
                {26, {0x01, 0x15, 0xA0, 0x78, 0x18, 0x00, 0x10}},
                {37, {0x00, 0x26, 0xAC}}};
    sim::Eeprom factory{};
    for (const auto& run : runs)
        std::ranges::copy(run.bytes, factory.begin() + static_cast<long>(run.at));
    sim::Camera& camera = openCamera(model("VQD-HT110"));
    const auto expectFactorySettings = [&] {
        EXPECT_EQ(load(), std::string(kDefaults) + kBadLens);
        EXPECT_EQ(memcmp(stCamParam[0].image, factory.data(), 128), 0);
        EXPECT_EQ(m_nDepthGab, 0);
    };
    camera.eeprom[4] = 0x80;
    expectFactorySettings();
    camera.eeprom[4] = 0x81;
    usb.fail("control", -7);
    expectFactorySettings();
    for (const uint32_t bytes : {0u, 3u}) {
        camera.addFault({.kind = sim::Fault::Kind::shortened, .request = 0xB8, .bytes = bytes});
        expectFactorySettings();
    }
}

TEST_F(Load, ASaveWritesTheEepromAndTheCopyOnly)
{
    sim::Camera& camera = openCamera();
    sim::Eeprom block = camera.eeprom;
    block[33] = 42;
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdEEPROM_ParameterData_Save(0, block.data()), 1); }),
              "EEPROM Parameter Save Success.\n");
    EXPECT_EQ(usb.conversation(), "B7 128 at 1200");
    EXPECT_EQ(camera.eeprom, block);
    EXPECT_EQ(camera.registers[33], 0);
    std::array<unsigned char, 512> image{};
    EXPECT_EQ(vqdParameterData_Load(0, image.data()), 1);
    EXPECT_EQ(image[33], 42);
    EXPECT_EQ(usb.conversation(), "");

    usb.fail("control", -9);
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdEEPROM_ParameterData_Save(0, block.data()), 1); }), "");
}

TEST_F(Load, AnEepromWithoutAnImageGivesTheFactorys)
{
    for (const int n : {0, 1}) {
        sim::Camera& camera = usb.camera(usb.plug(model("VQD-HT120")));
        list();
        EXPECT_EQ(load(n), kTable);
        EXPECT_EQ(usb.conversation(), "B8 128 at 1200, BB 9600 at 4000, BB 4096 at 7000");
        camera.eeprom[4] = 0; // the factory image has no lens
        EXPECT_EQ(load(n), std::to_string(n) + &kDefaults[1] + kBadLens + kTable);
    }
}

TEST_F(Load, ThePrincipalPointDecidesOnTheLens)
{
    const struct {
        int cx;
        bool good;
    } cases[] = {{1399, false}, {1400, true}, {1800, true}, {1801, false}, {0, false}, {65535, false}};
    sim::Camera& camera = openCamera(model("VQD-HT110"));
    for (const int at : {80, 82, 84, 86, 88, 92, 94, 96, 98}) // a lens that shares no value with the default one
        putPair(camera, static_cast<size_t>(at), 2000);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cx);
        putPair(camera, 90, c.cx);
        pPointCloud[0] = {7, 7, 7};
        EXPECT_EQ(load(), c.good ? "" : kBadLens);
        const float cx = static_cast<float>(c.cx) / 10.0f;
        const std::array<float, 4> intrinsic =
            c.good ? std::array{200.0f, 200.0f, cx, 200.0f} : std::array{204.0f, 204.0f, 160.0f, 120.0f};
        const std::array<float, 6> distortion = c.good ? std::array{2.0f, 2.0f, 2.0f, 20.0f, 20.0f, 2.0f}
                                                       : std::array{-0.346f, 0.12f, 0.0f, 0.0f, 0.0f, 0.0f};
        EXPECT_EQ(std::to_array(m_fIntrinsicParam[0]), intrinsic);
        EXPECT_EQ(std::to_array(m_fDistorParam[0]), distortion);
        EXPECT_EQ(pPointCloud[0].x, c.good ? -cx / 200.0f / 1000.0f : 7); // otherwise the rays stay as they were
        float stored[4] = {};
        EXPECT_EQ(vqdGetLensParameter(0, stored, nullptr), 1);
        EXPECT_EQ(stored[2], cx); // the image keeps its value too
    }
}

struct Derived {
    int fppn, orthogonal, mode, edge, blur, horizontal, vertical;
    bool operator==(const Derived&) const = default;
};

TEST_F(Load, SwitchesComeFromTheImageAndMapsFromTheMode)
{
    const struct {
        const char* product;
        uint8_t byte2, byte3, byte9, byte43, byte48, byte49;
        Derived expected; // all flags were 5 before
        bool maps;
    } cases[] = {
        {"VQD-HT120", 2, 16, 0xE0, 255, 0x13, 0x11, {1, 1, 3, 1, 1, 1, 0}, true},
        {"VQD-HT120", 19, 0, 0xE3, 31, 0x02, 0x00, {0, 0, 2, 0, 0, 0, 1}, true},
        {"VQD-HT120", 19, 1, 0xE1, 31, 0x10, 0x01, {0, 1, 0, 1, 5, 1, 1}, false},
        {"VQD-HT120", 19, 1, 0xE2, 31, 0x04, 0x02, {5, 5, 5, 5, 5, 0, 0}, false},
        {"VQD-HT110", 19, 16, 0xE2, 31, 0x01, 0x10, {1, 1, 1, 1, 1, 0, 0}, true},
        {"VQD-HT110", 18, 0, 0xE2, 255, 0x13, 0x00, {0, 0, 3, 0, 0, 0, 0}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.product << " " << int{c.byte48} << " " << int{c.byte49});
        sim::Camera& camera = openCamera(model(c.product));
        const std::pair<size_t, uint8_t> bytes[] = {{2, c.byte2},   {3, c.byte3},   {9, c.byte9},
                                                    {43, c.byte43}, {48, c.byte48}, {49, c.byte49}};
        for (const auto& [at, value] : bytes)
            camera.eeprom[at] = value;
        putPair(camera, 64, 0x1234);
        m_bFPPN = m_bOrthogonal = m_nUndistortionMode = m_bRemoveEdge = m_bRemoveMotionBlur = 5;
        m_bHorizontal = m_bVertical = 5;
        m_fXp2[0] = -77;
        load(count - 1);
        EXPECT_EQ((Derived{m_bFPPN, m_bOrthogonal, m_nUndistortionMode, m_bRemoveEdge, m_bRemoveMotionBlur,
                           m_bHorizontal, m_bVertical}),
                  c.expected);
        EXPECT_EQ(m_nDepthGab, 0x1234);
        EXPECT_EQ(m_fXp2[0] != -77, c.maps);
    }
}

TEST_F(Load, AListingLoadsEveryCameraAndTheLastDecidesForAll)
{
    const size_t first = usb.plug(model("VQD-HT120")), last = usb.plug(model("VQD-HT110"));
    usb.camera(first).eeprom[48] = 0x13;
    usb.camera(first).eeprom[49] = 0x11;
    putPair(usb.camera(last), 80, 1500);
    usb.camera(last).eeprom[48] = 2;
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdGetDeviceList(devices.data(), &count), 1); }),
              std::string("VQD_Library_Ver2.4_180220\n") + kTable);
    const std::string said = usb.conversation();
    EXPECT_TRUE(said.ends_with("B8 128 at 1200, BB 9600 at 4000, BB 4096 at 7000, B8 128 at 1200")) << said;
    EXPECT_EQ(m_bFPPN, 0);
    EXPECT_EQ(m_bOrthogonal, 0);
    EXPECT_EQ(m_nUndistortionMode, 2);
    EXPECT_EQ(m_fX_nu, 159 / 150.0f);
    EXPECT_EQ(pPointCloud[0].x, -160 / 150.0f / 1000.0f);
    EXPECT_EQ(m_fIntrinsicParam[0][0], 204); // each camera has a lens of its own
    // Only the first one has tables.
    EXPECT_EQ(m_nEEPROMFPPNBuf[0], 10); // half of the row pattern
    EXPECT_EQ(m_dOrthogonalData[120 * 320 + 160], 1.0);
    EXPECT_EQ(m_dOrthogonalData[120 * 320], 0.7869); // 160 pixels off at 204 pixels
}

} // namespace
