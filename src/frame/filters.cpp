// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The pixel check filters, their kernels in plain C++, and the two small functions that the library shares.
#include "frame/filters.h"

#include <cmath>

#include "VQD_API.h"
#include "device/base/integers.h"

void scalar::AmplitudeCheck(const uint16_t* amplitude, uint16_t* depth, size_t count, uint8_t threshold, float scale)
{
    const float limit = static_cast<float>(threshold) * scale;
    for (size_t i = 0; i < count; ++i)
        if (limit > static_cast<float>(amplitude[i]))
            depth[i] = 0;
}

// The square is a signed 32-bit product: from a depth of 46341 on it wraps to a negative number, and the pixel
// survives.
void scalar::ScatteringCheck(const uint16_t* amplitude, uint16_t* depth, size_t count, uint8_t threshold, float scale)
{
    const float t = static_cast<float>(threshold);
    for (size_t i = 0; i < count; ++i) {
        const int32_t square = static_cast<int32_t>(uint32_t{depth[i]} * depth[i]);
        const float s = static_cast<float>(square) * scale;
        if (t / s > static_cast<float>(amplitude[i]))
            depth[i] = 0;
    }
}

void scalar::MinMaxCheck(uint16_t* image, size_t count, uint16_t minimum, uint16_t maximum)
{
    for (size_t i = 0; i < count; ++i)
        if (image[i] < minimum || image[i] > maximum)
            image[i] = 0;
}

static size_t pixels(int w, int h)
{
    return w > 0 && h > 0 ? static_cast<size_t>(w) * static_cast<size_t>(h) : 0;
}

void vqdAmplitudeCheckFilter(const uint16_t* amplitude, uint16_t* depth, int threshold, int w, int h)
{
    if (amplitude != nullptr && depth != nullptr)
        kernels::AmplitudeCheck(amplitude, depth, pixels(w, h), static_cast<uint8_t>(threshold), fAmpScale);
}

void vqdScatteringCheckFilter(const uint16_t* amplitude, uint16_t* depth, int threshold, int w, int h)
{
    if (amplitude != nullptr && depth != nullptr)
        kernels::ScatteringCheck(amplitude, depth, pixels(w, h), static_cast<uint8_t>(threshold), fScatterScale);
}

void vqdMinMaxCheckFilter(uint16_t* image, unsigned int minimum, unsigned int maximum, int w, int h)
{
    if (image != nullptr)
        kernels::MinMaxCheck(image, pixels(w, h), static_cast<uint16_t>(minimum), static_cast<uint16_t>(maximum));
}

void DataSort(int* values, int count)
{
    if (values == nullptr)
        return;
    for (int i = 1; i < count; ++i) {
        const int value = values[i];
        int gap = i;
        for (; gap > 0 && values[gap - 1] > value; --gap)
            values[gap] = values[gap - 1];
        values[gap] = value;
    }
}

int Round(float value)
{
    return Truncate(floorf(value + 0.5f));
}
