// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "for_camera.h"

#include <charconv>

#include "host/failure.h"

ForCamera addressed(const std::string& text, size_t cameras)
{
    const char* const end = text.data() + text.size();
    size_t camera = 0;
    const auto [colon, error] = std::from_chars(text.data(), end, camera);
    if (error != std::errc{} || colon == end || *colon != ':')
        return {0, text};
    if (camera == 0 || camera > cameras)
        throw Failure(kUsage, "'" + text + "': there is no camera " + std::to_string(camera) + " (" +
                                  std::to_string(cameras) + " plugged in)");
    return {camera, std::string(colon + 1, end)};
}
