// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What a client must know: made at random for each start, and kept where those may read it who may use the cameras.
#pragma once

#include <filesystem>
#include <string>

std::string newToken();

class TokenFile
{
public:
    // Fails when it cannot be written. Replaces the one of a server that is gone.
    TokenFile(std::filesystem::path path, const std::string& token);
    ~TokenFile(); // removes it
    TokenFile(const TokenFile&) = delete;
    TokenFile& operator=(const TokenFile&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    const std::filesystem::path m_path;
};
