// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Files of profiles, and what they do to the library's tables.
#include "host/profile.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "host/documents.h"
#include "host/formatted.h"

namespace
{

constexpr size_t kFppnValues = 4800, kRadialFactors = 2048;
constexpr int kFactorsPerPixel = 8; // of radius
constexpr size_t kLensBytes = 80;   // where the lenses and the transform begin in the EEPROM
constexpr size_t kMostPoses = 100;

constexpr const char* kMembers[] = {"schema", "serial",     "product", "eeprom", "depth",
                                    "colour", "orthogonal", "fppn",    "poses"};

struct {
    int number = -1;
    std::filesystem::path path;
} g_inUse; // as the library's tables, one for the process

[[noreturn]] void refuse(const std::string& what)
{
    throw Failure(kUsage, what);
}

std::string textIn(const Json& json, const char* key)
{
    if (!json.contains(key) || !json[key].is_string() || json[key] == "")
        refuse(std::string("\"") + key + "\" is not a text");
    return json[key].get<std::string>();
}

// The numbers of an array, each from `least` to `most`. A comparison with NaN is false, so NaN is refused too.
std::vector<double> numbersIn(const Json& json, const std::string& where, size_t count, double least, double most)
{
    if (!json.is_array() || json.size() != count)
        refuse(where + " is not an array of " + std::to_string(count) + " numbers");
    std::vector<double> numbers;
    for (const Json& value : json) {
        if (!value.is_number() || !(value.get<double>() >= least && value.get<double>() <= most))
            refuse(where + "[" + std::to_string(numbers.size()) +
                   formatted("] is not a number from %g to %g", least, most));
        numbers.push_back(value.get<double>());
    }
    return numbers;
}

Profile profileFrom(const Json& json)
{
    for (const auto& [key, unused] : json.items())
        if (std::ranges::find(kMembers, key) == std::end(kMembers))
            refuse("there is no member \"" + key + "\"");
    Profile profile;
    profile.serial = textIn(json, "serial");
    profile.product = textIn(json, "product");
    profile.eeprom = textIn(json, "eeprom");
    if (json.contains("depth"))
        profile.depth = exactLensFrom(json["depth"], "depth");
    if (profile.depth && !isPlausible(profile.depth->k))
        refuse("depth: no camera has such a lens: " + lensText(profile.depth->k));
    if (json.contains("colour"))
        profile.colour = exactLensFrom(json["colour"], "colour");
    if (json.contains("fppn")) {
        // The camera's table holds 16 bits without a sign, where 65526 acts as -10 does.
        const std::vector<double> values = numbersIn(json["fppn"], "fppn", kFppnValues, -32768, 65535);
        if (std::ranges::any_of(values, [](double value) { return value != std::trunc(value); }))
            refuse("fppn has a value that is not a whole number of mm");
        profile.fppn.assign(values.begin(), values.end());
    }
    profile.orthogonalOfLens = json.contains("orthogonal") && json["orthogonal"] == "lens";
    if (json.contains("orthogonal") && !profile.orthogonalOfLens)
        profile.orthogonal = numbersIn(json["orthogonal"], "orthogonal", kRadialFactors, 0, 1);
    if (json.contains("poses")) {
        if (!json["poses"].is_array() || json["poses"].size() > kMostPoses)
            refuse("poses is not an array of at most " + std::to_string(kMostPoses));
        for (size_t i = 0; i < json["poses"].size(); ++i)
            setPose(profile, poseFrom(json["poses"][i], "poses[" + std::to_string(i) + "]"));
        if (profile.poses.size() != json["poses"].size())
            refuse("poses has two poses to one place");
    }
    return profile;
}

} // namespace

