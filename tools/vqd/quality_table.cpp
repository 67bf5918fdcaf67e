// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The figures of vqd quality for people.
#include <algorithm>
#include <map>

#include "host/formatted.h"

#include "quality.h"

std::string figureText(Metric metric, const Figure& figure)
{
    const MetricRow& row = rowOf(metric);
    return figure.value ? formatted("%.*f %s", row.decimals, *figure.value, row.unit) : "-";
}

std::string qualityTable(const std::vector<QualityColumn>& columns)
{
    constexpr int kLabel = 34, kLeastWidth = 10;
    std::string table = formatted("%-*s %-9s", kLabel, "", "unit"), reasons;
    std::vector<int> widths;
    for (const QualityColumn& column : columns) {
        widths.push_back(std::max(static_cast<int>(column.title.size()), kLeastWidth));
        table += formatted("  %*s", widths.back(), column.title.c_str());
    }
    table += '\n';
    for (const MetricRow& row : allMetrics()) {
        table += formatted("%-*s %-9s", kLabel, row.label, row.unit);
        std::map<std::string, std::string> titles; // of the columns, by the reason
        for (size_t i = 0; i < columns.size(); ++i) {
            const Figure& figure = (*columns[i].figures)[static_cast<size_t>(row.metric)];
            const std::string text = figure.value ? formatted("%.*f", row.decimals, *figure.value) : "-";
            table += formatted("  %*s", widths[i], text.c_str());
            if (!figure.value)
                titles[figure.reason] += (titles[figure.reason].empty() ? "" : ", ") + columns[i].title;
        }
        table += '\n';
        for (const auto& [reason, of] : titles)
            reasons += std::string(row.label) + (columns.size() > 1 ? " (" + of + ")" : "") + ": " + reason + '\n';
    }
    return table + reasons;
}
