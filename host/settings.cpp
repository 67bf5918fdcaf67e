// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The rows of the table. A row is a setting; what differs by behaviour is a function above the rows.
#include "host/settings.h"

#include <algorithm>

#include "VQD_API.h"
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

template <int (*get)(int)> Json read(int n)
{
    return get(n);
}

template <int (*set)(int, int)> int write(int n, const int* v)
{
    return set(n, v[0]);
}

Json depthRange(int n)
{
    int least = 0;
    int most = 0;
    vqdGetDepthRange(n, &least, &most);
    return {least, most};
}

// The library's setter would refuse the factory's own range, 0 to 15000 at 20 MHz. A range counts on the host once it
// has been read back.
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

// The library's setter drops the level when it switches off.
int setMotionBlur(int n, const int* v)
{
    const int on = vqdSetRemoveMotionBlur(n, v[0], v[1]);
    return on == 1 && v[0] == 0 ? sendBytes(n, {{kMotionBlurLevel, v[1]}, {kMotionBlurLevelCopy, v[1]}}) : on;
}

Json multiCam(int n)
{
    const uint8_t* image = stCamParam[n].image;
    return {image[kMultiSync], image[kSlaveCount], image[kSlaveId]};
}

// The library's setter would refuse 0 slaves, which cameras come with.
int setMultiCam(int n, const int* v)
{
    return sendBytes(n, {{kMultiSync, v[0]}, {kSlaveCount, v[1]}, {kSlaveId, v[2]}});
}

// The library has no getter for it.
Json illumination(int n)
{
    return stCamParam[n].image[kGrab];
}

Json temperature(int n)
{
    return vqdGetTemperature(n);
}

Json logicVersion(int n)
{
    int first = 0;
    int second = 0;
    vqdGetLogincVersion(n, &first, &second);
    return std::to_string(first) + '.' + std::to_string(second);
}

constexpr const char* kHt[] = {"VQD-HT110", "VQD-HT120"};
constexpr const char* kRs[] = {"VQD-RS110", "VQD-RS120"};
constexpr Choice kOffOn[] = {{0, "off"}, {1, "on"}};
constexpr Choice kFrequencies[] = {{20, "20 MHz", kHt}, {30, "30 MHz", kHt}, {10, "10 MHz", kRs}};
constexpr Choice kUndistortions[] = {{0, "none"}, {1, "gated"}, {2, "bilinear"}, {3, "nearest"}};

constexpr SettingValue kSwitch[] = {{"on", 0, 1, kOffOn}};
constexpr SettingValue kFrequency[] = {{"frequency", 1, 255, kFrequencies}};
constexpr SettingValue kIntegration[] = {{"time", 0, 25500}};
constexpr SettingValue kOffset[] = {{"offset", -255, 255}};
constexpr SettingValue kThreshold[] = {{"threshold", 0, 255}};
constexpr SettingValue kRange[] = {{"min", 0, 15000}, {"max", 0, 15000}};
constexpr SettingValue kDelay[] = {{"delay", 0, 100}};
constexpr SettingValue kMultiCam[] = {{"mode", 0, 1, kOffOn}, {"slaves", 0, 9}, {"id", 0, 9}};
constexpr SettingValue kMotionBlur[] = {{"on", 0, 1, kOffOn}, {"level", 0, 255}};
constexpr SettingValue kMode[] = {{"mode", 0, 3, kUndistortions}};
constexpr SettingValue kTemperature[] = {{.name = "temperature", .type = ValueType::number}};
constexpr SettingValue kVersion[] = {{.name = "version", .type = ValueType::text}};

// Where a page shows them.
constexpr const char kCapture[] = "Capture", kFilters[] = "Filters", kCorrections[] = "Corrections", kImage[] = "Image",
                     kSeveralCameras[] = "Several cameras", kStatus[] = "Status";

// clang-format off
constexpr Setting kSettings[] = {
    // First, so that a frequency that the model does not have is refused before anything else is changed.
    {"frequency", "Modulation frequency", "MHz", kCapture, kFrequency, read<vqdGetModuleFrequency>, write<vqdSetModuleFrequency>},
    {"integration-time", "Integration time", "", kCapture, kIntegration, read<vqdGetIntegrationTime>, nullptr},
    {"offset", "Depth offset", "", kCorrections, kOffset, read<vqdGetOffset>, write<vqdSetOffset>},
    {"scatter-threshold", "Scatter threshold", "", kFilters, kThreshold, read<vqdGetScatterThreshold>, write<vqdSetScatterThreshold>},
    {"check-threshold", "Amplitude check threshold", "", kFilters, kThreshold, read<vqdGetCheckThreshold>, write<vqdSetCheckThreshold>},
    {"depth-range", "Depth range", "mm", kFilters, kRange, depthRange, setDepthRange, true},
    {"flip-horizontal", "Flip left to right", "", kImage, kSwitch, read<vqdGetFlipHorizontal>, write<vqdSetFlipHorizontal>},
    {"flip-vertical", "Flip top to bottom", "", kImage, kSwitch, read<vqdGetFlipVertical>, write<vqdSetFlipVertical>},
    {"fps-delay", "Frame delay", "", kCapture, kDelay, read<vqdGetFPSDelay>, write<vqdSetFPSDelay>},
    {"multi-cam", "Lighting in turn with other cameras", "", kSeveralCameras, kMultiCam, multiCam, setMultiCam},
    {"multi-sync", "Lighting in turn, the switch alone", "", kSeveralCameras, kSwitch, read<vqdGetMultiSyncMode>, write<vqdSetMultiSyncMode>},
    {"illumination", "Light and capture", "", kCapture, kSwitch, illumination, write<vqdIlluminationOnOff>},
    {"remove-edge", "Edge removal", "", kFilters, kSwitch, read<vqdGetRemoveEdge>, write<vqdSetRemoveEdge>},
    {"motion-blur", "Motion blur removal", "", kFilters, kMotionBlur, motionBlur, setMotionBlur},
    {"undistortion", "Undistortion", "", kCorrections, kMode, read<vqdGetUndistortion>, write<vqdSetUndistortion>},
    {"fppn", "FPPN correction", "", kCorrections, kSwitch, read<vqdGetFPPN>, write<vqdSetFPPN>},
    {"orthogonal", "Orthogonal correction", "", kCorrections, kSwitch, read<vqdGetOrthogonal>, write<vqdSetOrthogonal>},
    {"temperature", "Sensor temperature", "", kStatus, kTemperature, temperature, nullptr, false, true},
    {"logic-version", "Logic version", "", kStatus, kVersion, logicVersion, nullptr, false, true},
};
// clang-format on

} // namespace

std::span<const Setting> allSettings()
{
    return kSettings;
}

const Setting& settingByName(const std::string& name)
{
    const auto* row = std::ranges::find_if(kSettings, [&](const Setting& setting) { return name == setting.name; });
    if (row == std::end(kSettings))
        throw Failure(kUsage, "there is no setting '" + name + "'\nThe settings are:\n" + settingNames());
    return *row;
}
