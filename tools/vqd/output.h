// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the tool writes: data on standard output, where nothing else may appear, and files that are whole or not there.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <span>

// Standard output for the tool's data alone. While one lives, descriptor 1 leads to standard error, so the lines that
// the library prints land there: make it before the first call of the library.
class Output
{
public:
    Output();
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void print(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Fails when not all that was printed could be written.
    void finish();

private:
    FILE* m_data;
};

// Makes the directory if need be; fails when no file can be written there.
void requireWritableDirectory(const std::filesystem::path& directory);

// Writes beside the name and renames when all is on the disk. After a failure there is no new file.
void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes);
