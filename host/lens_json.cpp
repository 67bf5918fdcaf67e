// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Between the JSON of a calibration and the fixed-point fields in which a camera stores it.
#include "host/lens_json.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "geometry/lens_fields.h"
#include "host/formatted.h"

namespace
{

constexpr const char* kSets[] = {"depth", "colour", "extrinsic"};

// The finest step that a camera stores is 0.0001. More digits would come from the float, not from the camera.
double rounded(float value)
{
    return std::round(static_cast<double>(value) * 1e4) / 1e4;
}

// The rest of the transform lies beyond the EEPROM, in the image only.
bool isStored(size_t extrinsic)
{
    return ExtrinsicField(static_cast<int>(extrinsic)).offset < VQD_EEPROM_BYTES;
}

Json lensJson(int n, int (*get)(int, float*, float*))
{
    float intrinsic[4], distortion[6];
    if (get(n, intrinsic, distortion) != 1)
        throw Failure(kFailed, "the lens cannot be read");
    Json json;
    for (size_t i = 0; i < 4; ++i)
        json[kIntrinsicNames[i]] = rounded(intrinsic[i]);
    for (size_t i = 0; i < 6; ++i)
        json[kDistortionNames[i]] = rounded(distortion[i]);
    return json;
}

double numberIn(const Json& json, const std::string& where)
{
    if (!json.is_number() || !std::isfinite(json.get<float>()))
        throw Failure(kUsage, where + " is not a number");
    return json.get<double>();
}

double memberIn(const Json& set, const std::string& setName, const char* name)
{
    const std::string where = setName + "." + name;
    if (!set.is_object() || !set.contains(name))
        throw Failure(kUsage, where + " is missing");
    return numberIn(set[name], where);
}

// The nearest value that the field can hold, as a float that the library, which truncates, stores as exactly that
// value.
float nearestHeld(const LensField& field, double value, const std::string& where)
{
    const double scale = static_cast<double>(field.scale);
    const auto nearest = static_cast<float>(std::round(value * scale) / scale);
    uint8_t image[VQD_IMAGE_BYTES] = {};
    EncodeLensField(image, field, nearest + std::copysign(0.25F / field.scale, nearest));
    const float held = DecodeLensField(image, field);
    if (std::abs(static_cast<double>(held) - value) > 0.51 / scale)
        throw Failure(kUsage, where + " is out of range, the nearest is " + Json(rounded(held)).dump());
    EncodeLensField(image, field, held);
    return DecodeLensField(image, field) == held ? held : std::nextafter(held, std::copysign(HUGE_VALF, held));
}

LensSet lensFrom(const Json& set, const LensBlock& block, const std::string& name)
{
    float k[4], d[6];
    for (size_t i = 0; i < 4; ++i)
        k[i] =
            nearestHeld(block.intrinsic[i], memberIn(set, name, kIntrinsicNames[i]), name + "." + kIntrinsicNames[i]);
    for (size_t i = 0; i < 6; ++i)
        d[i] = nearestHeld(block.distortion[i], memberIn(set, name, kDistortionNames[i]),
                           name + "." + kDistortionNames[i]);
    return {{k[0], k[1], k[2], k[3]}, {d[0], d[1], d[2], d[3], d[4], d[5]}};
}

ExtrinsicParam extrinsicFrom(const Json& set)
{
    float e[kExtrinsicFields] = {};
    for (size_t i = 0; i < kExtrinsicFields; ++i) {
        const bool rotation = i < 9;
        const std::string name = rotation ? "extrinsic.rotation" : "extrinsic.translation";
        const Json::json_pointer at(rotation ? "/rotation/" + std::to_string(i / 3) + "/" + std::to_string(i % 3)
                                             : "/translation/" + std::to_string(i - 9));
        if (!set.contains(at))
            throw Failure(kUsage, name + " is incomplete");
        if (!isStored(i) && set.at(at).is_null())
            continue;
        e[i] = nearestHeld(ExtrinsicField(static_cast<int>(i)), numberIn(set.at(at), name), name);
    }
    return {e[0], e[1], e[2], e[3], e[4], e[5], e[6], e[7], e[8], e[9], e[10], e[11]};
}

} // namespace

