// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The quality of depth over a run of frames of something that stands still.
#pragma once

#include <array>
#include <vector>

#include "measure/line_fit.h"
#include "measure/metrics.h"
#include "measure/pixel_statistics.h"
#include "measure/region.h"

constexpr double kRounding = 1.0 / 12; // the variance that whole numbers add

// Noise of pixels with similar amplitudes.
struct NoiseGroup {
    double amplitude, amplitudeVariance, depthNoise; // counts, counts^2, mm
};

// What is known of one region. Nothing in it is not a number, but for the residuals.
struct RegionQuality {
    std::array<Figure, kMetricCount> figures;
    std::vector<std::optional<double>> change; // of the depth since the first frame in mm, frame by frame
    std::vector<NoiseGroup> groups;
    std::vector<float> residuals; // depth of the mean minus that of the plane in mm, by row; not a number without one

    const Figure& of(Metric metric) const { return figures[static_cast<size_t>(metric)]; }
};

class QualityRun
{
public:
    // `rays` as for figuresOf(), of images without undistortion where noise matters.
    QualityRun(std::vector<Rectangle> regions, std::vector<Point3f> rays);

    // The next frame, when it came and how warm the sensor was then.
    void add(const uint16_t* amplitude, const uint16_t* depth, double seconds, double celsius);

    size_t frames() const { return m_seconds.size(); }
    const std::vector<double>& seconds() const { return m_seconds; }
    const std::vector<double>& temperatures() const { return m_temperatures; }
    const PixelStatistics& pixels() const { return m_pixels; }

    // `distance`: known, along the optical axis, in mm.
    RegionQuality of(size_t region, std::optional<double> distance) const;

private:
    friend class QualityFigures;

    struct Region {
        Rectangle rectangle;
        int64_t valid = 0;  // pixels with a depth, in all frames
        double squares = 0; // of the RMS of each frame's plane
        int planes = 0;
        std::vector<std::optional<double>> change = {};
    };

    std::vector<Point3f> m_rays;
    std::vector<Region> m_regions;
    PixelStatistics m_pixels;
    std::vector<double> m_seconds, m_temperatures;
};
