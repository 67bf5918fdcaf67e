// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the library prints, for those who want to count it: its lines are its only error channel.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

// While one lives, the library's lines are kept until take() and then go where they went before. Make it after Output.
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
    int m_before; // where they went
    int m_kept;
};

// How many of the lines start so.
int countStarting(const std::vector<std::string>& lines, const char* start);

// The lines that tell of a failed transfer of a frame, of one for which the kernel had no memory, of a frame with a
// wrong start code, and of an image that did not reach the camera.
inline constexpr char kTransferFailed[] = "ReadFromDevice Read Error, Device Reset2";
inline constexpr char kNoUsbMemory[] = "ReadFromDevice Read Error, Device Reset2, -11";
inline constexpr char kWrongStartCode[] = "incorrect Start code";
inline constexpr char kImageNotSent[] = "vqdWriteToDevice";
