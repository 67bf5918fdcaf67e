// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How calibration tables are sent and read.
#include <functional>

#include "support/library_test.h"

namespace
{

using Bytes = std::vector<unsigned char>;

// Exactly this many bytes, so that a sanitizer sees every read beyond them.
Bytes pattern(size_t count)
{
    Bytes bytes(count);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 + i / 251);
    return bytes;
}

std::string repeated(const std::string& what, int times)
{
    std::string text;
    for (int i = 0; i < times; ++i)
        text += (i ? ", " : "") + what;
    return text;
}

using Calibration = LibraryTest;

TEST_F(Calibration, TablesAreWrittenInChunks)
{
    using Save = std::function<int(const unsigned char*)>;
    const auto wiggling2 = [](int flag) -> Save { return [=](auto* d) { return vqdSaveWigglingData2(0, d, flag); }; };
    const auto fppn4x4 = [](int flag) -> Save { return [=](auto* d) { return vqdSaveFPPNData_4x4(0, d, flag); }; };
    const auto fppn5x5 = [](int flag) -> Save { return [=](auto* d) { return vqdSaveFPPNData_5x5(0, d, flag); }; };
    const struct {
        const char* what;
        Save save;
        uint16_t region;
        size_t bytes;
        int chunks;
        const char* chunk;
    } cases[] = {
        {"wiggling", [](auto* d) { return vqdSaveWigglingData(0, d); }, 0, 3840, 15, "BA 256, wait 5000"},
        {"wiggling 2, 0", wiggling2(0), 0, 8192, 64, "BA 128, wait 5000"},
        {"wiggling 2, 256", wiggling2(256), 0, 8192, 64, "BA 128, wait 5000"},
        {"wiggling 2, 1", wiggling2(1), 0x2000, 8192, 64, "BA 128 at 2000, wait 5000"},
        {"wiggling 2, 257", wiggling2(257), 0x2000, 8192, 64, "BA 128 at 2000, wait 5000"},
        {"plain", [](auto* d) { return vqdSaveFPPNData(0, d); }, 0x0F00, 12288, 48, "BA 256 at 0F00, wait 5000"},
        {"4x4, 0", fppn4x4(0), 0x4000, 9600, 75, "BA 128 at 4000, wait 4000"},
        {"4x4, 256", fppn4x4(256), 0x4000, 9600, 75, "BA 128 at 4000, wait 4000"},
        {"4x4, 1", fppn4x4(1), 0x4000, 0, 0, ""},
        {"4x4, 257", fppn4x4(257), 0x4000, 0, 0, ""},
        {"5x5, 256", fppn5x5(256), 0x5800, 6144, 48, "BA 128 at 5800, wait 4000"},
        {"5x5, 257", fppn5x5(257), 0x5800, 0, 0, ""},
        {"5x5, -1", fppn5x5(-1), 0x5800, 0, 0, ""},
        {"orthogonal", [](auto* d) { return vqdSaveOrthogonalData(0, d); }, 0x7000, 4096, 32,
         "BA 128 at 7000, wait 5000"},
    };
    sim::Camera& camera = openCamera();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        camera.regions.clear();
        const Bytes data = pattern(c.bytes);
        EXPECT_EQ(printed([&] { EXPECT_EQ(c.save(data.data()), 1); }), "");
        EXPECT_EQ(usb.conversation(), repeated(c.chunk, c.chunks));
        EXPECT_EQ(camera.regions[c.region], data);
    }
}

TEST_F(Calibration, AChunkThatFailsIsPassedOver)
{
    openCamera();
    usb.fail("control", -9, 3, 2);
    EXPECT_EQ(printed([&] { EXPECT_EQ(vqdSaveOrthogonalData(0, pattern(4096).data()), 1); }), "");
    EXPECT_EQ(usb.conversation(), repeated("BA 128 at 7000, wait 5000", 2) + ", " +
                                      repeated("BA 128 at 7000 -9, wait 5000", 2) + ", " +
                                      repeated("BA 128 at 7000, wait 5000", 28));
}

using Values = std::vector<double>;

// Calls the reader with exactly as many elements as the table has, so that a sanitizer sees one more. Each holds 77.
template <size_t count, typename T> int load(int (*call)(int, T*), Values& out)
{
    std::vector<T> elements(count, 77);
    const int result = call(0, elements.data());
    out.assign(elements.begin(), elements.end());
    return result;
}

