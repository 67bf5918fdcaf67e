// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// JSON documents with a schema, "vqd.COMMAND/1": made, written and read.
#pragma once

#include <string>
#include <string_view>

#include "host/json.h"
#include "host/whole_files.h"

// The start of every document: "schema": "vqd.COMMAND/1".
Json document(const std::string& command);

// As text with a final newline. What is not UTF-8 is replaced, since a camera may call itself anything.
std::string documentText(const Json& json);

void writeDocument(const std::filesystem::path& path, const Json& json, Existing existing);

// One object from a text of somebody else's making. Fails with a usage error; `name` is for that message.
Json parsedObject(std::string_view text, const std::string& name);

// The text of a file, or of standard input for -. Fails when it is longer than any document of ours.
std::string textOfDocument(const std::string& file);

// Reads such a file; - is standard input. Fails unless it holds one object of that schema.
Json readDocument(const std::string& file, const std::string& command);
