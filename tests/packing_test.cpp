// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Packed planes: their bytes, the way back, and bytes that nobody packed.
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zstd.h>

#include "host/failure.h"
#include "worker/packing.h"

namespace
{

using Plane = std::vector<uint16_t>;
using Bytes = std::vector<uint8_t>;

Bytes zstd(const Bytes& content)
{
    Bytes frame(ZSTD_compressBound(content.size()));
    frame.resize(ZSTD_compress(frame.data(), frame.size(), content.data(), content.size(), 1));
    return frame;
}

Bytes copyOf(std::span<const uint8_t> bytes)
{
    return {bytes.begin(), bytes.end()};
}

// A slope with steps and some noise: what depth planes are like, with the ends of the range in it.
Plane slope(size_t pixels)
{
    std::mt19937 random(7);
    Plane plane(pixels);
    for (size_t i = 0; i < pixels; ++i)
        plane[i] = static_cast<uint16_t>(i % 320 * 5 + random() % 4 + (i % 97 == 0 ? 65000 : 0));
    return plane;
}

TEST(Packing, IsTheDocumentedContentOfEachPlaneInTurn)
{
    const Plane one = {3, 1, 65535, 0},
                other = {32768, 0, 32767, 7}; // differences 3 -2 -2 1, -32768 +-32768 32767 -32760
    const Bytes content = {6,    3,    3,    2,    0,    0,    0,    0,     // zigzag 6 3 3 2
                           0xFF, 0xFF, 0xFE, 0xEF, 0xFF, 0xFF, 0xFF, 0xFF}; // 65535 65535 65534 65519
    Plane first(4), second(4);
    Packing packing;
    packing.unpack(zstd(content), {first, second});
    EXPECT_EQ(first, one);
    EXPECT_EQ(second, other);
    // The other way on planes that become smaller: what Zstandard unpacks is the content.
    const Plane rows(1000, 5);
    const Bytes packed = copyOf(packing.pack({rows}));
    Bytes unpacked(2000), expected(2000, 0);
    expected[0] = 10;
    ASSERT_EQ(ZSTD_decompress(unpacked.data(), unpacked.size(), packed.data(), packed.size()), unpacked.size());
    EXPECT_EQ(unpacked, expected);
}

TEST(Packing, GivesBackEveryValueAndEveryStep)
{
    Plane steps; // each value beside each of some others, so that differences wrap at either end
    for (unsigned value = 0; value < 65536; ++value)
        for (const unsigned step : {0u, 1u, 255u, 32767u, 32768u, 65535u})
            steps.push_back(static_cast<uint16_t>(value + step));
    const Plane frame = slope(320 * 240), flat(320 * 240, 65535);
    Packing packing; // one for all, as a worker has it
    for (const auto& [one, other] : {std::pair(steps, flat), std::pair(frame, frame), std::pair(flat, frame)}) {
        const Bytes packed = copyOf(packing.pack({one, other}));
        ASSERT_FALSE(packed.empty());
        Plane sameOne(one.size()), sameOther(other.size());
        packing.unpack(packed, {sameOne, sameOther});
        EXPECT_TRUE(sameOne == one && sameOther == other);
    }
}

TEST(Packing, LeavesNoiseAsItIs)
{
    std::mt19937 random(11);
    Plane noise(320 * 240), other(320 * 240);
    for (Plane* plane : {&noise, &other})
        std::ranges::generate(*plane, [&] { return static_cast<uint16_t>(random()); });
    Packing packing;
    EXPECT_TRUE(packing.pack({noise, other}).empty());
    EXPECT_TRUE(packing.pack({Plane(), Plane()}).empty());
    EXPECT_FALSE(packing.pack({slope(320 * 240)}).empty()) << "noise leaves the workspace in order";
}

TEST(Packing, RefusesWhatIsNotTheseTwoPlanes)
{
    const Plane plane = slope(1000);
    Packing packing;
    const Bytes good = copyOf(packing.pack({plane, plane}));
    Bytes cut(good.begin(), good.end() - 1), longer = good, twice = good, spoilt = good;
    longer.push_back(0);
    twice.insert(twice.end(), good.begin(), good.end());
    spoilt[0] ^= 1;
    Bytes liar = zstd(Bytes(4000)); // says 4000, holds 16 MB
    const Bytes bomb = zstd(Bytes(16 << 20));
    liar.insert(liar.end(), bomb.begin(), bomb.end());
    const Bytes skippable = {0x50, 0x2A, 0x4D, 0x18, 4, 0, 0, 0, 1, 2, 3, 4};
    const struct {
        const char* what;
        Bytes bytes;
    } cases[] = {
        {"nothing", {}},
        {"cut", cut},
        {"a byte more", longer},
        {"two frames", twice},
        {"another magic number", spoilt},
        {"fewer pixels", copyOf(packing.pack({plane}))},
        {"16 MB of zeros", bomb},
        {"the right size, then a bomb", liar},
        {"a frame to skip", skippable},
    };
    for (const auto& [what, bytes] : cases) {
        Plane one(1000), other(1000);
        EXPECT_THROW(packing.unpack(bytes, {one, other}), Failure) << what;
    }
    Plane one(1000), other(1000);
    packing.unpack(good, {one, other});
    EXPECT_TRUE(one == plane && other == plane) << "a refusal leaves the workspace in order";
}

} // namespace
