// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A file of a recording while it is written: NAME.mcap.part, and NAME.mcap when it is complete. Nothing is ever
// overwritten.
#pragma once

#include <filesystem>
#include <string>

// Fails with a usage error unless it is the name of a file in the folder and nothing else: letters, digits and . _ -,
// none of the three at the beginning, at most 100 of them.
void requireRecordingName(const std::string& name);

// NAME.mcap is part 1, NAME_002.mcap part 2: in a listing they stand in their order.
std::string partFileName(const std::string& name, int part);

class PartFile
{
public:
    // Makes the file. Fails when it, or its other name, exists already. `extension` is what that name has besides.
    PartFile(const std::filesystem::path& folder, const std::string& fileName, const std::string& extension = ".part");
    ~PartFile(); // what was not kept stays as NAME.mcap.part
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    int descriptor() const { return m_file; }
    const std::filesystem::path& path() const { return m_path; } // in the end

    uint64_t bytesFree() const; // of its disk, for this user
    void sync() const;          // brings what was written to the disk
    void keep() const;          // brings all to the disk, and gives the file its name
    void remove() const;        // when nothing worth keeping is in it

private:
    const std::filesystem::path m_path;
    const std::string m_name, m_partName;
    const int m_folder; // a descriptor, so that nobody can put another folder in its place
    int m_file = -1;
};
