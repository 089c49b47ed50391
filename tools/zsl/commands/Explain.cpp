#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
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
#include "base/FollowedInput.h"
#include "base/InputError.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "commands/OptionValues.h"
#include "log/Explainer.h"
#include "log/Logcat.h"
#include "report/Reports.h"

namespace zebcam::tool::commands {

namespace {

constexpr int kNothingFound = 1;

struct ExplainArguments {
    std::string log = STANDARD_STREAM;
    std::optional<std::string> json;
    std::optional<std::string> trace;
    std::optional<std::string> report;
    std::vector<uint32_t> requests;
    bool isVerbose = false;
    bool follows = false;

    bool wants(uint32_t requestNo) const {
        return requests.empty() ||
               std::find(requests.begin(), requests.end(), requestNo) != requests.end();
    }
};

std::string nameOf(std::string const& path) {
    return path == STANDARD_STREAM ? "standard input" : base::printable(path);
}

[[noreturn]] void failToRead(std::string const& path, std::string const& reason) {
    throw base::InputError(fmt::format("{}: cannot be read: {}", nameOf(path), reason));
}

log::Explanation explain(std::istream& in, std::string const& path, log::Explainer& explainer) {
    log::LogcatReader reader(in);
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
    log::Explainer explainer;
    if (path == STANDARD_STREAM) {
        return explain(std::cin, path, explainer);
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
    return explain(file, path, explainer);
}

/// Ends with a signal, and of a pipe with its writer.
log::Explanation follow(std::string const& path, log::Explainer& explainer) {
    base::SignalWatch const watch;
    int const fd =
        path == STANDARD_STREAM ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        failToRead(path, std::strerror(errno));
    }
    // Whatever is thrown; but standard input is not its to close.
    struct Closer {
        int const fd;
        ~Closer() {
            if (fd != STDIN_FILENO) {
                close(fd);
            }
        }
    } const closer{fd};
    struct stat status = {};
    if (fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) {
        failToRead(path, std::strerror(EISDIR));
    }
    base::FollowedInput buffer(fd, watch);
    std::istream in(&buffer);
    log::Explanation explanation = explain(in, path, explainer);
    try {
        watch.throwIfAny();
    } catch (base::Interrupted const&) {
        // It ended the following, which is all that it was to do.
    }
    return explanation;
}

/// A text on the first wanted capture that is not there.
std::optional<std::string> missingOf(std::vector<uint32_t> const& requests,
                                     std::vector<log::CaptureExplanation> const& captures) {
    // An empty result would look like an answer.
    for (uint32_t const requestNo : requests) {
        bool const isThere =
            std::any_of(captures.begin(), captures.end(),
                        [&](auto const& capture) { return capture.requestNo == requestNo; });
        if (!isThere) {
            return fmt::format("--request {}: the log has no line on this capture", requestNo);
        }
    }
    return std::nullopt;
}

log::Explanation read(ExplainArguments const& arguments, bool hasText, CliStreams const& streams) {
    if (!arguments.follows) {
        return explainFile(arguments.log);
    }
    report::ReasonsStyle how{streams.outStyle, arguments.isVerbose, {}, {}};
    log::Explainer const* known = nullptr;
    log::Explainer explainer([&](log::CaptureExplanation const& capture) {
        if (hasText && arguments.wants(capture.requestNo)) {
            how.names = known->soFar().streamNames;
            streams.out << report::captureText(capture, how) << std::endl;
        }
    });
    known = &explainer;
    return follow(arguments.log, explainer);
}

int runExplain(ExplainArguments const& arguments, CliStreams const& streams) {
    requireOwnFiles(
        {{"--json", arguments.json}, {"--trace", arguments.trace}, {"--report", arguments.report}},
        {arguments.log});
    base::ResultFile json(arguments.json, streams.out);
    base::ResultFile trace(arguments.trace, streams.out);
    base::ResultFile report(arguments.report, streams.out);
    bool const hasText = !json.isStandard();
    log::Explanation explanation = read(arguments, hasText, streams);
    // No error: a log without captures is what a grep for them gives, too.
    if (explanation.counts.processor == 0) {
        streams.err << fmt::format("zsl explain: {}: no line of ZebCam/ZslProc among {} lines\n",
                                   nameOf(arguments.log), explanation.counts.lines);
        return kNothingFound;
    }
    // Before the file is written: a result without the capture would look like an answer.
    if (auto const missing = missingOf(arguments.requests, explanation.captures)) {
        streams.err << fmt::format("zsl explain: {}: {}\n", nameOf(arguments.log), *missing);
        return kNothingFound;
    }
    std::erase_if(explanation.captures,
                  [&](auto const& capture) { return !arguments.wants(capture.requestNo); });
    std::string const path = arguments.log == STANDARD_STREAM ? "" : arguments.log;
    json.put([&](std::ostream& out) {
        report::writeJson(report::toJson(explanation, path, streams.provenance), out);
    });
    trace.put([&](std::ostream& out) { report::writeTrace(explanation, path, out); });
    report.put([&](std::ostream& out) {
        report::writeHtmlReport(explanation, path, streams.provenance, out);
    });
    if (hasText) {
        streams.out << report::explanationText(explanation, streams.outStyle, arguments.isVerbose,
                                               arguments.follows);
    }
    return 0;
}

}  // namespace

void addExplainCommand(CLI::App& app, CliStreams const& streams, int& exitStatus) {
    auto const arguments = std::make_shared<ExplainArguments>();
    CLI::App* const command = app.add_subcommand(
        "explain", "Tell from a log of the processor why each capture got what it got");
    command
        ->add_option("LOGFILE", arguments->log,
                     "What adb logcat printed (threadtime, time, brief or long), or a "
                     "program on Linux to standard error; - is standard "
                     "input [default: -]")
        ->check(isNamed)
        ->type_name("FILE");
    addJson(*command, arguments->json);
    addRequests(*command, arguments->requests, "Show this capture only; may be repeated");
    addReportOption(*command, arguments->report);
    addFile(*command, "--trace", arguments->trace, "Write a trace for ui.perfetto.dev");
    addFlag(
        *command, "-f,--follow", arguments->follows,
        "Go on reading as the log grows, and tell each capture when it is over; Ctrl-C ends it");
    addFlag(*command, "-v,--verbose", arguments->isVerbose,
            "Show each try and frame on its own, with times in ns");
    command->callback(
        [arguments, &streams, &exitStatus] { exitStatus = runExplain(*arguments, streams); });
}

}  // namespace zebcam::tool::commands
