// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A file's content in memory.
#pragma once

#include <cstdint>
#include <vector>

using Bytes = std::vector<uint8_t>;
