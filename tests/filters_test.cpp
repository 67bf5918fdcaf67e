// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The pixel check filters, their two helpers, and the colour stream's bookkeeping.
#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>

#include "support/library_test.h"

namespace
{

TEST(Filters, AmplitudeCheckClearsBelowTheScaledThreshold)
{
    const struct {
        int threshold;
        float scale;
        uint16_t amplitude, left; // left: what remains of a depth of 9
    } cases[] = {
        {0x164, 1.3f, 129, 0},   // 100 x 1.3: only the low byte counts
        {0x164, 1.3f, 130, 9},   // strict
        {0, 1.3f, 0, 9},         // threshold 0 clears nothing
        {-1, 1.3f, 331, 0},      // 255 x 1.3 = 331.5
        {-1, 1.3f, 332, 9},      //
        {255, 300.0f, 65535, 0}, // the application's own scale
        {255, -1.0f, 0, 9},      //
        {255, NAN, 0, 9},        //
    };
    EXPECT_EQ(fAmpScale, 1.3f);
    for (const auto& c : cases) {
        fAmpScale = c.scale;
        uint16_t amplitude = c.amplitude, depth = 9;
        vqdAmplitudeCheckFilter(&amplitude, &depth, c.threshold, 1, 1);
        EXPECT_EQ(depth, c.left) << c.threshold << " x " << c.scale << " against " << c.amplitude;
        EXPECT_EQ(amplitude, c.amplitude);
    }
}

TEST(Filters, ScatteringCheckAsksLessOfFarPixels)
{
    const struct {
        int threshold;
        float scale;
        uint16_t amplitude, depth, left;
    } cases[] = {
        {10, 1.6e-6f, 6, 1000, 0},                                   // 10 / 1.6 = 6.25
        {10, 1.6e-6f, 7, 1000, 1000},                                //
        {10, 1.6e-6f, 1, 2000, 0},                                   // 10 / 6.4 = 1.56
        {10, 1.6e-6f, 2, 2000, 2000},                                //
        {0x10A, 1.6e-6f, 7, 1000, 1000}, {10, 1.6e-6f, 65535, 0, 0}, // 10 / 0 is above everything
        {0, 1.6e-6f, 0, 0, 0},                                       // 0 / 0 is above nothing
        {0, 1.6e-6f, 0, 1000, 1000},                                 //
        {255, 1e-8f, 11, 46340, 0},                                  // 46340 squared still fits: 255 / 21.47 = 11.87
        {255, 1e-8f, 12, 46340, 46340},                              //
        {255, 1e-8f, 0, 46341, 46341},                               // the square is negative from here on
        {255, 1.6e-6f, 0, 65535, 65535},                             // -131071
        {255, -1.6e-6f, 0, 65535, 0},                                // 255 / 0.21
        {255, 0.0f, 65535, 1000, 0},     {255, NAN, 0, 1000, 1000},
    };
    EXPECT_EQ(fScatterScale, 1.6e-6f);
    for (const auto& c : cases) {
        fScatterScale = c.scale;
        uint16_t amplitude = c.amplitude, depth = c.depth;
        vqdScatteringCheckFilter(&amplitude, &depth, c.threshold, 1, 1);
        EXPECT_EQ(depth, c.left) << c.threshold << ", amplitude " << c.amplitude << ", depth " << c.depth;
    }
}

TEST(Filters, MinMaxCheckComparesSixteenBits)
{
    const struct {
        unsigned minimum, maximum;
        uint16_t pixel, left;
    } cases[] = {
        {0x10064, 0x103E8, 100, 100},
        {0x10064, 0x103E8, 1000, 1000},
        {0x10064, 0x103E8, 99, 0},
        {0x10064, 0x103E8, 1001, 0},
        {0, UINT_MAX, 65535, 65535},
        {40000, 50000, 32768, 0},
        {40000, 50000, 45000, 45000},
        {500, 100, 300, 0},
        {0, 0, 1, 0},
    };
    for (const auto& c : cases) {
        uint16_t pixel = c.pixel;
        vqdMinMaxCheckFilter(&pixel, c.minimum, c.maximum, 1, 1);
        EXPECT_EQ(pixel, c.left) << c.minimum << " to " << c.maximum << ": " << c.pixel;
    }
}

TEST(Filters, VisitExactlyWidthTimesHeightPixels)
{
    const struct {
        int w, h;
        size_t cleared;
    } cases[] = {{1, 1, 1},  {7, 5, 35}, {33, 1, 33}, {1, 19, 19},           {0, 9, 0},         {9, 0, 0},
                 {-3, 5, 0}, {5, -3, 0}, {-3, -5, 0}, {INT_MIN, INT_MIN, 0}, {-65536, 65536, 0}};
    using Filter = void (*)(const uint16_t*, uint16_t*, int, int);
    const Filter filters[] = {
        [](const uint16_t* a, uint16_t* d, int w, int h) { vqdAmplitudeCheckFilter(a, d, 1, w, h); },
        [](const uint16_t* a, uint16_t* d, int w, int h) { vqdScatteringCheckFilter(a, d, 1, w, h); },
        [](const uint16_t*, uint16_t* d, int w, int h) { vqdMinMaxCheckFilter(d, 1000, 2000, w, h); },
    };
    for (const auto& c : cases)
        for (const Filter filter : filters) {
            // One element past an aligned start, because a caller's buffer need not be aligned.
            const std::vector<uint16_t> amplitude(65, 0);
            std::vector<uint16_t> depth(65, 7);
            filter(amplitude.data() + 1, depth.data() + 1, c.w, c.h);
            std::vector<uint16_t> expected(65, 7);
            std::fill_n(expected.begin() + 1, c.cleared, uint16_t{0});
            EXPECT_EQ(depth, expected) << c.w << " x " << c.h;
        }
}

TEST(Filters, DataSortOrdersSignedNumbers)
{
    const std::vector<int> cases[] = {{5, -1, 5, 3}, {}, {3}, {INT_MAX, INT_MIN, 0, -1}, {1, 2, 3}, {4, 3, 2, 1, 0, 9}};
    for (std::vector<int> values : cases) {
        std::vector<int> expected = values;
        std::ranges::sort(expected);
        DataSort(values.data(), static_cast<int>(values.size()));
        EXPECT_EQ(values, expected);
    }
    std::vector<int> values = {3, 2, 1};
    DataSort(values.data(), 1);
    DataSort(values.data(), 0);
    DataSort(values.data(), -5);
    EXPECT_EQ(values, (std::vector<int>{3, 2, 1}));
    DataSort(values.data(), 2);
    EXPECT_EQ(values, (std::vector<int>{2, 3, 1}));
}

TEST(Filters, RoundTakesHalvesUpInSinglePrecision)
{
    const float infinity = std::numeric_limits<float>::infinity();
    const struct {
        float value;
        int rounded;
    } cases[] = {{0.49f, 0},
                 {0.5f, 1},
                 {-0.5f, 0},
                 {-0.51f, -1},
                 {2.5f, 3},
                 {-2.5f, -2},
                 {0.49999997f, 1},      // the sum rounds to 1
                 {8388609.0f, 8388610}, // here the sum rounds to even
                 {-2147483648.0f, INT_MIN},
                 {2147483520.0f, 2147483520},
                 {2147483648.0f, 0}, // no int holds it
                 {NAN, 0},
                 {infinity, 0},
                 {-infinity, 0}};
    for (const auto& c : cases)
        EXPECT_EQ(Round(c.value), c.rounded) << c.value;
}

} // namespace
