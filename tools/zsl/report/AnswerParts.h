#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "log/Explanation.h"
#include "pipeline/CaptureRecord.h"
#include "pipeline/Schedule.h"
#include "recording/Recording.h"
#include "run/ReplayResult.h"

/// Words and facts that the answers to "why" are made of.
namespace zebcam::tool::report {

/// `20.7 ms`.
std::string briefTime(int64_t ns);

/// a - b; 0 when that or its absolute value does not fit, for a log may tell any number as an
/// instant.
int64_t difference(int64_t a, int64_t b);

/// `33 ms before the press`; `to` is what is told about, for instance `the press`.
std::string relative(int64_t ns, std::string_view to);

/// `F3`, `F3 and F5`, or `F3 to F9` where none is left out. Not of nothing.
std::string namesOf(std::set<uint64_t> const& numbers, std::string_view letter = "F");

/// A refused frame by its number.
using Refused = std::map<uint32_t, log::Candidate const*>;

/// `2 for time (exposed before ...) and 1 for exposure (...)`, the most frequent first.
std::string reasonsText(Refused const& refused);

/// Name of the policy that was asked, as far as the log tells it.
std::string selectorOf(log::CaptureExplanation const& reasons);

/// Why a policy of that name took the frames: `F3 was taken because ...`. `wanted` is the instant
/// that they were held against; `endsAtFirst`: the last of them is the first from there on.
std::string choiceText(std::set<uint64_t> const& frames, std::string const& selector,
                       std::string const& wanted, bool endsAtFirst);

/// Why the frame at `index` of a capture became an ordinary capture in a try; null: the log tells
/// nothing of it.
std::string withoutHistoryText(log::TryExplanation const* attempt, uint64_t index,
                               std::string const& selector);

/// What the frames lacked that the history had in the first `tries` tries, by the last that was
/// said of each.
std::string lackText(pipeline::CaptureRecord const& capture, log::CaptureExplanation const& reasons,
                     size_t tries = SIZE_MAX);

/// The frames of a replay by number, with the times of their way to the history and who took them.
/// Recording and result are borrowed.
class ReplayFrames {
public:
    ReplayFrames(recording::Recording const& recording, run::ReplayResult const& result);

    std::vector<recording::SensorFrame> const& all() const { return mRecording.frames; }
    std::optional<size_t> find(uint32_t frameNo) const;

    /// When the frame at a position of all() came into the history. None: it never did, or nobody
    /// knows: of a device only offers are known.
    std::optional<int64_t> arrivalNs(size_t position) const;
    /// The frame that arrived at an instant, if one did.
    std::optional<uint32_t> arrivedAt(int64_t timeNs) const;
    /// The capture that was pressed at an instant, if one was.
    std::optional<uint32_t> pressedAt(int64_t timeNs) const;
    /// Of one that arrived: `64 ms later (10 ms exposure, 20.7 ms readout, 33.3 ms delivery)`.
    std::string wayText(size_t position) const;

    struct Taker {
        uint32_t requestNo = 0;
        int64_t timeNs = 0;
    };

    /// The first capture that got the frame, and when.
    std::optional<Taker> taker(uint32_t frameNo) const;

private:
    recording::Recording const& mRecording;
    run::ReplayResult const& mResult;
    std::vector<pipeline::FrameTimes> mTimes;
    std::map<int64_t, uint32_t> mArrived;  ///< frame numbers by time
    std::map<int64_t, uint32_t> mPressed;  ///< captures by time
    std::map<uint32_t, Taker> mTakers;     ///< by frame number
};

}  // namespace zebcam::tool::report
