#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/AtomicFile.h"
#include "base/InputError.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "commands/OptionValues.h"
#include "compare/Comparison.h"
#include "report/Reports.h"

namespace zebcam::tool::commands {

namespace {

namespace fs = std::filesystem;

// More is a slip: each is a process that reads a recording.
constexpr int64_t kMaxJobs = 1'024;

struct CompareArguments {
    compare::ComparisonPlan plan;
    compare::ChildPoolOptions pool;
    std::optional<std::string> json;
    std::optional<std::string> csv;
    std::optional<std::string> markdown;
    std::optional<std::string> baseline;
    std::vector<compare::Tolerance> tolerances;
    bool isCacheOff = false;
    std::optional<std::string> report;
    std::optional<std::string> reports;
};

/// Refuses before the first run what would make every run fail.
void requireUsable(CLI::App const& command, CompareArguments const& arguments) {
    compare::ComparisonPlan const& plan = arguments.plan;
    requireConsistent(command, plan.common, plan.policies, command.count("--offset") > 0);
    std::error_code ignored;  // whoever opens it will say more
    for (pipeline::PolicyOption const& policy : plan.policies) {
        std::string const path = policy.file();
        if (!path.empty() && !fs::exists(path, ignored)) {
            throw base::InputError(fmt::format("--policy {}: there is no such file", path));
        }
    }
    if (!plan.videos.empty() && plan.videos.size() != plan.recordings.size()) {
        throw CLI::ValidationError("--video",
                                   fmt::format("expected one for each recording, found {} for {}",
                                               plan.videos.size(), plan.recordings.size()));
    }
    std::vector<std::string> inputs = plan.recordings;
    inputs.insert(inputs.end(), plan.videos.begin(), plan.videos.end());
    for (std::string const& recording : inputs) {
        if (recording == STANDARD_STREAM || fs::is_fifo(recording, ignored)) {
            throw base::InputError(
                fmt::format("{}: expected a file, because each run reads it anew, found {}",
                            recording, recording == STANDARD_STREAM ? "standard input" : "a pipe"));
        }
    }
    requireOwnFiles({{"--json", arguments.json},
                     {"--csv", arguments.csv},
                     {"--markdown", arguments.markdown},
                     {"--report", arguments.report},
                     {"--reports", arguments.reports}},
                    inputs);
}

/// Read before the first run, so that a file that is none is told at once.
void readBaseline(CompareArguments& arguments) {
    if (!arguments.baseline) {
        if (!arguments.tolerances.empty()) {
            throw CLI::ValidationError("--tolerance", "expected --baseline with it");
        }
        return;
    }
    arguments.plan.baseline.emplace(*arguments.baseline);
    arguments.plan.baseline->setTolerances(arguments.tolerances);
}

/// What was not given has one value.
void fillIn(compare::ComparisonPlan& plan) {
    auto const orOne = [](auto& values, auto value) {
        if (values.empty()) {
            values.push_back(std::move(value));
        }
    };
    // Lists of one make every combination a run, whether or not it was asked for.
    orOne(plan.policies, plan.common.policy);
    orOne(plan.offsetsMs, plan.common.offsetMs);
    orOne(plan.framesPerCapture, plan.common.framesPerCapture);
    orOne(plan.history, plan.common.history);
}

/// A line for each complaint, headed by the command's name.
void complain(compare::Comparison const& comparison, std::ostream& err) {
    std::string const complaints = report::comparisonComplaints(comparison);
    for (size_t begin = 0; begin < complaints.size();) {
        size_t const end = complaints.find('\n', begin) + 1;
        err << "zsl compare: " << complaints.substr(begin, end - begin);
        begin = end;
    }
}

/// `0012-street-multiframe.html`: sorted as the rows are, and of what any file system and address
/// takes.
std::string pageName(size_t row, std::string const& recording, std::string const& policy) {
    constexpr size_t kLongest = 60;
    std::string name = fmt::format("{:04}", row + 1);
    for (std::string const& path : {recording, policy}) {
        name += '-';
        for (char const c : fs::path(path).stem().string().substr(0, kLongest)) {
            bool const isPlain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                                 (c >= 'A' && c <= 'Z') || c == '_' || c == '-';
            name += isPlain ? c : '_';
        }
    }
    return name + ".html";
}

/// The pages of the runs, each written in its run's child.
class RunPages {
public:
    RunPages(std::string const& folder, base::Provenance const& provenance)
        : mFolder(folder), mProvenance(provenance) {}

