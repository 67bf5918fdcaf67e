// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What is taken from a frame. The change of the depth is that of each pixel against its own first depth, so that pixels
// that come and go on an inclined wall change nothing.
#include "measure/quality.h"

QualityRun::QualityRun(std::vector<Rectangle> regions, std::vector<Point3f> rays) : m_rays(std::move(rays))
{
    for (const Rectangle& rectangle : regions)
        m_regions.push_back({rectangle});
}

void QualityRun::add(const uint16_t* amplitude, const uint16_t* depth, double seconds, double celsius)
{
    m_pixels.add(amplitude, depth);
    m_seconds.push_back(seconds);
    m_temperatures.push_back(celsius);
    for (Region& region : m_regions) {
        const RegionFigures figures = figuresOf(region.rectangle, amplitude, depth, m_rays.data());
        region.valid += figures.valid;
        if (figures.plane) {
            region.squares += figures.plane->rms * figures.plane->rms;
            ++region.planes;
        }
        const Rectangle& r = region.rectangle;
        int64_t change = 0;
        for (int y = r.y; y < r.y + r.height; ++y)
            for (int x = r.x; x < r.x + r.width; ++x)
                if (const auto i = static_cast<size_t>(y * VQD_WIDTH + x); depth[i] != 0)
                    change += depth[i] - m_pixels.first(i);
        region.change.push_back(figures.valid > 0 ? std::optional(static_cast<double>(change) / figures.valid)
                                                  : std::nullopt);
    }
}
