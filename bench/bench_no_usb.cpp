// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Stands in for bench_usb.cpp where there is no virtual bus.
#include "bench_usb.h"

#include <cstdio>

void CompareUsb()
{
    std::puts("Without libumockdev-dev there is no virtual camera: the frame read is not measured");
}
