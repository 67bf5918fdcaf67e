// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the doctor has found: a list, with the words in which it is shown and packed.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/json.h"

enum class Level { ok, warning, problem };

struct Finding {
    Level level;
    std::string subject, text;
    std::string remedy; // what to do, one step a line; may be empty
};

// "problem  1-2: ...", and the remedy on lines of its own.
std::string findingText(const Finding& finding);

class Findings
{
public:
    // `told` is called with each finding when it is added.
    explicit Findings(std::function<void(const Finding&)> told) : m_told(std::move(told)) {}

    void add(Level level, const std::string& subject, const std::string& text, const std::string& remedy = {});

    bool healthy() const { return !has(Level::problem); }
    const char* verdict() const; // on all of them, as a line
    const std::vector<Finding>& all() const { return m_all; }

    // The document of vqd doctor --json.
    Json json() const;

private:
    bool has(Level level) const;

    const std::function<void(const Finding&)> m_told;
    std::vector<Finding> m_all;
};
