// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A row for each field that has a name; the lenses, the transform and the unnamed bytes are added to them.
#include "host/eeprom_fields.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "geometry/lens_fields.h"

#include "host/formatted.h"
#include "host/lens_json.h"

namespace
{

using At = const uint8_t*; // the field's first byte

std::string u8(At at)
{
    return std::to_string(at[0]);
}

std::string u16(At at)
{
    return std::to_string(ReadU16(at, 0));
}

std::string hex(At at)
{
    return formatted("0x%02x", at[0]);
}

std::string switchText(At at, uint8_t on, uint8_t off)
{
    return *at == on ? "on" : *at == off ? "off" : u8(at);
}

std::string frequency(At at)
{
    const Frequency* known = DecodeFrequency(at[0]);
    return known != nullptr ? std::to_string(known->mhz) : "code " + hex(at);
}

std::string offset(At at)
{
    uint8_t image[kOffsetMagnitude + 1] = {};
    image[kOffsetSign] = at[0];
    image[kOffsetMagnitude] = at[1];
    return std::to_string(DecodeOffset(image));
}

std::string flip(At at)
{
    const char* const horizontal = IsFlippedHorizontally(*at) ? "on" : "off";
    return horizontal + std::string(IsFlippedVertically(*at) ? ",on" : ",off");
}

std::string serialText(At at)
{
    char text[2 * kSerialBytes + 1];
    RenderSerial(at - kSerial, text);
    return text;
}

struct Row {
    int offset;
    int bytes;
    const char* name;
    const char* unit;
    bool isSetting;
    std::string (*text)(At at);
};

// In order of offset. The bytes between them are the camera's own and have no name but their number.
constexpr Row kRows[] = {
    {kScatterThreshold, 1, "scatter-threshold", "", true, u8},
    {kCheckThreshold, 1, "check-threshold", "", true, u8},
    {kOrthogonalSwitch, 1, "orthogonal (in the camera)", "", true, [](At at) { return switchText(at, 19, 18); }},
    {kMotionBlurSwitch, 1, "motion-blur", "", true, [](At at) { return switchText(at, 16, 0); }},
    {kSignature, 1, "signature", "", false, hex},
    {kFrequencyCode, 1, "frequency", "MHz", true, frequency},
    {kIntegrationTime, 1, "integration-time", "", true, [](At at) { return std::to_string(*at * 100); }},
    {kFlip, 1, "flip horizontal, vertical", "", true, flip},
    {kGrab, 1, "illumination", "", true, u8},
    {kMinDepth, 2, "depth-range minimum", "mm", true, u16},
    {kMaxDepth, 2, "depth-range maximum", "mm", true, u16},
    {kOffsetSign, 2, "offset", "", true, offset},
    {kFpsDelay, 1, "fps-delay", "", true, u8},
    {kMultiSync, 1, "multi-sync, multi-cam", "", true, u8},
    {kSlaveCount, 1, "multi-cam slaves", "", true, u8},
    {kSlaveId, 1, "multi-cam id", "", true, u8},
    {kEdgeSwitch, 1, "remove-edge (in the camera)", "", true,
     [](At at) -> std::string { return *at == 255 ? "off" : "on, " + u8(at); }},
    {kEdgeLevel, 1, "remove-edge level (in the camera)", "", true, u8},
    {kHostEdgeLevel, 1, "remove-edge level (on the host)", "", true, u8},
    {kUndistortionCode, 1, "undistortion, orthogonal (on the host)", "", true,
     [](At at) { return std::to_string(*at & ~kOrthogonalBit) + (*at & kOrthogonalBit ? ",on" : ",off"); }},
    {kCorrectionCode, 1, "fppn, remove-edge (on the host)", "", true,
     [](At at) { return std::string(*at & kFppnBit ? "on" : "off") + (*at & kEdgeBit ? ",on" : ",off"); }},
    {kSerial, kSerialBytes, "serial", "", false, serialText},
    {kDepthGap, 2, "depth-gap", "mm", false, u16},
    {kMotionBlurLevel, 1, "motion-blur level", "", true, u8},
    {kMotionBlurLevelCopy, 1, "motion-blur level, copy", "", true, u8},
};

EepromField lensField(const Eeprom& eeprom, const LensField& field, const std::string& name, const char* unit)
{
    return {name, field.offset, 2,
            unit, false,        formatted("%g", static_cast<double>(DecodeLensField(eeprom.data(), field)))};
}

void addLens(std::vector<EepromField>& fields, const Eeprom& eeprom, const LensBlock& block, const std::string& name)
{
    for (size_t i = 0; i < kIntrinsicFields; ++i)
        fields.push_back(lensField(eeprom, block.intrinsic[i], name + "." + kIntrinsicNames[i], "pixels"));
    for (size_t i = 0; i < kDistortionFields; ++i)
        fields.push_back(lensField(eeprom, block.distortion[i], name + "." + kDistortionNames[i], ""));
}

} // namespace

std::vector<EepromField> eepromFields(const Eeprom& eeprom)
{
    std::vector<EepromField> fields;
    for (const Row& row : kRows)
        fields.push_back({row.name, row.offset, row.bytes, row.unit, row.isSetting, row.text(&eeprom[row.offset])});
    addLens(fields, eeprom, kDepthLensBlock, "depth");
    addLens(fields, eeprom, kColourLensBlock, "colour");
    for (int i = 0; ExtrinsicField(i).offset < VQD_EEPROM_BYTES; ++i)
        fields.push_back(lensField(eeprom, ExtrinsicField(i),
                                   "rotation." + std::to_string(i / 3) + "." + std::to_string(i % 3), ""));
    std::array<bool, VQD_EEPROM_BYTES> named{};
    for (const EepromField& field : fields)
        std::fill_n(named.begin() + field.offset, field.bytes, true);
    for (int i = 0; i < VQD_EEPROM_BYTES; ++i)
        if (!named[static_cast<size_t>(i)])
            fields.push_back({"byte " + std::to_string(i), i, 1, "", false, hex(&eeprom[static_cast<size_t>(i)])});
    std::sort(fields.begin(), fields.end(),
              [](const EepromField& a, const EepromField& b) { return a.offset < b.offset; });
    return fields;
}

std::vector<EepromDifference> differences(const Eeprom& before, const Eeprom& after)
{
    std::vector<EepromDifference> found;
    const std::vector<EepromField> a = eepromFields(before);
    const std::vector<EepromField> b = eepromFields(after);
    for (size_t i = 0; i < a.size(); ++i) {
        const auto at = static_cast<size_t>(a[i].offset);
        if (memcmp(&before[at], &after[at], static_cast<size_t>(a[i].bytes)) != 0)
            found.push_back({a[i], b[i]});
    }
    return found;
}

Json differencesJson(const std::vector<EepromDifference>& differences)
{
    Json json = Json::array();
    for (const auto& [before, after] : differences)
        json.push_back({{"field", before.name},
                        {"offset", before.offset},
                        {"before", before.value},
                        {"after", after.value},
                        {"unit", before.unit}});
    return json;
}

std::string serialOf(const Eeprom& eeprom)
{
    return serialText(&eeprom[kSerial]);
}

Eeprom withFactorySettings(const Eeprom& eeprom)
{
    Eeprom factory{};
    FillFactoryImage(factory.data());
    Eeprom changed = eeprom;
    for (const EepromField& field : eepromFields(eeprom))
        if (field.isSetting)
            std::copy_n(factory.begin() + field.offset, field.bytes, changed.begin() + field.offset);
    return changed;
}