Pose poseFrom(const Json& json, const std::string& where)
{
    constexpr size_t kMembersOfPose = 3;
    if (!json.is_object() || !json.contains("rotation") || !json.contains("translation"))
        refuse(where + " has no rotation and translation");
    if (json.size() != kMembersOfPose)
        refuse(where + " has members that no pose has");
    Pose pose;
    pose.to = textIn(json, "to");
    if (!json["rotation"].is_array() || json["rotation"].size() != 3)
        refuse(where + ".rotation does not have three rows");
    auto element = pose.rotation.begin();
    for (const Json& row : json["rotation"])
        element = std::ranges::copy(numbersIn(row, where + ".rotation", 3, -1, 1), element).out;
    std::ranges::copy(numbersIn(json["translation"], where + ".translation", 3, -1e6, 1e6), pose.translation.begin());

    // Rows of a rotation are at right angles and of length 1, and its determinant is 1.
    constexpr double kTolerance = 1e-3;
    const std::array<double, 9>& r = pose.rotation;
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = i; j < 3; ++j) {
            const double product = r[3 * i] * r[3 * j] + r[3 * i + 1] * r[3 * j + 1] + r[3 * i + 2] * r[3 * j + 2];
            if (!(std::abs(product - (i == j ? 1 : 0)) < kTolerance))
                refuse(where + ".rotation is not a rotation");
        }
    const double determinant =
        r[0] * (r[4] * r[8] - r[5] * r[7]) - r[1] * (r[3] * r[8] - r[5] * r[6]) + r[2] * (r[3] * r[7] - r[4] * r[6]);
    if (determinant < 0)
        refuse(where + ".rotation is a mirror image");
    return pose;
}

void setPose(Profile& profile, const Pose& pose)
{
    const auto same = std::ranges::find(profile.poses, pose.to, &Pose::to);
    if (same == profile.poses.end())
        profile.poses.push_back(pose);
    else
        *same = pose;
}

std::string fingerprint(const Eeprom& eeprom)
{
    uint64_t hash = 0xcbf29ce484222325;
    for (size_t i = kLensBytes; i < eeprom.size(); ++i)
        hash = (hash ^ eeprom[i]) * 0x100000001b3;
    return formatted("%016llx", static_cast<unsigned long long>(hash));
}

Profile readProfile(const std::string& file, const std::string& serial)
{
    const Json json = readDocument(file, "profile");
    Profile profile;
    try {
        profile = profileFrom(json);
    } catch (const Failure& failure) {
        throw Failure(failure.code, file + ": " + failure.what());
    }
    if (profile.serial != serial)
        refuse(file + " is the profile of camera " + profile.serial);
    return profile;
}

Json profileJson(const Profile& profile)
{
    Json json = document("profile");
    json["serial"] = profile.serial;
    json["product"] = profile.product;
    json["eeprom"] = profile.eeprom;
    if (profile.depth)
        json["depth"] = exactLensJson(*profile.depth);
    if (profile.colour)
        json["colour"] = exactLensJson(*profile.colour);
    if (profile.orthogonalOfLens)
        json["orthogonal"] = "lens";
    else if (!profile.orthogonal.empty())
        json["orthogonal"] = profile.orthogonal;
    if (!profile.fppn.empty())
        json["fppn"] = profile.fppn;
    for (const Pose& pose : profile.poses) {
        const auto& r = pose.rotation;
        json["poses"].push_back({{"to", pose.to},
                                 {"rotation", {{r[0], r[1], r[2]}, {r[3], r[4], r[5]}, {r[6], r[7], r[8]}}},
                                 {"translation", pose.translation}});
    }
    return json;
}

void writeProfile(const std::filesystem::path& path, const Profile& profile)
{
    const Json json = profileJson(profile);
    profileFrom(json);
    requireWritableDirectory(path.parent_path());
    writeDocument(path, json, Existing::replace);
}

std::filesystem::path userProfilePath(const std::string& serial)
{
    const char* const data = getenv("XDG_DATA_HOME");
    const char* const home = getenv("HOME");
    std::filesystem::path folder;
    if (data != nullptr && *data == '/')
        folder = data;
    else if (home != nullptr && *home == '/')
        folder = std::filesystem::path(home) / ".local/share";
    else
        return {};
    return folder / "vqd/profiles" / (serial + ".json");
}

