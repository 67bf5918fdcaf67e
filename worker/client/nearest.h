// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which frames of several cameras belong together: a judgement on times alone, all CLOCK_MONOTONIC in ns.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { VQDC_KEPT = 4 }; // frames of a camera among which the nearest is chosen

typedef struct vqdc_times {
    int64_t times[VQDC_KEPT]; // of the frames that are there, ascending
    int count;
    int64_t interval; // between two frames of the camera, as far as is known; 0 when it is not
} vqdc_times;

// Chooses a frame of each camera. Of the frames that wait longest, one a camera, the one that was taken last leads;
// every other camera adds the frame that is nearest to it. Returns 0 while some camera has no frame, or one that is
// nearer may still come; `until` is then when to ask again even if nothing comes.
int vqdc_nearest(const vqdc_times* cameras, int count, int64_t now, int* chosen, int64_t* until);

// From the earliest of the chosen frames to the latest.
int64_t vqdc_skew(const vqdc_times* cameras, int count, const int* chosen);

#ifdef __cplusplus
}
#endif
