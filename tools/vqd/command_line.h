// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The words of the command line: the form of its help, what options accept, and messages about what it does not accept.
#pragma once

#include <span>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

// Refuses the empty text that an unset variable of a shell leaves behind.
extern const CLI::Validator notEmpty;

// The words that an option accepts; empty when it is not limited to some words.
std::vector<std::string> wordsOf(const CLI::Option& option);

// An option that takes one value and may be given several times.
CLI::Option* addRepeatable(CLI::App& command, const char* name, std::vector<std::string>& values, const char* type,
                           const char* description);

// Help in the form "-n, --frames N   Number of frames (1 to 100; default 1)".
std::shared_ptr<CLI::Formatter> helpFormatter();

// What the parser says about a command line that it refuses.
std::string usageMessage(const CLI::App* app, const CLI::Error& error);

// Fails with a usage error when a word stands in the place of a command of `app` but is none, and suggests the nearest
// one. Looks at commands of commands, too. `path` is what was typed so far, such as "vqd eeprom".
void requireKnownCommand(const CLI::App& app, std::span<const std::string> words, const std::string& path);
