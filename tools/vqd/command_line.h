// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// How the command line speaks: the form of its help, and what it says of words that it does not know.
#pragma once

#include <span>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

// Refuses the empty text that an unset variable of a shell leaves behind.
extern const CLI::Validator notEmpty;

// The words that an option takes, none when it takes others.
std::vector<std::string> wordsOf(const CLI::Option& option);

// Help in the form "-n, --frames N   Number of frames (1 to 100; default 1)".
std::shared_ptr<CLI::Formatter> helpFormatter();

// Fails with a usage error when a word stands where a command of the app, whose name is the path, should and is none;
// suggests what may be meant. Looks below commands that have commands of their own, too.
void requireKnownCommand(const CLI::App& app, std::span<const std::string> words, const std::string& path);