    compare::RunListener listener() const {
        return [this](size_t row, recording::Recording const& recording,
                      run::ReplayResult const& result, log::Explanation const& explanation) {
            std::string const name = pageName(row, recording.path, result.options.policy.name());
            // A run whose time is over leaves no page that breaks off.
            std::string const unfinished = mFolder.newFile(name) + kUnfinished;
            std::ofstream out(unfinished, std::ios::binary);
            report::writeHtmlReport(recording, result, &explanation, mProvenance, out);
            out.close();
            if (!out) {
                std::remove(unfinished.c_str());
                throw base::OutputError(
                    fmt::format("cannot write its page '{}'", mFolder.file(name)));
            }
            fs::rename(unfinished, mFolder.newFile(name));
        };
    }

    /// Puts the pages in place and tells the rows where theirs is.
    void commit(std::vector<compare::ComparisonRow>& rows) const {
        std::vector<std::string> names;
        for (size_t i = 0; i < rows.size(); ++i) {
            std::string name = pageName(i, rows[i].recording, rows[i].options.policy.name());
            std::error_code ignored;
            if (fs::exists(mFolder.newFile(name), ignored)) {
                rows[i].report = mFolder.file(name);
                names.push_back(std::move(name));
            }
        }
        mFolder.commit(names);
    }

private:
    static constexpr char kUnfinished[] = ".part";

