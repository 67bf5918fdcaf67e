// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The library's messages on standard output.
#include "device/base/message.h"

#include <cstdio>

void PrintLine(const char* text)
{
    puts(text);
    fflush(stdout);
}

void PrintNumbers(const char* format, int first, int second)
{
    printf(format, first, second);
    fflush(stdout);
}
