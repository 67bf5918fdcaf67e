// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What a user may set of the element.
#pragma once

#include <string>

#include <gst/gst.h>

enum Stream { kDepth, kAmplitude };

struct Properties {
    Stream stream = kDepth;
    std::string serial, settings;
};

// False for a property that there is not.
bool setIn(Properties& properties, guint id, const GValue* value);
bool getFrom(const Properties& properties, guint id, GValue* value);

GType streamType();
void installProperties(GObjectClass* object);
