// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The properties as GObject knows them.
#include "gstreamer/properties.h"

enum Property { kStream = 1, kSerial, kSettings };

bool setIn(Properties& properties, guint id, const GValue* value)
{
    if (id == kStream) {
        properties.stream = static_cast<Stream>(g_value_get_enum(value));
        return true;
    }
    if (id != kSerial && id != kSettings)
        return false;
    const char* const text = g_value_get_string(value);
    (id == kSerial ? properties.serial : properties.settings) = text != nullptr ? text : "";
    return true;
}

bool getFrom(const Properties& properties, guint id, GValue* value)
{
    if (id == kStream)
        g_value_set_enum(value, properties.stream);
    else if (id == kSerial || id == kSettings)
        g_value_set_string(value, (id == kSerial ? properties.serial : properties.settings).c_str());
    else
        return false;
    return true;
}

GType streamType()
{
    static const GEnumValue values[] = {
        {kDepth, "Depth in millimetres, 0 where it is not known", "depth"},
        {kAmplitude, "Amplitude of the light that came back", "amplitude"},
        {0, nullptr, nullptr},
    };
    static const GType type = g_enum_register_static("VqdSrcStream", values);
    return type;
}

void installProperties(GObjectClass* object)
{
    constexpr int always = G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS;
    constexpr auto flags = static_cast<GParamFlags>(always | GST_PARAM_MUTABLE_READY);
    g_object_class_install_property(object, kStream,
                                    g_param_spec_enum("stream", "Stream", "Which image of a frame", streamType(),
                                                      kDepth,
                                                      static_cast<GParamFlags>(always | GST_PARAM_MUTABLE_PLAYING)));
    g_object_class_install_property(
        object, kSerial,
        g_param_spec_string("serial", "Serial number",
                            "Serial number of the camera, port that its worker was given, or path of the worker's "
                            "socket; empty for the only worker that is running",
                            "", flags));
    g_object_class_install_property(
        object, kSettings,
        g_param_spec_string(
            "settings", "Settings",
            "Settings that the camera gets before the first frame, such as offset=5,depth-range=300,4000", "", flags));
}
