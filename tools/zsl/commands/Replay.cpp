#include <fmt/format.h>
#include <ulog/ULogger.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "base/AtomicFile.h"
#include "base/InputError.h"
#include "base/InputFile.h"
#include "base/SignalWatch.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "commands/OptionValues.h"
#include "compare/ComparisonFields.h"
#include "device/DeviceRecordingReader.h"
#include "log/Explainer.h"
#include "log/Logcat.h"
#include "picture/Footage.h"
#include "pipeline/ProcessorLog.h"
#include "recording/Recording.h"
#include "report/Reports.h"
#include "run/DeviceReplay.h"
#include "run/ProcessorSections.h"
#include "run/Replay.h"

namespace zebcam::tool::commands {

namespace {

constexpr int kSignalled = 128;           // and the signal, as shells have it
constexpr size_t kLongRecording = 2'000;  // what is shorter is done before anybody looks

struct ReplayArguments {
    std::string recording;
    std::optional<std::string> json;
    std::optional<std::string> trace;
    std::optional<std::string> report;
    std::optional<std::string> pictures;
    bool explain = false;
    std::vector<compare::Limit> limits;
    std::chrono::nanoseconds policyLimit = pipeline::PolicyWatch::DEFAULT_LIMIT;
    std::vector<uint32_t> requests;
    bool isVerbose = false;
    bool isCacheOff = false;
    pipeline::ReplayOptions options;

    /// To name a capture, or to ask for more, is to ask for the reasons.
    bool isExplaining() const { return explain || isVerbose || !requests.empty(); }
    /// Whether somebody is going to look at pictures.
    bool isShowing() const { return pictures || report; }
};

/// Listens to a replay for what goes beyond its result: the log for people, the reasons of every
/// decision, and what a trace shows. What was not asked for costs nothing and stays empty.
class Observer {
public:
    /// `signals`, where not null, end the replay by an exception.
    Observer(ReplayArguments const& arguments, CliStreams const& streams,
             base::SignalWatch const* signals)
        : mShownLevel(arguments.options.logLevel),
          mErr(streams.err),
          mSignals(signals),
          mProgress(std::in_place, streams.err, streams.showProgress, "frames",
                    arguments.isShowing() ? 0 : kLongRecording),
          mWantsReasons(arguments.isExplaining() || arguments.json || arguments.trace ||
                        arguments.report || !arguments.limits.empty()) {
        if (arguments.trace) {
            mRecorder.emplace();
        }
    }

    /// The log level that it needs: the reasons stand in debug lines.
    uint32_t logLevel() const {
        return mWantsReasons ? static_cast<uint32_t>(NSCam::Utils::ULog::LOG_LEVEL_DEBUG)
                             : mShownLevel;
    }

    /// Throws Interrupted if a signal has come.
    void check() const {
        if (mSignals != nullptr) {
            mSignals->throwIfAny();
        }
    }

    run::ReplayListener listener() {
        run::ReplayListener listener;
        listener.progress = [this](size_t frames, size_t total) {
            check();
            (*mProgress)(frames, total);
        };
        if (logLevel() > 0) {
            listener.log = [this](int64_t timeNs, host::LogLine const& line) {
                onLog(timeNs, line);
            };
        }
        if (mWantsReasons) {
            listener.isRepeat = [this](uint32_t requestNo, bool evenIfUnlike) {
                return mExplainer.foldRepeat(requestNo, evenIfUnlike);
            };
        }
        if (mWantsReasons && mShownLevel == 0) {
            listener.skipRepeat = [this](uint32_t requestNo, int64_t ageMs) {
                mExplainer.skipRepeat(requestNo, ageMs);
            };
        }
        if (mRecorder) {
            listener.occupancy = &mOccupancy;
        }
        return listener;
    }

    /// Ends the observation, before anything else is printed.
    void finish() {
        mProgress.reset();  // its line is wiped
        if (mWantsReasons) {
            mExplanation = mExplainer.finish();
        }
        if (mRecorder) {
            mSections = mRecorder->finish();
            mRecorder.reset();
        }
    }

    log::Explanation const* explanation() const { return mExplanation ? &*mExplanation : nullptr; }
    std::vector<run::OccupancySample> const& occupancy() const { return mOccupancy; }
    std::vector<run::ProcessorSection> const& sections() const { return mSections; }

private:
    void onLog(int64_t timeNs, host::LogLine const& line) {
        log::LogRecord const record = log::fromLogLine(line);
        if (pipeline::logLevelOf(line) <= mShownLevel) {
            mErr << log::toThreadtime(record, timeNs);
        }
        // Of both outputs: libraries' policies and the provider write to the Android log only.
        if (mWantsReasons) {
            mExplainer.feed(record);
        }
    }

