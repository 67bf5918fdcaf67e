// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// See lens_json.h.
#include "lens_json.h"

#include <algorithm>
#include <cmath>

#include "exit_codes.h"
#include "geometry/lens_fields.h"

namespace
{

constexpr const char* kSets[] = {"depth", "colour", "extrinsic"};

// The camera stores steps of 0.0001 at the finest; more digits would be those of the float.
double rounded(float value)
{
    return std::round(static_cast<double>(value) * 1e4) / 1e4;
}

Json lensJson(int n, int (*get)(int, float*, float*))
{
    float intrinsic[4], distortion[6];
    if (get(n, intrinsic, distortion) != 1)
        throw Failure(kFailed, "the lens can not be read");
    Json json;
    for (size_t i = 0; i < 4; ++i)
        json[kIntrinsicNames[i]] = rounded(intrinsic[i]);
    for (size_t i = 0; i < 6; ++i)
        json[kDistortionNames[i]] = rounded(distortion[i]);
    return json;
}

float numberIn(const Json& json, const std::string& where)
{
    if (!json.is_number() || !std::isfinite(json.get<float>()))
        throw Failure(kUsage, where + " is not a number");
    return json.get<float>();
}

float memberIn(const Json& set, const std::string& setName, const char* name)
{
    const std::string where = setName + "." + name;
    if (!set.is_object() || !set.contains(name))
        throw Failure(kUsage, where + " is missing");
    return numberIn(set[name], where);
}

// The camera would store the nearest that the field holds.
float heldIn(const LensField& field, float value, const std::string& where)
{
    uint8_t image[VQD_IMAGE_BYTES] = {};
    EncodeLensField(image, field, value);
    const float held = DecodeLensField(image, field);
    if (std::abs(held - value) > 1.01f / field.scale) // truncation loses a step at most
        throw Failure(kUsage, where + " is out of range, the nearest is " + Json(rounded(held)).dump());
    return value;
}

LensSet lensFrom(const Json& set, const LensBlock& block, const std::string& name)
{
    float k[4], d[6];
    for (size_t i = 0; i < 4; ++i)
        k[i] = heldIn(block.intrinsic[i], memberIn(set, name, kIntrinsicNames[i]), name + "." + kIntrinsicNames[i]);
    for (size_t i = 0; i < 6; ++i)
        d[i] = heldIn(block.distortion[i], memberIn(set, name, kDistortionNames[i]), name + "." + kDistortionNames[i]);
    return {{k[0], k[1], k[2], k[3]}, {d[0], d[1], d[2], d[3], d[4], d[5]}};
}

ExtrinsicParam extrinsicFrom(const Json& set)
{
    float e[12];
    for (size_t i = 0; i < 12; ++i) {
        const bool rotation = i < 9;
        const std::string name = rotation ? "extrinsic.rotation" : "extrinsic.translation";
        const Json::json_pointer at(rotation ? "/rotation/" + std::to_string(i / 3) + "/" + std::to_string(i % 3)
                                             : "/translation/" + std::to_string(i - 9));
        if (!set.contains(at))
            throw Failure(kUsage, name + " is incomplete");
        e[i] = heldIn(ExtrinsicField(static_cast<int>(i)), numberIn(set.at(at), name), name);
    }
    return {e[0], e[1], e[2], e[3], e[4], e[5], e[6], e[7], e[8], e[9], e[10], e[11]};
}

} // namespace

bool isPlausible(const LensIntrinsic& k)
{
    return k.cx >= 140 && k.cx <= 180 && k.cy >= 80 && k.cy <= 160 && k.fx >= 50 && k.fy >= 50;
}

Json calibrationJson(const Camera& camera)
{
    const int n = camera.nIndex;
    float e[12];
    if (vqdGetExtrinsicParameter(n, e) != 1)
        failOn(camera, "the extrinsic parameters can not be read");
    Json json;
    json["depth"] = lensJson(n, vqdGetLensParameter);
    json["colour"] = lensJson(n, vqdGetRGBLensParameter);
    for (size_t row = 0; row < 3; ++row)
        json["extrinsic"]["rotation"].push_back(
            {rounded(e[3 * row]), rounded(e[3 * row + 1]), rounded(e[3 * row + 2])});
    json["extrinsic"]["translation"] = {rounded(e[9]), rounded(e[10]), rounded(e[11])};
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
        throw Failure(kUsage, file + ": holds no calibration set");
    return calibration;
}

void store(int n, const Calibration& c)
{
    if (c.depth)
        vqdSetLensParameter(n, c.depth->k, c.depth->d);
    if (c.colour)
        vqdSetRGBLensParameter(n, c.colour->k, c.colour->d);
    if (c.extrinsic)
        vqdSetExtrinsicParameter(n, *c.extrinsic);
}
