// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The depth pipeline's edge cases, one by one.
#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>

#include "support/raw_frame_test.h"

namespace
{

constexpr float kInfinity = std::numeric_limits<float>::infinity();

using Pipeline = RawFrameTest;

TEST_F(Pipeline, InterpolatesInSinglePrecisionAndGatesTheSpread)
{
    const struct {
        uint16_t samples[4]; // upper left, upper right, lower left, lower right
        float fx, fy;
        int value, gated;
    } cases[] = {
        {{1000, 1000, 1000, 1000}, 0.0f, 0.238f, 999, 999},        // double precision: 1000
        {{3000, 3000, 3000, 3000}, 0.256f, 0.0f, 2999, 2999},      // fused multiply-add: 3000
        {{3631, 3644, 3623, 3615}, 0.734375f, 0.493f, 3629, 3629}, // another grouping: 3628
        {{1131, 1099, 1127, 1127}, 0.125f, 0.068f, 1127, 1127},    // four weights: 1126
        {{99, 100, 99, 100}, 0.9f, 0.0f, 99, 99},                  // 99.9 is truncated
        {{1000, 1300, 1000, 1000}, 0.5f, 0.0f, 1150, 1150},        // at the limit
        {{1000, 1302, 1000, 1001}, 0.5f, 0.0f, 1151, 0},
        {{1000, 1000, 1301, 1000}, 0.0f, 0.0f, 1000, 0}, // weights do not matter
        {{1301, 1300, 1300, 1000}, 0.0f, 0.0f, 1301, 0},
        {{0, 0, 0, 65535}, 1.0f, 1.0f, 65535, 0},
    };
    m_nDepthGab = 300;
    for (size_t i = 0; i < std::size(cases); ++i) {
        const size_t at[] = {4 * i + 640, 4 * i + 641, 4 * i + 960, 4 * i + 961};
        for (int k = 0; k < 4; ++k)
            rawAmplitude[at[k]] = rawDepth[at[k]] = cases[i].samples[k];
        m_fXp2[i] = static_cast<float>(4 * i);
        m_fYp2[i] = 2;
        fDist_x2[i] = cases[i].fx;
        fDist_y2[i] = cases[i].fy;
    }
    for (const int mode : {1, 2}) {
        m_nUndistortionMode = mode;
        read();
        for (size_t i = 0; i < std::size(cases); ++i) {
            EXPECT_EQ(amplitude[i], cases[i].value) << "mode " << mode << ", case " << i;
            EXPECT_EQ(depth[i], mode == 1 ? cases[i].gated : cases[i].value) << "mode " << mode << ", case " << i;
        }
    }
}

TEST_F(Pipeline, SamplesStayOnTheSensor)
{
    const struct {
        float x, y;
        int x0, x1, y0, y1; // the samples left, right, above and below; 0 for a pixel from outside the image
    } cases[] = {
        // Columns and rows count from 1 here.
        {0, 0, 1, 2, 1, 2},
        {0.99999994f, 0.99999994f, 1, 3, 1, 3}, // + 1 rounds up to 2
        {127.99999f, 63.999996f, 128, 130, 64, 66},
        {-0.5f, -7.6e-6f, 1, 1, 1, 1},
        {-0.99999994f, 0, 1, 1, 1, 2},
        {318.5f, 238.5f, 319, 320, 239, 240},
        {319, 239, 320, 320, 240, 240},
        {319.99997f, 239.99998f, 320, 320, 240, 240},
        {-1, 5, 0, 0, 0, 0},
        {5, -1, 0, 0, 0, 0},
        {320, 5, 0, 0, 0, 0},
        {5, 240, 0, 0, 0, 0},
        {NAN, 5, 0, 0, 0, 0},
        {5, NAN, 0, 0, 0, 0},
        {kInfinity, 5, 0, 0, 0, 0},
        {5, -kInfinity, 0, 0, 0, 0},
        {4294967296.0f, 5, 0, 0, 0, 0},
        {5, -1e30f, 0, 0, 0, 0},
    };
    for (size_t i = 0; i < VQD_PIXELS; ++i) {
        rawAmplitude[i] = static_cast<uint16_t>(i % 320 + 1);
        rawDepth[i] = static_cast<uint16_t>(i / 320 + 1);
    }
    for (const int mode : {1, 2})
        for (const float weight : {0.0f, 1.0f}) {
            m_nUndistortionMode = mode;
            for (size_t i = 0; i < std::size(cases); ++i) {
                m_fXp2[i] = cases[i].x;
                m_fYp2[i] = cases[i].y;
                fDist_x2[i] = fDist_y2[i] = weight;
            }
            read();
            for (size_t i = 0; i < std::size(cases); ++i) {
                EXPECT_EQ(amplitude[i], weight == 0 ? cases[i].x0 : cases[i].x1) << mode << ": " << cases[i].x;
                EXPECT_EQ(depth[i], weight == 0 ? cases[i].y0 : cases[i].y1) << mode << ": " << cases[i].y;
            }
        }
    const struct {
        float x, y;
        int column, row;
    } nearest[] = {
        {10.5f, 10.49f, 12, 11}, {10.49f, 10.5f, 11, 12}, {0.49999997f, 0, 2, 1},       {-0.5f, -1.4f, 1, 1},
        {-1.5f, 0, 0, 0},        {0, -1.5f, 0, 0},        {319.49f, 239.49f, 320, 240}, {319.5f, 0, 0, 0},
        {0, 239.5f, 0, 0},       {NAN, 0, 0, 0},          {0, kInfinity, 0, 0},         {-4e9f, 0, 0, 0},
    };
    m_nUndistortionMode = 3;
    for (size_t i = 0; i < std::size(nearest); ++i) {
        fDist_x2[i] = nearest[i].x;
        fDist_y2[i] = nearest[i].y;
    }
    read();
    for (size_t i = 0; i < std::size(nearest); ++i) {
        EXPECT_EQ(amplitude[i], nearest[i].column) << nearest[i].x;
        EXPECT_EQ(depth[i], nearest[i].row) << nearest[i].y;
    }
}

TEST_F(Pipeline, LeavesTheLastInterpolatedValuesToTheApplication)
{
    rawAmplitude.fill(500);
    rawDepth.fill(1000);
    rawDepth[VQD_PIXELS - 2] = 1301;
    const struct {
        int mode;
        float x, fraction;
        float amplitude, depth;
    } cases[] = {
        {1, 318.5f, 0.5f, 500, 0}, // gated
        {1, 319.0f, 0.0f, 500, 1000},
        {2, 318.5f, 0.5f, 500, 1150.5f},
        {2, 320.0f, 0.0f, 0, 0}, // from outside the image
        {1, NAN, 0.0f, 0, 0},
        {3, 0, 0, 77, 77},
        {0, 0, 0, 77, 77},
        {9, 0, 0, 77, 77},
    };
    m_nDepthGab = 300;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mode);
        m_nUndistortionMode = c.mode;
        m_fXp2[VQD_PIXELS - 1] = c.x;
        fDist_x2[VQD_PIXELS - 1] = c.fraction;
        fDist_y2[VQD_PIXELS - 1] = 0;
        fChgAxis_Amp = fChgAxis_Dep1 = 77;
        read();
        EXPECT_EQ(fChgAxis_Amp, c.amplitude);
        EXPECT_EQ(fChgAxis_Dep1, c.depth);
    }
}

