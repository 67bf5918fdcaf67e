// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The rows behind get and set: one a setting.
#include "host/settings.h"

#include <algorithm>
#include <charconv>
#include <functional>

#include "config/param_image.h"
#include "host/failure.h"

namespace
{

// Changes bytes of the image where the library's setters refuse values that cameras come with.
struct Byte {
    int offset, value;
};
int sendBytes(int n, std::initializer_list<Byte> bytes)
{
    unsigned char image[VQD_IMAGE_BYTES];
    if (vqdParameterData_Load(n, image) != 1)
        return 0;
    for (const Byte& byte : bytes)
        image[byte.offset] = static_cast<uint8_t>(byte.value);
    return vqdWriteToDevice(n, image);
}

// For what the library has no getter for.
int imageByte(int n, ParamOffset offset)
{
    return stCamParam[n].image[offset];
}

Json depthRange(int n)
{
    int least = 0;
    int most = 0;
    vqdGetDepthRange(n, &least, &most);
    return {least, most};
}

// As at 20 MHz from the factory: 0 to 15000. On the host a range counts once it has been read back.
int setDepthRange(int n, const int* v)
{
    const int sent = sendBytes(
        n,
        {{kMinDepth, v[0] >> 8}, {kMinDepth + 1, v[0] & 0xFF}, {kMaxDepth, v[1] >> 8}, {kMaxDepth + 1, v[1] & 0xFF}});
    return sent == 1 ? vqdGetDepthRange(n, nullptr, nullptr) : 0;
}

Json motionBlur(int n)
{
    unsigned level = 0;
    const int on = vqdGetRemoveMotionBlur(n, &level);
    return {on, level};
}

// The setter drops the level when it switches off.
int setMotionBlur(int n, const int* v)
{
    const int on = vqdSetRemoveMotionBlur(n, v[0], v[1]);
    return on == 1 && v[0] == 0 ? sendBytes(n, {{kMotionBlurLevel, v[1]}, {kMotionBlurLevelCopy, v[1]}}) : on;
}

Json multiCam(int n)
{
    return {imageByte(n, kMultiSync), imageByte(n, kSlaveCount), imageByte(n, kSlaveId)};
}

// Without slaves, as from the factory, too.
int setMultiCam(int n, const int* v)
{
    return sendBytes(n, {{kMultiSync, v[0]}, {kSlaveCount, v[1]}, {kSlaveId, v[2]}});
}

Json logicVersion(int n)
{
    int first = 0;
    int second = 0;
    vqdGetLogincVersion(n, &first, &second);
    return std::to_string(first) + '.' + std::to_string(second);
}

using V = const int*;
constexpr Range kSwitch{0, 1};
constexpr Range kByte{0, 255};
constexpr Range kDepth{0, 15000};

constexpr Setting kSettings[] = {
    // First: what the model does not have is refused before anything else is changed.
    {"frequency",
     "MHz: 20 or 30 (HT110, HT120), 10 (RS models)",
     {{1, 255}},
     1,
     false,
     [](int n) -> Json { return vqdGetModuleFrequency(n); },
     [](int n, V v) { return vqdSetModuleFrequency(n, v[0]); }},
    {"integration-time", nullptr, {}, 1, false, [](int n) -> Json { return vqdGetIntegrationTime(n); }, nullptr},
    {"offset",
     "-255 to 255",
     {{-255, 255}},
     1,
     false,
     [](int n) -> Json { return vqdGetOffset(n); },
     [](int n, V v) { return vqdSetOffset(n, v[0]); }},
    {"scatter-threshold",
     "0 to 255",
     {kByte},
     1,
     false,
     [](int n) -> Json { return vqdGetScatterThreshold(n); },
     [](int n, V v) { return vqdSetScatterThreshold(n, v[0]); }},
    {"check-threshold",
     "0 to 255",
     {kByte},
     1,
     false,
     [](int n) -> Json { return vqdGetCheckThreshold(n); },
     [](int n, V v) { return vqdSetCheckThreshold(n, v[0]); }},
    {"depth-range",
     "MIN,MAX in mm: 0 to 15000, MIN below MAX",
     {kDepth, kDepth},
     2,
     false,
     depthRange,
     setDepthRange,
     true},
    {"flip-horizontal",
     "1 or 0",
     {kSwitch},
     1,
     false,
     [](int n) -> Json { return vqdGetFlipHorizontal(n); },
     [](int n, V v) { return vqdSetFlipHorizontal(n, v[0]); }},
    {"flip-vertical",
     "1 or 0",
     {kSwitch},
     1,
     false,
     [](int n) -> Json { return vqdGetFlipVertical(n); },
     [](int n, V v) { return vqdSetFlipVertical(n, v[0]); }},
    {"fps-delay",
     "0 to 100",
     {{0, 100}},
     1,
     false,
     [](int n) -> Json { return vqdGetFPSDelay(n); },
     [](int n, V v) { return vqdSetFPSDelay(n, v[0]); }},
    {"multi-cam", "MODE,SLAVES,ID: 1 or 0, 0 to 9, 0 to 9", {kSwitch, {0, 9}, {0, 9}}, 3, false, multiCam, setMultiCam},
    {"multi-sync",
     "1 or 0",
     {kSwitch},
     1,
     false,
     [](int n) -> Json { return vqdGetMultiSyncMode(n); },
     [](int n, V v) { return vqdSetMultiSyncMode(n, v[0]); }},
    {"illumination",
     "1 or 0",
     {kSwitch},
     1,
     false,
     [](int n) -> Json { return imageByte(n, kGrab); },
     [](int n, V v) { return vqdIlluminationOnOff(n, v[0]); }},
    {"remove-edge",
     "1 or 0",
     {kSwitch},
     1,
     false,
     [](int n) -> Json { return vqdGetRemoveEdge(n); },
     [](int n, V v) { return vqdSetRemoveEdge(n, v[0]); }},
    {"motion-blur", "ON,LEVEL: 1 or 0, 0 to 255", {kSwitch, kByte}, 2, false, motionBlur, setMotionBlur},
    {"undistortion",
     "0 none, 1 gated, 2 bilinear, 3 nearest",
     {{0, 3}},
     1,
     false,
     [](int n) -> Json { return vqdGetUndistortion(n); },
     [](int n, V v) { return vqdSetUndistortion(n, v[0]); }},
    {"fppn",
     "1 or 0",
     {kSwitch},
     1,
     false,
     [](int n) -> Json { return vqdGetFPPN(n); },
     [](int n, V v) { return vqdSetFPPN(n, v[0]); }},
    {"orthogonal",
     "1 or 0",
     {kSwitch},
     1,
     false,
     [](int n) -> Json { return vqdGetOrthogonal(n); },
     [](int n, V v) { return vqdSetOrthogonal(n, v[0]); }},
    {"temperature", nullptr, {}, 1, true, [](int n) -> Json { return vqdGetTemperature(n); }, nullptr},
    {"logic-version", nullptr, {}, 1, true, logicVersion, nullptr},
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

Assignment assignmentOf(const Setting& setting, std::vector<int> values)
{
    if (setting.set == nullptr)
        throw Failure(kUsage, std::string(setting.name) + " can only be read");
    bool fits = values.size() == static_cast<size_t>(setting.arguments);
    for (size_t i = 0; fits && i < values.size(); ++i)
        fits = values[i] >= setting.ranges[i].least && values[i] <= setting.ranges[i].most;
    if (!fits || (setting.ascending && values[0] >= values[1]))
        throw Failure(kUsage, std::string(setting.name) + " takes " + setting.values);
    return {&setting, std::move(values)};
}

Assignment parseAssignment(const std::string& text)
{
    const size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw Failure(kUsage, "'" + text + "' is not of the form KEY=VALUE");
    return assignmentOf(settingByName(text.substr(0, equals)), parseNumbers(text.substr(equals + 1)));
}

std::vector<Assignment> parseAssignments(const std::vector<std::string>& texts)
{
    std::vector<Assignment> assignments;
    for (const std::string& text : texts)
        assignments.push_back(parseAssignment(text));
    std::ranges::stable_sort(assignments, std::less(), &Assignment::setting); // as the table orders them
    return assignments;
}

Json settingsJson(int n, bool frameRead)
{
    Json json;
    for (const Setting& setting : kSettings)
        if (frameRead || !setting.needsFrame)
            json[setting.name] = setting.get(n);
    return json;
}

std::string settingText(const Json& value)
{
    if (value.is_string())
        return value.get<std::string>();
    if (!value.is_array())
        return value.dump();
    std::string text;
    for (const Json& element : value)
        text += element.dump() + ',';
    text.resize(text.size() - !text.empty()); // the last comma
    return text;
}

void printSettings(Output& output, const Json& settings)
{
    for (const auto& [name, value] : settings.items())
        output.print("%-17s %s\n", name.c_str(), settingText(value).c_str());
}
