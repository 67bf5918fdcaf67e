// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Names of a camera for people and programs, and judgements on its EEPROM and its presence.
#include "host/listed_camera.h"

#include <algorithm>

#include "host/formatted.h"
#include "host/plausibility.h"
#include "host/profile.h"

// Why the library's substitute is used, as the end of a sentence that starts with the EEPROM.
static const char* troubleOf(const ListedCamera& camera)
{
    return camera.known == Known::notSigned ? "has no signature" : "cannot be read";
}

std::string usbIds(const DevInfo& camera)
{
    return formatted("%04x:%04x", camera.nVendorId, camera.nProductId);
}

std::string busAddress(const ListedCamera& camera)
{
    return formatted("%03d:%03d", camera.place.bus, camera.place.address);
}

std::string nameOf(const ListedCamera& camera)
{
    return "camera " + std::to_string(camera.nIndex) + " at " +
           (camera.place.port.empty() ? busAddress(camera) : camera.place.port);
}

Json identityJson(const ListedCamera& camera)
{
    const Json serial = camera.known == Known::read ? Json(camera.szSerialNumber) : Json();
    const std::string profile = profileInUse(camera).string();
    const Json port = camera.place.port.empty() ? Json() : Json(camera.place.port);
    return {{"index", camera.nIndex},
            {"serial", serial},
            {"product", camera.szDeviceName},
            {"vendor", camera.szVendorName},
            {"usb", usbIds(camera)},
            {"port", port},
            {"bus", camera.place.bus},
            {"address", camera.place.address},
            {"profile", profile.empty() ? Json() : Json(profile)}};
}

void requirePresent(const ListedCamera& camera, const std::string& message)
{
    const std::vector<Place> places = cameraPlaces();
    if (std::find(places.begin(), places.end(), camera.place) == places.end())
        throw Failure(kCameraLost, message + ": the camera is gone");
}

void failOn(const ListedCamera& camera, const std::string& message)
{
    requirePresent(camera, message);
    throw Failure(kFailed, message);
}

void requireEeprom(const ListedCamera& camera)
{
    if (camera.known != Known::read)
        failOn(camera, "the EEPROM of " + nameOf(camera) + ' ' + troubleOf(camera));
}

std::vector<std::string> eepromWarnings(const ListedCamera& camera)
{
    const std::string start = "the EEPROM of " + nameOf(camera);
    if (camera.known != Known::read)
        return {start + ' ' + troubleOf(camera) + ": the library uses factory settings and a standard lens"};
    std::vector<std::string> warnings;
    for (const Implausible& one : implausibleIn(camera.eeprom))
        warnings.push_back(start + ": " + one.text);
    return warnings;
}
