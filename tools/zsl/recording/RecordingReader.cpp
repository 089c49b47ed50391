#include "recording/RecordingReader.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "recording/CsvLines.h"
#include "recording/RecordingFacts.h"
#include "recording/RecordingHeader.h"
#include "recording/RecordingRow.h"

namespace zebcam::tool {
namespace {

constexpr uint8_t kLensStationary = 0;
constexpr uint8_t kLensMoving = 1;

// One lens position is as good as another where either is unknown.
void deriveLensStates(std::vector<SensorFrame>& frames) {
    for (size_t i = 0; i < frames.size(); ++i) {
        bool const known =
            i > 0 && frames[i].focusDistance.has_value() && frames[i - 1].focusDistance.has_value();
        bool const moved = known && *frames[i].focusDistance != *frames[i - 1].focusDistance;
        frames[i].lensState = moved ? kLensMoving : kLensStationary;
    }
}

// A sensor reads a frame out while it exposes the next, all within the frame duration.
void fillInTimes(std::vector<SensorFrame>& frames, int64_t medianInterval) {
    for (SensorFrame& frame : frames) {
        if (frame.durationNs == kUnknownTime) {
            frame.durationNs = medianInterval;
        }
        if (frame.readoutNs == kUnknownTime) {
            frame.readoutNs = std::max<int64_t>(frame.durationNs - frame.exposureNs, 0);
        }
    }
}

std::vector<std::string> notesOf(RecordingHeader const& header) {
    std::vector<std::string> notes;
    if (!header.unknown().empty()) {
        notes.push_back(
            fmt::format("unknown columns are ignored: {}", fmt::join(header.unknown(), ", ")));
    }
    if (!header.missing().empty()) {
        notes.push_back(fmt::format("missing columns get their defaults: {}",
                                    fmt::join(header.missing(), ", ")));
    }
    return notes;
}

std::string systemReason() {
    return std::strerror(errno);
}

}  // namespace

Recording readRecording(std::istream& in, std::string const& name) {
    CsvLines lines(in, name);
    std::vector<std::string> cells;
    if (!lines.next(cells)) {
        throw RecordingError({name, 0, {}}, "a header line", "an empty file");
    }
    RecordingHeader const header(cells, {name, lines.line(), {}});
    Recording recording{name, {}, notesOf(header), 0};
    while (lines.next(cells)) {
        SensorFrame const* previous = recording.frames.empty() ? nullptr : &recording.frames.back();
        RecordingRow const row(header, cells, {name, lines.line(), {}});
        recording.frames.push_back(row.frame(previous));
    }
    if (recording.frames.size() < 2) {
        throw RecordingError({name, 0, {}}, "at least two frames",
                             recording.frames.empty() ? "a header only" : "one");
    }
    recording.medianIntervalNs = medianIntervalNs(recording.frames);
    fillInTimes(recording.frames, recording.medianIntervalNs);
    if (!header.has(Column::LensState)) {
        deriveLensStates(recording.frames);
    }
    return recording;
}

Recording readRecording(std::string const& path) {
    if (path == "-") {
        return readRecording(std::cin, "<standard input>");
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        throw RecordingError({path, 0, {}}, "a file", "a folder");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw RecordingError({path, 0, {}}, "a readable file", systemReason());
    }
    return readRecording(file, path);
}

}  // namespace zebcam::tool