std::filesystem::path systemProfilePath(const std::string& serial)
{
    return std::filesystem::path("/etc/vqd/profiles") / (serial + ".json");
}

FoundProfile findProfile(std::span<const ListedCamera> cameras, const ListedCamera& camera)
{
    FoundProfile found;
    if (camera.known != Known::read)
        return found;
    const std::string serial = camera.szSerialNumber;
    for (const auto& path : {userProfilePath(serial), systemProfilePath(serial)}) {
        std::error_code unknown;
        if (path.empty() || !found.path.empty())
            continue;
        if (std::filesystem::exists(path, unknown))
            found.path = path;
        else if (unknown && found.warning.empty()) // it may be there, in a folder that this user may not enter
            found.warning = "no profile is looked for at " + path.string() + ": " + unknown.message();
    }
    if (found.path.empty())
        return found;
    found.warning.clear();
    const auto isSame = [&](const ListedCamera& other) {
        return other.known == Known::read && serial == other.szSerialNumber;
    };
    const std::string notApplied = "the profile " + found.path.string() + " is not applied: ";
    Profile profile = readProfile(found.path, serial);
    if (std::ranges::count_if(cameras, isSame) > 1)
        found.warning = notApplied + "several cameras have the serial number " + serial;
    else if (profile.eeprom != fingerprint(camera.eeprom))
        found.warning = notApplied + "the lens in the EEPROM of " + nameOf(camera) + " has changed since it was made";
    else
        found.values = std::move(profile);
    return found;
}

std::vector<double> orthogonalFactors(const Profile& profile, const LensIntrinsic& k)
{
    std::vector<double> factors;
    if (!profile.orthogonalOfLens && profile.orthogonal.empty())
        return factors;
    for (int row = 0; row < VQD_HEIGHT; ++row)
        for (int column = 0; column < VQD_WIDTH; ++column) {
            const double dx = column - static_cast<double>(k.cx), dy = row - static_cast<double>(k.cy);
            if (profile.orthogonalOfLens) {
                const double x = dx / static_cast<double>(k.fx), y = dy / static_cast<double>(k.fy);
                factors.push_back(1 / std::sqrt(1 + x * x + y * y));
            } else {
                constexpr int kMostRadius = kRadialFactors / kFactorsPerPixel - 1;
                const double radius = std::min(std::round(std::hypot(dx, dy)), double{kMostRadius});
                factors.push_back(profile.orthogonal[static_cast<size_t>(kFactorsPerPixel * radius)]);
            }
        }
    return factors;
}

void applyProfile(const ListedCamera& camera, const FoundProfile& found)
{
    if (!found.values)
        return;
    const Profile& profile = *found.values;
    const int n = camera.nIndex;
    if (profile.depth) {
        memcpy(m_fIntrinsicParam[n], &profile.depth->k, sizeof m_fIntrinsicParam[n]);
        memcpy(m_fDistorParam[n], &profile.depth->d, sizeof m_fDistorParam[n]);
        BuildPointCloudTable(profile.depth->k);
        BuildUndistortionMap(n);
    }
    if (profile.colour) {
        memcpy(m_fRGBIntrinsicParam[n], &profile.colour->k, sizeof m_fRGBIntrinsicParam[n]);
        memcpy(m_fRGBDistorParam[n], &profile.colour->d, sizeof m_fRGBDistorParam[n]);
    }
    LensIntrinsic k;
    memcpy(&k, m_fIntrinsicParam[n], sizeof k);
    std::ranges::copy(orthogonalFactors(profile, k), m_dOrthogonalData);
    std::ranges::copy(profile.fppn, m_nEEPROMFPPNBuf);
    g_inUse = {n, found.path};
}

std::filesystem::path profileInUse(const ListedCamera& camera)
{
    return g_inUse.number == camera.nIndex ? g_inUse.path : std::filesystem::path();
}
