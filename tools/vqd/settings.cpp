// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The rows behind get and set: one a setting.
#include "settings.h"

#include <algorithm>
#include <charconv>

#include "exit_codes.h"

namespace
{

std::string number(int value)
{
    return std::to_string(value);
}

std::string pair(int first, int second, char between = ',')
{
    return number(first) + between + number(second);
}

// Bytes of the parameter image that the library has no getter for.
enum ImageByte { kIllumination = 11, kMultiCamMode = 40, kSlaveCount = 41, kSlaveId = 42 };

int imageByte(int n, ImageByte offset)
{
    return stCamParam[n].image[offset];
}

std::string depthRange(int n)
{
    int least = 0;
    int most = 0;
    vqdGetDepthRange(n, &least, &most);
    return pair(least, most);
}

std::string motionBlur(int n)
{
    unsigned level = 0;
    const int on = vqdGetRemoveMotionBlur(n, &level);
    return pair(on, static_cast<int>(level));
}

std::string temperature(int n)
{
    char text[32];
    snprintf(text, sizeof text, "%.4f", vqdGetTemperature(n));
    return text;
}

std::string logicVersion(int n)
{
    int first = 0;
    int second = 0;
    vqdGetLogincVersion(n, &first, &second);
    return pair(first, second, '.');
}

// On the host a range counts once it has been read back.
int setDepthRange(int n, const int* v)
{
    return vqdSetDepthRange(n, v[0], v[1]) == 1 ? vqdGetDepthRange(n, nullptr, nullptr) : 0;
}

using V = const int*;

constexpr Setting kSettings[] = {
    {"frequency", "MHz: 20 or 30 (HT110, HT120), 10 (RS models)", 1, false,
     [](int n) { return number(vqdGetModuleFrequency(n)); }, [](int n, V v) { return vqdSetModuleFrequency(n, v[0]); }},
    {"integration-time", nullptr, 0, false, [](int n) { return number(vqdGetIntegrationTime(n)); }, nullptr},
    {"offset", "-255 to 255", 1, false, [](int n) { return number(vqdGetOffset(n)); },
     [](int n, V v) { return vqdSetOffset(n, v[0]); }},
    {"scatter-threshold", "0 to 255", 1, false, [](int n) { return number(vqdGetScatterThreshold(n)); },
     [](int n, V v) { return vqdSetScatterThreshold(n, v[0]); }},
    {"check-threshold", "0 to 255", 1, false, [](int n) { return number(vqdGetCheckThreshold(n)); },
     [](int n, V v) { return vqdSetCheckThreshold(n, v[0]); }},
    {"depth-range", "MIN,MAX in mm", 2, false, depthRange, setDepthRange},
    {"flip-horizontal", "1 or 0", 1, false, [](int n) { return number(vqdGetFlipHorizontal(n)); },
     [](int n, V v) { return vqdSetFlipHorizontal(n, v[0]); }},
    {"flip-vertical", "1 or 0", 1, false, [](int n) { return number(vqdGetFlipVertical(n)); },
     [](int n, V v) { return vqdSetFlipVertical(n, v[0]); }},
    {"fps-delay", "0 to 100", 1, false, [](int n) { return number(vqdGetFPSDelay(n)); },
     [](int n, V v) { return vqdSetFPSDelay(n, v[0]); }},
    {"multi-cam", "MODE,SLAVES,ID: 1 or 0, 1 to 9, 0 to 9", 3, false,
     [](int n) {
         return pair(imageByte(n, kMultiCamMode), imageByte(n, kSlaveCount)) + ',' + number(imageByte(n, kSlaveId));
     },
     [](int n, V v) { return vqdSetMultiCamMode(n, v[0], v[1], v[2]); }},
    {"multi-sync", "1 or 0", 1, false, [](int n) { return number(vqdGetMultiSyncMode(n)); },
     [](int n, V v) { return vqdSetMultiSyncMode(n, v[0]); }},
    {"illumination", "1 or 0", 1, false, [](int n) { return number(imageByte(n, kIllumination)); },
     [](int n, V v) { return vqdIlluminationOnOff(n, v[0]); }},
    {"remove-edge", "1 or 0", 1, false, [](int n) { return number(vqdGetRemoveEdge(n)); },
     [](int n, V v) { return vqdSetRemoveEdge(n, v[0]); }},
    {"motion-blur", "ON,LEVEL: 1 or 0, 0 to 255", 2, false, motionBlur,
     [](int n, V v) { return vqdSetRemoveMotionBlur(n, v[0], v[1]); }},
    {"undistortion", "0 none, 1 gated, 2 bilinear, 3 nearest", 1, false,
     [](int n) { return number(vqdGetUndistortion(n)); }, [](int n, V v) { return vqdSetUndistortion(n, v[0]); }},
    {"fppn", "1 or 0", 1, false, [](int n) { return number(vqdGetFPPN(n)); },
     [](int n, V v) { return vqdSetFPPN(n, v[0]); }},
    {"orthogonal", "1 or 0", 1, false, [](int n) { return number(vqdGetOrthogonal(n)); },
     [](int n, V v) { return vqdSetOrthogonal(n, v[0]); }},
    {"temperature", nullptr, 0, true, temperature, nullptr},
    {"logic-version", nullptr, 0, true, logicVersion, nullptr},
};

std::vector<int> parseNumbers(const std::string& text)
{
    std::vector<int> numbers;
    const char* at = text.data();
    const char* const end = at + text.size();
    for (;;) {
        int value = 0;
        const auto [next, error] = std::from_chars(at, end, value);
        if (error != std::errc{} || (next != end && *next != ','))
            return {};
        numbers.push_back(value);
        if (next == end)
            return numbers;
        at = next + 1;
    }
}

} // namespace

std::span<const Setting> allSettings()
{
    return kSettings;
}

std::string settingNames()
{
    std::string text;
    for (const Setting& row : kSettings)
        text += std::string("  ") + row.name + (row.values ? std::string("=  ") + row.values : "  read only") + '\n';
    return text;
}

const Setting& settingByName(const std::string& name)
{
    const auto row =
        std::find_if(std::begin(kSettings), std::end(kSettings), [&](const auto& s) { return name == s.name; });
    if (row == std::end(kSettings))
        throw Failure(kUsage, "there is no setting '" + name + "'; the settings are:\n" + settingNames());
    return *row;
}

Assignment parseAssignment(const std::string& text)
{
    const size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw Failure(kUsage, "'" + text + "' is not of the form KEY=VALUE");
    const Setting& setting = settingByName(text.substr(0, equals));
    if (setting.set == nullptr)
        throw Failure(kUsage, std::string(setting.name) + " can only be read");
    Assignment assignment{&setting, parseNumbers(text.substr(equals + 1))};
    if (assignment.values.size() != static_cast<size_t>(setting.arguments))
        throw Failure(kUsage, std::string(setting.name) + " takes " + setting.values);
    return assignment;
}

void apply(const Camera& camera, const Assignment& assignment)
{
    if (assignment.setting->set(camera.nIndex, assignment.values.data()) != 1)
        failOn(camera, std::string("the camera did not take ") + assignment.setting->name + " (" +
                           assignment.setting->values + ")");
}