    uint32_t const mShownLevel;
    std::ostream& mErr;
    base::SignalWatch const* const mSignals;
    std::optional<Progress> mProgress;
    bool const mWantsReasons;
    log::Explainer mExplainer;
    std::optional<log::Explanation> mExplanation;
    std::vector<run::OccupancySample> mOccupancy;
    std::optional<run::SectionRecorder> mRecorder;
    std::vector<run::ProcessorSection> mSections;
};

/// Throws CLI::ValidationError for an option whose value a device's recording fixes.
void requireNoFixedOption(CLI::App const& command, std::string const& path) {
    // What is only looked at or written; everything else was decided on the device.
    constexpr std::array kFree{"--log",   "--json",   "--explain", "--request", "--verbose",
                               "--trace", "--report", "--fail-if", "--help"};
    for (CLI::Option const* const option : command.get_options()) {
        std::string const name = option->get_name();
        if (option->count() > 0 && !option->get_positional() &&
            std::find(kFree.begin(), kFree.end(), name) == kFree.end()) {
            throw CLI::ValidationError(
                name, fmt::format("{} is a recording of a device, which fixes this", path));
        }
    }
}

/// What came of a replay, and the frames that were in it. The observation has ended. `folder` is
/// for pictures; null: nobody wants files of them. Throws OutlineError as Footage does.
std::pair<recording::Recording, run::ReplayResult> replayFile(
    CLI::App const& command, ReplayArguments const& arguments, base::AtomicFolder const* folder,
    bool trustsOutline, Observer& observer, CliStreams const& streams) {
    pipeline::ReplayOptions options = arguments.options;
    options.logLevel = observer.logLevel();
    // By its first bytes: people rename files.
    base::InputFile file(arguments.recording);
    if (record::hasMagic(file.start())) {
        requireNoFixedOption(command, file.name());
        device::DeviceRecording const recording =
            device::readDeviceRecording(file.stream(), file.name());
        run::DeviceReplayResult replayed =
            run::replayDevice(recording, options.logLevel, observer.listener());
        observer.finish();
        return {std::move(replayed.frames), std::move(replayed.replay)};
    }
    picture::Footage footage(
        file, options.input, {!arguments.isCacheOff, trustsOutline && arguments.isShowing()},
        [&](picture::VideoFile& video) {
            return measureShowing(video, streams, [&observer] { observer.check(); });
        });
    recording::Recording& recording = footage.recording();
    if (arguments.pictures && !footage.hasVideo()) {
        throw base::InputError(fmt::format(
            "--pictures {}: expected a recording with pictures (--video), found {} alone",
            *arguments.pictures, recording.path));
    }
    run::ReplayListener listener = observer.listener();
    if (arguments.isShowing() && footage.hasVideo()) {
        listener.pictures = {footage.show(), folder, arguments.report.has_value()};
    }
    run::ReplayResult result = run::replay(recording, options, listener);
    footage.finish();
    observer.finish();
    if (arguments.isExplaining() || arguments.json || arguments.report) {
        run::addDefaultOutcomes(recording, result);
    }
    return {std::move(recording), std::move(result)};
}

/// Whether all that is read could be read once more, and nothing has been told when it is.
bool mayStartAgain(ReplayArguments const& arguments) {
    std::error_code ignored;
    auto const isFile = [&](std::string const& path) {
        return std::filesystem::is_regular_file(path, ignored);
    };
    return isFile(arguments.recording) &&
           isFile(arguments.options.input.video.value_or(arguments.recording)) &&
           arguments.options.logLevel == 0;
}

/// Throws CLI::ValidationError for a number that no capture has.
void requireCaptures(std::vector<uint32_t> const& requests,
                     std::vector<pipeline::CaptureRecord> const& captures) {
    auto const byNumber = [](auto const& a, auto const& b) { return a.requestNo < b.requestNo; };
    for (uint32_t const requestNo : requests) {
        auto const [least, most] = std::minmax_element(captures.begin(), captures.end(), byNumber);
        bool const isThere = std::any_of(
            captures.begin(), captures.end(),
            [requestNo](auto const& capture) { return capture.requestNo == requestNo; });
        if (!isThere) {
            throw CLI::ValidationError(
                "--request", captures.empty()
                                 ? "there is no capture"
                                 : fmt::format("there is no capture {}: they are numbered {} to {}",
                                               requestNo, least->requestNo, most->requestNo));
        }
    }
}

/// Throws CLI::ValidationError for more captures than a trace can show in 1 GB of memory: it has
/// each try of each, and their number grows with the square of the captures.
void requireTraceable(pipeline::ReplayOptions const& options) {
    constexpr size_t kMostTraced = 3'000;  // some 500 MB
    size_t const pressed = options.pressesNs.size() + options.pressBootTimesNs.size();
    size_t const captures = pressed > 0 ? pressed : options.captures;
    if (captures > kMostTraced) {
        throw CLI::ValidationError(
            "--trace",
            fmt::format("expected at most {} captures, found {}; more may take more than "
                        "1 GB of memory",
                        kMostTraced, captures));
    }
}

int runReplay(CLI::App const& command, ReplayArguments const& arguments,
              CliStreams const& streams) {
    requireConsistent(command, arguments.options, {&arguments.options.policy, 1},
                      arguments.options.offsetMs.has_value());
    requireOwnFiles(
        {{"--json", arguments.json}, {"--trace", arguments.trace}, {"--report", arguments.report}},
        {arguments.recording, arguments.options.input.video.value_or("")});
    if (arguments.trace) {
        requireTraceable(arguments.options);
    }
    // Before the replay, so that a path that cannot be written is told at once.
    base::ResultFile json(arguments.json, streams.out);
    base::ResultFile trace(arguments.trace, streams.out);
    base::ResultFile report(arguments.report, streams.out);
    std::optional<base::SignalWatch> signals;
    std::optional<base::AtomicFolder> pictures;
    if (arguments.pictures) {
        // A signal must not end the program while the folder is half made.
        signals.emplace();
        pictures.emplace(*arguments.pictures);
    }

    auto const watch = watchPolicy("zsl replay", arguments.options.policy, arguments.policyLimit);
    std::optional<Observer> observer;
    auto const replay = [&](bool trustsOutline) {
        observer.emplace(arguments, streams, signals ? &*signals : nullptr);
        return replayFile(command, arguments, pictures ? &*pictures : nullptr, trustsOutline,
                          *observer, streams);
    };
    // Not as a structured binding, which clang 14 does not let lambdas capture.
    auto replayed = [&] {
        try {
            return replay(mayStartAgain(arguments));
        } catch (picture::OutlineError const&) {
            return replay(false);
        }
    }();
    recording::Recording const& recording = replayed.first;
    run::ReplayResult& result = replayed.second;
    log::Explanation const* const reasons = observer->explanation();
    requireCaptures(arguments.requests, result.captures);
    for (compare::Limit const& limit : arguments.limits) {
        result.limits.push_back(
            limit.check(compare::numbersOf(result, compare::countRefusals(*reasons))));
    }

    if (pictures) {
        pictures->commit(result.pictureFiles);
    }
    json.put([&](std::ostream& out) {
        report::writeJson(recording, result, reasons, streams.provenance, out);
    });
    trace.put([&](std::ostream& out) {
        report::writeTrace({recording, result, reasons, observer->occupancy(), observer->sections(),
                            streams.provenance},
                           out);
    });
    report.put([&](std::ostream& out) {
        report::writeHtmlReport(recording, result, reasons, streams.provenance, out);
    });
    if (!json.isStandard()) {
        streams.out << report::textReport(
            recording, result, arguments.isExplaining() ? reasons : nullptr,
            {streams.outStyle, arguments.isVerbose, {}, arguments.requests});
    }
    return result.isClean() ? 0 : 1;
}

}  // namespace

void addReplayCommand(CLI::App& app, CliStreams const& streams, int& exitStatus) {
    auto const arguments = std::make_shared<ReplayArguments>();
    CLI::App* const command = app.add_subcommand(
        "replay", "Replay a recording, press the button and tell which frames the captures get");
    command
        ->add_option("RECORDING", arguments->recording,
                     "CSV file or video, - for standard input, or a recording of a device")
        ->required()
        ->check(isNamed)
        ->type_name("FILE");
    addInputOptions(*command, arguments->options.input);
    addVideoOptions(*command, arguments->options.input.video, arguments->isCacheOff);
    addPressOptions(*command, arguments->options);
    addServiceOptions(*command, arguments->options);
    addParsed(*command, "--flush-at", arguments->options.flushesNs, base::parseDuration,
              "Flush this long after the first frame; may be repeated", "T");
    addParsed(*command, "--dump-at", arguments->options.dumpsNs, base::parseDuration,
              "Print what every debuggee tells then; may be repeated", "T");
    addCaptureOptions(*command, arguments->options);
    addPipelineOptions(*command, arguments->options);
    addPolicyLimit(*command, arguments->policyLimit);
    addFaultOptions(*command, arguments->options.faults);
    addLogOption(*command, arguments->options);
    addJson(*command, arguments->json);
    addFlag(*command, "--explain", arguments->explain,
            "Tell for each try which history frames were taken or refused, and why");
    addRequests(*command, arguments->requests,
                "Tell the reasons of this capture only; may be repeated");
    addFlag(*command, "-v,--verbose", arguments->isVerbose,
            "Tell each try and frame of the reasons on its own, with times in ns");
    addFile(*command, "--trace", arguments->trace, "Write a trace for ui.perfetto.dev");
    addReportOption(*command, arguments->report);
    addFile(*command, "--pictures", arguments->pictures,
            "Write the pictures of the chosen frames and of the presses into this folder, as JPEG")
        ->type_name("FOLDER");
    addLimitOption(*command, arguments->limits);
    command->callback([command, arguments, &streams, &exitStatus] {
        try {
            exitStatus = runReplay(*command, *arguments, streams);
        } catch (base::Interrupted const& interrupted) {
            exitStatus = kSignalled + interrupted.signal();
        }
    });
}

}  // namespace zebcam::tool::commands
