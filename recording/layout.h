// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the recording of a camera is called inside its file: topics, attachments, and the members of the metadata. The
// writer makes them of these names, and readers find them by the same.
#pragma once

#include <string>

#include "VQD_API.h"

// The version of all that is named here. A reader refuses a greater one.
inline constexpr int kRecordingFormat = 1;

// A token of a topic may not begin with a digit, which a serial number does.
inline std::string usualTopicName(const std::string& serial)
{
    return "vqd_" + (serial.empty() ? "unknown" : serial);
}

// Topics, behind "/NAME".
inline constexpr char kDepthRawTopic[] = "/depth/image_raw";         // the depth plane as the camera sent it,
inline constexpr char kRangeRawTopic[] = "/range/image_raw";         // but along the ray: of host-corrected models
inline constexpr char kAmplitudeRawTopic[] = "/amplitude/image_raw"; // as the camera sent it
inline constexpr char kDepthInfoTopic[] = "/depth/camera_info";
inline constexpr char kAmplitudeInfoTopic[] = "/amplitude/camera_info";
inline constexpr char kDepthImageTopic[] = "/depth/image_rect"; // as the library made it
inline constexpr char kAmplitudeImageTopic[] = "/amplitude/image_rect";
inline constexpr char kFrameHeaderTopic[] = "/frame_header"; // with each frame whose planes are images,
inline constexpr char kRawFrameTopic[] = "/raw";             // and otherwise this, which has both
inline constexpr char kParametersTopic[] = "/parameters";    // before the first frame, and at each change
inline constexpr char kEventsTopic[] = "/events";
inline constexpr char kDiagnosticsTopic[] = "/diagnostics"; // without the name

// Attachments, behind "SERIAL/", or "unknown/". All numbers are little-endian but where the camera has them otherwise.
inline constexpr char kEepromFile[] = "eeprom.bin";         // 128 bytes, when the recording began
inline constexpr char kOrthogonalFile[] = "orthogonal.bin"; // 4096 bytes, as the camera keeps its radial table
inline constexpr char kFppnFile[] = "fppn.bin";             // int32 of each of the 4800 blocks, as used
inline constexpr char kFactorsFile[] = "factors.f64";       // 76800 as used, unless they follow from orthogonal.bin
inline constexpr char kProfileFile[] = "profile.json";      // of this machine, when it was in use

// The metadata record and its members. All values are texts.
inline constexpr char kMetadata[] = "vqd";
inline constexpr char kFormatKey[] = "format";                            // kRecordingFormat
inline constexpr char kSerialKey[] = "serial";                            // 14 digits; empty when it is not known
inline constexpr char kNameKey[] = "name";                                // of the topics
inline constexpr char kProductKey[] = "product", kVendorKey[] = "vendor"; // as the camera calls itself
inline constexpr char kUsbKey[] = "usb";                                  // "03a4:871a"
inline constexpr char kHostCorrectedKey[] = "host-corrected";             // "true" or "false"
inline constexpr char kPartKey[] = "part";         // from "1" on, of a recording in several files
inline constexpr char kSessionKey[] = "session";   // of the worker, as on its wire
inline constexpr char kSoftwareKey[] = "software"; // that recorded it, with its version

// Flags of a frame. Those below 16 are as on the wire of a worker.
enum RecordedFlag : uint32_t {
    kFrameReopened = 1,   // the camera was opened again since the frame before
    kFrameCorrected = 2,  // undistortion, FPPN, orthogonal or edges were at work on the host
    kFrameProfile = 4,    // values of the host's profile were in use
    kFrameClockStep = 8,  // the clock of the machine was set since the frame before
    kFrameAfterDrop = 32, // frames before it were read, but the recorder had no room for them
};

// Events that the recorder itself adds to those of a worker. Both have "frames".
inline constexpr char kDroppedEvent[] = "dropped";          // an estimate: the worker did not get them
inline constexpr char kNotRecordedEvent[] = "not-recorded"; // the worker had them, but the disk was too slow

// "host" in a message of parameters: JSON of this schema, see recording/host_values.h.
inline constexpr char kHostValuesSchema[] = "vqd.recorded-parameters/1";
