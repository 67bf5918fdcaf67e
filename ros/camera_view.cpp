// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A worker is another program, perhaps of another version, so nothing in its JSON is taken for granted.
#include "ros/camera_view.h"

#include "device/base/models.h"
#include "host/failure.h"

namespace
{

template <typename T> T member(const Json& json, const char* path)
{
    try {
        return json.at(Json::json_pointer(path)).get<T>();
    } catch (const Json::exception&) {
        throw Failure(kUsage, std::string("the worker's parameters have no ") + path);
    }
}

std::string text(const Json& json, const char* path)
{
    const Json::json_pointer at(path);
    return json.contains(at) && json.at(at).is_string() ? json.at(at).get<std::string>() : "";
}

constexpr struct {
    const char* path;
    double ViewLens::*value;
} kPinhole[] = {{"/lens/depth/fx", &ViewLens::fx},
                {"/lens/depth/fy", &ViewLens::fy},
                {"/lens/depth/cx", &ViewLens::cx},
                {"/lens/depth/cy", &ViewLens::cy}},
  kDistortion[] = {{"/lens/depth/k1", &ViewLens::k1}, {"/lens/depth/k2", &ViewLens::k2},
                   {"/lens/depth/k3", &ViewLens::k3}, {"/lens/depth/p1", &ViewLens::p1},
                   {"/lens/depth/p2", &ViewLens::p2}, {"/lens/depth/skew", &ViewLens::skew}};

} // namespace

CameraView cameraViewFrom(const Json& parameters)
{
    CameraView view;
    view.serial = text(parameters, "/camera/serial");
    view.product = text(parameters, "/camera/product");
    view.profilePath = text(parameters, "/camera/profile");
    view.kind.rectified = member<int>(parameters, "/settings/undistortion") != 0;
    // Other models correct in the camera, and say nothing of it.
    view.kind.range =
        IsHostCorrectedProduct(view.product.c_str()) && member<int>(parameters, "/settings/orthogonal") != 1;
    for (const auto& row : kPinhole)
        view.lens.*row.value = member<double>(parameters, row.path);
    if (!view.kind.rectified)
        for (const auto& row : kDistortion)
            view.lens.*row.value = member<double>(parameters, row.path);
    return view;
}

const char* depthWord(const ImageKind& kind)
{
    return kind.range ? "range" : "depth";
}

const char* imageWord(const ImageKind& kind)
{
    return kind.rectified ? "image_rect" : "image_raw";
}
