// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The document of what one camera is set to.
#include "host/parameters_json.h"

#include "host/assignments.h"
#include "host/documents.h"

static std::string hexadecimal(std::span<const uint8_t> bytes)
{
    std::string text;
    for (const uint8_t byte : bytes)
        for (const int digit : {byte >> 4, byte & 15})
            text += "0123456789abcdef"[digit];
    return text;
}

Json parametersJson(const ListedCamera& camera, const Json& lens, std::span<const uint8_t> image)
{
    Json json = document("parameters");
    json["camera"] = identityJson(camera);
    json["settings"] = settingsJson(camera.nIndex, false);
    json["lens"] = lens;
    json["image"] = hexadecimal(image);
    return json;
}
