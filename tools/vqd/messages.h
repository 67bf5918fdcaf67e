// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the tool says to people on standard error, and what it asks them.
#pragma once

#include <string>

// A line: always; not with -q; only with -v.
void warn(const char* format, ...) __attribute__((format(printf, 1, 2)));
void note(const char* format, ...) __attribute__((format(printf, 1, 2)));
void detail(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Fails when a question would be necessary but cannot be asked: --yes is missing and there is no terminal. To be called
// before any camera is touched.
void requireConfirmable();

// Asks on the terminal, unless --yes was given. Fails when the answer is no.
void confirm(const std::string& question);
