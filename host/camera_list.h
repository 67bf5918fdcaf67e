// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which cameras are attached, and which of them is meant.
#pragma once

#include <span>

#include "host/listed_camera.h"

// Lists the attached cameras in the library's order; to be called once in a process. Fails when there is no camera, or
// none that may be opened.
std::vector<ListedCamera> listCameras();

// The camera with this index, serial number, port or BUS:ADDRESS; an empty name means the first camera.
const ListedCamera& cameraNamed(std::span<const ListedCamera> cameras, const std::string& name);

// What names the camera for longer than this listing: its serial number, or its port where that is unknown or not the
// only one.
std::string lastingNameOf(std::span<const ListedCamera> cameras, const ListedCamera& camera);

// The library has one set of maps, rays, tables and switches, that of the camera loaded last. This makes it the set of
// `camera`.
void loadAlone(std::span<const ListedCamera> cameras, const ListedCamera& camera);
