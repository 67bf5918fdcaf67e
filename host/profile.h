// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What this machine knows of a camera and the camera cannot tell: the lens in full precision, the FPPN table that
// libusb on Linux cannot read, exact orthogonal factors, and where the camera stands. It is a file for each serial
// number, and acts on the library's exported tables only; nothing is sent to the camera or stored in it.
#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/lens_json.h"
#include "host/listed_camera.h"

// From the coordinates of one camera to those of another, or of anything that has a name: p' = rotation p +
// translation.
struct Pose {
    std::string to;
    std::array<double, 9> rotation;    // row by row
    std::array<double, 3> translation; // mm
};

struct Profile {
    std::string serial, product;
    std::string eeprom; // the fingerprint of the lens and transform in the EEPROM when the profile was made
    std::optional<LensSet> depth, colour;
    std::vector<int> fppn;          // mm, 80 x 60 blocks of 4 x 4 pixels; or empty
    bool orthogonalOfLens = false;  // the factor of a pixel follows from the depth lens
    std::vector<double> orthogonal; // else 2048 factors by radius, eight for each pixel; or empty
    std::vector<Pose> poses;
};

// Changes when anything changes the lenses or the transform in the EEPROM: a 64-bit FNV-1a hash of bytes 80 to 127.
std::string fingerprint(const Eeprom& eeprom);

// Fails with a usage error for what is not a profile, names another camera than `serial`, or holds a value that no
// camera can have.
Profile readProfile(const std::string& file, const std::string& serial);

// The members "to", "rotation" and "translation"; others are refused. `where` names it in messages.
Pose poseFrom(const Json& json, const std::string& where);

// Adds a pose, or replaces the one to the same place.
void setPose(Profile& profile, const Pose& pose);
Json profileJson(const Profile& profile);

// Replaces the file, unless readProfile() would refuse what it would hold.
void writeProfile(const std::filesystem::path& path, const Profile& profile);

// Where the profile of a camera is kept: for this user, and for all. What this user has comes first.
std::filesystem::path userProfilePath(const std::string& serial);
std::filesystem::path systemProfilePath(const std::string& serial);

// A profile that was found for a camera. Without `values` it does not belong to the camera as it is now, or it is not
// known whether there is one. Nothing is to be applied then; `warning` says why.
struct FoundProfile {
    std::filesystem::path path; // empty: none was found
    std::optional<Profile> values;
    std::string warning;
};

// Fails as readProfile() does, since frames without the corrections that somebody has asked for would go unnoticed.
// `cameras` are all that were listed: a serial number that several of them have does not name one.
FoundProfile findProfile(std::span<const ListedCamera> cameras, const ListedCamera& camera);

// The factors of all pixels as the library keeps them; empty when the profile has none. A factor by radius is that of
// the nearest whole pixel around the principal point of `k`.
std::vector<double> orthogonalFactors(const Profile& profile, const LensIntrinsic& k);

// Puts the values into the library's tables, from which the next frame is made. The library has one set of tables, so
// call it after the camera was loaded last. Another listing or loading undoes it; a re-open, a grab and all settings
// leave it in force.
void applyProfile(const ListedCamera& camera, const FoundProfile& found);

// The file whose values are in the tables for this camera; empty when there are none.
std::filesystem::path profileInUse(const ListedCamera& camera);
