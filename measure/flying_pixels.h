// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Pixels that see two surfaces at once, and so measure a depth at which nothing stands.
#pragma once

#include <span>
#include <vector>

#include "measure/region.h"

// An estimate. A pixel counts when, along its row or its column, it lies between its neighbours, and neither of the two
// surfaces goes on to it. `depth` and `noise` are VQD_WIDTH x VQD_HEIGHT in mm; a depth of 0 is none.
int flyingPixels(const Rectangle& region, std::span<const double> depth, std::span<const double> noise);