int loadWiggling(int n, uint16_t* out)
{
    return vqdLoadWigglingData(n, out, 0, 8192);
}

// Every reader, with the values that it makes of these bytes and of only the first five of them.
const Bytes kStart{0x00, 0x05, 0x02, 0x05, 0x03, 0x05, 0x01, 0x05, 0xFF, 0xFE, 0x27, 0x10, 0xFF, 0xFF, 0x04, 0xFF};
const struct {
    int (*load)(Values&);
    uint16_t region;
    size_t values;
    const char* request;
    Values first, ofFiveBytes;
    bool reportsFailure = false;
} kReaders[] = {
    {[](Values& out) { return load<4096>(loadWiggling, out); },
     0x7000,
     4096,
     "BB 8192 at 7000",
     {5, 517, 773, 261, 65534, 10000, 65535, 1279},
     {5, 517, 768}},
    {[](Values& out) { return load<4800>(vqdLoadFPPNData_4x4, out); },
     0x4000,
     4800,
     "BB 9600 at 4000",
     {5, 517, 773, 261, 65534, 10000, 65535, 1279},
     {5, 517, 768}},
    {[](Values& out) { return load<3072>(vqdLoadFPPNData_5x5, out); },
     0x4000,
     3072,
     "BB 6144 at 4000",
     {5, -5, -5, 5, 254, 16, 255, 255},
     {5, -5, 0}},
    {[](Values& out) { return load<2048>(vqdLoadOrthogonalData, out); },
     0x7000,
     2048,
     "BB 4096 at 7000",
     {0.0005, 0.0517, 0.0773, 0.0261, 6.5534, 1.0, 6.5535, 0.1279},
     {0.0005, 0.0517, 0.0768},
     true},
};

TEST_F(Calibration, ReadsAreOneRequestATableAndZerosForWhatDoesNotCome)
{
    sim::Camera& camera = openCamera();
    for (const auto& reader : kReaders) {
        SCOPED_TRACE(reader.request);
        Values out, zeros(reader.values), first = reader.first, ofFiveBytes = reader.ofFiveBytes;
        first.resize(reader.values);
        ofFiveBytes.resize(reader.values);
        camera.regions = {{reader.region, kStart}};
        EXPECT_EQ(printed([&] { EXPECT_EQ(reader.load(out), 1); }), "");
        EXPECT_EQ(usb.conversation(), reader.request);
        EXPECT_EQ(out, first);

        camera.addFault({.kind = sim::Fault::Kind::shortened, .request = 0xBB, .bytes = 5});
        EXPECT_EQ(printed([&] { EXPECT_EQ(reader.load(out), 1); }), "");
        EXPECT_EQ(out, ofFiveBytes);

        usb.fail("control", -9);
        EXPECT_EQ(printed([&] { EXPECT_EQ(reader.load(out), reader.reportsFailure ? 0 : 1); }),
                  reader.reportsFailure ? "loadorthogonal error\n" : "");
        EXPECT_EQ(out, reader.reportsFailure ? Values(reader.values, 77) : zeros);

        usb.stockControlLimit = true; // an ordinary libusb reads no more than 4096 bytes
        EXPECT_EQ(printed([&] { EXPECT_EQ(reader.load(out), 1); }), "");
        EXPECT_EQ(out, reader.values == 2048 ? first : zeros);
        usb.stockControlLimit = false;
        usb.conversation();
    }
}

TEST_F(Calibration, ImpossibleWigglingArgumentsReadNothing)
{
    openCamera();
    std::vector<uint16_t> out(4096, 77);
    EXPECT_EQ(vqdLoadWigglingData(0, out.data(), -1, 0), 0);
    EXPECT_EQ(vqdLoadWigglingData(0, out.data(), 0, 8193), 0);
    EXPECT_EQ(vqdLoadWigglingData(0, out.data(), INT32_MIN, INT64_MAX), 0);
    EXPECT_EQ(usb.conversation(), "");
    EXPECT_EQ(out, std::vector<uint16_t>(4096, 77));
    EXPECT_EQ(vqdLoadWigglingData(0, out.data(), INT32_MAX, INT64_MIN), 1);
    EXPECT_EQ(usb.conversation(), "BB 8192 at 7000");
}

} // namespace
