#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Version.h"
#include "base/AtomicFile.h"
#include "commands/Commands.h"
#include "commands/Completion.h"
#include "commands/Help.h"

namespace zebcam::tool::commands {

namespace {

/// `text` as a man page shows it: dashes as they are typed, and no line read as a request.
std::string roff(std::string_view text) {
    std::string out;
    for (char const c : text) {
        bool const isRequest = out.empty() && (c == '.' || c == '\'');
        out += isRequest ? "\\&" : c == '-' ? "\\" : "";
        out += c == '\\' ? "\\e" : std::string(1, c);
    }
    return out;
}

std::string entry(std::string const& term, std::string_view meaning) {
    return fmt::format(".TP\n{}\n{}\n", term, roff(meaning));
}

std::string bold(std::string_view text) {
    return "\\fB" + roff(text) + "\\fR";
}

std::string italic(std::string_view text) {
    return "\\fI" + roff(text) + "\\fR";
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

/// `page` is the name of a page, as `zsl-replay`.
std::string pageHead(std::string const& page, std::string_view description) {
    return fmt::format(
        ".\\\" Written by zsl itself.\n.TH {} 1 \"\" \"zsl {}\" \"zero shutter lag\"\n"
        ".SH NAME\n{} \\- {}\n",
        roff(upper(page)), VERSION, roff(page), roff(description));
}

std::string generalPage(CLI::App const& app) {
    std::string text = pageHead("zsl", app.get_description());
    text += ".SH SYNOPSIS\n" + bold("zsl") + " " + italic("COMMAND") + " [" + italic("OPTION") +
            "...]\n.SH COMMANDS\n";
    std::string pages;
    for (CLI::App const* const command : commandsOf(app)) {
        text += entry(bold("zsl " + command->get_name()), command->get_description());
        pages +=
            fmt::format("{}{}(1)", pages.empty() ? "" : ",\n", bold("zsl-" + command->get_name()));
    }
    text += ".SH ENVIRONMENT\n";
    text += entry(bold("NO_COLOR"),
                  "Text has no colours if this is set. It never has any in a "
                  "file or a pipe.");
    text += entry(bold("COLUMNS"),
                  "The width of text where there is no terminal that tells its "
                  "own. Usually 100.");
    return text + ".SH SEE ALSO\n" + pages + ",\n" + roff(kDocumentation) + "\n";
}

std::string commandPage(CLI::App const& command) {
    CommandGuide const& guide = guideOf(command.get_name());
    std::string text = pageHead("zsl-" + command.get_name(), command.get_description());
    text += ".SH SYNOPSIS\n" + bold("zsl " + command.get_name());
    std::string arguments;
    for (CLI::Option const* const option : command.get_options()) {
        if (option->get_positional()) {
            std::string const more = option->get_items_expected_max() > 1 ? "..." : "";
            std::string const name = italic(option->get_name()) + more;
            text += option->get_required() ? " " + name : " [" + name + "]";
            arguments += entry(italic(option->get_name()), option->get_description());
        }
    }
    text += " [" + italic("OPTION") + "...]\n.SH DESCRIPTION\n" + roff(command.get_description()) +
            ".\n" + arguments + ".SH OPTIONS\n";
    for (auto const& [group, options] : groupsOf(command)) {
        text += ".SS " + group + "\n";
        for (CLI::Option const* const option : options) {
            std::string const type = option->get_type_name();  // none of a flag
            text += entry(
                bold(option->get_name(false, true)) + (type.empty() ? "" : " " + italic(type)),
                option->get_description());
        }
    }
    text += ".SH EXAMPLES\n";
    for (auto const& [example, meaning] : guide.examples) {
        text += entry(bold(example), meaning);
    }
    text += ".SH EXIT STATUS\n";
    for (auto const& [status, meaning] : guide.statuses) {
        text += entry(bold(status), meaning);
    }
    return text + fmt::format(".SH SEE ALSO\n{}(1),\n{}\n", bold("zsl"),
                              roff(fmt::format("{}/{}", kDocumentation, guide.page)));
}

/// The files below an installation's `share`.
std::vector<std::pair<std::string, std::string>> manualOf(CLI::App const& app) {
    std::vector<std::pair<std::string, std::string>> files = {
        {"man/man1/zsl.1", generalPage(app)},
        {"bash-completion/completions/zsl", bashCompletion(app)},
        {"zsh/site-functions/_zsl", zshCompletion(app)},
        {"fish/vendor_completions.d/zsl.fish", fishCompletion(app)},
    };
    for (CLI::App const* const command : commandsOf(app)) {
        files.emplace_back(fmt::format("man/man1/zsl-{}.1", command->get_name()),
                           commandPage(*command));
    }
    return files;
}

}  // namespace

void addManualCommand(CLI::App& app) {
    auto const folder = std::make_shared<std::string>();
    CLI::App* const command = app.add_subcommand(
        "write-manual", "Write man pages and shells' completions below a folder");
    command->group("");  // for the build only
    command->add_option("FOLDER", *folder, "As an installation's share")->required();
    command->callback([&app, folder] {
        for (auto const& [name, content] : manualOf(app)) {
            std::filesystem::path const path = std::filesystem::path(*folder) / name;
            std::filesystem::create_directories(path.parent_path());
            base::AtomicFile file(path.string());
            file.stream() << content;
            file.commit();
        }
    });
}

}  // namespace zebcam::tool::commands
