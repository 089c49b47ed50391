#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "pipeline/ReplayOptions.h"
#include "recording/Recording.h"

namespace zebcam::tool::pipeline {

/// How a frame of a capture came back from the processor.
enum class Served {
    Unanswered,  ///< it never did
    AtOnce,      ///< chosen when the capture was submitted
    Waited,      ///< chosen on a retry
    TimedOut,    ///< given whatever was there, the capture having waited too long
    Flushed,     ///< turned into an ordinary capture
};

constexpr char const* toString(Served served) {
    switch (served) {
        case Served::AtOnce:
            return "at once";
        case Served::Waited:
            return "waited";
        case Served::TimedOut:
            return "timed out";
        case Served::Flushed:
            return "flushed";
        case Served::Unanswered:
            break;
    }
    return "unanswered";
}

/// The age of a capture as the processor decides by it, from the wall clock's ns: it counts whole
/// microseconds, and whole milliseconds of those.
constexpr int64_t ageMs(int64_t pressWallNs, int64_t nowWallNs) {
    return (nowWallNs / 1'000 - pressWallNs / 1'000) / 1'000;
}

/// One attempt of the processor to serve a capture: what it was offered and what it built.
struct TryRecord {
    int64_t timeNs = 0;  ///< boot time
    int64_t ageMs = 0;   ///< of the capture
    bool isRetry = false;
    std::vector<uint32_t> historyFrames;   ///< frame numbers offered by the provider, ascending
    std::vector<uint32_t> inFlightFrames;  ///< frame numbers on their way to the history
    std::vector<uint32_t> lockedFrames;    ///< frame numbers that policies have kept locked
    std::vector<size_t> builtFrames;       ///< indices of the capture's frames that came back
    FaultSet faults;                       ///< that were injected into it
    /// Tries right after it that came to the same, and the boot time of the last of them: only what
    /// was in flight may have changed.
    size_t repeats = 0;
    std::optional<int64_t> lastRepeatNs;
};

/// What became of one frame of a capture. Times are boot times.
struct FrameOutcome {
    Served served = Served::Unanswered;
    std::optional<size_t> tryIndex;        ///< in `tries`; none when flushed or unanswered
    std::optional<int64_t> answeredNs;     ///< when the processor returned the frame builder
    std::optional<uint32_t> historyFrame;  ///< frame number; none: an ordinary capture
    std::optional<int64_t> timestampNs;    ///< start of exposure of the history frame
    std::optional<int64_t> resultNs;       ///< when the result came back
    /// Sensor timestamp that the application saw in the result; none when it was removed.
    std::optional<int64_t> reportedNs;
    std::optional<recording::SensorFrame> chosen{};  ///< what the sensor told of the history frame
    /// Sharpness of its picture by that of the sharpest in the history when it was chosen.
    std::optional<double> sharpnessShare{};
    /// Where its picture was written, of the buffer that the frame builder got.
    std::optional<std::string> pictureFile{};

    /// A policy chose a history frame for it, which it got.
    bool isChosen() const {
        return historyFrame && (served == Served::AtOnce || served == Served::Waited);
    }
};

/// One capture from the press to its results.
struct CaptureRecord {
    uint32_t requestNo = 0;
    int64_t pressNs = 0;                       ///< boot time
    std::map<uint32_t, uint32_t> sensorModes;  ///< required, by sensor id
    std::optional<int64_t> earlyShutterNs;     ///< timestamp of the early shutter, if one was sent
    /// Number of the frame that was being exposed at the press, or else of the last one before it.
    std::optional<uint32_t> pressFrame{};
    std::optional<std::string> pressPictureFile{};  ///< where its picture was written
    std::vector<FrameOutcome> frames;               ///< by index
    std::vector<TryRecord> tries;
    FaultSet faults;  ///< that were injected into it and its tries

    /// Repeats, too.
    size_t tryCount() const {
        return std::accumulate(
            tries.begin(), tries.end(), tries.size(),
            [](size_t count, TryRecord const& attempt) { return count + attempt.repeats; });
    }
    bool isAnswered() const {
        return std::none_of(frames.begin(), frames.end(), [](FrameOutcome const& frame) {
            return frame.served == Served::Unanswered;
        });
    }
    /// From the press to the start of exposure, ns; negative: exposed before the press.
    std::optional<int64_t> lagNs(FrameOutcome const& frame) const {
        return frame.timestampNs ? std::optional(*frame.timestampNs - pressNs) : std::nullopt;
    }
    /// From the press to the answer, ns.
    std::optional<int64_t> waitNs(FrameOutcome const& frame) const {
        return frame.answeredNs ? std::optional(*frame.answeredNs - pressNs) : std::nullopt;
    }
};

}  // namespace zebcam::tool::pipeline
