// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Calibration tables between host and camera. Each table is a row; one chunked write and one read serve them all.
#include <cstring>

#include "device/base/clock.h"
#include "device/base/device_check.h"
#include "device/base/device_state.h"
#include "device/base/message.h"
#include "usb/vendor_channel.h"

static constexpr int kMostChunkBytes = 256;
static constexpr int kMostTableBytes = 9600;

// Chunks carry no offset: the camera appends them as they come.
struct TableWrite {
    uint16_t region;
    uint16_t chunkBytes;
    int chunks;
    unsigned waitUs; // after each chunk
};

// A table is read in one request. libusb on Linux refuses control transfers above 4096 bytes before they reach the bus,
// so a larger table reads as zeros there.
struct TableRead {
    uint16_t region;
    uint16_t bytes;
};

static constexpr TableWrite kWiggling{0x0000, 256, 15, 5000};
static constexpr TableWrite kWigglingA{0x0000, 128, 64, 5000};
static constexpr TableWrite kWigglingB{0x2000, 128, 64, 5000};
static constexpr TableWrite kFppn{0x0F00, 256, 48, 5000};
static constexpr TableWrite kFppn4x4{0x4000, 128, 75, 4000};
static constexpr TableWrite kFppn5x5{0x5800, 128, 48, 4000};
static constexpr TableWrite kOrthogonal{0x7000, 128, 32, 5000};

static constexpr TableRead kReadWiggling{0x7000, 8192};
static constexpr TableRead kReadFppn4x4{0x4000, 9600};
static constexpr TableRead kReadFppn5x5{0x4000, 6144};
static constexpr TableRead kReadOrthogonal{0x7000, 4096};

static_assert(kReadFppn4x4.bytes == kMostTableBytes && kFppn.chunkBytes == kMostChunkBytes);

// A chunk that fails is neither repeated nor reported; the remaining ones follow all the same.
static int writeTable(int n, const unsigned char* data, const TableWrite& table)
{
    if (data == nullptr)
        return 0;
    unsigned char chunk[kMostChunkBytes];
    for (int i = 0; i < table.chunks; ++i) {
        memcpy(chunk, data + static_cast<ptrdiff_t>(i) * table.chunkBytes, table.chunkBytes);
        usb_control_transfer(HandleOf(n), kVendorOut, kRequestWriteTable, table.region, 0, chunk, table.chunkBytes,
                             kRequestTimeoutMs);
        SleepUs(table.waitUs);
    }
    return 1;
}

// Bytes that do not arrive are 0. Returns libusb's result.
static int readTable(int n, const TableRead& table, unsigned char* bytes)
{
    memset(bytes, 0, table.bytes);
    return usb_control_transfer(HandleOf(n), kVendorIn, kRequestReadTable, table.region, 0, bytes, table.bytes,
                                kRequestTimeoutMs);
}

static uint16_t valueAt(const unsigned char* bytes, int i)
{
    return static_cast<uint16_t>(bytes[2 * i] * 256 + bytes[2 * i + 1]);
}

static bool isSet(int flag)
{
    return (flag & 0xFF) != 0;
}

int vqdSaveWigglingData(int n, const unsigned char* data)
{
    return IsReady(n) ? writeTable(n, data, kWiggling) : 0;
}

int vqdSaveWigglingData2(int n, const unsigned char* data, int flag)
{
    return IsReady(n) ? writeTable(n, data, isSet(flag) ? kWigglingB : kWigglingA) : 0;
}

int vqdSaveFPPNData(int n, const unsigned char* data)
{
    return IsReady(n) ? writeTable(n, data, kFppn) : 0;
}

int vqdSaveFPPNData_4x4(int n, const unsigned char* data, int flag)
{
    if (!IsReady(n))
        return 0;
    return isSet(flag) ? 1 : writeTable(n, data, kFppn4x4);
}

int vqdSaveFPPNData_5x5(int n, const unsigned char* data, int flag)
{
    if (!IsReady(n))
        return 0;
    return isSet(flag) ? 1 : writeTable(n, data, kFppn5x5);
}

int vqdSaveOrthogonalData(int n, const unsigned char* data)
{
    return IsReady(n) ? writeTable(n, data, kOrthogonal) : 0;
}

int vqdLoadWigglingData(int n, uint16_t* values, int first, int64_t size)
{
    if (!IsReady(n) || values == nullptr || first < 0 || size > kReadWiggling.bytes)
        return 0;
    unsigned char bytes[kReadWiggling.bytes];
    readTable(n, kReadWiggling, bytes);
    for (int i = 0; i < kReadWiggling.bytes / 2; ++i)
        values[i] = valueAt(bytes, i);
    return 1;
}

int vqdLoadFPPNData_4x4(int n, int* values)
{
    if (!IsReady(n) || values == nullptr)
        return 0;
    unsigned char bytes[kReadFppn4x4.bytes];
    readTable(n, kReadFppn4x4, bytes);
    for (int i = 0; i < kReadFppn4x4.bytes / 2; ++i)
        values[i] = valueAt(bytes, i);
    return 1;
}

// Each value is a sign byte, which means negative if it is 2 or 3, and a magnitude byte.
int vqdLoadFPPNData_5x5(int n, int* values)
{
    if (!IsReady(n) || values == nullptr)
        return 0;
    unsigned char bytes[kReadFppn5x5.bytes];
    readTable(n, kReadFppn5x5, bytes);
    for (int i = 0; i < kReadFppn5x5.bytes / 2; ++i)
        values[i] = bytes[2 * i] >> 1 == 1 ? -bytes[2 * i + 1] : bytes[2 * i + 1];
    return 1;
}

int vqdLoadOrthogonalData(int n, double* factors)
{
    if (!IsReady(n) || factors == nullptr)
        return 0;
    unsigned char bytes[kReadOrthogonal.bytes];
    if (readTable(n, kReadOrthogonal, bytes) < 0) {
        PrintLine("loadorthogonal error");
        return 0;
    }
    for (int i = 0; i < kReadOrthogonal.bytes / 2; ++i)
        factors[i] = valueAt(bytes, i) / 10000.0;
    return 1;
}
