// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The three calibration sets: their bytes in the image, the values in the caches, and what reaches the camera.
#include <cmath>
#include <cstring>
#include <limits>

#include "support/library_test.h"

namespace
{

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

enum Set { kDepth, kColour, kBetween };
constexpr Set kSets[] = {kDepth, kColour, kBetween};
using Values = std::array<float, 12>; // lenses use ten of them: intrinsic, then distortion

int set(Set which, const Values& v)
{
    if (which == kBetween)
        return vqdSetExtrinsicParameter(0, {v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8], v[9], v[10], v[11]});
    const auto setLens = which == kDepth ? vqdSetLensParameter : vqdSetRGBLensParameter;
    return setLens(0, {v[0], v[1], v[2], v[3]}, {v[4], v[5], v[6], v[7], v[8], v[9]});
}

int get(Set which, Values& v)
{
    if (which == kBetween)
        return vqdGetExtrinsicParameter(0, v.data());
    return (which == kDepth ? vqdGetLensParameter : vqdGetRGBLensParameter)(0, v.data(), v.data() + 4);
}

// The values with which the library computes, or which it keeps for the application.
Values cached(Set which)
{
    Values v{};
    if (which == kBetween) {
        memcpy(v.data(), m_fExtrinsicParam[0], sizeof m_fExtrinsicParam[0]);
        return v;
    }
    memcpy(v.data(), which == kDepth ? m_fIntrinsicParam[0] : m_fRGBIntrinsicParam[0], 16);
    memcpy(v.data() + 4, which == kDepth ? m_fDistorParam[0] : m_fRGBDistorParam[0], 24);
    return v;
}

bool sameBits(const Values& a, const Values& b)
{
    return memcmp(a.data(), b.data(), sizeof a) == 0;
}

class Lens : public LibraryTest
{
protected:
    void setQuietly(Set which, const Values& v)
    {
        printed([&] { EXPECT_EQ(set(which, v), 1); });
    }

    static int pairAt(int offset) { return stCamParam[0].image[offset] << 8 | stCamParam[0].image[offset + 1]; }
};

TEST_F(Lens, ValuesAreStoredInFixedPoint)
{
    enum { fx, fy, cx, cy, k1, k2, k3, p1, p2, skew };
    const struct {
        Set set;
        int member;
        float value;
        int at, stored;
        float back;
    } cases[] = {
        {kDepth, fx, 204.57f, 80, 0x07FD, 204.5f},
        {kDepth, cx, 139.9f, 90, 0x0577, 139.9f}, // 1398 in double precision
        {kDepth, cy, 0.09f, 92, 0, 0.0f},
        {kDepth, k1, -0.346f, 84, 0x815A, -0.346f}, // 345 in double precision
        {kDepth, k2, 0.12f, 86, 0x0078, 0.12f},
        {kDepth, k3, 0.251f, 88, 0x00FA, 0.25f}, // the product is just below 251
        {kDepth, p1, 0.53f, 94, 0x0034, 0.52f},
        {kDepth, p2, 0.0058f, 96, 0, 0.0f},
        {kDepth, skew, -0.0009f, 98, 0, 0.0f}, // 0 carries no sign
        {kDepth, skew, 0.0f, 98, 0, 0.0f},
        {kColour, p1, 0.0058f, 114, 0x0005, 0.005f},
        {kColour, p2, -0.0058f, 116, 0x8005, -0.005f},
        {kColour, fy, 6553.5f, 102, 0xFFFF, 6553.5f},
        {kBetween, 0, 0.0123f, 120, 0x007B, 0.0123f},
        {kBetween, 1, -0.02345f, 122, 0x80EB, -0.0235f},
        {kBetween, 4, 0.00005f, 128, 0x0001, 0.0001f}, // 0 in double precision
        {kBetween, 11, -0.00005f, 142, 0x8001, -0.0001f},
        {kBetween, 9, 0.00004f, 138, 0, 0.0f},
        {kBetween, 10, -0.0f, 140, 0, 0.0f},
        // A value that a field cannot hold is stored as the nearest one that it can.
        {kDepth, fx, -1.0f, 80, 0, 0.0f},
        {kDepth, fy, 6553.6f, 82, 0xFFFF, 6553.5f},
        {kDepth, cx, kInf, 90, 0xFFFF, 6553.5f},
        {kDepth, cy, kNan, 92, 0, 0.0f},
        {kDepth, k1, 32.768f, 84, 0x7FFF, 32.767f},
        {kDepth, k2, -1e30f, 86, 0xFFFF, -32.767f},
        {kColour, k3, -kInf, 108, 0xFFFF, -32.767f},
        {kColour, skew, -kNan, 118, 0, 0.0f},
        {kBetween, 2, 3.2768f, 124, 0x7FFF, 3.2767f},
        {kBetween, 3, -kInf, 126, 0xFFFF, -3.2767f},
        {kBetween, 5, kNan, 130, 0, 0.0f},
    };
    openCamera();
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "set " << c.set << " member " << c.member << " value " << c.value);
        Values values{}, back{};
        values[static_cast<size_t>(c.member)] = c.value;
        setQuietly(c.set, values);
        EXPECT_EQ(pairAt(c.at), c.stored);
        EXPECT_TRUE(sameBits(cached(c.set), values)); // the exact value, NaN too
        EXPECT_EQ(get(c.set, back), 1);
        EXPECT_EQ(back[static_cast<size_t>(c.member)], c.back);
    }
}

