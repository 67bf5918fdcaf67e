// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Calibration tables: any bytes and lengths from the camera, through the reads, the load and a frame; and writes.
#include "fresh_library.h"
#include "input.h"

namespace
{

constexpr uint16_t kRegions[] = {0x0000, 0x2000, 0x0F00, 0x4000, 0x5800, 0x7000};

// A region of any length, and a read of it that may be refused or cut short.
void prepare(Input& input, sim::Camera& camera, VirtualUsb& usb)
{
    for (const uint16_t region : kRegions) {
        std::vector<uint8_t> bytes(input.take<uint16_t>() % 12289u);
        input.fill<uint8_t>(bytes);
        camera.regions[region] = bytes;
    }
    usb.stockControlLimit = input.below(4) == 0;
    static constexpr sim::Fault::Kind kKinds[] = {sim::Fault::Kind::stall, sim::Fault::Kind::shortened,
                                                  sim::Fault::Kind::timeout, sim::Fault::Kind::overflow};
    for (int faults = input.below(4); faults > 0; --faults)
        camera.addFault({.kind = input.of(kKinds),
                         .request = input.below(2) ? 0xBB : 0xBA,
                         .nth = input.take(),
                         .times = input.take(),
                         .bytes = input.take<uint16_t>()});
}

// Into buffers of exactly the size that the header names.
void readAll()
{
    std::vector<int> offsets(4800), signedOffsets(3072);
    std::vector<double> factors(2048);
    std::vector<uint16_t> wiggling(4096);
    requireOneOf(vqdLoadWigglingData(0, wiggling.data(), 0, 8192), {1}, "vqdLoadWigglingData");
    requireOneOf(vqdLoadFPPNData_4x4(0, offsets.data()), {1}, "vqdLoadFPPNData_4x4");
    requireOneOf(vqdLoadFPPNData_5x5(0, signedOffsets.data()), {1}, "vqdLoadFPPNData_5x5");
    requireOneOf(vqdLoadOrthogonalData(0, factors.data()), {1, 0}, "vqdLoadOrthogonalData");
    for (const int offset : offsets)
        require(offset >= 0 && offset <= 65535, "a 4x4 offset has 16 bits");
    for (const int offset : signedOffsets)
        require(offset >= -255 && offset <= 255, "a 5x5 offset has 8 bits and a sign");
    for (const double factor : factors)
        require(factor >= 0 && factor <= 6.5535, "a factor has 16 bits");
}

// From buffers of exactly the size that the header names.
void write(Input& input)
{
    using Save = int(int, const unsigned char*);
    static constexpr struct {
        size_t bytes;
        Save* save;
    } kWrites[] = {
        {3840, vqdSaveWigglingData},
        {8192, [](int n, const unsigned char* data) { return vqdSaveWigglingData2(n, data, 0); }},
        {8192, [](int n, const unsigned char* data) { return vqdSaveWigglingData2(n, data, 1); }},
        {12288, vqdSaveFPPNData},
        {9600, [](int n, const unsigned char* data) { return vqdSaveFPPNData_4x4(n, data, 0); }},
        {6144, [](int n, const unsigned char* data) { return vqdSaveFPPNData_5x5(n, data, 0); }},
        {4096, vqdSaveOrthogonalData},
    };
    const auto& [bytes, save] = input.of(kWrites);
    std::vector<uint8_t> table(bytes);
    input.fill<uint8_t>(table);
    requireOneOf(save(0, table.data()), {1}, "saving a table");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    FreshLibrary library;
    sim::Camera& camera = library.plug("VQD-HT120");
    prepare(input, camera, library.usb);
    camera.eeprom[48] = input.take(); // undistortion mode and orthogonal correction
    camera.eeprom[49] = input.take(); // FPPN and edge removal
    camera.eeprom[90] = input.take(); // principal point
    library.list();
    requireOneOf(vqdGrabStart(0), {1}, "vqdGrabStart");
    const int writes = input.below(3);
    for (int i = 0; i < writes; ++i)
        write(input);
    readAll();
    require(vqdEEPROM_ParameterData_Load(0, std::make_unique<uint8_t[]>(VQD_IMAGE_BYTES).get()) == 1, "it loads again");
    ImagePair images;
    FrameInfo info{};
    requireOneOf(vqdReadFromDevice(0, images.images(), &info), {1}, "vqdReadFromDevice");
    return 0;
}
