// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The rules for each value, with a remedy for each.
#include "host/plausibility.h"

#include "config/param_image.h"
#include "geometry/lens_fields.h"

#include "host/formatted.h"

namespace
{

constexpr int kMostDepth = 15000; // mm

constexpr char kLensRemedy[] =
    "Restore a backup with \"vqd eeprom restore FILE\", or set the lens with \"vqd lens --set\".";

LensIntrinsic intrinsicOf(const Eeprom& eeprom, const LensBlock& block)
{
    const auto value = [&](int i) { return DecodeLensField(eeprom.data(), block.intrinsic[i]); };
    return {value(0), value(1), value(2), value(3)};
}

void judgeFrequency(std::vector<Implausible>& found, unsigned code)
{
    if (DecodeFrequency(static_cast<uint8_t>(code)) == nullptr)
        found.push_back({"the modulation frequency has no known code (" + std::to_string(code) + ")",
                         "vqd set frequency=... --save"});
}

void judgeDepthRange(std::vector<Implausible>& found, int least, int most)
{
    if (least >= most || most > kMostDepth)
        found.push_back(
            {"the depth range is not plausible: " + std::to_string(least) + " to " + std::to_string(most) + " mm",
             "vqd set depth-range=0,7500 --save"});
}

void addLens(std::vector<Implausible>& found, const char* name, const LensIntrinsic& k)
{
    found.push_back({std::string("the ") + name + " lens is not plausible: " + lensText(k), kLensRemedy});
}

} // namespace

std::string lensText(const LensIntrinsic& k)
{
    return formatted("focal length %.1f, %.1f, centre %.1f, %.1f", static_cast<double>(k.fx), static_cast<double>(k.fy),
                     static_cast<double>(k.cx), static_cast<double>(k.cy));
}

std::string depthLensText(const Eeprom& eeprom)
{
    return lensText(intrinsicOf(eeprom, kDepthLensBlock));
}

bool isPlausible(const LensIntrinsic& k)
{
    return k.cx >= 140 && k.cx <= 180 && k.cy >= 80 && k.cy <= 160 && k.fx >= 50 && k.fy >= 50;
}

void judgeDepthLens(std::vector<Implausible>& found, const LensIntrinsic& k)
{
    if (!isPlausible(k))
        addLens(found, "depth", k);
}

void judgeColourLens(std::vector<Implausible>& found, const LensIntrinsic& k)
{
    const bool absent = k.fx == 0 && k.fy == 0 && k.cx == 0 && k.cy == 0;
    if (!absent && !(k.fx > 0 && k.fy > 0 && k.cx > 0 && k.cy > 0))
        addLens(found, "colour", k);
}

std::vector<Implausible> implausibleIn(const Eeprom& eeprom)
{
    std::vector<Implausible> found;
    judgeFrequency(found, eeprom[kFrequencyCode]);
    judgeDepthRange(found, ReadU16(eeprom.data(), kMinDepth), ReadU16(eeprom.data(), kMaxDepth));
    judgeDepthLens(found, intrinsicOf(eeprom, kDepthLensBlock));
    judgeColourLens(found, intrinsicOf(eeprom, kColourLensBlock));
    return found;
}
