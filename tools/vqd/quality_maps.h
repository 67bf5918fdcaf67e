// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What differs from pixel to pixel, as pictures inside a page.
#pragma once

#include <string>

#include "quality.h"

// Figures of HTML with their scales: how far the pixels of the regions are from their planes, and the noise of all.
std::string qualityMaps(const QualityRun& run, std::span<const QualityRegion> regions,
                        std::span<const RegionQuality> qualities);
