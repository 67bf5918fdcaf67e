// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The library's messages: single lines on standard output, flushed so that a redirected log survives a crash and keeps
// its order with the application's own lines.
#pragma once

void PrintLine(const char* text);

// `format` holds up to two %d and its own end of line.
void PrintNumbers(const char* format, int first, int second = 0);
