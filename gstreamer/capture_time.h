// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// When a frame was taken, by the clock of a pipeline.
#pragma once

#include <cstdint>

#include <gst/gst.h>

int64_t monotonicTime(); // CLOCK_MONOTONIC in ns

// The running time of the element's pipeline at a moment of CLOCK_MONOTONIC; none while the element has no clock.
GstClockTime runningTime(GstElement* element, int64_t monotonic);
