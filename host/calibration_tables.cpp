// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "host/calibration_tables.h"

#include <algorithm>

#include "VQD_API.h"

#include "host/failure.h"

namespace
{

// The more significant byte comes first.
template <int scale> Bytes encodeWords(const TableValues& values)
{
    Bytes bytes;
    for (const double value : values) {
        const auto number = static_cast<unsigned>(value * scale + 0.5);
        bytes.push_back(static_cast<uint8_t>(number >> 8));
        bytes.push_back(static_cast<uint8_t>(number & 0xFF));
    }
    return bytes;
}

template <int scale> TableValues decodeWords(std::span<const uint8_t> bytes)
{
    TableValues values;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        values.push_back((bytes[i] * 256 + bytes[i + 1]) / static_cast<double>(scale));
    return values;
}

// A sign byte, 2 for negative, and a magnitude.
Bytes encodeSigned(const TableValues& values)
{
    Bytes bytes;
    for (const double value : values) {
        bytes.push_back(value < 0 ? 2 : 0);
        bytes.push_back(static_cast<uint8_t>(value < 0 ? -value : value));
    }
    return bytes;
}

// The library takes 2 and 3 for negative.
TableValues decodeSigned(std::span<const uint8_t> bytes)
{
    TableValues values;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        values.push_back(bytes[i] >> 1 == 1 ? -bytes[i + 1] : bytes[i + 1]);
    return values;
}

constexpr TableCode kWords{encodeWords<1>, decodeWords<1>};
constexpr TableCode kFactors{encodeWords<10000>, decodeWords<10000>};
constexpr TableCode kSigned{encodeSigned, decodeSigned};

template <auto load, typename Value, size_t count> bool readBy(int n, TableValues& values)
{
    std::vector<Value> raw(count);
    const bool read = load(n, raw.data()) == 1;
    values.assign(raw.begin(), raw.end());
    return read;
}

template <auto save, int flag> int writeBy(int n, const unsigned char* data)
{
    return save(n, data, flag);
}

int loadWiggling(int n, uint16_t* values)
{
    return vqdLoadWigglingData(n, values, 0, 8192);
}

constexpr auto readWiggling = readBy<loadWiggling, uint16_t, 4096>;
constexpr auto readFppn4x4 = readBy<vqdLoadFPPNData_4x4, int, 4800>;
constexpr auto readFppn5x5 = readBy<vqdLoadFPPNData_5x5, int, 3072>;
constexpr auto readOrthogonal = readBy<vqdLoadOrthogonalData, double, 2048>;

// clang-format off
constexpr Table kTables[] = {
    // name, region, bytes, columns, ms, code, write, read, of what was written
    {"wiggling", 0x0000, 3840, 1, 75, &kWords, vqdSaveWigglingData, nullptr, false},
    {"wiggling-a", 0x0000, 8192, 1, 320, &kWords, writeBy<vqdSaveWigglingData2, 0>, readWiggling, false},
    {"wiggling-b", 0x2000, 8192, 1, 320, &kWords, writeBy<vqdSaveWigglingData2, 1>, nullptr, false},
    {"fppn", 0x0F00, 12288, 1, 240, nullptr, vqdSaveFPPNData, nullptr, false},
    {"fppn-4x4", 0x4000, 9600, 80, 300, &kWords, writeBy<vqdSaveFPPNData_4x4, 0>, readFppn4x4, true},
    {"fppn-5x5", 0x5800, 6144, 64, 192, &kSigned, writeBy<vqdSaveFPPNData_5x5, 0>, readFppn5x5, false},
    {"orthogonal", 0x7000, 4096, 8, 160, &kFactors, vqdSaveOrthogonalData, readOrthogonal, true},
};
// clang-format on

} // namespace

std::span<const Table> allTables()
{
    return kTables;
}

std::string tableNames()
{
    std::string text;
    for (const Table& table : kTables)
        text += std::string("  ") + table.name + ", " + std::to_string(table.bytes) + " bytes" +
                (table.read == nullptr ? ", read with --direct only\n" : "\n");
    return text;
}

const Table& tableNamed(const std::string& name)
{
    const auto row =
        std::find_if(std::begin(kTables), std::end(kTables), [&](const Table& table) { return name == table.name; });
    if (row == std::end(kTables))
        throw Failure(kUsage, "there is no table '" + name + "'; the tables are:\n" + tableNames());
    return *row;
}
