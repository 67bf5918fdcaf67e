// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
#include "serve/page_files.h"

static constexpr PageFile kFiles[] = {
    {"/", "text/html; charset=utf-8",
     "<!DOCTYPE html><html lang=\"en\"><title>vqd</title><p>The state of all cameras: <a "
     "href=\"/api/v1/state\">/api/v1/state</a>"},
};

std::span<const PageFile> pageFiles()
{
    return kFiles;
}