TEST_F(Pipeline, CorrectsClipsAndWraps)
{
    const struct {
        uint16_t raw;
        int fppn, orthogonal;
        double factor;
        int offset, minimum, maximum, value;
    } cases[] = {
        // The range alone.
        {500, 0, 0, 9, 9, 500, 3000, 500},
        {499, 0, 0, 9, 9, 500, 3000, 0},
        {3000, 2, -1, 9, 9, 500, 3000, 3000}, // only 1 means on
        {3001, 0, 0, 9, 9, 500, 3000, 0},
        {1000, 0, 0, 9, 9, 3000, 500, 0},
        {1000, 2, -1, 9, 9, 500, 3000, 1000}, // only 1 means on
        {65535, 0, 0, 9, 9, -1, 65536, 65535},
        {0, 0, 0, 9, 9, 0, 0, 0},
        // FPPN alone, as 16-bit numbers.
        {100, 1, 0, 9, -150, 0, 65486, 65486},
        {100, 1, 2, 9, -150, 0, 65485, 0},
        {65000, 1, 0, 9, 1000, 0, 15000, 464},
        {100, 1, 0, 9, INT_MAX, 0, 65535, 99},
        {100, 1, 0, 9, INT_MIN, 0, 65535, 100},
        {0, 1, 0, 9, 500, 0, 65535, 0},
        // The factor alone, in double precision, truncated.
        {1563, 0, 1, 0.9373, 9, 0, 65535, 1464}, // single precision: 1465
        {25, 0, 1, 1.16, 9, 0, 65535, 28},       // with integers: 29
        {1000, 0, 1, -1, 9, 0, 65535, 64536},
        {1000, 0, 1, -1, 9, 0, 64535, 0},
        {60000, 0, 1, 30000, 9, 0, 65535, 53760},   // low 16 bits
        {65535, 0, 1, 32768.5, 9, 0, 65535, 65535}, // just below the largest int and 1
        {65535, 0, 1, 32768.6, 9, 0, 65535, 0},     // no int
        {60000, 0, 1, 300000, 9, 0, 65535, 0},      //
        {60000, 0, 1, -300000, 9, 0, 65535, 0},     //
        {1000, 0, 1, NAN, 9, 0, 65535, 0},          //
        {1000, 0, 1, HUGE_VAL, 9, 0, 65535, 0},     //
        {0, 0, 1, NAN, 9, 0, 65535, 0},
        // Both: the product, then the sum, then the truncation.
        {1000, 1, 1, 1.5, 5, 0, 65535, 1505},
        {3, 1, 1, 0.5, -2, 0, 65535, 0}, // -0.5
        {3, 1, 1, 0.5, -3, 0, 65535, 65535},
        {3, 1, 1, 0.5, 1, 2, 65535, 2},
        {0, 1, 1, 1, 500, 0, 65535, 0},
        {1, 1, 1, 1, INT_MAX, 0, 65535, 0}, // no int
        {1, 1, 1, 1, INT_MIN, 0, 65535, 1},
    };
    constexpr size_t kPixel = 320 * 236 + 319; // the first row of the last block
    for (const auto& c : cases) {
        rawDepth[kPixel] = c.raw;
        m_dOrthogonalData[kPixel] = c.factor;
        m_nEEPROMFPPNBuf[4799] = c.offset;
        m_bFPPN = c.fppn;
        m_bOrthogonal = c.orthogonal;
        range(c.minimum, c.maximum);
        read();
        EXPECT_EQ(depth[kPixel], c.value) << c.raw << " x " << c.factor << " + " << c.offset << " with switches "
                                          << c.fppn << c.orthogonal << " in " << c.minimum << " to " << c.maximum;
    }
}

