// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Undistortion maps, and the inverse for a single pixel. Simd.MapBuild and SameEverywhere compare whole maps.
#include <cmath>
#include <cstring>
#include <limits>

#include "support/library_test.h"

namespace
{

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

struct TestLens {
    float fx, fy, cx, cy, k1, k2, k3, p1, p2, skew;
};
constexpr TestLens kUsual{204, 204, 160, 120, -0.346f, 0.12f, 0, 0, 0, 0};

void use(const TestLens& lens)
{
    memcpy(m_fIntrinsicParam[0], &lens.fx, 16);
    memcpy(m_fDistorParam[0], &lens.k1, 24);
}

void sentinels()
{
    for (float* map : {m_fXp2, m_fYp2, fDist_x2, fDist_y2})
        std::fill_n(map, VQD_PIXELS, -77.0f);
}

bool untouched()
{
    return m_fXp2[0] == -77 && m_fYp2[VQD_PIXELS - 1] == -77 && fDist_x2[0] == -77 && fDist_y2[VQD_PIXELS - 1] == -77;
}

using Undistortion = LibraryTest;

TEST_F(Undistortion, TheUsualLensGivesTheseNumbers)
{
    openCamera();
    EXPECT_EQ(vqdSetUndistortion(0, 2), 1);
    EXPECT_EQ(m_fXp2[0], 35.4724655f); // 35.4724617 with fused multiply-add, 35.4724698 in double precision
    EXPECT_EQ(m_fYp2[0], 26.6043472f);
    EXPECT_EQ(m_fXp2[120 * 320 + 160], 160);
    EXPECT_EQ(m_fYp2[120 * 320 + 160], 120);
    EXPECT_EQ(fDist_x2[120 * 320 + 160], 0);
    EXPECT_NEAR(m_fXp2[VQD_PIXELS - 1], 283.9985, 5e-5);
    EXPECT_NEAR(m_fYp2[VQD_PIXELS - 1], 212.8039, 5e-5);
    const struct {
        float value;
        double expected;
    } last[] = {{m_fX_nu, 0.77941},     {m_fY_nu, 0.58333}, {m_fRu2, 0.94776},
                {m_fRadial_d, 0.77986}, {m_fX_nd, 0.60784}, {m_fY_nd, 0.45492}};
    for (const auto& c : last)
        EXPECT_NEAR(c.value, c.expected, 5e-6);
}

TEST_F(Undistortion, TheModeAndItsMapsStayWhateverBecomesOfTheRest)
{
    sentinels();
    EXPECT_EQ(printed([] { EXPECT_EQ(vqdSetUndistortion(0, 2), 0); }),
              "VQD Device not opened.\nVQD Device not opened.\n");
    EXPECT_EQ(m_nUndistortionMode, 2);
    EXPECT_TRUE(untouched());
    openCamera();
    for (const int mode : {INT32_MIN, -1, 0, 1, 2, 3, 4, 257}) {
        sentinels();
        usb.fail("bulk", -7);
        printed([&] { EXPECT_EQ(vqdSetUndistortion(0, mode), 0); });
        EXPECT_EQ(untouched(), mode < 1 || mode > 3) << mode;
    }
}

TEST_F(Undistortion, OnePixelFindsItsCorrectedPlace)
{
    const TestLens folding{180, 180, 160, 120, -0.6f, 0.12f, 0, 0, 0, 0}; // takes 5934 passes
    const TestLens uneven{204, 190, 155.5f, 118.2f, -0.3f, 0.1f, 0.02f, 0.02f, -0.01f, 0.08f};
    const struct {
        const TestLens& lens;
        int column, row, toColumn, toRow;
    } cases[] = {{kUsual, 35, 26, 0, 0},       {kUsual, 40, 30, 8, 6},       {kUsual, 300, 200, 342, 224},
                 {kUsual, 160, 120, 160, 120}, {folding, 13, 22, -136, -77}, {uneven, 300, 200, 332, 213},
                 {uneven, 50, 200, 38, 207}};
    for (const auto& c : cases) { // no camera is needed
        use(c.lens);
        int column = c.column, row = c.row;
        vqdGetUndistortPixel(0, &column, &row);
        EXPECT_EQ(column, c.toColumn);
        EXPECT_EQ(row, c.toRow);
    }

    int moved = 0;
    for (const float skew : {0.0f, 0.25f}) {
        use({211.3f, 198.7f, 158.4f, 121.9f, 0, 0, 0, 0, 0, skew});
        for (int i = 0; i < VQD_PIXELS; ++i) {
            int column = i % 320, row = i / 320;
            vqdGetUndistortPixel(0, &column, &row);
            moved += column != i % 320 || row != i / 320;
        }
    }
    EXPECT_EQ(moved, 0);
}

// At the edge of convergence the inverse needs thousands of passes; beyond it, no number suffices.
TEST_F(Undistortion, ALensWithoutAnAnswerLeavesThePixelAndReturns)
{
    const TestLens lenses[] = {
        {0, 204, 160, 120, 0, 0, 0, 0, 0, 0},      {204, 0, 160, 120, 0, 0, 0, 0, 0, 0},
        {kNan, 204, 160, 120, 0, 0, 0, 0, 0, 0},   {204, 204, kInf, 120, 0, 0, 0, 0, 0, 0},
        {204, 204, 160, 120, kInf, 0, 0, 0, 0, 0}, {204, 204, 160, 120, 0, 0, 0, 0, kNan, 0},
        {204, 204, 160, 120, 0, 0, 0, 0, 0, kInf}, {204, 204, 160, 120, -5, 0, 0, 0, 0, 0}, // beyond its fold
        {204, 204, 160, 120, 9, 0, 0, 0, 0, 0},                                             // swings for ever
        {kInf, kInf, 160, 120, 0, 0, 0, 0, 0, 0},  {204, 204, 160, 120, 0, 0, 0, 0, 0, 1e30f},
        {1e-38f, 204, 160, 120, 0, 0, 0, 0, 0, 0}};
    for (const TestLens& lens : lenses) {
        use(lens);
        int column = 7, row = 231;
        vqdGetUndistortPixel(0, &column, &row);
        EXPECT_EQ(column, 7) << lens.fx << " " << lens.k1;
        EXPECT_EQ(row, 231) << lens.fx << " " << lens.k1;
    }
    use(kUsual);
    int column = INT32_MIN, row = 5;
    vqdGetUndistortPixel(0, &column, &row); // the call returns for any input
}

} // namespace
