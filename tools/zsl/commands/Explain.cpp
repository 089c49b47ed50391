#include "commands/Commands.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "base/AtomicFile.h"
#include "base/InputError.h"
#include "base/Text.h"
#include "commands/Cli.h"
#include "commands/Commands.h"
#include "commands/OptionValues.h"
#include "log/Explainer.h"
#include "log/Logcat.h"
#include "report/ExplanationText.h"
#include "report/JsonReport.h"

namespace zebcam::tool::commands {

namespace {

constexpr char kStandardStream[] = "-";
constexpr int kNothingFound = 1;

struct Arguments {
    std::string log = kStandardStream;
    std::optional<std::string> json;
    std::vector<uint32_t> requests;
};

std::string nameOf(std::string const& path) {
    return path == kStandardStream ? "standard input" : base::printable(path);
}

[[noreturn]] void failToRead(std::string const& path, std::string const& reason) {
    throw base::InputError(fmt::format("{}: cannot be read: {}", nameOf(path), reason));
}

log::Explanation explain(std::istream& in, std::string const& path) {
    log::LogcatReader reader(in);
    log::Explainer explainer;
    errno = 0;
    for (log::LogRecord record; reader.next(record);) {
        explainer.feed(record);
    }
    if (in.bad()) {
        failToRead(path, errno != 0 ? std::strerror(errno) : "reading failed");
    }
    return explainer.finish();
}

log::Explanation explainFile(std::string const& path) {
    if (path == kStandardStream) {
        return explain(std::cin, path);
    }
    if (std::error_code error; std::filesystem::is_directory(path, error)) {
        failToRead(path, "it is a folder");
    }
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        failToRead(path, errno != 0 ? std::strerror(errno) : "opening failed");
    }
    return explain(file, path);
}

/// Leaves the wanted captures only; a text says which one is not there.
std::optional<std::string> keepOnly(std::vector<uint32_t> const& requests,
                                    std::vector<log::CaptureExplanation>& captures) {
    for (uint32_t const requestNo : requests) {
        bool const isThere =
            std::any_of(captures.begin(), captures.end(),
                        [&](auto const& capture) { return capture.requestNo == requestNo; });
        if (!isThere) {
            return fmt::format("--request {}: the log has no line on this capture", requestNo);
        }
    }
    std::erase_if(captures, [&](auto const& capture) {
        return !requests.empty() &&
               std::find(requests.begin(), requests.end(), capture.requestNo) == requests.end();
    });
    return std::nullopt;
}

int run(Arguments const& arguments, CliStreams const& streams) {
    // An output that cannot be written is told before a long log is read.
    std::optional<base::AtomicFile> json;
    if (arguments.json && arguments.json != kStandardStream) {
        json.emplace(*arguments.json);
    }
    log::Explanation explanation = explainFile(arguments.log);
    if (explanation.counts.processor == 0) {
        streams.err << fmt::format("zsl explain: {}: no line of ZebCam/ZslProc among {} lines\n",
                                   nameOf(arguments.log), explanation.counts.lines);
        return kNothingFound;
    }
    if (auto const missing = keepOnly(arguments.requests, explanation.captures)) {
        streams.err << fmt::format("zsl explain: {}: {}\n", nameOf(arguments.log), *missing);
        return kNothingFound;
    }
    if (json) {
        json->stream() << report::toJson(explanation).dump(2) << '\n';
        json->commit();
    }
    if (arguments.json != kStandardStream) {
        streams.out << report::explanationText(explanation);
    } else {
        streams.out << report::toJson(explanation).dump(2) << '\n';
    }
    return 0;
}

}  // namespace

void addExplainCommand(CLI::App& app, CliStreams const& streams, int& exitStatus) {
    auto const arguments = std::make_shared<Arguments>();
    CLI::App* const command = app.add_subcommand(
        "explain", "Tell from a log of the processor why each capture got what it got");
    command
        ->add_option("log", arguments->log,
                     "What adb logcat printed (threadtime, time, brief or long); - is standard "
                     "input [default: -]")
        ->type_name("FILE");
    command
        ->add_option("--json", arguments->json,
                     "Write JSON too; - writes it to standard output instead of the table")
        ->type_name("FILE");
    command
        ->add_option_function<std::vector<std::string>>(
            "--request",
            [arguments](std::vector<std::string> const& values) {
                for (std::string const& value : values) {
                    try {
                        arguments->requests.push_back(
                            static_cast<uint32_t>(parseWholeNumber(value, 0, UINT32_MAX)));
                    } catch (std::invalid_argument const& error) {
                        throw CLI::ValidationError("--request", error.what());
                    }
                }
            },
            "Show this capture only; may be repeated")
        ->type_name("N")
        ->allow_extra_args(false)
        ->take_all();
    command->callback(
        [arguments, &streams, &exitStatus] { exitStatus = run(*arguments, streams); });
}

}  // namespace zebcam::tool::commands
