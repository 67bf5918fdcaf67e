// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the library prints. Its lines are its only error channel, so callers count and interpret them.
#pragma once

#include <string>
#include <vector>

// While one exists, the library's lines are kept until take(), and then go where they would have gone without it.
class LibraryLines
{
public:
    LibraryLines();
    ~LibraryLines();
    LibraryLines(const LibraryLines&) = delete;
    LibraryLines& operator=(const LibraryLines&) = delete;

    // The lines since the last call.
    std::vector<std::string> take();

private:
    int m_before; // where they would have gone
    int m_kept;
};

// What the process does before lines are passed on, such as clearing a line of progress; null: nothing.
void beforeLibraryLines(void (*prepare)());

// How many of the lines have this start.
int countStarting(const std::vector<std::string>& lines, const char* start);

// The starts of lines about: a failed transfer of a frame, one for which the kernel had no memory, a frame with a wrong
// start code, and an image that did not reach the camera.
inline constexpr char kTransferFailed[] = "ReadFromDevice Read Error, Device Reset2";
inline constexpr char kNoUsbMemory[] = "ReadFromDevice Read Error, Device Reset2, -11";
inline constexpr char kWrongStartCode[] = "incorrect Start code";
inline constexpr char kImageNotSent[] = "vqdWriteToDevice";
