// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Files packed into one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct PackedFile {
    std::string name, content;
};

// A .tar.gz in memory. Its files belong to nobody in particular.
std::vector<uint8_t> tarGz(const std::vector<PackedFile>& files);