TEST_F(Lens, EveryMemberHasItsPlace)
{
    const Values lens{200.5f, 100.5f, 160.5f, 120.5f, -0.5f, 0.25f, -0.125f, 0.75f, -1.25f, 2.0f};
    const Values transform{1.0f, -0.5f, 0.25f, -0.125f, 0.75f, -1.0f, 1.5f, -1.5f, 2.0f, 0.0625f, -0.03125f, 3.0f};
    const struct {
        Set set;
        Values values;
        int at;
        std::vector<uint8_t> bytes; // in a lens, the principal point stands behind k3
    } cases[] = {
        {kDepth, lens, 80, {0x07, 0xD5, 0x03, 0xED, 0x81, 0xF4, 0x00, 0xFA, 0x80, 0x7D,
                            0x06, 0x45, 0x04, 0xB5, 0x00, 0x4B, 0x80, 0x7D, 0x07, 0xD0}},
        {kColour, lens, 100, {0x07, 0xD5, 0x03, 0xED, 0x81, 0xF4, 0x00, 0xFA, 0x80, 0x7D,
                              0x06, 0x45, 0x04, 0xB5, 0x02, 0xEE, 0x84, 0xE2, 0x07, 0xD0}},
        {kBetween, transform, 120, {0x27, 0x10, 0x93, 0x88, 0x09, 0xC4, 0x84, 0xE2, 0x1D, 0x4C, 0xA7, 0x10,
                                    0x3A, 0x98, 0xBA, 0x98, 0x4E, 0x20, 0x02, 0x71, 0x81, 0x39, 0x75, 0x30}},
    };
    openCamera();
    for (const auto& c : cases) {
        ParamImage expected;
        memcpy(expected, stCamParam[0].image, sizeof expected);
        std::copy(c.bytes.begin(), c.bytes.end(), expected + c.at);
        setQuietly(c.set, c.values);
        EXPECT_EQ(memcmp(stCamParam[0].image, expected, sizeof expected), 0) << c.set; // and nothing else
        Values back{}, quantised = c.values;
        EXPECT_EQ(get(c.set, back), 1);
        if (c.set == kBetween)
            quantised[10] = -0.0313f;
        EXPECT_EQ(back, quantised) << c.set;
    }
}

