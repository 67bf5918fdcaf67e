// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Acquisition settings that are numbers: frequency, integration time, offset, thresholds, depth range, frame delay.
#include "config/param_image.h"
#include "device/base/clock.h"
#include "device/base/device_check.h"
#include "device/base/message.h"
#include "device/base/models.h"
#include "usb/vendor_channel.h"

static constexpr unsigned kFrequencySettleUs = 100'000;
static constexpr unsigned kDepthRangeSettleUs = 100;
static constexpr int kMaxOffset = 255;
static constexpr int kMaxFpsDelay = 100;

// The camera's firmware sets the integration time. The function is kept for applications that call it.
int vqdSetIntegrationTime(int, int)
{
    return 0;
}

int vqdGetIntegrationTime(int n)
{
    if (!IsReady(n))
        return 0;
    stCamParam[n].nIntegrationTime = static_cast<uint16_t>(stCamParam[n].image[kIntegrationTime] * 100);
    return stCamParam[n].nIntegrationTime;
}

// Returns the code that selects `mhz` on a family, or null if the family lacks that frequency.
static const Frequency* familyFrequency(bool rs, int mhz)
{
    static constexpr struct {
        bool rs;
        int mhz;
        uint8_t code;
    } kCodes[] = {{true, 10, 1}, {false, 20, 2}, {false, 30, 3}};
    for (const auto& row : kCodes)
        if (row.rs == rs && row.mhz == mhz)
            return DecodeFrequency(row.code);
    return nullptr;
}

int vqdSetModuleFrequency(int n, int mhz)
{
    if (!IsReady(n))
        return 0;
    CamParam& camera = stCamParam[n];
    // Models outside the two families take any value and keep their code.
    if (IsRsFamily(n) || IsHtFamily(n)) {
        const Frequency* frequency = familyFrequency(IsRsFamily(n), mhz);
        if (frequency == nullptr)
            return 0;
        camera.image[kFrequencyCode] = frequency->code;
        camera.nMaxDistance = frequency->maxDistance;
    }
    camera.image[kSignature] = kSignatureValue;
    const int result = SendImage(n);
    if (result == VQD_OK)
        camera.nModFrequency = static_cast<uint16_t>(mhz);
    SleepUs(kFrequencySettleUs);
    return result;
}

int vqdGetModuleFrequency(int n)
{
    if (!IsReady(n))
        return 0;
    const Frequency* frequency = DecodeFrequency(stCamParam[n].image[kFrequencyCode]);
    if (frequency == nullptr)
        return 0;
    stCamParam[n].nModFrequency = frequency->mhz;
    stCamParam[n].nMaxDistance = frequency->maxDistance;
    return frequency->mhz;
}

int vqdSetOffset(int n, int offset)
{
    if (!IsReady(n))
        return 0;
    if (offset < -kMaxOffset || offset > kMaxOffset) {
        PrintLine("Offset Range: -255 ~ 255");
        return 0;
    }
    EncodeOffset(stCamParam[n].image, offset);
    if (SendImage(n) != VQD_OK)
        return 0;
    stCamParam[n].nOffset = static_cast<int16_t>(offset);
    return 1;
}

int vqdGetOffset(int n)
{
    if (!IsReady(n))
        return 0;
    stCamParam[n].nOffset = static_cast<int16_t>(DecodeOffset(stCamParam[n].image));
    return stCamParam[n].nOffset;
}

// Both thresholds share one cached field.
static int sendThreshold(int n, int offset, int value)
{
    const uint8_t threshold = static_cast<uint8_t>(value);
    stCamParam[n].image[offset] = threshold;
    if (SendImage(n) != VQD_OK)
        return 0;
    stCamParam[n].nThreshold = threshold;
    return 1;
}

int vqdSetScatterThreshold(int n, int value)
{
    return IsDeviceNumberOrReport(n) ? sendThreshold(n, kScatterThreshold, value) : 0;
}

int vqdGetScatterThreshold(int n)
{
    return IsDeviceNumberOrReport(n) ? stCamParam[n].image[kScatterThreshold] : 0;
}

int vqdSetCheckThreshold(int n, int value)
{
    return IsReady(n) ? sendThreshold(n, kCheckThreshold, value) : 0;
}

int vqdGetCheckThreshold(int n)
{
    if (!IsReady(n))
        return 0;
    stCamParam[n].nThreshold = stCamParam[n].image[kCheckThreshold];
    return stCamParam[n].nThreshold;
}

// Only the low 16 bits of both limits count. The host goes on clipping with the cached range until vqdGetDepthRange()
// reads the new one.
int vqdSetDepthRange(int n, int minimum, int maximum)
{
    if (!IsReady(n))
        return 0;
    CamParam& camera = stCamParam[n];
    const uint16_t low = static_cast<uint16_t>(minimum);
    const uint16_t high = static_cast<uint16_t>(maximum);
    if (low > camera.nMaxDepth) {
        PrintNumbers("Min Depth Range: 0 ~ %d\n", camera.nMaxDepth);
        return 0;
    }
    if (camera.nMinDepth > high || high > camera.nMaxDistance) {
        PrintNumbers("Max Depth Range: %d ~ %d\n", camera.nMinDepth, camera.nMaxDistance);
        return 0;
    }
    WriteU16(camera.image, kMinDepth, low);
    WriteU16(camera.image, kMaxDepth, high);
    if (SendImage(n) != VQD_OK)
        return 0;
    SleepUs(kDepthRangeSettleUs);
    return 1;
}

int vqdGetDepthRange(int n, int* minimum, int* maximum)
{
    if (!IsReady(n))
        return 0;
    CamParam& camera = stCamParam[n];
    camera.nMinDepth = ReadU16(camera.image, kMinDepth);
    camera.nMaxDepth = ReadU16(camera.image, kMaxDepth);
    if (minimum != nullptr)
        *minimum = ReadU16(camera.image, kMinDepth);
    if (maximum != nullptr)
        *maximum = ReadU16(camera.image, kMaxDepth);
    return 1;
}

// Only the low byte of the delay counts.
int vqdSetFPSDelay(int n, int delay)
{
    if (!IsReady(n))
        return 0;
    const uint8_t value = static_cast<uint8_t>(delay);
    if (value > kMaxFpsDelay) {
        PrintLine("FPS Delay Range: 0 ~ 100");
        return 0;
    }
    stCamParam[n].image[kFpsDelay] = value;
    return SendImage(n);
}

int vqdGetFPSDelay(int n)
{
    return IsReady(n) ? stCamParam[n].image[kFpsDelay] : 0;
}
