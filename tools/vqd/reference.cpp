// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd reference, for the build: man pages and bash completion, made from the description of the command line.
#include <memory>
#include <sstream>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "common.h"
#include "exit_codes.h"
#include "output.h"
#include "settings.h"

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

std::string roff(const std::string& text)
{
    std::string escaped;
    for (const char character : text) {
        if (escaped.empty() || escaped.back() == '\n')
            escaped += "\\&"; // a dot or quote in front would be a request
        if (character == '-' || character == '\\')
            escaped += '\\';
        escaped += character == '\\' ? 'e' : character;
    }
    return escaped;
}

// "TEXT:{png,pgm}" is what the parser says of an option that takes words.
std::string knownWords(const CLI::Option& option, char between)
{
    const std::string type = option.get_type_name();
    const size_t open = type.find('{');
    if (open == std::string::npos)
        return {};
    std::string words = type.substr(open + 1, type.find('}') - open - 1);
    std::replace(words.begin(), words.end(), ',', between);
    return words;
}

std::string valueName(const CLI::Option& option)
{
    const std::string words = knownWords(option, '|');
    const std::string type = option.get_type_name();
    return words.empty() ? type.substr(0, type.find(':')) : words;
}

void writeOptions(std::ostream& page, const CLI::App& command)
{
    for (const bool positional : {true, false})
        for (const CLI::Option* option : shownOptions(command, positional)) {
            page << ".TP\n";
            if (!positional)
                page << "\\fB" << roff(option->get_name(false, true)) << "\\fR ";
            page << "\\fI" << roff(valueName(*option)) << "\\fR\n" << roff(option->get_description());
            if (!option->get_default_str().empty() && option->get_expected_min() > 0)
                page << " (default: " << roff(option->get_default_str()) << ')';
            page << '\n';
        }
}

std::string manPage(const CLI::App& command, const std::string& name)
{
    std::string title = name;
    std::replace(title.begin(), title.end(), ' ', '-');
    std::ostringstream page;
    page << ".TH " << roff(title) << " 1 \"\" \"vqd " VQD_VERSION "\" \"VQD_API\"\n"
         << ".SH NAME\n"
         << roff(title) << " \\- " << roff(command.get_description()) << "\n.SH SYNOPSIS\n.B " << roff(name)
         << "\n[\\fIOPTIONS\\fR]";
    for (const CLI::Option* option : shownOptions(command, true))
        page << " \\fI" << roff(valueName(*option)) << "\\fR";
    const std::vector<const CLI::App*> subs = shownCommands(command);
    page << (subs.empty() ? "\n" : " \\fICOMMAND\\fR ...\n.SH COMMANDS\n");
    for (const CLI::App* sub : subs) {
        page << ".TP\n\\fB" << roff(sub->get_name()) << "\\fR\n" << roff(sub->get_description()) << '\n';
        if (command.get_parent() != nullptr) {
            page << ".RS\n";
            writeOptions(page, *sub);
            page << ".RE\n";
        }
    }
    page << ".SH OPTIONS\n";
    writeOptions(page, command);
    if (!command.get_footer().empty())
        page << ".SH NOTES\n.nf\n" << roff(command.get_footer()) << "\n.fi\n";
    if (command.get_parent() != nullptr)
        page << ".SH SEE ALSO\n.BR vqd (1)\n";
    return page.str();
}

// What stands behind an option or in a positional place, where that is known.
std::string valueWords(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    std::string words = knownWords(option, ' ');
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
    return "# bash completion for vqd; files where nothing else fits\n"
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

void writeText(const std::filesystem::path& path, const std::string& text)
{
    writeFile(path, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

int reference(const CLI::App& app, const std::filesystem::path& directory)
{
    common.force = true;
    requireWritableDirectory(directory);
    writeText(directory / "vqd.1", manPage(app, "vqd"));
    for (const CLI::App* command : shownCommands(app))
        writeText(directory / ("vqd-" + command->get_name() + ".1"), manPage(*command, "vqd " + command->get_name()));
    writeText(directory / "vqd.bash", bashCompletion(app));
    return kDone;
}

} // namespace

void addReference(CLI::App& app, Run& run)
{
    const auto directory = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("reference", "Writes man pages and bash completion")->group("");
    command->add_option("directory", *directory)->required();
    command->callback([&app, &run, directory] { run = [&app, directory] { return reference(app, *directory); }; });
}
