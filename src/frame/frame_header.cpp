// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The header of a raw frame, and what the latest one told.
#include "frame/frame_header.h"

#include "device/base/device_check.h"
#include "frame/frame_format.h"

bool HasStartCode(const unsigned char* raw)
{
    return raw[kStartCode] == kStartCode0 && raw[kStartCode + 1] == kStartCode1;
}

// 0.0625 a count. From 2048 on it is negative, as two's complement in twelve bits.
static double decodeTemperature(unsigned raw)
{
    if (raw <= 2047)
        return raw * 0.0625;
    return -static_cast<double>((~raw & 0xFFF) + 1) * 0.0625;
}

void TakeHeader(int n, const unsigned char* raw)
{
    m_dTemperature[n] = decodeTemperature(raw[kTemperature] + 256u * raw[kTemperature + 1]);
    m_nLogicver[0][n] = raw[kLogicFirst];
    m_nLogicver[1][n] = raw[kLogicSecond];
}

double vqdGetTemperature(int n)
{
    return IsReady(n) ? m_dTemperature[n] : 0.0;
}

int vqdGetLogincVersion(int n, int* first, int* second)
{
    if (!IsReady(n))
        return 0;
    if (first != nullptr)
        *first = m_nLogicver[0][n];
    if (second != nullptr)
        *second = m_nLogicver[1][n];
    return 1;
}
