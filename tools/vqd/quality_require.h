// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What is required of the quality, such as "noise<5mm", and lengths with a unit.
#pragma once

#include "quality.h"

struct Requirement {
    std::string text;
    std::string region; // empty: all of them
    Metric metric;
    bool isBelow, isEqualEnough; // "<" or ">"; with "="
    double limit;                // in the unit of the metric

    bool holds(const Figure& figure) const;
};

// "[REGION:]METRIC<VALUE UNIT", with <, <=, > or >=. Fails with a usage error that says what is wrong, also for a
// region that is not measured.
Requirement requirementOf(const std::string& text, const std::vector<std::string>& regions);

// What became of a requirement in one region.
struct Verdict {
    const Requirement* requirement;
    std::string file, region;
    Figure figure;
    bool isMet; // not without a value
};

std::vector<Verdict> judge(std::span<const Requirement> requirements, const QualityReport& report);
std::string verdictLines(std::span<const Verdict> verdicts);
Json verdictsJson(std::span<const Verdict> verdicts);

// "1500", "1500mm" or "1.5m" in mm; nothing for what is none.
std::optional<double> distanceIn(const std::string& text);