Json calibrationJson(const ListedCamera& camera)
{
    const int n = camera.nIndex;
    float e[kExtrinsicFields];
    if (vqdGetExtrinsicParameter(n, e) != 1)
        failOn(camera, "the extrinsic parameters cannot be read");
    Json json;
    json["depth"] = lensJson(n, vqdGetLensParameter);
    json["colour"] = lensJson(n, vqdGetRGBLensParameter);
    const auto stored = [&](size_t i) { return isStored(i) ? Json(rounded(e[i])) : Json(); };
    for (size_t row = 0; row < 3; ++row)
        json["extrinsic"]["rotation"].push_back({stored(3 * row), stored(3 * row + 1), stored(3 * row + 2)});
    json["extrinsic"]["translation"] = {stored(9), stored(10), stored(11)};
    return json;
}

Calibration calibrationFrom(const Json& json, const std::string& file)
{
    for (const auto& [key, unused] : json.items())
        if (key != "schema" && std::find(std::begin(kSets), std::end(kSets), key) == std::end(kSets))
            throw Failure(kUsage, file + ": there is no set '" + key + "'");
    Calibration calibration;
    if (json.contains("depth"))
        calibration.depth = lensFrom(json["depth"], kDepthLensBlock, "depth");
    if (json.contains("colour"))
        calibration.colour = lensFrom(json["colour"], kColourLensBlock, "colour");
    if (json.contains("extrinsic"))
        calibration.extrinsic = extrinsicFrom(json["extrinsic"]);
    if (!calibration.depth && !calibration.colour && !calibration.extrinsic)
        throw Failure(kUsage, file + ": it holds no calibration set");
    return calibration;
}

Json exactLensJson(const LensSet& lens)
{
    const float k[] = {lens.k.fx, lens.k.fy, lens.k.cx, lens.k.cy};
    const float d[] = {lens.d.k1, lens.d.k2, lens.d.k3, lens.d.p1, lens.d.p2, lens.d.skew};
    Json json;
    for (size_t i = 0; i < std::size(k); ++i)
        json[kIntrinsicNames[i]] = k[i];
    for (size_t i = 0; i < std::size(d); ++i)
        json[kDistortionNames[i]] = d[i];
    return json;
}

LensSet exactLensFrom(const Json& set, const std::string& name)
{
    constexpr double kMostFocal = 1e5, kMostDistortion = 100; // far beyond any lens
    const auto member = [&](const char* key, double least, double most) {
        const double value = memberIn(set, name, key);
        if (!(value >= least && value <= most))
            throw Failure(kUsage, name + "." + key + formatted(" is not from %g to %g", least, most));
        return static_cast<float>(value);
    };
    float k[4], d[6];
    for (size_t i = 0; i < std::size(k); ++i)
        k[i] = member(kIntrinsicNames[i], 1, kMostFocal);
    for (size_t i = 0; i < std::size(d); ++i)
        d[i] = member(kDistortionNames[i], -kMostDistortion, kMostDistortion);
    if (set.size() != std::size(k) + std::size(d)) // all of those are there, so some other is
        throw Failure(kUsage, name + " has members that no lens has");
    return {{k[0], k[1], k[2], k[3]}, {d[0], d[1], d[2], d[3], d[4], d[5]}};
}

std::vector<Implausible> implausibleIn(const Calibration& calibration)
{
    std::vector<Implausible> found;
    if (calibration.depth)
        judgeDepthLens(found, calibration.depth->k);
    if (calibration.colour)
        judgeColourLens(found, calibration.colour->k);
    return found;
}

void putIntoImage(int n, const Calibration& c)
{
    uint8_t* const image = stCamParam[n].image;
    const auto putLens = [image](const LensBlock& block, const LensSet& lens) {
        const float k[] = {lens.k.fx, lens.k.fy, lens.k.cx, lens.k.cy};
        const float d[] = {lens.d.k1, lens.d.k2, lens.d.k3, lens.d.p1, lens.d.p2, lens.d.skew};
        for (size_t i = 0; i < std::size(k); ++i)
            EncodeLensField(image, block.intrinsic[i], k[i]);
        for (size_t i = 0; i < std::size(d); ++i)
            EncodeLensField(image, block.distortion[i], d[i]);
    };
    if (c.depth)
        putLens(kDepthLensBlock, *c.depth);
    if (c.colour)
        putLens(kColourLensBlock, *c.colour);
    float e[kExtrinsicFields];
    static_assert(sizeof e == sizeof *c.extrinsic);
    if (c.extrinsic) {
        memcpy(e, &*c.extrinsic, sizeof e);
        for (int i = 0; i < kExtrinsicFields; ++i)
            EncodeLensField(image, ExtrinsicField(i), e[i]);
    }
}
