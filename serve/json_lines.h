// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// In which line of a JSON text each member stands, so that a message about a file leads to the place.
#pragma once

#include <map>
#include <string>
#include <string_view>

class JsonLines
{
public:
    // Of a text that is valid JSON. Fails with a usage error when an object has a name twice, since all but one of them
    // would be lost; `file` is for that message.
    JsonLines(std::string_view text, const std::string& file);

    // Of the member with this path, such as "/cameras/1-2.3/name". 1 for a path that is not there.
    int of(const std::string& path) const;

private:
    std::map<std::string, int> m_lines;
};
