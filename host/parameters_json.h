// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How frames are made, for those who read them: schema vqd.parameters/1.
#pragma once

#include <span>

#include "host/json.h"
#include "host/listed_camera.h"

// Of a loaded camera, with the lenses in use and the image of all its settings.
Json parametersJson(const ListedCamera& camera, const Json& lens, std::span<const uint8_t> image);
