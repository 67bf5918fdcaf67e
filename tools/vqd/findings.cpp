// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Findings as text and as JSON.
#include "findings.h"

#include <algorithm>

#include "host/documents.h"
#include "host/formatted.h"

static constexpr const char* kLevelNames[] = {"ok", "warning", "problem"};

static const char* nameOf(Level level)
{
    return kLevelNames[static_cast<int>(level)];
}

std::string findingText(const Finding& finding)
{
    std::string text = formatted("%-8s %s: %s\n", nameOf(finding.level), finding.subject.c_str(), finding.text.c_str());
    for (size_t at = 0; at < finding.remedy.size();) {
        const size_t end = std::min(finding.remedy.find('\n', at), finding.remedy.size());
        text += "         " + finding.remedy.substr(at, end - at) + '\n';
        at = end + 1;
    }
    return text;
}

void Findings::add(Level level, const std::string& subject, const std::string& text, const std::string& remedy)
{
    m_all.push_back({level, subject, text, remedy});
    m_told(m_all.back());
}

bool Findings::has(Level level) const
{
    return std::ranges::any_of(m_all, [=](const Finding& finding) { return finding.level == level; });
}

const char* Findings::verdict() const
{
    if (!healthy())
        return "see the problems above\n";
    return has(Level::warning) ? "no problem found, but see the warnings above\n" : "no problem found\n";
}

Json Findings::json() const
{
    Json json = document("doctor");
    json["findings"] = Json::array();
    for (const Finding& finding : m_all)
        json["findings"].push_back({{"level", nameOf(finding.level)},
                                    {"subject", finding.subject},
                                    {"text", finding.text},
                                    {"remedy", finding.remedy}});
    json["healthy"] = healthy();
    return json;
}