    base::AtomicFolder const mFolder;
    base::Provenance const& mProvenance;
};

int runCompare(CLI::App const& command, CompareArguments arguments, CliStreams const& streams) {
    fillIn(arguments.plan);
    requireUsable(command, arguments);
    readBaseline(arguments);
    // Before the files: a signal must not end the program while they are half made.
    base::SignalWatch const signals;
    base::ResultFile json(arguments.json, streams.out);
    base::ResultFile csv(arguments.csv, streams.out);
    base::ResultFile markdown(arguments.markdown, streams.out);
    base::ResultFile report(arguments.report, streams.out);
    std::optional<RunPages> pages;
    if (arguments.reports) {
        arguments.plan.onRun = pages.emplace(*arguments.reports, streams.provenance).listener();
    }
    arguments.plan.measure =
        pictureMeasurer(streams, !arguments.isCacheOff, [&] { signals.throwIfAny(); });
    compare::Comparison comparison;
    try {
        Progress progress(streams.err, streams.showProgress, "runs");
        comparison =
            compare::compare(arguments.plan, arguments.pool, signals,
                             [&progress](size_t runs, size_t total) { progress(runs, total); });
    } catch (base::Interrupted const& interrupted) {
        streams.err << "zsl compare: " << interrupted.what() << '\n';
        return kSignalStatus + interrupted.signal();
    }
    if (pages) {
        pages->commit(comparison.rows);
    }
    json.put([&](std::ostream& out) {
        report::writeJson(report::toJson(comparison, streams.provenance), out);
    });
    csv.put([&](std::ostream& out) { report::writeCsv(comparison, out); });
    markdown.put([&](std::ostream& out) { report::writeMarkdown(comparison, out); });
    report.put([&](std::ostream& out) {
        report::writeHtmlReport(comparison, streams.provenance, *arguments.report, out);
    });
    if (!json.isStandard() && !csv.isStandard() && !markdown.isStandard()) {
        streams.out << report::comparisonTable(comparison, streams.outStyle);
    }
    streams.out.flush();  // complaints come below the table where both go to one place
    complain(comparison, streams.err);
    return comparison.isGood() ? 0 : 1;
}

/// A parameter of policies with the values that it is to have.
std::pair<std::string, std::vector<std::string>> parsePolicyParameters(std::string const& text) {
    size_t const begin = text.find('=') + 1;  // 0 when there is none, which is refused below
    std::vector<std::string> values;
    for (size_t at = begin; at <= text.size();) {
        size_t const end = std::min(text.find(',', at), text.size());
        auto const parsed = parsePolicyParameter(text.substr(0, begin) + text.substr(at, end - at));
        values.push_back(parsed.second);
        at = end + 1;
    }
    return {text.substr(0, begin - 1), values};
}

/// Reads one value of a setting of which a comparison takes several.
template <typename Parse>
auto oneOfSeveral(Parse parse) {
    return [parse](std::string const& text) {
        std::error_code ignored;
        // Names of files may have commas.
        if (text.find(',') != std::string::npos && !fs::exists(text, ignored)) {
            throw std::invalid_argument(
                fmt::format("expected one value, found {}; repeat the option to try several",
                            base::quoteContent(text)));
        }
        return parse(text);
    };
}

void addSettings(CLI::App& command, compare::ComparisonPlan& plan) {
    command.option_defaults()->group(kCaptures);
    addParsed(command, "--policy", plan.policies, oneOfSeveral(parsePolicy),
              "default, cshot, multiframe, best-shot, a library with a policy or a rule in Python "
              "[default: default]; may be repeated",
              "NAME|PATH.so|PATH.py");
    auto const addParameter = [&plan](std::string const& text) {
        auto const [name, values] = parsePolicyParameters(text);
        auto& all = plan.policyParameters;
        auto const known = std::find_if(all.begin(), all.end(), [&name = name](auto const& other) {
            return other.first == name;
        });
        // As with the other settings, to repeat it is to try one more.
        if (known == all.end()) {
            all.emplace_back(name, values);
        } else {
            known->second.insert(known->second.end(), values.begin(), values.end());
        }
    };
    addValue(
        command, "--policy-option", addParameter,
        "Give best-shot and the files' policies a parameter, or try one value after another; may "
        "be repeated",
        "NAME=VALUE[,VALUE...]", true);
    addParsed(
        command, "--offset", plan.offsetsMs, oneOfSeveral(parseMilliseconds),
        "How long before the press the wanted instant lies (ZSL offset), whole ms; may be repeated",
        "T");
    auto const addCounts = [&command](std::string const& name, std::vector<size_t>& counts,
                                      size_t usual, int64_t max, std::string const& help) {
        auto const parse = [max](std::string const& text) {
            return static_cast<size_t>(parseWholeNumber(text, 1, max));
        };
        addParsed(command, name, counts, oneOfSeveral(parse),
                  fmt::format("{} [default: {}]; may be repeated", help, usual), "N");
    };
    addCounts("--frames", plan.framesPerCapture, plan.common.framesPerCapture, kMaxFramesPerCapture,
              "Frames of each capture");
    addCounts("--history", plan.history, plan.common.history, kMaxHistory,
              "Frames that the history keeps");
}

void addRunOptions(CLI::App& command, compare::ChildPoolOptions& pool) {
    command.option_defaults()->group("Runs");
    pool.jobs = std::max(1U, std::thread::hardware_concurrency());
    addParsed(
        command, "--jobs", pool.jobs,
        [](std::string const& text) {
            return static_cast<size_t>(parseWholeNumber(text, 1, kMaxJobs));
        },
        "Runs at once [default: one for each core]", "N");
    addParsed(command, "--time-limit", pool.timeLimit, parseTimeLimit,
              "Give a run up after this long [default: 600s]", "T");
}

void addResultOptions(CLI::App& command, CompareArguments& arguments) {
    command.option_defaults()->group(kResults);
    addLimitOption(command, arguments.plan.limits);
    addJson(command, arguments.json, "Write JSON, - for standard output instead of the table");
    addParsed(command, "--csv", arguments.csv, parseOutput,
              "Write CSV, - for standard output instead of the table", "FILE");
    addParsed(command, "--markdown", arguments.markdown, parseOutput,
              "Write Markdown for a pull request, - for standard output instead of the table",
              "FILE");
    addReportOption(command, arguments.report);
    addReportOption(
        command, arguments.reports, "--reports",
        "Write a page for each run into this folder; the page of --report links to them")
        ->type_name("FOLDER");
    addFile(command, "--baseline", arguments.baseline,
            "Tell what changed since this file of --json; exit with 1 if something got worse");
    addParsed(
        command, "--tolerance", arguments.tolerances,
        [](std::string const& text) { return compare::Tolerance(text); },
        "By how much a field may be worse than the baseline's, as 5%, p95_wait_ms=2 or "
        "p95_wait_ms=5%; may be repeated",
        "[FIELD=]N[%]");
}

}  // namespace

void addCompareCommand(CLI::App& app, CliStreams const& streams, int& exitStatus) {
    auto const arguments = std::make_shared<CompareArguments>();
    CLI::App* const command = app.add_subcommand(
        "compare", "Replay recordings under several policies and settings and compare the results");
    command->add_option("RECORDING", arguments->plan.recordings, "CSV files or videos")
        ->required()
        ->check(isNamed)
        ->type_name("FILE");
    addSettings(*command, arguments->plan);
    addInputOptions(*command, arguments->plan.common.input);
    addVideoOptions(*command, arguments->plan.videos, arguments->isCacheOff);
    addPressOptions(*command, arguments->plan.common);
    addCaptureOptions(*command, arguments->plan.common);
    addPipelineOptions(*command, arguments->plan.common);
    addRunOptions(*command, arguments->pool);
    addResultOptions(*command, *arguments);
    command->callback([command, arguments, &streams, &exitStatus] {
        exitStatus = runCompare(*command, *arguments, streams);
    });
}

}  // namespace zebcam::tool::commands
