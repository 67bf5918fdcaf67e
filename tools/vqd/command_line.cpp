// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The parser describes what an option takes as "TYPE:CHECK", for instance "INT:INT in [1 - 100]" or "TEXT:{png,pgm}".
// Help texts are made from that.
#include "command_line.h"

#include <algorithm>
#include <numeric>
#include <sstream>

#include "host/failure.h"

const CLI::Validator notEmpty([](const std::string& text) { return text.empty() ? "it is empty" : std::string(); }, "");

std::vector<std::string> wordsOf(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    const size_t open = type.find('{');
    if (open == std::string::npos)
        return {};
    return CLI::detail::split(type.substr(open + 1, type.find('}') - open - 1), ',');
}

namespace
{

constexpr size_t kMostShownWords = 4; // in place of a value's name; longer lists stand in the description

std::string valueName(const CLI::Option& option)
{
    const std::vector<std::string> words = wordsOf(option);
    if (!words.empty() && words.size() <= kMostShownWords)
        return CLI::detail::join(words, "|");
    // Behind the name stands what is checked, after a colon. The name itself may have a colon, too.
    const std::string type = option.get_type_name();
    const size_t range = type.find(" in [");
    const std::string name = type.substr(0, range == std::string::npos ? type.find(":{") : type.rfind(':', range));
    return name == "INT" || name == "UINT" ? "N" : name == "FLOAT" ? "NUMBER" : name;
}

// "1 to 100", or nothing.
std::string rangeOf(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    const size_t open = type.find(" in ["), dash = type.find(" - ", open), close = type.find(']', dash);
    if (open == std::string::npos || dash == std::string::npos || close == std::string::npos)
        return {};
    const size_t start = open + sizeof " in [" - 1, second = dash + sizeof " - " - 1;
    return type.substr(start, dash - start) + " to " + type.substr(second, close - second);
}

class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_option_name(const CLI::Option* option, bool positional) const override
    {
        if (positional)
            return option->get_name(true, false);
        return CLI::detail::join(CLI::detail::split(option->get_name(false, true), ','), ", ");
    }

    std::string make_option_opts(const CLI::Option* option) const override
    {
        const std::string name = valueName(*option);
        if (name.empty() || option->get_positional()) // empty: a flag
            return {};
        return option->get_expected_min() == 0 ? " [" + name + "]" : " " + name;
    }

    std::string make_option_desc(const CLI::Option* option) const override
    {
        std::vector<std::string> notes;
        if (const std::vector<std::string> words = wordsOf(*option); words.size() > kMostShownWords)
            notes.push_back("one of " + CLI::detail::join(words, ", "));
        if (const std::string range = rangeOf(*option); !range.empty())
            notes.push_back(range);
        if (!option->get_default_str().empty())
            notes.push_back("default " + option->get_default_str());
        return option->get_description() + (notes.empty() ? "" : " (" + CLI::detail::join(notes, "; ") + ")");
    }

    // Lines that start with kExample become a list at the end, as in man pages.
    std::string make_footer(const CLI::App* app) const override
    {
        constexpr char kExample[] = "Example: ";
        std::string text, examples;
        std::istringstream lines(app->get_footer());
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with(kExample))
                examples += "  $ " + line.substr(sizeof kExample - 1) + '\n';
            else
                text += line + '\n';
        return text + (text.empty() || examples.empty() ? "" : "\n") +
               (examples.empty() ? "" : "Examples:\n" + examples);
    }
};

// How many letters must be changed, added or removed.
size_t distance(const std::string& from, const std::string& to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t changed = diagonal + (from[i] != to[j]);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

} // namespace

CLI::Option* addRepeatable(CLI::App& command, const char* name, std::vector<std::string>& values, const char* type,
                           const char* description)
{
    return command.add_option(name, values, description)
        ->type_name(type)
        ->expected(1)
        ->allow_extra_args(false) // else it would take the words that follow, such as a file
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

// CLI11 lists unexpected words from the last to the first.
std::string usageMessage(const CLI::App* app, const CLI::Error& error)
{
    std::string text = error.what();
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError)) {
        text = "not expected:";
        for (const std::string& word : app->remaining(true))
            text += ' ' + word;
    }
    return text + "\nRun with --help for more information.\n";
}

std::shared_ptr<CLI::Formatter> helpFormatter()
{
    return std::make_shared<HelpFormatter>();
}

void requireKnownCommand(const CLI::App& app, std::span<const std::string> words, const std::string& path)
{
    const auto commands = app.get_subcommands([](const CLI::App*) { return true; });
    if (commands.empty() || words.empty() || words[0].starts_with('-'))
        return;
    constexpr size_t kNear = 2;
    std::string nearest;
    size_t least = kNear + 1;
    for (const CLI::App* command : commands) {
        const std::string& name = command->get_name();
        if (name == words[0])
            return requireKnownCommand(*command, words.subspan(1), path + ' ' + name);
        const size_t away = name.starts_with(words[0]) ? 0 : distance(words[0], name);
        if (!command->get_group().empty() && away < least && away < name.size()) {
            least = away;
            nearest = name;
        }
    }
    throw Failure(kUsage,
                  "there is no command '" + path + ' ' + words[0] + "'; " +
                      (nearest.empty() ? path + " --help lists them" : "did you mean " + path + ' ' + nearest + '?'));
}
