#include "compare/Comparison.h"

#include <ulog/ULogger.h>

#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

#include "log/Explainer.h"
#include "log/Logcat.h"
#include "recording/Recording.h"
#include "run/Replay.h"

namespace zebcam::tool::compare {

namespace {

constexpr char kEndOfProblem = '\0';

std::vector<ComparisonRow> rowsOf(ComparisonPlan const& plan) {
    std::vector<ComparisonRow> rows;
    rows.reserve(plan.recordings.size() * plan.settings());
    for (std::string const& recording : plan.recordings) {
        for (pipeline::PolicyOption const& policy : plan.policies) {
            for (std::optional<int64_t> const& offsetMs : plan.offsetsMs) {
                for (size_t const frames : plan.framesPerCapture) {
                    for (size_t const history : plan.history) {
                        ComparisonRow& row = rows.emplace_back();
                        row.recording = recording;
                        row.options = plan.common;
                        row.options.policy = policy;
                        row.options.offsetMs = offsetMs;
                        row.options.framesPerCapture = frames;
                        row.options.history = history;
                    }
                }
            }
        }
    }
    return rows;
}

/// The result on its way between two processes of the same program: a child is forked, so that both
/// lay out the numbers alike and the bytes will do.
std::string pack(RunNumbers const& numbers, std::vector<std::string> const& problems) {
    static_assert(std::is_trivially_copyable_v<RunNumbers>);
    std::string data(reinterpret_cast<char const*>(&numbers), sizeof numbers);
    for (std::string const& problem : problems) {
        data += problem + kEndOfProblem;
    }
    return data;
}

void unpack(std::string_view data, ComparisonRow& row) {
    std::memcpy(&row.numbers.emplace(), data.data(), sizeof(RunNumbers));
    data.remove_prefix(sizeof(RunNumbers));
    while (!data.empty()) {
        // It is there: pack() ends every problem with one.
        size_t const end = data.find(kEndOfProblem);
        row.problems.emplace_back(data.substr(0, end));
        data.remove_prefix(end + 1);
    }
}

std::string runOne(ComparisonRow const& row) {
    // Read in the child: a file that breaks off is a failure of its rows and of no other.
    recording::Recording const recording =
        recording::readRecording(row.recording, row.options.input);
    pipeline::ReplayOptions options = row.options;
    // Debug lines add the values that were found, which nobody counts.
    options.logLevel = NSCam::Utils::ULog::LOG_LEVEL_INFO;
    log::Explainer explainer;
    run::ReplayListener listener;
    listener.log = [&explainer](int64_t, host::LogLine const& line) {
        // Some lines go to both outputs.
        if (line.output == host::LogLine::Output::Camera) {
            explainer.feed(log::fromLogLine(line));
        }
    };
    run::ReplayResult const result = run::replay(recording, options, listener);
    return pack(numbersOf(result, countRefusals(explainer.finish())), problemsOf(result));
}

void judge(ComparisonRow& row, std::vector<Limit> const& limits) {
    for (Limit const& limit : limits) {
        if (auto broken = limit.brokenBy(*row.numbers)) {
            row.broken.push_back(std::move(*broken));
        }
    }
}

}  // namespace

std::optional<int64_t> ComparisonRow::offsetMs() const {
    return numbers ? numbers->offsetMs : options.offsetMs;
}

char const* ComparisonRow::status() const {
    if (!numbers) {
        return "failed";
    }
    if (!problems.empty()) {
        return "problem";
    }
    return broken.empty() ? "ok" : "limit";
}

std::vector<ComparisonRow> compare(ComparisonPlan const& plan, ChildPoolOptions const& pool,
                                   base::SignalWatch const& signals,
                                   std::function<void(size_t, size_t)> const& progress) {
    std::vector<ComparisonRow> rows = rowsOf(plan);
    size_t ended = 0;
    auto const onEnd = [&](size_t task, ChildOutcome const& outcome) {
        ComparisonRow& row = rows[task];
        // The row of a run that failed stays, without numbers: nothing may be left out in silence.
        if (outcome.failure.empty()) {
            unpack(outcome.data, row);
            judge(row, plan.limits);
        } else {
            row.problems.push_back(outcome.failure);
        }
        if (progress) {
            progress(++ended, rows.size());
        }
    };
    if (progress) {
        // Somebody who looks should see at once how much there is to do.
        progress(0, rows.size());
    }
    runInChildren(
        rows.size(), pool, signals, [&rows](size_t task) { return runOne(rows[task]); }, onEnd);
    return rows;
}

}  // namespace zebcam::tool::compare
