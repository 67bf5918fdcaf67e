// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The calibration tables in a camera's memory: where each is, how it is written and read, and what its bytes mean.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/bytes.h"

using TableValues = std::vector<double>;

// How the values of a table travel, in two bytes each.
struct TableCode {
    Bytes (*encode)(const TableValues& values);
    TableValues (*decode)(std::span<const uint8_t> bytes);
};

struct Table {
    const char* name;
    uint16_t region; // to which it is written
    uint16_t bytes;
    int columns;           // of its values as rows
    double waitMs;         // the least time that writing takes
    const TableCode* code; // null when only the maker knows what the bytes mean
    int (*write)(int n, const unsigned char* data);
    bool (*read)(int n, TableValues& values); // by the library; null when it has no such function
    bool readsWhatIsWritten;                  // the library, from the same region

    // More than libusb on Linux moves in one control transfer.
    bool isLarge() const { return bytes > 4096; }
};

std::span<const Table> allTables();

// A line for each table, for help texts.
std::string tableNames();

// Fails with a usage error for an unknown name.
const Table& tableNamed(const std::string& name);
