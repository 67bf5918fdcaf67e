// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Plots as SVG inside a page, whose style sheet has the colours: classes "c0" to "c7", "grid" and "axis".
#pragma once

#include <optional>
#include <string>
#include <vector>

struct PlotPoint {
    double x;
    std::optional<double> y; // the line is broken where it is missing
};

struct PlotLine {
    std::string name; // empty: not in the legend
    int colour;
    bool isDots;
    std::vector<PlotPoint> points;
};

struct Plot {
    std::string title, x, y; // with units
    std::vector<PlotLine> lines;
    bool showsZero = false; // of y
};

// Empty without a point.
std::string svgOf(const Plot& plot);

// Of anybody's making, inside HTML.
std::string escaped(const std::string& text);
