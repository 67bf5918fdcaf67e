// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The frames of a recording for vqd quality.
#include "host/formatted.h"

#include "conversion.h"
#include "messages.h"
#include "quality.h"
#include "settings_apply.h"

static std::vector<Assignment> settingsFor(const QualityOptions& options, const CameraFacts& facts)
{
    return neededSettings(settingsToMeasure(facts.product.c_str(), true), "so that nothing hides noise",
                          options.settings);
}

QualitySource measureRecording(const QualityOptions& options)
{
    constexpr double kMilliseconds = 1000; // in a second
    ConversionOptions files{options.files, options.settings, options.range};
    Conversion conversion(files,
                          [&](const ListedCamera&, const CameraFacts& facts) { return settingsFor(options, facts); });
    const CameraFacts& facts = conversion.facts();
    const int n = conversion.listed().nIndex;
    QualitySource source;
    source.camera = {{"serial", facts.serial.empty() ? Json() : Json(facts.serial)}, {"product", facts.product}};
    double begin = 0;
    conversion.run([&](const RecordedFrame& recorded, const DepthFrame& frame, bool changed) {
        const double time = static_cast<double>(frame.info.nTimeStamp) / kMilliseconds;
        if (!source.run) {
            source.run = runWithLensOf(conversion.listed(), options.regions);
            source.settings = settingsJson(n, false);
            source.time = utcText(recorded.realTime);
            begin = time;
            if (!facts.hostCorrected && m_bRemoveEdge == 1)
                warn("the camera removed edges before it was recorded, which leaves noise and flying pixels out");
        } else if (changed)
            throw Failure(kUsage, formatted("the settings change with frame %d of the range; --range can choose frames "
                                            "with the same settings",
                                            conversion.done() + 1));
        source.run->add(frame.amplitude.data(), frame.depth.data(), time - begin, m_dTemperature[n]);
        return (options.frames == 0 || source.run->frames() < options.frames) &&
               (options.seconds == 0 || time - begin < options.seconds);
    });
    return source;
}
