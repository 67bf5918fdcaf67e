// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The colours end where 98 % of the pixels do, so that a few outliers do not make all others look alike.
#include "quality_maps.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/formatted.h"

#include "pictures.h"
#include "svg_plot.h"

namespace
{

constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

struct Colour {
    double red, green, blue;
};
constexpr Colour kDeviation[] = {{33, 102, 172}, {146, 197, 222}, {247, 247, 247}, {244, 165, 130}, {178, 24, 43}};
constexpr Colour kNoise[] = {{68, 1, 84}, {59, 82, 139}, {33, 145, 140}, {94, 201, 98}, {253, 231, 37}};
constexpr Colour kNoPixel = {128, 128, 128};

Colour between(std::span<const Colour, 5> stops, double share)
{
    const double at = std::clamp(share, 0.0, 1.0) * 4;
    const auto i = static_cast<size_t>(std::min(at, 3.0));
    const double part = at - static_cast<double>(i);
    const auto mix = [part](double from, double to) { return from + part * (to - from); };
    return {mix(stops[i].red, stops[i + 1].red), mix(stops[i].green, stops[i + 1].green),
            mix(stops[i].blue, stops[i + 1].blue)};
}

std::string base64(const Bytes& bytes)
{
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const auto byte = [&](size_t at) { return at < bytes.size() ? uint32_t{bytes[at]} : 0U; };
        const uint32_t group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        for (int digit = 0; digit < 4; ++digit)
            text += i + static_cast<size_t>(digit) > bytes.size() ? '=' : kDigits[group >> (18 - 6 * digit) & 63];
    }
    return text;
}

// Of a value: the one that this share of all is below, and a little more than 0.
double bound(const std::vector<float>& values, double share)
{
    std::vector<float> sizes;
    for (const float value : values)
        if (!std::isnan(value))
            sizes.push_back(std::abs(value));
    if (sizes.empty())
        return 0;
    const auto at = sizes.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(sizes.size() - 1));
    std::ranges::nth_element(sizes, at);
    return std::max<double>(*at, 0.01);
}

std::string mapOf(const std::vector<float>& values, const char* title, std::span<const Colour, 5> stops, bool isSigned)
{
    constexpr double kMostPixels = 0.98;
    const double most = bound(values, kMostPixels), least = isSigned ? -most : 0;
    if (most == 0)
        return {};
    Bytes pixels;
    for (const float value : values) {
        const Colour colour = std::isnan(value) ? kNoPixel : between(stops, (value - least) / (most - least));
        for (const double part : {colour.red, colour.green, colour.blue})
            pixels.push_back(static_cast<uint8_t>(std::lround(part)));
    }
    std::string gradient;
    for (const Colour& stop : stops)
        gradient += formatted(", rgb(%.0f %.0f %.0f)", stop.red, stop.green, stop.blue);
    return std::string("<figure class=\"map\"><p class=\"maptitle\">") + title + "</p><img alt=\"" + title +
           "\" width=\"320\" height=\"240\" src=\"data:image/png;base64," +
           base64(colourPicture(pixels, VQD_WIDTH, VQD_HEIGHT)) + "\"><figcaption class=\"scale\">" +
           formatted("<span>%.2f mm</span><i style=\"background: linear-gradient(90deg%s)\"></i><span>%.2f mm</span>",
                     least, gradient.c_str(), most) +
           "</figcaption></figure>\n";
}

} // namespace

std::string qualityMaps(const QualityRun& run, std::span<const QualityRegion> regions,
                        std::span<const RegionQuality> qualities)
{
    std::vector<float> deviations(VQD_PIXELS, kNone), noises(VQD_PIXELS, kNone);
    for (size_t region = 0; region < regions.size(); ++region) {
        const Rectangle& r = regions[region].rectangle;
        const std::vector<float>& residuals = qualities[region].residuals;
        for (int y = 0; y < r.height; ++y)
            for (int x = 0; x < r.width; ++x)
                deviations[static_cast<size_t>((r.y + y) * VQD_WIDTH + r.x + x)] =
                    residuals[static_cast<size_t>(y * r.width + x)];
    }
    for (size_t i = 0; i < VQD_PIXELS; ++i)
        if (run.pixels().pairs(i) > 0)
            noises[i] = static_cast<float>(std::sqrt(run.pixels().depthVariance(i)));
    return mapOf(deviations, "Mean of all frames minus the plane of the region", kDeviation, true) +
           mapOf(noises, "Temporal noise of each pixel", kNoise, false);
}
