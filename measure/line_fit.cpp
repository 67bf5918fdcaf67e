// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Sums are taken around the mean of x, since times and amplitudes are far from 0.
#include "measure/line_fit.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace
{

std::optional<Line> weightedLine(std::span<const double> x, std::span<const double> y, std::span<const double> weights)
{
    double sum = 0, meanX = 0, meanY = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        sum += weights[i];
        meanX += weights[i] * x[i];
        meanY += weights[i] * y[i];
    }
    meanX /= sum;
    meanY /= sum;
    double xx = 0, xy = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        xx += weights[i] * (x[i] - meanX) * (x[i] - meanX);
        xy += weights[i] * (x[i] - meanX) * (y[i] - meanY);
    }
    if (!(sum > 0 && xx > 0))
        return std::nullopt;
    const double slope = xy / xx;
    return Line{meanY - slope * meanX, slope, std::sqrt(1 / sum + meanX * meanX / xx), std::sqrt(1 / xx)};
}

// Of the square of a variance's uncertainty: differences of successive frames overlap, which costs half as much again.
constexpr double kOfPairs = 3;

// A line through the medians of groups with similar x, which outliers cannot move far.
std::optional<Line> roughLine(std::span<const Variance> samples)
{
    constexpr size_t kGroups = 16;
    std::vector<Variance> sorted(samples.begin(), samples.end());
    std::ranges::sort(sorted, {}, &Variance::x);
    std::vector<double> x, y, weights;
    for (size_t group = 0; group < kGroups; ++group) {
        const size_t begin = sorted.size() * group / kGroups, end = sorted.size() * (group + 1) / kGroups;
        if (begin == end)
            continue;
        x.push_back(sorted[(begin + end) / 2].x);
        const std::span part(sorted.begin() + static_cast<std::ptrdiff_t>(begin), end - begin);
        std::ranges::sort(part, {}, &Variance::variance);
        y.push_back(part[part.size() / 2].variance);
        weights.push_back(1 / std::max(y.back() * y.back(), 1e-9));
    }
    return weightedLine(x, y, weights);
}

} // namespace

std::optional<Line> lineThrough(std::span<const double> x, std::span<const double> y)
{
    const std::vector<double> weights(x.size(), 1);
    auto line = weightedLine(x, y, weights);
    if (line)
        line->interceptError = line->slopeError = 0;
    return line;
}

std::optional<Line> varianceOver(std::span<const Variance> samples)
{
    constexpr int kPasses = 6;
    constexpr double kFar = 5;      // standard uncertainties
    constexpr double kLeast = 1e-3; // of a variance: rounding to whole numbers makes more than that
    std::optional<Line> line = roughLine(samples);
    for (int pass = 0; line && pass < kPasses; ++pass) {
        std::vector<double> x, y, weights;
        for (const Variance& sample : samples) {
            const double expected = std::max(line->at(sample.x), kLeast);
            const double uncertainty = expected * std::sqrt(kOfPairs / sample.pairs);
            if (sample.variance > expected + kFar * uncertainty)
                continue;
            x.push_back(sample.x);
            y.push_back(sample.variance);
            weights.push_back(1 / (uncertainty * uncertainty));
        }
        line = weightedLine(x, y, weights);
    }
    return line;
}
