// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A picture of a point cloud, for people.
#pragma once

#include "host/point_cloud.h"

#include "pictures.h"

// The cloud as seen from above the camera's right shoulder, as a PNG file.
Bytes cloudPicture(const std::vector<CloudPoint>& cloud);
