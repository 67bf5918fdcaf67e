// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The sink that computes the figures of the regions that readers watch, on every frame. All is done by the camera's
// loop.
#pragma once

#include <string>
#include <vector>

#include "measure/region.h"
#include "measure/temporal_noise.h"
#include "worker/sink.h"
#include "worker/worker_state.h"

class Watch : public Sink
{
public:
    explicit Watch(WorkerState& state) : m_state(state) {}

    // Carries out {"do": "watch", "regions": [...]}: these take the place of all regions before. Fails with a usage
    // error, and then changes nothing.
    void set(const Json& request);

    Json regions() const; // without figures

    void frame(const FrameView& view) override;
    void parameters(const Parameters& parameters) override;
    void event(const Json& event) override;

private:
    struct Region {
        std::string name;
        Rectangle rectangle;
    };
    static Region regionFrom(const Json& json);
    Json figures(const Region& region, const FrameView& view) const;
    static Json jsonOf(const Region& region);

    WorkerState& m_state;
    std::vector<Region> m_regions;
    TemporalNoise m_noise; // of the whole image, for all regions
};
