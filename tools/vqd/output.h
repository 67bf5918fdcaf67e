// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the tool writes: data on standard output, where nothing else may appear, and files that are whole or not there.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <span>
#include <vector>

#include <nlohmann/json.hpp>

using Json = nlohmann::ordered_json;

// Standard output for the tool's data alone. While one lives, descriptor 1 leads to standard error, so the lines that
// the library prints land there: make it before the first call of the library. With -q they are kept back until
// something fails.
class Output
{
public:
    Output();
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void print(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void print(const Json& json);

    // Fails when not all that was printed could be written.
    void finish();

private:
    FILE* m_data;
    int m_library; // where the library's lines go
};

// What every JSON output starts with: "schema": "vqd.COMMAND/1".
Json document(const std::string& command);
// Reads such a file, - for standard input. Fails unless it holds one object of that schema.
Json readDocument(const std::string& file, const std::string& command);

// Makes the directory if need be; fails when no file can be written there.
void requireWritableDirectory(const std::filesystem::path& directory);

// Fails when the file exists, unless --force; also then when it is a directory or a device. For a look before long
// work: writeFile() looks again.
void requireNewFile(const std::filesystem::path& path);

// The same, and fails when nothing can be written there.
void requireWritableFile(const std::filesystem::path& path);

// Writes beside the name and renames when all is on the disk. After a failure there is no new file. Replaces an
// existing one only with --force. `later`: it is on the disk once the caller has seen to it, for many files in a row.
enum class OnDisk { now, later };
void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes, OnDisk when = OnDisk::now);
void writeJson(const std::filesystem::path& path, const Json& json);

// Fails when the file can not be read or has another size.
std::vector<uint8_t> readFile(const std::filesystem::path& path, size_t size);
