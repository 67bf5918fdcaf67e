// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Pages of vqd quality: one HTML file each, which needs nothing else and runs no script.
#pragma once

#include "quality_merge.h"
#include "quality_require.h"

std::string qualityPage(const QualitySource& source, const QualityOptions& options,
                        std::span<const RegionQuality> regions, std::span<const Verdict> verdicts);
std::string mergedPage(std::span<const QualityCurve> curves, std::span<const Verdict> verdicts);
