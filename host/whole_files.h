// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Files that are whole or not there: written beside their name, and renamed when all is written.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

#include "host/bytes.h"
#include "host/failure.h"

// What happens to a file that exists already. Only a regular file is ever replaced.
enum class Existing { refuse, replace };

// The file exists and may not be replaced.
struct FileExists : Failure {
    explicit FileExists(const std::filesystem::path& path) : Failure(kFailed, path.string() + " exists") {}
};

// Creates the directory if need be. Fails when no file can be written there.
void requireWritableDirectory(const std::filesystem::path& directory);

// Fails when the file exists and may not be replaced. This is a look before long work: writeFile() looks again.
void requireNewFile(const std::filesystem::path& path, Existing existing);

// The same, and fails when nothing can be written there.
void requireWritableFile(const std::filesystem::path& path, Existing existing);

// After a failure there is no new file. With `later` the caller brings the file to the disk, for instance many at once.
enum class OnDisk { now, later };
void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes, Existing existing,
               OnDisk when = OnDisk::now);

// Fails when the file cannot be read or has another size.
Bytes readFile(const std::filesystem::path& path, size_t size);
