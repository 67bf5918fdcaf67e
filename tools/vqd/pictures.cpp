// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Colours and greys for the eye, and the encodings of files.
#include "pictures.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <csetjmp>
#include <new>
#include <string>

#include <png.h>

namespace
{

using Colour = std::array<float, 3>;

// From red to violet in equal steps, brightest in the middle, so that detail is visible at both ends.
constexpr Colour kColours[] = {
    {132, 8, 4},    {186, 32, 2},   {226, 66, 8},   {248, 112, 26}, {252, 164, 46},
    {236, 206, 54}, {200, 236, 60}, {148, 252, 84}, {84, 248, 138}, {34, 224, 188},
    {30, 190, 228}, {52, 146, 252}, {70, 104, 232}, {66, 64, 172},  {48, 22, 78},
};

constexpr float kLeastRange = 100;

struct Range {
    float low, high;

    // 0 at the low end, 1 at the high end and above
    float place(uint16_t value) const
    {
        return std::clamp((static_cast<float>(value) - low) / (high - low), 0.0f, 1.0f);
    }
};

// The range of the values that are not 0, without `cut` percent at either end. It is at least kLeastRange wide, so that
// noise alone does not fill the picture with colours.
Range robustRange(Values plane, size_t cut)
{
    std::vector<uint16_t> values;
    std::copy_if(plane.begin(), plane.end(), std::back_inserter(values), [](uint16_t value) { return value != 0; });
    if (values.empty())
        return {0, kLeastRange};
    const auto percentile = [&](size_t percent) {
        const auto at = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) * percent / 100);
        std::nth_element(values.begin(), at, values.end());
        return static_cast<float>(*at);
    };
    const float low = percentile(cut);
    return {low, std::max(percentile(100 - cut), low + kLeastRange)};
}

void appendColour(Bytes& pixels, float place)
{
    constexpr size_t last = std::size(kColours) - 1;
    const float position = place * last;
    const size_t i = std::min(static_cast<size_t>(position), last - 1);
    const float part = position - static_cast<float>(i);
    for (size_t c = 0; c < 3; ++c)
        pixels.push_back(static_cast<uint8_t>(std::lerp(kColours[i][c], kColours[i + 1][c], part) + 0.5f));
}

void appendBytes(png_structp png, png_bytep data, size_t length)
{
    auto& file = *static_cast<Bytes*>(png_get_io_ptr(png));
    file.insert(file.end(), data, data + length);
}

void nothingToFlush(png_structp) {}

struct Format {
    int colourType, bits;
    unsigned width = VQD_WIDTH, height = VQD_HEIGHT;
    bool fast = false; // rather than small
};

// Lives across libpng's longjmp: no object in here may need its destructor.
bool encode(Bytes& file, const uint8_t* pixels, const Format& format)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    if (info == nullptr || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_set_write_fn(png, &file, appendBytes, nothingToFlush);
    png_set_IHDR(png, info, format.width, format.height, format.bits, format.colourType, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (format.fast) {
        png_set_compression_level(png, 1);
        png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    }
    png_write_info(png, info);
    if (format.bits == 16 && std::endian::native == std::endian::little)
        png_set_swap(png); // PNG is big-endian
    const size_t stride = png_get_rowbytes(png, info);
    for (size_t row = 0; row < format.height; ++row)
        png_write_row(png, pixels + row * stride);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

Bytes encoded(const uint8_t* pixels, const Format& format)
{
    constexpr size_t kMostBytesPerPixel = 4, kMargin = 4096;
    Bytes file;
    // No picture needs more, so the vector never grows, and never throws, inside libpng.
    file.reserve(kMostBytesPerPixel * format.width * format.height + kMargin);
    if (!encode(file, pixels, format))
        throw std::bad_alloc(); // nothing else can fail when encoding in memory
    return file;
}

} // namespace

Bytes depthColours(Values depth)
{
    const Range range = robustRange(depth, 1);
    Bytes pixels;
    for (const uint16_t value : depth) {
        if (value == 0)
            pixels.insert(pixels.end(), 3, 0);
        else
            appendColour(pixels, range.place(value));
    }
    return pixels;
}

Bytes amplitudeGreys(Values amplitude)
{
    const Range range = robustRange(amplitude, 3);
    Bytes pixels;
    for (const uint16_t value : amplitude)
        pixels.push_back(static_cast<uint8_t>(255 * std::sqrt(range.place(value)) + 0.5f));
    return pixels;
}

Bytes colourPicture(const Bytes& pixels, unsigned width, unsigned height)
{
    return encoded(pixels.data(), {PNG_COLOR_TYPE_RGB, 8, width, height});
}

Bytes depthPicture(Plane depth)
{
    return encoded(depthColours(depth).data(), {PNG_COLOR_TYPE_RGB, 8});
}

Bytes amplitudePicture(Plane amplitude)
{
    return encoded(amplitudeGreys(amplitude).data(), {PNG_COLOR_TYPE_GRAY, 8});
}

Bytes exactPicture(Plane plane)
{
    return encoded(reinterpret_cast<const uint8_t*>(plane.data()),
                   {.colourType = PNG_COLOR_TYPE_GRAY, .bits = 16, .fast = true});
}

static_assert(std::endian::native == std::endian::little);

Bytes rawFile(Plane plane)
{
    const auto* bytes = reinterpret_cast<const uint8_t*>(plane.data());
    return Bytes(bytes, bytes + plane.size_bytes());
}

Bytes pgmFile(Plane plane)
{
    const std::string header = "P5\n" + std::to_string(VQD_WIDTH) + " " + std::to_string(VQD_HEIGHT) + "\n65535\n";
    Bytes file(header.begin(), header.end());
    for (const uint16_t value : plane) {
        file.push_back(static_cast<uint8_t>(value >> 8));
        file.push_back(static_cast<uint8_t>(value & 0xFF));
    }
    return file;
}

Bytes csvFile(Plane plane)
{
    Bytes file;
    for (size_t i = 0; i < plane.size(); ++i) {
        const std::string number = std::to_string(plane[i]);
        file.insert(file.end(), number.begin(), number.end());
        file.push_back((i + 1) % VQD_WIDTH == 0 ? '\n' : ',');
    }
    return file;
}

Bytes npyFile(Plane plane)
{
    // Magic, version, length of what follows; the header ends in a newline at a multiple of 64.
    constexpr size_t kPrefix = 10, kHeader = 128;
    std::string header = {'\x93', 'N', 'U', 'M', 'P', 'Y', 1, 0, static_cast<char>(kHeader - kPrefix), 0};
    header += "{'descr': '<u2', 'fortran_order': False, 'shape': (" + std::to_string(VQD_HEIGHT) + ", " +
              std::to_string(VQD_WIDTH) + "), }";
    header.resize(kHeader - 1, ' ');
    header += '\n';
    Bytes file(header.begin(), header.end());
    const Bytes values = rawFile(plane);
    file.insert(file.end(), values.begin(), values.end());
    return file;
}
