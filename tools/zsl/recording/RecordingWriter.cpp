#include "recording/RecordingWriter.h"

#include <charconv>
#include <optional>
#include <ostream>
#include <span>

#include "base/AtomicFile.h"
#include "recording/RecordingColumns.h"

namespace zebcam::tool::recording {

namespace {

/// Collects the cells of one line.
class Line {
public:
    template <typename Number>
    void add(Number value) {
        char digits[32];  // the shortest text of any 64-bit integer or float that reads back as it
                          // is
        auto const [end, error] = std::to_chars(std::begin(digits), std::end(digits), value);
        mText.append(digits, end).append(1, ',');
    }

    template <typename Number>
    void add(std::optional<Number> const& value) {
        if (value) {
            add(*value);
        } else {
            mText.append(1, ',');
        }
    }

    void add(std::string_view name) { mText.append(name).append(1, ','); }

    std::string const& finish() {
        mText.back() = '\n';
        return mText;
    }

private:
    std::string mText;
};

// The order is that of the columns.
Line lineOf(SensorFrame const& frame) {
    Line line;
    line.add(frame.frameNo);
    line.add(frame.timestampNs);
    line.add(frame.exposureNs);
    line.add(frame.durationNs);
    line.add(frame.readoutNs);
    line.add(frame.iso);
    line.add(frame.focusDistance);
    line.add(frame.afMode);
    line.add(frame.afState);
    line.add(frame.lensState);
    line.add(frame.aeStable);
    line.add(frame.frameSync);
    line.add(frame.sensorId);
    line.add(frame.sensorMode);
    line.add(frame.hasError ? 1 : 0);
    return line;
}

}  // namespace

void writeRecording(Recording const& recording, std::ostream& out) {
    Line header;
    for (auto const name : std::span(kColumnNames).first<kWrittenColumnCount>()) {
        header.add(name);
    }
    out << header.finish();
    for (SensorFrame const& frame : recording.frames) {
        out << lineOf(frame).finish();
    }
}

void writeRecording(Recording const& recording, std::string const& path) {
    base::AtomicFile file(path);
    writeRecording(recording, file.stream());
    file.commit();
}

}  // namespace zebcam::tool::recording
