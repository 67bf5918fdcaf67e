// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Several files packed into one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct PackedFile {
    std::string name, content;
};

// A .tar.gz in memory. Its files have no owner.
std::vector<uint8_t> tarGz(const std::vector<PackedFile>& files);