TEST_F(Pipeline, RemovesBrightPixelsOnAWideSpread)
{
    const struct {
        uint16_t amplitude, square[4];
        int left;
    } cases[] = {
        {31, {1000, 1000, 1000, 9000}, 1000}, {32, {1000, 1000, 1000, 1101}, 0},
        {32, {1000, 1000, 1000, 1100}, 1000}, {32, {1000, 1101, 1000, 1000}, 0},
        {32, {1000, 1000, 1101, 1000}, 0},    {32, {1101, 1000, 1101, 1101}, 0},
        {65535, {50, 50, 0, 151}, 0},         {65535, {100, 0, 0, 0}, 100},
        {65535, {101, 0, 0, 0}, 0},           {65535, {0, 900, 900, 900}, 0},
        {40000, {40000, 65535, 1, 40000}, 0},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        const size_t at[] = {6 * i, 6 * i + 1, 6 * i + 320, 6 * i + 321};
        for (int k = 0; k < 4; ++k)
            rawDepth[at[k]] = cases[i].square[k];
        rawAmplitude[at[0]] = cases[i].amplitude;
    }
    // A slope, on which each decision must be made from the values before any removal.
    for (size_t x = 0; x < 100; ++x) {
        rawDepth[320 * 100 + x] = rawDepth[320 * 101 + x] = static_cast<uint16_t>(1000 + 101 * x);
        rawAmplitude[320 * 100 + x] = 32;
    }
    for (size_t i = 0; i < 240; ++i) { // the last column and the last row
        rawDepth[320 * i + 319] = rawDepth[320 * 239 + i] = static_cast<uint16_t>(1 + 1000 * (i % 2));
        rawAmplitude[320 * i + 319] = rawAmplitude[320 * 239 + i] = 9999;
    }
    m_bRemoveEdge = 1;
    read();
    for (size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(depth[6 * i], cases[i].left) << i;
    for (size_t x = 0; x < 100; ++x) {
        EXPECT_EQ(depth[320 * 100 + x], 0) << x;
        EXPECT_EQ(depth[320 * 101 + x], 1000 + 101 * x) << x;
    }
    for (size_t i = 0; i < 240; ++i) {
        EXPECT_EQ(depth[320 * i + 319], rawDepth[320 * i + 319]) << i;
        EXPECT_EQ(depth[320 * 239 + i], rawDepth[320 * 239 + i]) << i;
    }
    m_nEdgeThres = 33;
    m_nEdgeDepth = 99;
    read();
    EXPECT_EQ(depth[6], 1000);
    EXPECT_EQ(depth[6 * 7], 0);
    for (const int other : {0, 2, -1}) {
        m_bRemoveEdge = other;
        read();
        EXPECT_TRUE(depth == rawDepth) << other;
    }
}

TEST_F(Pipeline, CorrectsThePixelsAfterTheyHaveMoved)
{
    rawDepth.fill(1000);
    for (size_t i = 0; i < VQD_PIXELS; ++i)
        m_dOrthogonalData[i] = i % 320 < 160 ? 1 : 2;
    m_bOrthogonal = 1;
    m_fXp2[0] = 300; // the factor of the left half counts, wherever the sample comes from
    fDist_y2[0] = 0;
    for (const int mode : {1, 2, 3}) {
        m_nUndistortionMode = mode;
        fDist_x2[0] = mode == 3 ? 300 : 0;
        read();
        EXPECT_EQ(depth[0], 1000) << mode;
    }
}

TEST_F(Pipeline, AsksForTheModelAnewWithEachFrame)
{
    const struct {
        const char* name;
        bool corrected;
    } cases[] = {{"VQD-HT120", true},   {"VQD-HT110", false}, {"VQD-HT950X", true}, {"VQD-HT950", false},
                 {"xVQD-HT120y", true}, {"VQD-RS120", false}, {"vqd-ht120", false}, {"", false}};
    rawAmplitude.fill(1000);
    rawDepth.fill(2000);
    rawDepth[700] = 5000;
    std::fill(std::begin(m_nEEPROMFPPNBuf), std::end(m_nEEPROMFPPNBuf), 7);
    std::fill(std::begin(m_dOrthogonalData), std::end(m_dOrthogonalData), 0.5);
    m_bFPPN = m_bOrthogonal = m_bRemoveEdge = 1;
    range(1, 2000);
    for (const int mode : {0, 4, -1})
        for (const auto& c : cases) {
            SCOPED_TRACE(c.name);
            m_nUndistortionMode = mode;
            product(c.name);
            read();
            EXPECT_EQ(depth[0], c.corrected ? 1007 : 2000);
            EXPECT_EQ(depth[700], c.corrected ? 0 : 5000);
            EXPECT_EQ(depth[699], c.corrected ? 0 : 2000);
            EXPECT_TRUE(amplitude == rawAmplitude);
            EXPECT_EQ(depth == rawDepth, !c.corrected);
        }
}

} // namespace
