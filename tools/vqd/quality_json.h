// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The document of a run, vqd.quality/1: made of what was measured, and read for several to be merged.
#pragma once

#include "quality.h"

// All regions of a run, as of(). They have as many elements as the options have regions.
Json qualityJson(const QualitySource& source, const QualityOptions& options, std::span<const RegionQuality> regions);

// {"noise": {"value": 3.2, "unit": "mm"}, ...}
Json figuresJson(const std::array<Figure, kMetricCount>& figures);

// Fails with a usage error for what is none.
QualityReport readQuality(const std::string& file);
