// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// From the raw planes of a frame to the caller's images.
#pragma once

#include <cstdint>

// `raw` is a whole frame with a valid start code, aligned for 16-bit access. Writes 320 x 240 pixels to each image.
void RunDepthPipeline(int n, const unsigned char* raw, uint16_t* amplitude, uint16_t* depth);
