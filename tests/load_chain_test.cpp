// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Everything that a parameter load derives, in its order: lens, rays, tables, switches, maps.
#include <cstring>

#include "support/library_test.h"

namespace
{

const char kVersion[] = "VQD_Library_Ver2.4_180220\n";
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

class LoadChain : public LibraryTest
{
protected:
    static std::string load(int n = 0)
    {
        return printed([=] { EXPECT_EQ(LoadParameter(n), 1); });
    }
};

TEST_F(LoadChain, OnlyHostCorrectedModelsReadTables)
{
    const struct {
        const char* product;
        bool tables;
    } cases[] = {{"VQD-HT120", true}, {"maker's VQD-HT950X rev 2", true}, {"VQD-HT110", false}, {"VQD-RS120", false}};
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.product);
        usb.plug(model(c.product));
        list();
        const std::string tables = c.tables ? kTable : "";
        EXPECT_EQ(load(n), tables);
        EXPECT_EQ(usb.conversation(), c.tables ? "B8 128 at 1200, BB 9600 at 4000, BB 4096 at 7000" : "B8 128 at 1200");

        usb.camera(static_cast<size_t>(n)).eeprom[4] = 0; // the factory image has no lens
        std::string lines = kDefaults;
        lines[0] = static_cast<char>('0' + n);
        EXPECT_EQ(load(n), lines + kBadLens + tables);
        ++n;
    }
}

TEST_F(LoadChain, AListingLoadsBeforeItReturns)
{
    usb.plug(model("VQD-HT120"));
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdGetDeviceList(devices.data(), &count), 1); }), std::string(kVersion) + kTable);
    const std::string said = usb.conversation();
    EXPECT_NE(said.find("B8 128 at 1200, BB 9600 at 4000, BB 4096 at 7000"), std::string::npos) << said;
    EXPECT_EQ(m_nEEPROMFPPNBuf[0], 10); // the camera's own table: half of the row pattern
    EXPECT_EQ(m_dOrthogonalData[120 * 320 + 160], 1.0);
    EXPECT_EQ(m_dOrthogonalData[120 * 320], 0.7869); // 160 pixels off at 204 pixels
}

TEST_F(LoadChain, ThePrincipalPointDecidesOnTheLens)
{
    const struct {
        int cx;
        bool good;
    } cases[] = {{1399, false}, {1400, true}, {1800, true}, {1801, false}, {0, false}, {65535, false}};
    sim::Camera& camera = openCamera(model("VQD-HT110"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cx);
        putPair(camera, 80, 2000);
        putPair(camera, 90, c.cx);
        pPointCloud[0] = {7, 7, 7};
        EXPECT_EQ(load(), c.good ? "" : kBadLens);
        const float cx = static_cast<float>(c.cx) / 10.0f;
        EXPECT_EQ(m_fIntrinsicParam[0][0], c.good ? 200 : 204);
        EXPECT_EQ(m_fIntrinsicParam[0][2], c.good ? cx : 160);
        EXPECT_EQ(pPointCloud[0].x, c.good ? -cx / 200.0f / 1000.0f : 7); // the rays stay as they were
        float intrinsic[4] = {};
        EXPECT_EQ(vqdGetLensParameter(0, intrinsic, nullptr), 1);
        EXPECT_EQ(intrinsic[2], cx); // so does the image
    }
    const float lens[] = {204, 204, 160, 120}, distortion[] = {-0.346f, 0.12f, 0, 0, 0, 0};
    EXPECT_EQ(memcmp(m_fIntrinsicParam[0], lens, sizeof lens), 0);
    EXPECT_EQ(memcmp(m_fDistorParam[0], distortion, sizeof distortion), 0);
}

struct Derived {
    int fppn, orthogonal, mode, edge, blur;
    bool operator==(const Derived&) const = default;
};

Derived derived()
{
    return {m_bFPPN, m_bOrthogonal, m_nUndistortionMode, m_bRemoveEdge, m_bRemoveMotionBlur};
}

TEST_F(LoadChain, SwitchesComeFromTheImageAndMapsFromTheMode)
{
    const struct {
        const char* product;
        uint8_t byte2, byte3, byte43, byte48, byte49;
        Derived expected; // from flags that were all 5 before
        bool maps;
    } cases[] = {
        {"VQD-HT120", 2, 16, 255, 0x13, 0x11, {1, 1, 3, 1, 1}, true},
        {"VQD-HT120", 19, 0, 31, 0x02, 0x00, {0, 0, 2, 0, 0}, true},
        {"VQD-HT120", 19, 1, 31, 0x10, 0x01, {0, 1, 0, 1, 5}, false},
        {"VQD-HT120", 19, 1, 31, 0x04, 0x02, {5, 5, 5, 5, 5}, false},
        {"VQD-HT110", 19, 16, 31, 0x01, 0x10, {1, 1, 1, 1, 1}, true},
        {"VQD-HT110", 18, 0, 255, 0x13, 0x00, {0, 0, 3, 0, 0}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.product << " " << int{c.byte48} << " " << int{c.byte49});
        sim::Camera& camera = openCamera(model(c.product));
        const std::pair<size_t, uint8_t> bytes[] = {
            {2, c.byte2}, {3, c.byte3}, {43, c.byte43}, {48, c.byte48}, {49, c.byte49}};
        for (const auto& [at, value] : bytes)
            camera.eeprom[at] = value;
        putPair(camera, 64, 0x1234);
        m_bFPPN = m_bOrthogonal = m_nUndistortionMode = m_bRemoveEdge = m_bRemoveMotionBlur = 5;
        m_fXp2[0] = -77;
        load(count - 1);
        EXPECT_EQ(derived(), c.expected);
        EXPECT_EQ(m_nDepthGab, 0x1234);
        EXPECT_EQ(m_fXp2[0] != -77, c.maps);
    }
}

TEST_F(LoadChain, TheLastCameraDecidesForAll)
{
    const size_t first = usb.plug(model("VQD-HT120")), last = usb.plug(model("VQD-HT110"));
    usb.camera(first).eeprom[48] = 0x13;
    usb.camera(first).eeprom[49] = 0x11;
    putPair(usb.camera(last), 80, 1500);
    usb.camera(last).eeprom[48] = 2;
    EXPECT_EQ(list(), 2);
    EXPECT_EQ(m_bFPPN, 0);
    EXPECT_EQ(m_bOrthogonal, 0);
    EXPECT_EQ(m_nUndistortionMode, 2);
    EXPECT_EQ(m_fX_nu, 159 / 150.0f);
    EXPECT_EQ(pPointCloud[0].x, -160 / 150.0f / 1000.0f);
    EXPECT_EQ(m_fIntrinsicParam[0][0], 204);            // the lens is each camera's own
    EXPECT_EQ(m_dOrthogonalData[120 * 320 + 160], 1.0); // only the first one has tables
}

} // namespace
