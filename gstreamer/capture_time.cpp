// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The clock of most pipelines is CLOCK_MONOTONIC itself, and gives times to the nanosecond. Any other clock, such as
// that of a sound card, is read beside it.
#include "gstreamer/capture_time.h"

#include <algorithm>
#include <ctime>

int64_t monotonicTime()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * GST_SECOND + now.tv_nsec;
}

static bool isMonotonic(GstClock* clock)
{
    if (G_OBJECT_TYPE(clock) != GST_TYPE_SYSTEM_CLOCK) // clocks of other sources derive from it
        return false;
    GstClockType type;
    g_object_get(clock, "clock-type", &type, nullptr);
    return type == GST_CLOCK_TYPE_MONOTONIC;
}

static GstClockTime timeBy(GstClock* clock, int64_t monotonic)
{
    if (isMonotonic(clock)) {
        GstClockTime internal, external, numerator, denominator;
        gst_clock_get_calibration(clock, &internal, &external, &numerator, &denominator);
        return gst_clock_adjust_with_calibration(clock, static_cast<GstClockTime>(monotonic), internal, external,
                                                 numerator, denominator);
    }
    const auto now = static_cast<int64_t>(gst_clock_get_time(clock));
    return static_cast<GstClockTime>(std::max<int64_t>(0, now - (monotonicTime() - monotonic)));
}

GstClockTime runningTime(GstElement* element, int64_t monotonic)
{
    GstClock* const clock = gst_element_get_clock(element);
    if (clock == nullptr)
        return GST_CLOCK_TIME_NONE;
    const GstClockTime time = timeBy(clock, monotonic), base = gst_element_get_base_time(element);
    gst_object_unref(clock);
    return time > base ? time - base : 0;
}
