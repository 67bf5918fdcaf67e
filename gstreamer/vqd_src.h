// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The element vqdsrc: depth or amplitude of a camera that a worker holds.
#pragma once

#include <gst/base/gstpushsrc.h>

struct VqdSrcParts;

struct VqdSrc {
    GstPushSrc parent;
    VqdSrcParts* parts; // made and destroyed with the object
};

struct VqdSrcClass {
    GstPushSrcClass parent;
};

GType vqd_src_get_type();
