// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What travels between host and camera: requests, endpoints, sizes, the layout of a frame, and how a transfer ends.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sim
{

// Vendor requests on endpoint 0.
inline constexpr uint8_t kVendorOut = 0x40, kVendorIn = 0xC0; // bmRequestType

enum Request : uint8_t {
    kTakeImage = 0xB1,       // the next bulk OUT is a parameter image
    kResetReadBuffer = 0xB2, // empties the FIFO
    kStartReadBuffer = 0xB3, // follows a reset; this camera's FIFO fills without it
    kFlushReadBuffer = 0xB4, // empties the FIFO, but for kResidueBytes
    kWriteEeprom = 0xB7,
    kReadEeprom = 0xB8,
    kWriteTable = 0xBA,
    kReadTable = 0xBB,
};

inline constexpr uint16_t kCommandBytes = 64;     // from 0xB1 to 0xB4: of no meaning, but every request carries them
inline constexpr uint16_t kEepromRegion = 0x1200; // wValue of EEPROM requests

// Tables are addressed by wValue; the size of a chunk tells which layout is coming where one region serves two.
inline constexpr uint16_t kWigglingRegion = 0x0000, kSecondWigglingRegion = 0x2000, kPlainFppnRegion = 0x0F00,
                          kFppn4x4Region = 0x4000, kFppn5x5Region = 0x5800, kOrthogonalRegion = 0x7000;

// A parameter image travels on bulk OUT; the EEPROM holds its first bytes. registers.h names them.
inline constexpr uint8_t kBulkOut = 0x02;
inline constexpr size_t kImageBytes = 512, kEepromBytes = 128;

using Image = std::array<uint8_t, kImageBytes>;
using Eeprom = std::array<uint8_t, kEepromBytes>;

// Frames travel on bulk IN: a header, the amplitude plane, the depth plane, low byte first.
inline constexpr uint8_t kBulkIn = 0x86;
inline constexpr int kColumns = 320, kRows = 240;
inline constexpr size_t kPixels = size_t{kColumns} * kRows;
inline constexpr size_t kHeaderBytes = 512;
inline constexpr size_t kFrameBytes = kHeaderBytes + 2 * kPixels * sizeof(uint16_t);
inline constexpr size_t kResidueBytes = 2048;
inline constexpr size_t kPacketBytes = 512;
static_assert(kFrameBytes % kPacketBytes == 0 && kResidueBytes % kPacketBytes == 0, "no short packet ends a block");

// A host may not interpret header bytes from 10 on; this camera puts its frame number into 16 to 23.
enum Header : size_t {
    kStart0 = 0,
    kStart1 = 1,
    kTemperature = 6,
    kVersionSecond = 8,
    kVersionFirst = 9,
    kFrameNumber = 16,
};

inline constexpr uint8_t kStartCode0 = 0x44, kStartCode1 = 0x33;

struct Setup {
    uint8_t requestType, request;
    uint16_t value, index, length;
};

enum class Status { ok, stall, timeout, overflow, ioError, noMemory, noDevice };

struct Outcome {
    Status status = Status::ok;
    size_t bytes = 0;     // moved
    bool complete = true; // bulk IN: the transfer ends here (buffer full or short packet); false: more may come later
};

} // namespace sim
