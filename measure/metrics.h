// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The table of what is said about the quality of depth. docs/quality.md has the formulas.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

enum class Metric {
    fillRate,
    distance,
    bias,
    tilt,
    planeRms,
    flatness,
    noise,
    fixedPattern,
    repeatability,
    drift,
    driftRate,
    temperatureDrift,
    amplitude,
    readOut,
    shot,
    jitter,
    phase,
    flyingPixels,
};
constexpr size_t kMetricCount = 18;

struct MetricRow {
    Metric metric;
    const char* name; // in JSON and requirements
    const char* unit; // may be empty
    const char* label;
    int decimals;  // that people want to see
    bool isSigned; // good when it is near 0, from both sides
};

// In the order of the enumeration.
std::span<const MetricRow, kMetricCount> allMetrics();
const MetricRow& rowOf(Metric metric);
const MetricRow* metricNamed(std::string_view name); // null for an unknown name

// A value in the unit of the row, or why there is none.
struct Figure {
    std::optional<double> value;
    std::string reason = {};
    std::optional<double> uncertainty = {}; // standard, where it is known
};
