#include <fmt/format.h>
#include <CLI/CLI.hpp>

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
#include "commands/Commands.h"
#include "commands/OptionValues.h"
#include "log/Explainer.h"
#include "log/Logcat.h"
#include "report/Reports.h"

namespace zebcam::tool::commands {

namespace {

constexpr char kStandardStream[] = "-";
constexpr int kNothingFound = 1;

struct Arguments {
    std::string log = kStandardStream;
    std::optional<std::string> json;
    std::vector<uint32_t> requests;
    bool isVerbose = false;
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
    errno = 0;  // streams lose the reason of a failure; the call beneath leaves it here
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
    // A folder opens like a file and reads as an empty one.
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
    // An empty result would look like an answer.
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
    base::ResultFile json(arguments.json, streams.out);
    log::Explanation explanation = explainFile(arguments.log);
    // No error: a log without captures is what a grep for them gives, too.
    if (explanation.counts.processor == 0) {
        streams.err << fmt::format("zsl explain: {}: no line of ZebCam/ZslProc among {} lines\n",
                                   nameOf(arguments.log), explanation.counts.lines);
        return kNothingFound;
    }
    // Before the file is written: a result without the capture would look like an answer.
    if (auto const missing = keepOnly(arguments.requests, explanation.captures)) {
        streams.err << fmt::format("zsl explain: {}: {}\n", nameOf(arguments.log), *missing);
        return kNothingFound;
    }
    std::string const path = arguments.log == kStandardStream ? "" : arguments.log;
    json.put([&](std::ostream& out) {
        report::writeJson(report::toJson(explanation, path, streams.provenance), out);
    });
    if (!json.isStandard()) {
        streams.out << report::explanationText(explanation, streams.outStyle, arguments.isVerbose);
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
        ->add_option("LOGFILE", arguments->log,
                     "What adb logcat printed (threadtime, time, brief or long); - is standard "
                     "input [default: -]")
        ->check(isNamed)
        ->type_name("FILE");
    addJson(*command, arguments->json);
    addRequests(*command, arguments->requests, "Show this capture only; may be repeated");
    addFlag(*command, "-v,--verbose", arguments->isVerbose,
            "Show each try and frame on its own, with times in ns");
    command->callback(
        [arguments, &streams, &exitStatus] { exitStatus = run(*arguments, streams); });
}

}  // namespace zebcam::tool::commands
