// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Axes that end at round numbers, and lines in between.
#include "svg_plot.h"

#include <algorithm>
#include <cmath>

#include "host/formatted.h"

namespace
{

constexpr double kWidth = 460, kHeight = 260, kLeft = 68, kRight = 14, kTop = 34, kBottom = 44;
constexpr int kColours = 8;

// From one round number to another, with steps of 1, 2 or 5 times a power of ten.
struct Axis {
    double least, most, step;

    Axis(double from, double to)
    {
        constexpr double kSteps = 5;
        if (!(to - from > 1e-9 * std::max(std::abs(to), 1e-3))) { // all alike
            const double room = std::max(std::abs(to) * 0.01, 0.5);
            from -= room;
            to += room;
        }
        const double rough = (to - from) / kSteps;
        const double power = std::pow(10, std::floor(std::log10(rough)));
        step = rough / power < 1.5   ? power
               : rough / power < 3.5 ? 2 * power
               : rough / power < 7.5 ? 5 * power
                                     : 10 * power;
        least = std::floor(from / step + 1e-9) * step;
        most = std::ceil(to / step - 1e-9) * step;
    }

    int decimals() const { return std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9))); }
    double share(double value) const { return (value - least) / (most - least); }
};

struct Scale {
    Axis x, y;

    double column(double value) const { return kLeft + x.share(value) * (kWidth - kLeft - kRight); }
    double row(double value) const { return kHeight - kBottom - y.share(value) * (kHeight - kTop - kBottom); }
};

std::optional<Scale> scaleOf(const Plot& plot)
{
    std::vector<double> x, y;
    for (const PlotLine& line : plot.lines)
        for (const PlotPoint& point : line.points)
            if (point.y && std::isfinite(*point.y) && std::isfinite(point.x)) {
                x.push_back(point.x);
                y.push_back(*point.y);
            }
    if (x.empty())
        return std::nullopt;
    if (plot.showsZero)
        y.push_back(0);
    const auto [left, right] = std::ranges::minmax(x);
    const auto [low, high] = std::ranges::minmax(y);
    return Scale{{left, right}, {low, high}};
}

std::string gridOf(const Scale& scale)
{
    std::string svg;
    constexpr double kRight0 = kWidth - kRight, kBottom0 = kHeight - kBottom;
    const auto steps = [](const Axis& axis) {
        return static_cast<int>(std::lround((axis.most - axis.least) / axis.step));
    };
    for (int i = 0; i <= steps(scale.y); ++i) {
        const double value = scale.y.least + i * scale.y.step, row = scale.row(value);
        svg += formatted("<path class=\"grid\" d=\"M%.1f %.1fH%.1f\"/><text class=\"tick\" x=\"%.1f\" y=\"%.1f\" "
                         "text-anchor=\"end\">%.*f</text>\n",
                         kLeft, row, kRight0, kLeft - 6, row + 4, scale.y.decimals(), value + 0.0);
    }
    for (int i = 0; i <= steps(scale.x); ++i) {
        const double value = scale.x.least + i * scale.x.step, column = scale.column(value);
        svg += formatted("<path class=\"grid\" d=\"M%.1f %.1fV%.1f\"/><text class=\"tick\" x=\"%.1f\" y=\"%.1f\" "
                         "text-anchor=\"middle\">%.*f</text>\n",
                         column, kTop, kBottom0, column, kBottom0 + 16, scale.x.decimals(), value + 0.0);
    }
    return svg;
}

std::string drawn(const PlotLine& line, const Scale& scale)
{
    std::string path, dots;
    bool joined = false;
    for (const PlotPoint& point : line.points) {
        const bool isThere = point.y && std::isfinite(*point.y) && std::isfinite(point.x);
        if (isThere) {
            const double x = scale.column(point.x), y = scale.row(*point.y);
            path += formatted("%c%.1f %.1f", joined ? 'L' : 'M', x, y);
            dots += formatted("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"2.6\"/>", x, y);
        }
        joined = isThere;
    }
    const int colour = line.colour % kColours;
    return line.isDots ? formatted("<g class=\"dots c%d\">", colour) + dots + "</g>\n"
                       : formatted("<path class=\"line c%d\" d=\"", colour) + path + "\"/>\n";
}

} // namespace

std::string escaped(const std::string& text)
{
    std::string safe;
    for (const char c : text)
        switch (c) {
        case '&':
            safe += "&amp;";
            break;
        case '<':
            safe += "&lt;";
            break;
        case '>':
            safe += "&gt;";
            break;
        case '"':
            safe += "&quot;";
            break;
        default:
            safe += c;
        }
    return safe;
}

std::string svgOf(const Plot& plot)
{
    const std::optional<Scale> scale = scaleOf(plot);
    if (!scale)
        return {};
    std::string svg = formatted("<figure><svg viewBox=\"0 0 %.0f %.0f\" role=\"img\" aria-label=\"", kWidth, kHeight) +
                      escaped(plot.title) + "\">\n";
    svg += formatted("<text class=\"title\" x=\"%.1f\" y=\"18\">", kLeft) + escaped(plot.title) + "</text>\n";
    svg += gridOf(*scale);
    for (const PlotLine& line : plot.lines)
        svg += drawn(line, *scale);
    svg += formatted("<text class=\"label\" x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">",
                     (kLeft + kWidth - kRight) / 2, kHeight - 8) +
           escaped(plot.x) + "</text>\n";
    svg += formatted("<text class=\"label\" transform=\"translate(12 %.1f) rotate(-90)\" text-anchor=\"middle\">",
                     (kTop + kHeight - kBottom) / 2) +
           escaped(plot.y) + "</text>\n</svg>\n<figcaption>";
    for (const PlotLine& line : plot.lines)
        if (!line.name.empty())
            svg += formatted("<span class=\"key c%d\">", line.colour % kColours) + escaped(line.name) + "</span> ";
    return svg + "</figcaption></figure>\n";
}
