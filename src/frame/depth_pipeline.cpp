// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// From the raw planes of a frame to the caller's images: the order of the stages.
#include "frame/depth_pipeline.h"

#include <cstring>

#include "frame/frame_format.h"

void RunDepthPipeline(int /*n*/, const unsigned char* raw, uint16_t* amplitude, uint16_t* depth)
{
    memcpy(amplitude, raw + kAmplitudePlane, 2 * VQD_PIXELS);
    memcpy(depth, raw + kDepthPlane, 2 * VQD_PIXELS);
}
