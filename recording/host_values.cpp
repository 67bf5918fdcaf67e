// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A row for each value: where the library has it, and its name in the JSON.
#include "recording/host_values.h"

#include <algorithm>
#include <limits>
#include <type_traits>

#include "host/failure.h"
#include "recording/layout.h"

namespace
{

// Calls `each` with the name, the record's value and the library's variable, for all of them.
template <typename Values, typename Each> void forAll(int n, Values& values, const Each& each)
{
    each("min-depth", values.minDepth, stCamParam[n].nMinDepth);
    each("max-depth", values.maxDepth, stCamParam[n].nMaxDepth);
    each("depth-gap", values.depthGap, m_nDepthGab);
    each("edge-threshold", values.edgeThreshold, m_nEdgeThres);
    each("edge-depth", values.edgeDepth, m_nEdgeDepth);
    each("amplitude-scale", values.amplitudeScale, fAmpScale);
    each("scatter-scale", values.scatterScale, fScatterScale);
    each("undistortion", values.undistortion, m_nUndistortionMode);
    each("fppn", values.fppn, m_bFPPN);
    each("orthogonal", values.orthogonal, m_bOrthogonal);
    each("remove-edge", values.removeEdge, m_bRemoveEdge);
    each("remove-motion-blur", values.removeMotionBlur, m_bRemoveMotionBlur);
    each("horizontal", values.horizontal, m_bHorizontal);
    each("vertical", values.vertical, m_bVertical);
    each("intrinsic", values.intrinsic, m_fIntrinsicParam[n]);
    each("distortion", values.distortion, m_fDistorParam[n]);
    each("colour-intrinsic", values.colourIntrinsic, m_fRGBIntrinsicParam[n]);
    each("colour-distortion", values.colourDistortion, m_fRGBDistorParam[n]);
}

[[noreturn]] void refuse(const char* name)
{
    throw Failure(kUsage, std::string("recorded parameters: \"") + name + "\" is missing or is not what it should be");
}

// A number that the value can hold as it is; its JSON has more digits than a float, so none is lost.
template <typename T> void read(const Json& json, const char* name, T& value)
{
    if constexpr (std::is_floating_point_v<T>) {
        if (!json.is_number() || !(std::abs(json.get<double>()) <= double{std::numeric_limits<T>::max()}))
            refuse(name);
        value = json.get<T>();
    } else {
        if (!json.is_number_integer() || json.get<double>() < double{std::numeric_limits<T>::min()} ||
            json.get<double>() > double{std::numeric_limits<T>::max()})
            refuse(name);
        value = json.get<T>();
    }
}

template <size_t N> void read(const Json& json, const char* name, std::array<float, N>& values)
{
    if (!json.is_array() || json.size() != N)
        refuse(name);
    for (size_t i = 0; i < N; ++i)
        read(json[i], name, values[i]);
}

// The library has C arrays where the record has others.
template <typename T> void assign(T& to, const T& from)
{
    to = from;
}
template <size_t N> void assign(std::array<float, N>& to, const float (&from)[N])
{
    std::ranges::copy(from, to.begin());
}
template <size_t N> void assign(float (&to)[N], const std::array<float, N>& from)
{
    std::ranges::copy(from, to);
}

} // namespace

HostValues hostValuesOf(int n)
{
    HostValues values;
    forAll(n, values, [](const char*, auto& value, const auto& variable) { assign(value, variable); });
    return values;
}

void takeHostValues(int n, const HostValues& values)
{
    forAll(n, values, [](const char*, const auto& value, auto& variable) { assign(variable, value); });
}

Json hostValuesJson(const HostValues& values)
{
    Json json{{"schema", kHostValuesSchema}};
    forAll(0, values, [&](const char* name, const auto& value, const auto&) { json[name] = value; });
    return json;
}

HostValues hostValuesFrom(const Json& json)
{
    if (!json.is_object() || !json.contains("schema") || json["schema"] != kHostValuesSchema)
        refuse("schema");
    HostValues values;
    forAll(0, values, [&](const char* name, auto& value, const auto&) {
        if (!json.contains(name))
            refuse(name);
        read(json[name], name, value);
    });
    return values;
}
