// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Reads of a camera's memory that libusb cannot do. On Linux libusb refuses control transfers above 4096 bytes, but the
// kernel below it does not, and the camera gives a table in one transfer only.
#pragma once

#include "host/bytes.h"
#include "host/listed_camera.h"

// Reads `bytes` of the region through a descriptor of its own on the camera's device node, so a program that uses the
// camera meanwhile, this one included, is not disturbed. Fails when the camera does not deliver all of them.
Bytes readDirectly(const ListedCamera& camera, uint16_t region, uint16_t bytes);
