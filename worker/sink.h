// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Whoever takes what a worker reads: the server of the socket, a recorder, a bridge. A worker has several.
#pragma once

#include <cstdint>
#include <span>

#include "VQD_API.h"

#include "host/depth_frame.h"
#include "host/json.h"
#include "worker/wire.h"

// A frame as it was read. All of it is valid during the call only.
struct FrameView {
    std::span<const uint8_t> raw; // as the camera sent it: header and both planes before any correction
    const DepthFrame& frame;      // what the library made of it
    const vqd_wire_frame& header;
};

struct Parameters {
    Json json;                    // schema vqd.parameters/1
    std::span<const uint8_t> raw; // the image of all settings, VQD_IMAGE_BYTES, as the camera got it
};

// The camera's loop calls these one at a time and reads nothing meanwhile. So a sink copies what it needs and returns;
// it waits for nobody. parameters() comes before the first frame and before each frame that is the first with other
// parameters. An event "lost" comes from another thread, while the loop is inside a read.
class Sink
{
public:
    virtual ~Sink() = default;

    virtual void frame(const FrameView& view) = 0;
    virtual void parameters(const Parameters& parameters) = 0;
    virtual void event(const Json& event) = 0; // schema vqd.event/1
};
