#include "commands/Completion.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/Commands.h"
#include "commands/Help.h"
#include "commands/OptionValues.h"
#include "compare/ComparisonFields.h"
#include "pipeline/ProcessorProperties.h"
#include "pipeline/ReplayOptions.h"

namespace zebcam::tool::commands {

namespace {

/// What may stand for an option or an argument.
struct Values {
    std::vector<std::string> words;
    bool areFiles = false;  ///< as well
};

std::vector<std::string> propertyWords() {
    std::vector<std::string> words;
    words.reserve(std::size(pipeline::PROCESSOR_PROPERTIES));
    for (pipeline::ProcessorProperty const& property : pipeline::PROCESSOR_PROPERTIES) {
        words.push_back(std::string(property.name) + "=");
    }
    return words;
}

Values valuesOf(CLI::App const& app, CLI::Option const& option) {
    std::string const type = option.get_type_name();
    Values values{{},
                  type.ends_with("FILE") || type.ends_with("FOLDER") ||
                      type.find("PATH") != std::string::npos};
    std::string const name = option.get_name();
    if (name == "--policy") {
        values.words = policyNames();
    } else if (name == "--log") {
        values.words = logLevelNames();
    } else if (name == "--fault") {
        values.words = pipeline::faultKindNames();
    } else if (name == "--fail-if") {
        values.words = compare::fieldNames();
    } else if (name == "--property") {
        values.words = propertyWords();
    } else if (name == "TOPIC") {
        values.words = topicNames();
    } else if (name == "COMMAND") {
        for (CLI::App const* const command : commandsOf(app)) {
            values.words.push_back(command->get_name());
        }
    }
    return values;
}

bool isFlag(CLI::Option const& option) {
    return option.get_items_expected_max() == 0;
}

/// The arguments of a command take the same, however many there are.
Values argumentsOf(CLI::App const& app, CLI::App const& command) {
    for (CLI::Option const* const option : command.get_options()) {
        if (option->get_positional()) {
            return valuesOf(app, *option);
        }
    }
    return {};
}

std::vector<CLI::Option const*> optionsOf(CLI::App const& command) {
    return command.get_options([](CLI::Option const* option) { return option->nonpositional(); });
}

/// All names of an option, with their dashes.
std::vector<std::string> namesOf(CLI::Option const& option) {
    std::vector<std::string> names;
    for (std::string const& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    for (std::string const& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    return names;
}

std::string joined(std::vector<std::string> const& words, std::string_view between = " ") {
    return fmt::format("{}", fmt::join(words, between));
}

/// `text` between single quotes, with `special` behind backslashes.
std::string quoted(std::string_view text, std::string_view special, std::string_view quote) {
    std::string out = "'";
    for (char const c : text) {
        if (c == '\'') {
            out += quote;
            continue;
        }
        out += special.find(c) != std::string_view::npos ? "\\" : "";
        out += c;
    }
    return out + "'";
}

std::string bashValues(Values const& values) {
    return fmt::format("words='{}'{}", joined(values.words), values.areFiles ? " files=1" : "");
}

std::string bashCommand(CLI::App const& app, CLI::App const& command) {
    std::string text = fmt::format("    {})\n        case $before in\n", command.get_name());
    std::vector<std::string> all;
    for (CLI::Option const* const option : optionsOf(command)) {
        std::vector<std::string> const names = namesOf(*option);
        all.insert(all.end(), names.begin(), names.end());
        if (!isFlag(*option)) {
            text += fmt::format("        {}) {} ;;\n", joined(names, "|"),
                                bashValues(valuesOf(app, *option)));
        }
    }
    return text + fmt::format(
                      "        *) if [[ $current == -* ]]; then words='{}'; else {}; fi ;;\n"
                      "        esac ;;\n",
                      joined(all), bashValues(argumentsOf(app, command)));
}

/// An argument or an option's value for _arguments, with what it may be.
std::string zshValue(std::string const& type, Values const& values) {
    std::string const words = "(" + joined(values.words) + ")";
    if (values.areFiles && !values.words.empty()) {
        return fmt::format("{}: _alternative \"words\\:{}\\:{}\" \"files\\:file\\:_files\"", type,
                           type, words);
    }
    return type + ":" + (values.areFiles ? "_files" : values.words.empty() ? "" : words);
}

std::string zshCommand(CLI::App const& app, CLI::App const& command) {
    std::string text = fmt::format("    {})\n        _arguments -S", command.get_name());
    for (CLI::Option const* const option : optionsOf(command)) {
        std::string const about =
            "[" + quoted(option->get_description(), "[]\\", "'\\''").substr(1);
        for (std::string const& name : namesOf(*option)) {
            text +=
                fmt::format(" \\\n            '*{}{}]", name, about.substr(0, about.size() - 1));
            text += isFlag(*option) ? "'" : ":" + zshValue("value", valuesOf(app, *option)) + "'";
        }
    }
    return text + fmt::format(" \\\n            '*:{}' ;;\n",
                              zshValue("argument", argumentsOf(app, command)));
}

std::string fishCommand(CLI::App const& app, CLI::App const& command) {
    std::string const begin =
        fmt::format("complete -c zsl -n '__fish_seen_subcommand_from {}'", command.get_name());
    std::string text;
    auto const told = [](Values const& values, char const* plain) {
        return fmt::format(" {}{}", values.areFiles ? "-rF" : plain,
                           values.words.empty() ? "" : " -a '" + joined(values.words) + "'");
    };
    for (CLI::Option const* const option : optionsOf(command)) {
        text += begin;
        for (std::string const& name : option->get_lnames()) {
            text += " -l " + name;
        }
        for (std::string const& name : option->get_snames()) {
            text += " -s " + name;
        }
        text += isFlag(*option) ? "" : told(valuesOf(app, *option), "-x");
        text += " -d " + quoted(option->get_description(), "\\", "\\'") + "\n";
    }
    Values const arguments = argumentsOf(app, command);
    return text + (arguments.areFiles         ? begin + " -F\n"
                   : !arguments.words.empty() ? begin + told(arguments, "-f") + "\n"
                                              : "");
}

}  // namespace

std::string bashCompletion(CLI::App const& app) {
    std::vector<std::string> commands;
    std::string cases;
    for (CLI::App const* const command : commandsOf(app)) {
        commands.push_back(command->get_name());
        cases += bashCommand(app, *command);
    }
    // Bash takes --policy=cshot for three words. A property goes on behind its equals sign.
    return fmt::format(R"(# Completion of zsl for bash, written by zsl itself.
_zsl() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD-1]}} words='' files=''
    if [[ $current == '=' ]]; then
        current=''
    elif [[ $before == '=' ]]; then
        before=${{COMP_WORDS[COMP_CWORD-2]}}
    fi
    if ((COMP_CWORD == 1)); then
        words='{} --help --version'
    else
    case ${{COMP_WORDS[1]}} in
{}    esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current"; [[ $files ]] && compgen -f -- "$current")
    if [[ ${{#COMPREPLY[@]}} == 1 && ${{COMPREPLY[0]}} == *= ]]; then
        compopt -o nospace
    fi
}}
complete -o filenames -F _zsl zsl
)",
                       joined(commands), cases);
}

std::string zshCompletion(CLI::App const& app) {
    std::string commands;
    std::string cases;
    for (CLI::App const* const command : commandsOf(app)) {
        commands += fmt::format(
            "        {}\n",
            quoted(command->get_name() + ":" + command->get_description(), "", "'\\''"));
        cases += zshCommand(app, *command);
    }
    return fmt::format(R"(#compdef zsl
# Completion of zsl for zsh, written by zsl itself.
_zsl() {{
    local -a commands=(
{}    )
    if ((CURRENT == 2)); then
        _describe command commands
        return
    fi
    shift words
    ((CURRENT--))
    case $words[1] in
{}    esac
}}
_zsl "$@"
)",
                       commands, cases);
}

std::string fishCompletion(CLI::App const& app) {
    std::string text = "# Completion of zsl for fish, written by zsl itself.\ncomplete -c zsl -f\n";
    for (CLI::App const* const command : commandsOf(app)) {
        text += fmt::format("complete -c zsl -n __fish_use_subcommand -a {} -d {}\n",
                            command->get_name(), quoted(command->get_description(), "\\", "\\'"));
    }
    for (CLI::App const* const command : commandsOf(app)) {
        text += fishCommand(app, *command);
    }
    return text;
}

}  // namespace zebcam::tool::commands
