// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A text from a printf format.
#pragma once

#include <string>

std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));
