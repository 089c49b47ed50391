#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "base/Provenance.h"
#include "base/TextStyle.h"
#include "picture/MeasuredVideo.h"

namespace CLI {
class App;
}

namespace zebcam::tool::commands {

/// Where a command's text goes, and how it is set there.
struct CliStreams {
    std::ostream& out;
    std::ostream& err;
    bool showProgress = false;  ///< `err` is a terminal that somebody looks at
    base::TextStyle outStyle{};
    base::TextStyle errStyle{};
    base::Provenance provenance = {};  ///< runCli fills it in
};

/// Exit status for arguments and input that are no good.
inline constexpr int kBadInput = 2;
/// And the signal, as shells have it, of a command that one ended.
inline constexpr int kSignalStatus = 128;

// Of the commands that run in real time.
inline constexpr int kPollMs = 20;              ///< how late a line or the end may be
inline constexpr size_t kLogBytes = 8U << 20U;  ///< seconds of debug lines, at a stopped terminal
inline constexpr std::chrono::seconds kPatience(1);  ///< for a reader who is slow but not gone

/// How far a long work is, and how long it will still take, on one line of a terminal that is wiped
/// at the end. Silent while nobody looks, and for less than `leastTotal` items, which are done
/// before anybody could read.
class Progress {
public:
    Progress(std::ostream& err, bool isOn, char const* items, size_t leastTotal = 0)
        : mErr(err), mIsOn(isOn), mItems(items), mLeastTotal(leastTotal) {}
    ~Progress();
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    void operator()(size_t done, size_t total);

private:
    std::ostream& mErr;
    bool const mIsOn;
    char const* const mItems;
    size_t const mLeastTotal;
    /// Of the first item that was told of: what comes before them, as reading a file, is no
    /// measure.
    std::chrono::steady_clock::time_point mStart;
    size_t mFirst = 0;
    std::optional<size_t> mShown;
};

/// Measures `video`, and shows how far it is. `check` is called after each picture and may throw,
/// for somebody who wants it to end.
picture::MeasuredVideo measureShowing(picture::VideoFile& video, CliStreams const& streams,
                                      std::function<void()> const& check = {});

/// Does so with the videos that it is given. With the cache each is decoded once only.
picture::Measure pictureMeasurer(CliStreams const& streams, bool usesCache,
                                 std::function<void()> check = {});

/// Each adds a command to `app`. When parsing meets the command, it runs and sets `exitStatus`; bad
/// input leaves the parsing as an exception whose text says what was expected and found. `streams`
/// and `exitStatus` must outlive `app`'s parsing.

/// `camera`, runs the pipeline with a camera's pictures: as `live`, and 1 too when the camera broke
/// off; 128 and the signal when one came before the first picture.
void addCameraCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// `compare`, replays recordings under several settings: 0 when all runs are in order and within
/// the limits, else 1; 128 and the signal when one ended it.
void addCompareCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// `explain`, tells from a log why each capture got what it got: 0, or 1 after a message when the
/// log has nothing to explain.
void addExplainCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// `generate`, writes a made-up recording: 0.
void addGenerateCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// `list`, tells the names that options know: 0.
void addListCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// What `list` can list.
std::vector<std::string> topicNames();

/// `write-manual`, which help does not tell of, for it serves the build alone: man pages and
/// shells' completions, all from the commands and options of `app`.
void addManualCommand(CLI::App& app);

/// `live`, runs the pipeline in real time: 0 when every capture was answered and the ledger
/// balances, else 1.
void addLiveCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// `replay`, replays a recording: 0 when every capture was answered and the ledger balances, or all
/// decisions are the device's; else 1.
void addReplayCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// For the operator that allocates memory, when there is none left (std::set_new_handler): says so
/// in a line, removes the temporary files, and ends the program with kBadInput. An exception would
/// have to come through the processor, whose listeners must not throw.
[[noreturn]] void endForWantOfMemory();

/// The `zsl` command line. Gives the exit status: 0 when all is well, 1 when a command found
/// something wrong, 2 for arguments or input that are no good (with one line on `err` that says
/// what, and nothing on `out`).
int runCli(int argc, char const* const* argv, CliStreams const& streams);

}  // namespace zebcam::tool::commands
