// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What a profile is bound to, and what it does to the library's tables.
#include <cstdlib>

#include <gtest/gtest.h>

#include "host/profile.h"

namespace
{

ListedCamera cameraOfBytes()
{
    ListedCamera camera{};
    camera.known = Known::read;
    strcpy(camera.szSerialNumber, "24061100000001");
    for (size_t i = 0; i < camera.eeprom.size(); ++i)
        camera.eeprom[i] = static_cast<uint8_t>(i);
    return camera;
}

TEST(Profile, IsBoundToEachByteOfTheLensesAndToNoSetting)
{
    Eeprom eeprom = cameraOfBytes().eeprom;
    const std::string before = fingerprint(eeprom);
    EXPECT_EQ(before, "839df128a2d96695");
    for (size_t i = 0; i < eeprom.size(); ++i) {
        eeprom[i] ^= 1;
        EXPECT_EQ(fingerprint(eeprom) != before, i >= 80) << i;
        eeprom[i] ^= 1;
    }
}

TEST(Profile, FactorsByRadiusAreThoseOfTheNearestWholePixelAndEndWithTheTable)
{
    Profile profile;
    for (int i = 0; i < 2048; ++i)
        profile.orthogonal.push_back(i / 2048.0);
    const std::vector<double> factors = orthogonalFactors(profile, {
                                                                       204,
                                                                       204,
                                                                       10,
                                                                       0,
                                                                   });
    ASSERT_EQ(factors.size(), 76800u);
    EXPECT_EQ(factors[10], 0);
    EXPECT_EQ(factors[13], 24 / 2048.0);
    EXPECT_EQ(factors[320 * 4 + 13], 40 / 2048.0); // 3, 4, 5
    EXPECT_EQ(factors[319], 2040 / 2048.0);        // beyond
}

// Frames without the corrections that somebody has prepared would look the same.
TEST(Profile, ThatCannotBeReachedIsAWarning)
{
    char folder[] = "/tmp/profile_test.XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::filesystem::path vqd = std::filesystem::path(folder) / "vqd";
    setenv("XDG_DATA_HOME", folder, 1);
    const std::vector<ListedCamera> cameras{cameraOfBytes()};
    EXPECT_EQ(findProfile(cameras, cameras[0]).warning, "");
    std::filesystem::create_symlink("vqd", vqd); // to itself: a folder that root cannot enter either
    const FoundProfile found = findProfile(cameras, cameras[0]);
    EXPECT_NE(found.warning.find((vqd / "profiles/24061100000001.json").string()), std::string::npos) << found.warning;
    EXPECT_FALSE(found.values);
    std::filesystem::remove_all(folder);
}

// Without a lens of its own, a profile leaves that of the camera in force.
TEST(Profile, ReplacesOnlyTheTablesThatItHas)
{
    const ListedCamera camera = cameraOfBytes();
    m_fIntrinsicParam[0][0] = 204;
    m_dOrthogonalData[0] = 0.5;
    FoundProfile found{.path = "p", .values = Profile(), .warning = ""};
    EXPECT_EQ(profileInUse(camera), "");
    found.values->fppn.assign(4800, 7);
    applyProfile(camera, found);
    EXPECT_EQ(m_nEEPROMFPPNBuf[4799], 7);
    EXPECT_EQ(m_fIntrinsicParam[0][0], 204);
    EXPECT_EQ(m_dOrthogonalData[0], 0.5);
    EXPECT_EQ(profileInUse(camera), "p");

    found.values->depth = LensSet{{207.3456F, 207, 160, 120}, {-0.3F, 0, 0, 0, 0, 0}};
    applyProfile(camera, found);
    EXPECT_EQ(m_fIntrinsicParam[0][0], 207.3456F);
    EXPECT_EQ(m_fDistorParam[0][0], -0.3F);
}

} // namespace
