// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Layout and encodings of the 512-byte parameter image: offsets, codes, and pure functions over one image.
#pragma once

#include <cstdint>

#include "VQD_API.h"

// Byte offsets. Pairs are big-endian, named by their first byte.
enum ParamOffset : int {
    kScatterThreshold = 0,
    kCheckThreshold = 1,
    kOrthogonalSwitch = 2, // models that correct in the camera: 19 on, 18 off
    kMotionBlurSwitch = 3, // 16 on, 0 off
    kSignature = 4,        // 0x81 in every valid image
    kFrequencyCode = 5,    // see DecodeFrequency
    kIntegrationTime = 6,  // in hundreds
    kFlip = 9,             // see FlipCode
    kGrab = 11,            // 1 captures and lights, 0 does neither
    kMinDepth = 20,        // pair, mm
    kMaxDepth = 22,        // pair, mm
    kOffsetSign = 24,      // 1 zero or positive, else negative
    kOffsetMagnitude = 25,
    kFpsDelay = 33,         // 0 to 100
    kMultiSync = 40,        // multi-sync and multi-camera mode: 1 on, 0 off
    kSlaveCount = 41,       // 1 to 9
    kSlaveId = 42,          // 0 to 9
    kEdgeSwitch = 43,       // models that correct in the camera: 31 on, 255 off
    kEdgeLevel = 44,        // models that correct in the camera: 100 when on
    kHostEdgeLevel = 45,    // host-corrected models: 100 on, 255 off
    kUndistortionCode = 48, // see UndistortionCode
    kCorrectionCode = 49,   // see CorrectionCode
    kSerial = 57,           // 7 bytes
    kDepthGap = 64,         // pair, mm
    kMotionBlurLevel = 66,
    kMotionBlurLevelCopy = 67,
    kDepthLens = 80,   // 10 pairs
    kColourLens = 100, // 10 pairs
    kExtrinsic = 120,  // 12 pairs; from byte 128 on outside the EEPROM
};

inline constexpr uint8_t kSignatureValue = 0x81;
inline constexpr int kSerialBytes = 7;

// Writes the factory settings into bytes 0 to 127, which the caller has cleared. Bytes 128 to 511 stay as they are.
void FillFactoryImage(uint8_t* image);

// Big-endian pair.
uint16_t ReadU16(const uint8_t* image, int offset);
void WriteU16(uint8_t* image, int offset, uint16_t value);

// Writes 14 lower-case hexadecimal digits and the NUL.
void RenderSerial(const uint8_t* image, char* text15);

// What a frequency code of byte 5 stands for.
struct Frequency {
    uint8_t code;
    uint16_t mhz;
    uint16_t maxDistance; // mm; larger depths are ambiguous at this frequency
};

// Returns null if the code is unknown.
const Frequency* DecodeFrequency(uint8_t code);

// Byte 9: a clear bit 1 flips horizontally, a set bit 0 flips vertically.
uint8_t FlipCode(bool horizontal, bool vertical);
bool IsFlippedHorizontally(uint8_t code);
bool IsFlippedVertically(uint8_t code);

// Bytes 24 and 25: the offset, -255 to 255, as sign and magnitude.
int DecodeOffset(const uint8_t* image);
void EncodeOffset(uint8_t* image, int offset);

// How a frame is resampled. Every other number means that it is copied.
enum UndistortionMode : int {
    kUndistortionGated = 1, // bilinear; a pixel whose samples spread too far is invalid
    kUndistortionBilinear = 2,
    kUndistortionNearest = 3,
};
constexpr bool IsUndistortionMode(int number)
{
    return number >= kUndistortionGated && number <= kUndistortionNearest;
}

// Byte 48: the undistortion mode, 0 for a copy, and bit 4 for the orthogonal correction.
inline constexpr uint8_t kOrthogonalBit = 0x10;
uint8_t UndistortionCode(int mode, bool orthogonal);

// Byte 49: bit 4 for the FPPN correction, bit 0 for edge removal.
inline constexpr uint8_t kFppnBit = 0x10;
inline constexpr uint8_t kEdgeBit = 0x01;
uint8_t CorrectionCode(bool fppn, bool edge);
