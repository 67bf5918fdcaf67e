// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How many frames come in a second, as caps have it.
#pragma once

#include <algorithm>
#include <cmath>

#include <gst/gst.h>

// The whole frames in a second, or tenths where there are few.
struct Rate {
    int numerator = 0, denominator = 1; // 0: not known yet

    explicit Rate(double rate = 0) : denominator(rate < 10 ? 10 : 1)
    {
        if (rate > 0)
            numerator = static_cast<int>(std::clamp(std::round(rate * denominator), 1., 1e6));
    }
    GstClockTime interval() const { return gst_util_uint64_scale_int(GST_SECOND, denominator, numerator); }
};
