// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Parameter images: the load of an EEPROM with any bytes, and then the calls that an application makes.
#include <cctype>

#include "fresh_library.h"
#include "input.h"

namespace
{

const char* const kModels[] = {"VQD-HT120", "VQD-HT950X", "VQD-HT110", "VQD-RS110", "VQD-RS120", "VQD-WN120", "?"};

void askForSettings()
{
    int first = 0, second = 0;
    unsigned level = 0;
    require(vqdGetOffset(0) >= -255 && vqdGetOffset(0) <= 255, "the offset fits a byte and its sign");
    requireOneOf(vqdGetUndistortion(0), {0, 1, 2, 3}, "vqdGetUndistortion");
    requireOneOf(vqdGetFPPN(0), {0, 1}, "vqdGetFPPN");
    requireOneOf(vqdGetOrthogonal(0), {0, 1}, "vqdGetOrthogonal");
    requireOneOf(vqdGetRemoveEdge(0), {0, 1}, "vqdGetRemoveEdge");
    requireOneOf(vqdGetRemoveMotionBlur(0, &level), {0, 1}, "vqdGetRemoveMotionBlur");
    requireOneOf(vqdGetMultiSyncMode(0), {0, 1, -4}, "vqdGetMultiSyncMode");
    requireOneOf(vqdGetDepthRange(0, &first, &second), {1}, "vqdGetDepthRange");
    requireOneOf(vqdGetModuleFrequency(0), {0, 10, 20, 30, 40, 45, 50, 56, 60}, "vqdGetModuleFrequency");
}

// A lens that is read and set again stays the same, but for one step that a value may lose to truncation.
void saveTheLensAgain(const sim::Camera& camera)
{
    const sim::Eeprom before = camera.eeprom;
    LensIntrinsic k{};
    LensDistortion d{};
    require(vqdGetLensParameter(0, &k.fx, &d.k1) == 1, "the lens can be read");
    require(vqdSetLensParameter(0, k, d) == 1, "the lens can be set");
    for (size_t i = 80; i < 100; i += 2) {
        const int stored = before[i] << 8 | before[i + 1];
        const int lost = stored - (camera.eeprom[i] << 8 | camera.eeprom[i + 1]);
        require(lost == 0 || lost == 1 || stored == 0x8000, "a lens survives being read and saved");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    FreshLibrary library;
    sim::Camera& camera = library.plug(input.of(kModels));
    const bool signedImage = input.below(8) != 0;
    const bool answers = input.below(8) != 0;
    const size_t moved = input.below(8) != 0 ? 128 : input.take();
    int column = input.take<int32_t>(), row = input.take<int32_t>();
    const auto bytes = input.takeSome(128);
    std::copy(bytes.begin(), bytes.end(), camera.eeprom.begin());
    if (signedImage)
        camera.eeprom[4] = 0x81;
    if (!answers)
        camera.addFault({.kind = sim::Fault::Kind::stall, .request = 0xB8});
    if (moved < 128)
        camera.addFault({.kind = sim::Fault::Kind::shortened, .request = 0xB8, .bytes = moved});

    const DevInfo entry = library.list();
    for (int i = 0; i < 14; ++i)
        require(isxdigit(static_cast<unsigned char>(entry.szSerialNumber[i])), "the serial is 14 digits");
    require(entry.szSerialNumber[14] == '\0', "and ends there");
    const bool loaded = answers && moved >= 5 && camera.eeprom[4] == 0x81;
    const size_t kept = std::min<size_t>(moved, 128);
    require(!loaded || memcmp(stCamParam[0].image, camera.eeprom.data(), kept) == 0, "the image is the EEPROM's");
    require(stCamParam[0].image[4] == 0x81, "every loaded image has the signature");

    requireOneOf(vqdDeviceOpen(0), {1}, "vqdDeviceOpen");
    askForSettings();
    vqdGetUndistortPixel(0, &column, &row);
    requireOneOf(vqdGrabStart(0), {1}, "vqdGrabStart");
    Frame frame;
    requireOneOf(frame.read(0), {1}, "vqdReadFromDevice");
    std::vector<Point3f> points(VQD_PIXELS);
    vqdDepthFrameToCameraSpace(frame.depth.data(), points.data(), VQD_WIDTH, VQD_HEIGHT);
    if (loaded && kept == 128)
        saveTheLensAgain(camera);
    return 0;
}
