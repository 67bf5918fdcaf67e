// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The library makes each frame from its exported variables, so these are what is put back.
#include "recording/reprocess.h"

#include <algorithm>

#include "config/param_image.h"

void useRecordedTables(const CameraFacts& camera)
{
    std::ranges::fill(m_nEEPROMFPPNBuf, 0);
    std::ranges::copy(camera.fppn, m_nEEPROMFPPNBuf);
    if (!camera.factors.empty()) // else the library has made them from the radial table
        std::ranges::copy(camera.factors, m_dOrthogonalData);
}

// The image first, since it is what a setter changes and sends; then what acts, which the image holds only rounded or
// not yet; then what the library keeps made from it.
void useRecordedParameters(int n, const RecordedParameters& parameters)
{
    uint8_t* const image = stCamParam[n].image;
    const uint8_t grabs = image[kGrab];
    std::ranges::copy(parameters.image, image);
    image[kGrab] = grabs;
    takeHostValues(n, parameters.host);
    const auto [fx, fy, cx, cy] = parameters.host.intrinsic;
    BuildPointCloudTable({fx, fy, cx, cy});
    BuildUndistortionMap(n);
}

void OneFrame::give(const RecordedFrame& frame)
{
    const std::lock_guard lock(m_mutex);
    m_raw = frame.raw;
}

sim::Replay OneFrame::replay(const sim::FrameRequest&, std::span<uint8_t, sim::kFrameBytes> frame)
{
    const std::lock_guard lock(m_mutex);
    std::ranges::copy(m_raw, frame.begin());
    return sim::Replay::frame;
}
