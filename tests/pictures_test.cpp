// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The tool's pictures are what libpng reads back from them.
#include <algorithm>
#include <cstring>
#include <memory>

#include <gtest/gtest.h>
#include <png.h>

#include "tools/vqd/pictures.h"

namespace
{

// The decoded samples in the form that they have in the file: 16-bit samples are big-endian.
Bytes decoded(const Bytes& file)
{
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    auto rest = std::make_unique<std::span<const uint8_t>>(file);
    png_set_read_fn(png, rest.get(), [](png_structp reader, png_bytep to, size_t length) {
        auto& from = *static_cast<std::span<const uint8_t>*>(png_get_io_ptr(reader));
        memcpy(to, from.data(), length);
        from = from.subspan(length);
    });
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    const size_t stride = png_get_rowbytes(png, info);
    Bytes samples;
    for (size_t row = 0; row < png_get_image_height(png, info); ++row) {
        const png_bytep begin = png_get_rows(png, info)[row];
        samples.insert(samples.end(), begin, begin + stride);
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return samples;
}

struct Pictures : testing::Test {
    std::array<uint16_t, VQD_PIXELS> plane{};
};

TEST_F(Pictures, ExactOnesKeepEveryBit)
{
    for (size_t i = 0; i < plane.size(); ++i)
        plane[i] = static_cast<uint16_t>(i * 40503);
    const Bytes samples = decoded(exactPicture(plane));
    ASSERT_EQ(samples.size(), 2 * plane.size());
    for (size_t i = 0; i < plane.size(); ++i)
        ASSERT_EQ(samples[2 * i] << 8 | samples[2 * i + 1], plane[i]) << "pixel " << i;
}

TEST_F(Pictures, DepthRunsFromRedToBlueWithInvalidPixelsBlackAndOutliersWithoutInfluence)
{
    for (size_t i = 0; i < plane.size(); ++i)
        plane[i] = static_cast<uint16_t>(1000 + 1000 * (i % VQD_WIDTH) / VQD_WIDTH); // depth grows with the column
    plane[0] = 0;
    plane[1] = 65535;
    const Bytes pixels = decoded(depthPicture(plane));
    ASSERT_EQ(pixels.size(), 3 * plane.size());
    const auto at = [&](size_t column) { return &pixels[3 * (VQD_WIDTH + column)]; }; // second row
    EXPECT_EQ(Bytes(pixels.begin(), pixels.begin() + 3), Bytes(3, 0));
    EXPECT_GT(at(20)[0], 2 * at(20)[2]); // near: red
    EXPECT_GT(at(160)[1], at(160)[0]);   // middle: green
    EXPECT_GT(at(160)[1], at(160)[2]);
    EXPECT_GT(at(300)[2], 2 * at(300)[1]); // far: blue
}

TEST_F(Pictures, EmptyAndEvenPlanesArePictures)
{
    EXPECT_EQ(decoded(depthPicture(plane)), Bytes(3 * plane.size(), 0));
    EXPECT_EQ(decoded(amplitudePicture(plane)), Bytes(plane.size(), 0));
    plane.fill(65535);
    const Bytes even = decoded(depthPicture(plane));
    EXPECT_TRUE(std::equal(even.begin() + 3, even.end(), even.begin()));
}

} // namespace
