// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Reading refuses what is no document of ours, before anything looks at its members.
#include "host/documents.h"

#include <fstream>
#include <iostream>
#include <span>

// Deeper nesting could overflow the stack when the document is destroyed or printed, because both recurse.
static bool refuseDeepJson(int depth, Json::parse_event_t, const Json&)
{
    constexpr int kMost = 16; // our own documents have four levels
    if (depth > kMost)
        throw Failure(kUsage, "nested more than " + std::to_string(kMost) + " levels deep");
    return true;
}

// A pipe may never end.
std::string textOfDocument(const std::string& file)
{
    constexpr size_t kMost = 1 << 20; // a profile with all its tables has a fifth of that
    std::ifstream opened;
    if (file != "-")
        opened.open(file);
    std::istream& stream = file == "-" ? std::cin : opened;
    std::string text(kMost + 1, '\0');
    if (file == "-" || opened.is_open())
        stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    if ((file != "-" && !opened.is_open()) || stream.bad())
        throw Failure(kFailed, file + " cannot be read");
    text.resize(static_cast<size_t>(stream.gcount()));
    if (text.size() > kMost)
        throw Failure(kUsage, file + " is larger than 1 MiB, which no document of vqd is");
    return text;
}

Json document(const std::string& command)
{
    return Json::object({{"schema", "vqd." + command + "/1"}});
}

std::string documentText(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

void writeDocument(const std::filesystem::path& path, const Json& json, Existing existing)
{
    const std::string text = documentText(json);
    writeFile(path, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()), existing);
}

static Json parsed(std::string_view text, const std::string& name)
{
    try {
        return Json::parse(text, refuseDeepJson);
    } catch (const Failure& deep) {
        throw Failure(deep.code, name + ": " + deep.what());
    } catch (const Json::exception& error) {
        const std::string_view why = error.what(); // "[json.exception.parse_error.101] parse error at line 1, ..."
        throw Failure(kUsage, name + ": " + std::string(why.substr(why.find(' ') + 1)));
    }
}

Json parsedObject(std::string_view text, const std::string& name)
{
    Json json = parsed(text, name);
    if (!json.is_object())
        throw Failure(kUsage, name + " is not a JSON object");
    return json;
}

Json readDocument(const std::string& file, const std::string& command)
{
    const Json json = parsed(textOfDocument(file), file);
    if (!json.is_object() || !json.contains("schema") || json["schema"] != document(command)["schema"])
        throw Failure(kUsage, file + ": \"schema\" is not \"vqd." + command + "/1\"");
    return json;
}
