// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the parts of vqd quality have in common: what is measured, and what comes of it.
#pragma once

#include "host/json.h"
#include "host/listed_camera.h"
#include "measure/quality.h"

#include "commands.h"

struct QualityRegion {
    std::string name;
    Rectangle rectangle;
};

struct QualityOptions {
    std::vector<std::string> files, settings; // recordings, or with `merge` documents
    std::vector<QualityRegion> regions;       // one at least
    std::string range;                        // of a recording
    uint64_t frames = 0;                      // at most; 0: as many as there are
    double seconds = 0;                       // the same
    std::optional<double> distance;           // known, in mm
};

// The frames of one camera that have been measured.
struct QualitySource {
    Json camera, settings;              // as in the document
    std::string time;                   // of the first frame, in UTC
    std::optional<QualityRun> run = {}; // there from the first frame on
};

QualitySource measureCamera(const QualityOptions& options);
QualitySource measureRecording(const QualityOptions& options);

// The settings with which nothing hides noise, where the host can choose them.
std::vector<std::string> settingsToMeasure(const char* product, bool recorded);

// A run of the loaded camera, with the rays of its lens and the settings that it has now.
QualityRun runWithLensOf(const ListedCamera& camera, const std::vector<QualityRegion>& regions);

// What is told of a run, here or in a document of it: the figures of each region.
struct QualityReport {
    struct Region {
        std::string name;
        std::array<Figure, kMetricCount> figures;
    };
    std::string file; // that it was read from; empty when it was measured now
    std::string serial;
    std::optional<double> distance;
    std::vector<Region> regions;
};

// "12.3 mm", or "-" without a value
std::string figureText(Metric metric, const Figure& figure);

// Columns side by side, a metric in each line, and below them why there is no value.
struct QualityColumn {
    std::string title;
    const std::array<Figure, kMetricCount>* figures;
};
std::string qualityTable(const std::vector<QualityColumn>& columns);
