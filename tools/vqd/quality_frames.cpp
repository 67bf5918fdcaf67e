// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The frames of an attached camera for vqd quality, and the rays and settings that they are measured with.
#include <algorithm>
#include <cstring>

#include "device/base/models.h"
#include "host/formatted.h"
#include "measure/lens_rays.h"

#include "cameras.h"
#include "interrupt.h"
#include "progress.h"
#include "quality.h"
#include "settings_apply.h"

std::vector<std::string> settingsToMeasure(const char* product, bool recorded)
{
    const bool hostCorrected = IsHostCorrectedProduct(product);
    std::vector<std::string> settings = {"undistortion=0"};
    if (hostCorrected) // which would be right for undistorted images only
        settings.insert(settings.end(), {"fppn=0", "orthogonal=0"});
    if (hostCorrected || !recorded) // else the camera has removed edges before it was recorded
        settings.emplace_back("remove-edge=0");
    return settings;
}

QualityRun runWithLensOf(const ListedCamera& camera, const std::vector<QualityRegion>& regions)
{
    std::vector<Rectangle> rectangles;
    for (const QualityRegion& region : regions)
        rectangles.push_back(region.rectangle);
    std::vector<Point3f> rays(pPointCloud, pPointCloud + VQD_PIXELS);
    if (m_nUndistortionMode < 1 || m_nUndistortionMode > 3) {
        LensIntrinsic k;
        LensDistortion d;
        memcpy(&k, m_fIntrinsicParam[camera.nIndex], sizeof k);
        memcpy(&d, m_fDistorParam[camera.nIndex], sizeof d);
        rays = distortedRays(k, d, {m_bHorizontal == 1, m_bVertical == 1});
    }
    if (IsHostCorrectedProduct(camera.szDeviceName) && m_bOrthogonal != 1)
        rays = atOneMillimetre(std::move(rays));
    return {std::move(rectangles), std::move(rays)};
}

QualitySource measureCamera(const QualityOptions& options)
{
    constexpr double kNanoseconds = 1e9;
    std::vector<Assignment> assignments = parseForFrames(options.settings);
    const Cameras cameras;
    const ListedCamera& camera = assignments.empty() ? cameras.choose() : cameras.chooseToChange();
    cameras.loadWithProfile(camera);
    assignments =
        neededSettings(settingsToMeasure(camera.szDeviceName, false), "so that nothing hides noise", options.settings);
    QualitySource source;
    source.camera = identityJson(camera);
    const auto frame = std::make_unique<DepthFrame>();
    Stream stream(camera);
    applySettings(camera, assignments);
    stream.read(*frame); // it may have been exposed with the settings before
    source.settings = settingsJson(camera.nIndex, false);
    source.run = runWithLensOf(camera, options.regions);
    Progress progress;
    std::optional<int64_t> begin;
    double seconds = 0;
    do {
        stream.read(*frame);
        if (!begin) {
            begin = stream.time().monotonic;
            source.time = utcText(stream.time().real);
        }
        seconds = static_cast<double>(stream.time().monotonic - *begin) / kNanoseconds;
        source.run->add(frame->amplitude.data(), frame->depth.data(), seconds, m_dTemperature[camera.nIndex]);
        progress.show(formatted("frame %zu, %.1f s", source.run->frames(), seconds));
    } while ((options.frames == 0 || source.run->frames() < options.frames) &&
             (options.seconds == 0 || seconds < options.seconds));
    return source;
}
