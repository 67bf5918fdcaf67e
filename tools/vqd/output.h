// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the tool writes on standard output: its data, and nothing else.
#pragma once

#include <cstdio>
#include <span>

#include "host/documents.h"

// Standard output for the tool's data alone. Make it before the first call of the library. While it exists, the lines
// that the library prints are kept back and appear on standard error when something fails; with -v they appear at once.
class Output
{
public:
    Output();
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void print(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void print(const Json& json);
    void write(std::span<const uint8_t> bytes);

    // Fails unless everything that was printed could be written.
    void finish();

    // A command's result as a whole: the object with --json, else the text.
    void finish(const Json& json, const std::string& text);

    // For a failure that is not an exception.
    void showLibraryLines();

private:
    FILE* m_data;
    int m_library; // where the library's lines go
};
