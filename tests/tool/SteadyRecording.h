#pragma once

#include <host/LogCapture.h>

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "log/Explainer.h"
#include "log/Logcat.h"
#include "recording/Recording.h"
#include "run/Replay.h"

namespace zebcam::tool {

constexpr int64_t MS = 1'000'000;
constexpr int64_t START = 5'000'000 * MS + 1;  ///< of the first frame

/// Frames 1, 2, ... at an interval, which arrive that and 30 ms after their start.
inline recording::Recording steadyRecording(uint32_t frames = 60, int64_t intervalMs = 100) {
    recording::Recording recording{"not UTF-8: \xff", {}, {}, intervalMs * MS};
    for (uint32_t i = 0; i < frames; ++i) {
        recording::SensorFrame frame;
        frame.frameNo = i + 1;
        frame.timestampNs = START + i * intervalMs * MS;
        frame.exposureNs = 10 * MS;
        frame.readoutNs = 20 * MS;
        frame.durationNs = intervalMs * MS;
        frame.afMode = frame.afState = frame.lensState = uint8_t{0};
        frame.sensorId = frame.sensorMode = 0;
        frame.aeStable = 1;
        recording.frames.push_back(frame);
    }
    return recording;
}

inline std::string steadyFile(std::string const& path, uint32_t frames) {
    recording::writeRecording(steadyRecording(frames), path);
    return path;
}

inline pipeline::ReplayOptions pressing(std::vector<int64_t> const& timesMs, size_t frames = 1) {
    pipeline::ReplayOptions options;
    for (int64_t const ms : timesMs) {
        options.pressesNs.push_back(ms * MS);
    }
    options.framesPerCapture = frames;
    return options;
}

template <typename Change>
pipeline::ReplayOptions with(pipeline::ReplayOptions options, Change change) {
    change(options);
    return options;
}

/// A listener's log that goes to an explainer.
inline std::function<void(int64_t, host::LogLine const&)> feeding(log::Explainer& explainer) {
    return [&explainer](int64_t, host::LogLine const& line) {
        if (line.output == host::LogLine::Output::Camera) {
            explainer.feed(log::fromLogLine(line));
        }
    };
}

/// `<frame>: F<history frame> <lag> <wait> <served>` in ms for each frame of each capture.
inline std::string outcomesOf(run::ReplayResult const& result) {
    std::ostringstream text;
    for (pipeline::CaptureRecord const& capture : result.captures) {
        for (pipeline::FrameOutcome const& frame : capture.frames) {
            text << (text.tellp() > 0 ? ", " : "");
            if (frame.historyFrame) {
                text << 'F' << *frame.historyFrame << ' ' << *capture.lagNs(frame) / MS << ' ';
            }
            text << capture.waitNs(frame).value_or(-1) / MS << ' ' << toString(frame.served);
        }
    }
    return text.str();
}

}  // namespace zebcam::tool
