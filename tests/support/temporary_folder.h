// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A folder for the files of one test, which goes with it.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <string>

class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "vqd-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no folder " + name + " can be made");
        m_path = name;
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};
