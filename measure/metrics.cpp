// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "measure/metrics.h"

#include <algorithm>

namespace
{

// clang-format off
constexpr MetricRow kMetrics[kMetricCount] = {
    {Metric::fillRate, "fill-rate", "%", "Fill rate", 2, false},
    {Metric::distance, "distance", "mm", "Distance of the plane", 2, false},
    {Metric::bias, "bias", "mm", "Bias", 2, true},
    {Metric::tilt, "tilt", "deg", "Tilt of the plane", 2, false},
    {Metric::planeRms, "plane-rms", "mm", "Plane RMS, one frame", 2, false},
    {Metric::flatness, "flatness", "mm", "Flatness, mean of all frames", 2, false},
    {Metric::noise, "noise", "mm", "Temporal noise", 2, false},
    {Metric::fixedPattern, "fixed-pattern", "mm", "Fixed pattern", 2, false},
    {Metric::repeatability, "repeatability", "mm", "Repeatability", 3, false},
    {Metric::drift, "drift", "mm", "Drift over the run", 3, true},
    {Metric::driftRate, "drift-rate", "mm/min", "Drift over time", 3, true},
    {Metric::temperatureDrift, "temperature-drift", "mm/K", "Drift with temperature", 3, true},
    {Metric::amplitude, "amplitude", "counts", "Amplitude", 1, false},
    {Metric::readOut, "read-out", "counts^2", "Amplitude variance, constant part", 2, false},
    {Metric::shot, "shot", "counts", "Amplitude variance, for each count", 4, false},
    {Metric::jitter, "jitter", "mm", "Depth noise, constant part", 2, false},
    {Metric::phase, "phase", "mm*counts", "Depth noise, times the amplitude", 1, false},
    {Metric::flyingPixels, "flying-pixels", "%", "Flying pixels, estimate", 2, false},
};
// clang-format on

constexpr bool inOrder()
{
    for (size_t i = 0; i < kMetricCount; ++i)
        if (kMetrics[i].metric != static_cast<Metric>(i))
            return false;
    return true;
}
static_assert(inOrder());

} // namespace

std::span<const MetricRow, kMetricCount> allMetrics()
{
    return kMetrics;
}

const MetricRow& rowOf(Metric metric)
{
    return kMetrics[static_cast<size_t>(metric)];
}

const MetricRow* metricNamed(std::string_view name)
{
    const auto* row = std::ranges::find_if(kMetrics, [&](const MetricRow& one) { return name == one.name; });
    return row == std::end(kMetrics) ? nullptr : row;
}