TEST_F(Lens, TheSignOfAStoredZeroReadsAsMinusZero)
{
    openCamera();
    stCamParam[0].image[84] = 0x80;
    stCamParam[0].image[85] = 0;
    float distortion[6] = {};
    EXPECT_EQ(vqdGetLensParameter(0, nullptr, distortion), 1);
    EXPECT_TRUE(distortion[0] == 0 && std::signbit(distortion[0]));
}

TEST_F(Lens, ASetterSavesTheEepromAndNothingElse)
{
    sim::Camera& camera = openCamera();
    for (const Set which : kSets) {
        SCOPED_TRACE(which);
        const sim::Image registers = camera.registers;
        const Values values{150.25f, 150.35f, 160.05f, 119.95f, 0.12345f, 1.0f, 0.5f};
        EXPECT_EQ(printed([&] { EXPECT_EQ(set(which, values), 1); }), "EEPROM Parameter Save Success.\n");
        EXPECT_EQ(usb.conversation(), "B7 128 at 1200");
        EXPECT_EQ(memcmp(camera.eeprom.data(), stCamParam[0].image, 128), 0);
        EXPECT_EQ(camera.registers, registers);
        EXPECT_TRUE(sameBits(cached(which), values));

        const sim::Eeprom before = camera.eeprom;
        const Values others{151, 0.5f, 161, 118};
        usb.fail("control", -9);
        EXPECT_EQ(printed([&] { EXPECT_EQ(set(which, others), 1); }), "");
        EXPECT_EQ(camera.eeprom, before);
        EXPECT_TRUE(sameBits(cached(which), others));
        EXPECT_NE(memcmp(camera.eeprom.data(), stCamParam[0].image, 128), 0);
        usb.conversation();
    }
}

TEST_F(Lens, AReloadQuantisesTheCachesAndKeepsWhatTheEepromDoesNot)
{
    sim::Camera& camera = openCamera();
    for (const Set which : {kDepth, kColour})
        setQuietly(which, {150.25f, 150.35f, 160.05f, 119.95f, 0.1239f, 0, 0, 0.0199f});
    setQuietly(kBetween, {0.5f, 0.25f, 0.00004f, -0.5f, 1, 2, 3, -1, -2, -3, 0.75f, 0.00006f});
    printed([] { EXPECT_EQ(LoadParameter(0), 1); });
    EXPECT_EQ(cached(kDepth), (Values{150.2f, 150.3f, 160.0f, 119.9f, 0.123f, 0, 0, 0.01f}));
    EXPECT_EQ(cached(kColour), (Values{150.2f, 150.3f, 160.0f, 119.9f, 0.123f, 0, 0, 0.019f}));
    EXPECT_EQ(cached(kBetween), (Values{0.5f, 0.25f, 0, -0.5f, 1, 2, 3, -1, -2, -3, 0.75f, 0.0001f}));

    // A process that has never set the transform knows only the four values of the EEPROM.
    memset(stCamParam[0].image + 128, 0, 384);
    printed([] { EXPECT_EQ(LoadParameter(0), 1); });
    EXPECT_EQ(cached(kBetween), (Values{0.5f, 0.25f, 0, -0.5f}));
    EXPECT_EQ(camera.eeprom[126] << 8 | camera.eeprom[127], 0x8000 + 5000);
}

TEST_F(Lens, MapsAndRaysFollowLater)
{
    openCamera();
    EXPECT_EQ(vqdSetUndistortion(0, 2), 1);
    const float map = m_fXp2[0], ray = pPointCloud[0].x;
    setQuietly(kDepth, {150, 150, 150, 110});
    EXPECT_EQ(m_fXp2[0], map);
    EXPECT_EQ(pPointCloud[0].x, ray);
    EXPECT_EQ(vqdSetUndistortion(0, 2), 1);
    EXPECT_NEAR(m_fXp2[0], 0, 1e-4); // no distortion any more
    EXPECT_EQ(pPointCloud[0].x, ray);
    printed([] { EXPECT_EQ(LoadParameter(0), 1); });
    EXPECT_FLOAT_EQ(pPointCloud[0].x, -0.001f);
}

} // namespace
