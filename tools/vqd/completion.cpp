// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd completion, which the build runs: prints the completion for bash, made from the description of the command line.
#include <algorithm>

#include <CLI/CLI.hpp>

#include "host/failure.h"
#include "host/settings.h"

#include "command_line.h"
#include "commands.h"
#include "output.h"

namespace
{

using Options = std::vector<const CLI::Option*>;

Options shownOptions(const CLI::App& app, bool positional)
{
    return app.get_options([=](const CLI::Option* option) {
        return !option->get_group().empty() && option->get_positional() == positional;
    });
}

std::vector<const CLI::App*> shownCommands(const CLI::App& app)
{
    return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

// The words that may follow an option or stand in a positional place, where they are known.
std::string valueWords(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    std::string words = CLI::detail::join(wordsOf(option), " ");
    for (const Setting& setting : allSettings())
        if (type == "KEY" || (type == "KEY=VALUE" && setting.set != nullptr))
            words += std::string(setting.name) + (type == "KEY" ? " " : "= ");
    return words;
}

struct Completion {
    std::string commands, words, values; // branches of three case statements
};

void describe(Completion& completion, const CLI::App& command, const std::string& path)
{
    std::string words;
    for (const CLI::App* sub : shownCommands(command)) {
        words += sub->get_name() + ' ';
        const std::string below = path + '/' + sub->get_name();
        completion.commands += (completion.commands.empty() ? "" : "|") + below;
        describe(completion, *sub, below);
    }
    for (const CLI::Option* option : shownOptions(command, true))
        words += valueWords(*option) + ' ';
    for (const CLI::Option* option : shownOptions(command, false)) {
        std::string names = option->get_name(false, true); // "-c,--camera"
        std::string pattern = path + ':' + names;
        for (size_t comma; (comma = pattern.find(',')) != std::string::npos;)
            pattern.replace(comma, 1, '|' + path + ':');
        if (option->get_expected_max() != 0)
            completion.values += "    " + pattern + ") words='" + valueWords(*option) + "' ;;\n";
        std::replace(names.begin(), names.end(), ',', ' ');
        words += names + ' ';
    }
    completion.words += "    '" + path + "') words='" + words + "' ;;\n";
}

std::string bashCompletion(const CLI::App& app)
{
    Completion completion;
    describe(completion, app, "");
    return "# bash completion for vqd; file names where no word fits\n"
           "_vqd()\n{\n"
           "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} path= words= word\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "        [[ $word == -- ]] && return\n"
           "        case $path/$word in\n"
           "        " +
           completion.commands +
           ") path+=/$word ;;\n        esac\n    done\n"
           "    case $path in\n" +
           completion.words + "    esac\n    case $path:$prev in\n" + completion.values +
           "    esac\n"
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
           "    [[ ${COMPREPLY[0]} == *= ]] && compopt -o nospace\n"
           "}\n"
           "complete -o default -F _vqd vqd\n";
}

} // namespace

void addCompletion(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("completion", "Prints the completion for bash")->group("");
    command->callback([&app, &run] {
        run = [&app] {
            Output output;
            output.print("%s", bashCompletion(app).c_str());
            output.finish();
            return kDone;
        };
    });
}
