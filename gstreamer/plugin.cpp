// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What GStreamer loads: one plugin with one element.
#include "gstreamer/vqd_src.h"

#define PACKAGE "vqd"

static gboolean registerElements(GstPlugin* plugin)
{
    return gst_element_register(plugin, "vqdsrc", GST_RANK_NONE, vqd_src_get_type());
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, vqd, "USB time-of-flight depth cameras", registerElements,
                  VQD_VERSION, "Apache 2.0", "VQD_API", "https://example.org/vqd-api")
