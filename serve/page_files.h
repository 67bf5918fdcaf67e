// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The files of the page, which are part of the program. There are no others: a path is looked up here, and never on the
// disk.
#pragma once

#include <span>
#include <string_view>

struct PageFile {
    std::string_view path; // "/" or "/app/main.js"
    const char* type;
    std::string_view content;
};

std::span<const PageFile> pageFiles();
