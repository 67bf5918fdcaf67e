// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// From the raw planes of a frame to the caller's images: the order of the stages.
#include "frame/depth_pipeline.h"

#include <cstring>

#include "config/param_image.h"
#include "device/base/models.h"
#include "frame/depth_correct.h"
#include "frame/frame_format.h"
#include "frame/frame_state.h"
#include "frame/resample.h"

static void interpolate(Planes raw, uint16_t gate, Images out)
{
    const LastPixel last =
        kernels::ResampleBilinear(raw, {m_fXp2, m_fYp2, fDist_x2, fDist_y2}, gate, out, m_nWorkspace);
    fChgAxis_Amp = last.amplitude;
    fChgAxis_Dep1 = last.depth;
}

static void resample(Planes raw, Images out)
{
    switch (m_nUndistortionMode) {
    case kUndistortionGated:
        return interpolate(raw, m_nDepthGab, out);
    case kUndistortionBilinear:
        return interpolate(raw, kNoGate, out);
    case kUndistortionNearest:
        return kernels::ResampleNearest(raw, fDist_x2, fDist_y2, out);
    default:
        memcpy(out.amplitude, raw.amplitude, 2 * VQD_PIXELS);
        memcpy(out.depth, raw.depth, 2 * VQD_PIXELS);
    }
}

// Applications may write the maps, tables and switches too, so they are read anew for each frame.
void RunDepthPipeline(int n, const unsigned char* raw, uint16_t* amplitude, uint16_t* depth)
{
    const Planes planes{reinterpret_cast<const uint16_t*>(raw + kAmplitudePlane),
                        reinterpret_cast<const uint16_t*>(raw + kDepthPlane)};
    resample(planes, {amplitude, depth});
    if (!IsHostCorrected(n))
        return;
    kernels::CorrectDepth(depth, {.offsets = m_bFPPN == 1 ? m_nEEPROMFPPNBuf : nullptr,
                                  .factors = m_bOrthogonal == 1 ? m_dOrthogonalData : nullptr,
                                  .minDepth = stCamParam[n].nMinDepth,
                                  .maxDepth = stCamParam[n].nMaxDepth});
    if (m_bRemoveEdge == 1)
        kernels::RemoveEdges(amplitude, depth, m_nEdgeThres, m_nEdgeDepth);
}
