// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The camera's vendor protocol: requests on endpoint 0, the endpoints of the parameter image and of the frames.
#pragma once

#include <cstdint>

inline constexpr int kInterface = 0;
inline constexpr unsigned char kEndpointImage = 0x02; // bulk OUT: a parameter image
inline constexpr unsigned char kEndpointFrame = 0x86; // bulk IN: frames

inline constexpr uint8_t kVendorOut = 0x40; // host to device, vendor, device
inline constexpr uint8_t kVendorIn = 0xC0;  // device to host, vendor, device

inline constexpr uint8_t kRequestTakeImage = 0xB1;       // prepares the camera to take an image on kEndpointImage
inline constexpr uint8_t kRequestResetReadBuffer = 0xB2; // empties the camera's frame FIFO
inline constexpr uint8_t kRequestStartReadBuffer = 0xB3; // 100 ms after the reset: lets the FIFO fill again
inline constexpr uint8_t kRequestFlushReadBuffer = 0xB4; // sends the FIFO's rest on kEndpointFrame
inline constexpr uint8_t kRequestWriteEeprom = 0xB7;
inline constexpr uint8_t kRequestReadEeprom = 0xB8;
inline constexpr uint16_t kEepromRegion = 0x1200; // wValue of both
inline constexpr uint8_t kRequestWriteTable = 0xBA;
inline constexpr uint8_t kRequestReadTable = 0xBB;

inline constexpr unsigned kRequestTimeoutMs = 1000; // control requests, image writes and the FIFO drain
inline constexpr unsigned kFrameTimeoutMs = 3000;

// Resets the read buffer and starts it 100 ms later, as open, read-buffer initialisation and re-open do. Returns false
// after the failed step's line, which is `resetText` for the reset.
bool ResetReadBuffer(int n, const char* resetText);

// Sends the camera's own image after an edit. Returns VQD_OK, or VQD_FAILED after the failed step's line.
int SendImage(int n);
