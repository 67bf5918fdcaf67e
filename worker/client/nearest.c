// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The nearest frames, as soon as they are known to be.
#include "worker/client/nearest.h"

#include <stdlib.h>

// From the return of the worker's read to the frame's arrival here, at most: corrections, the socket, the scheduler.
static const int64_t kTransit = 8000000;

static int nearest_to(const vqdc_times* camera, int64_t time)
{
    int best = 0;
    for (int i = 1; i < camera->count; ++i)
        if (llabs(camera->times[i] - time) < llabs(camera->times[best] - time))
            best = i;
    return best;
}

// When it is certain that no frame nearer to `time` than the newest one will come.
static int64_t certain_from(const vqdc_times* camera, int64_t time)
{
    const int64_t newest = camera->times[camera->count - 1];
    if (newest >= time)
        return INT64_MIN;
    const int64_t gap = time - newest;
    // A read may be late, and the one after it then comes early, but never within half an interval.
    if (newest + camera->interval / 2 >= time + gap)
        return INT64_MIN;
    return time + gap + kTransit;
}

int vqdc_nearest(const vqdc_times* cameras, int count, int64_t now, int* chosen, int64_t* until)
{
    int64_t pivot = INT64_MIN, certain = INT64_MIN;
    *until = INT64_MAX;
    for (int i = 0; i < count; ++i) {
        if (cameras[i].count == 0)
            return 0;
        if (cameras[i].times[0] > pivot)
            pivot = cameras[i].times[0];
    }
    for (int i = 0; i < count; ++i) {
        const int64_t from = certain_from(&cameras[i], pivot);
        certain = from > certain ? from : certain;
        chosen[i] = nearest_to(&cameras[i], pivot);
    }
    *until = certain;
    return now >= certain;
}

int64_t vqdc_skew(const vqdc_times* cameras, int count, const int* chosen)
{
    int64_t earliest = INT64_MAX, latest = INT64_MIN;
    for (int i = 0; i < count; ++i) {
        const int64_t time = cameras[i].times[chosen[i]];
        earliest = time < earliest ? time : earliest;
        latest = time > latest ? time : latest;
    }
    return latest - earliest;
}
