#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zebcam::tool::base {
class InputFile;
}

namespace zebcam::tool::recording {

/// The columns of a recording, in the order in which they are written.
enum class Column : uint8_t {
    FrameNo,
    Timestamp,
    Exposure,
    Duration,
    Readout,
    Iso,
    FocusDistance,
    AfMode,
    AfState,
    LensState,
    AeStable,
    FrameSync,
    SensorId,
    SensorMode,
    Error,
    VideoFrame,  ///< nothing is assumed where it is missing, so that it never counts as absent
};
inline constexpr size_t COLUMN_COUNT = static_cast<size_t>(Column::VideoFrame) + 1;

/// The name in a header line, for instance `AF mode`, and the name for programs: `afMode`.
std::string_view headerOf(Column column);
std::string_view wordOf(Column column);

/// A column of numbers that is none of those, by which a recording tells a policy more.
struct DataColumn {
    std::string name;  ///< as its header has it
    uint32_t tag = 0;  ///< under which a policy finds it (policy/zsl/RecordedColumns.h)
};

/// What such a column says of a frame: int64_t where the whole column does with whole numbers.
struct DataValue {
    uint32_t tag = 0;
    std::variant<int64_t, double> value;

    bool operator==(DataValue const&) const = default;
};

/// What a frame's picture looks like; policy/zsl/PictureMeasures.h says what each is.
struct PictureMeasures {
    float sharpness = 0;
    std::optional<float> motion;  ///< none of the first picture, which has none before
    float brightness = 0;
    float clipped = 0;

    bool operator==(PictureMeasures const&) const = default;
};

/// The number beyond means "no frame" to the camera stack.
inline constexpr uint32_t MAX_FRAME_NO = UINT32_MAX - 1;

/// One sensor frame of a recording. Times are in ns. A state without value was not told: it is
/// missing from the frame's result, or from the recording as a whole.
struct SensorFrame {
    uint32_t frameNo = 0;
    int64_t timestampNs = 0;  ///< start of exposure
    int64_t exposureNs = 0;
    int64_t durationNs = 0;  ///< sensor frame duration
    int64_t readoutNs = 0;
    std::optional<int32_t> iso;
    std::optional<float> focusDistance;  ///< diopters
    std::optional<uint8_t> afMode;
    std::optional<uint8_t> afState;
    std::optional<uint8_t> lensState;
    std::optional<int32_t> aeStable;
    std::optional<int64_t> frameSync;
    std::optional<int32_t> sensorId;
    std::optional<int32_t> sensorMode;
    bool hasError = false;  ///< the image is unusable
    /// Which picture of a video shows it, from 0 in the order of presentation; none: no one knows.
    std::optional<uint32_t> videoFrame;
    std::optional<PictureMeasures> picture;  ///< of that picture, once it has been measured
    std::vector<DataValue> data;             ///< in the order of the columns; none of empty cells

    bool operator==(SensorFrame const&) const = default;
};

/// By what frames and pictures were brought together.
enum class PictureMatch : uint8_t {
    Column,  ///< the recording's column tells it
    Count,   ///< there are as many: one to one
    Time,    ///< by time, where the clocks agree
    Start,   ///< by time from the first frame and the first picture on
    Itself,  ///< the recording was made from the video
};

/// The video of a recording. Width and height are those of its first picture, turned upright.
struct VideoFacts {
    std::string path;
    uint32_t width = 0;
    uint32_t height = 0;
    int rotation = 0;  ///< degrees clockwise by which the file has it turned
    size_t pictures = 0;
    PictureMatch match = PictureMatch::Column;
    size_t framesWithout = 0;  ///< frames of the recording that have no picture, as facts tell it
};

/// A recording: at least two frames, in strictly ascending time and frame number.
struct Recording {
    std::string path;
    std::vector<SensorFrame> frames;
    std::vector<std::string> notes;  ///< for the user, for instance about ignored columns
    int64_t medianIntervalNs = 0;
    /// What the recording does not tell of any frame, ascending. Numbers and times of the frames
    /// are then counted and worked out; states have no value.
    std::vector<Column> absent = {};
    std::vector<DataColumn> dataColumns = {};
    std::optional<VideoFacts> video = {};  ///< whose pictures the frames know

    bool lacks(Column column) const;
};

/// More is a stream that does not end.
inline constexpr size_t MAX_FRAMES = 1'000'000;

/// What to make of a recording.
struct InputOptions {
    bool anyRate = false;  ///< also what no sensor does: below 1 or above 2000 frames/s
    std::optional<int64_t> fromNs = {};     ///< from the first frame: what comes before is left out
    std::optional<int64_t> toNs = {};       ///< so is what comes after
    std::optional<std::string> video = {};  ///< path of the pictures; none: it has none
};

/// The part of `recording` that `options` ask for. Throws InputError when it begins or ends outside
/// of the recording or has less than two frames.
Recording partOf(Recording recording, InputOptions const& options);

/// Where in a recording something is wrong. Line 0 means the file as a whole, an empty column the
/// whole line.
struct RecordingPlace {
    std::string path;
    size_t line = 0;  ///< from 1, the header's line
    std::string column;
};

/// A recording that cannot be used. The text is
/// `<path>:<line>: column "<name>": expected ..., found ...`, with line and column where they
/// apply.
class RecordingError : public std::runtime_error {
public:
    RecordingError(RecordingPlace const& place, std::string_view expected, std::string_view found);
};

/// In how many frames each state is missing whose column the recording has.
struct MissingStates {
    size_t afMode = 0;
    size_t afState = 0;
    size_t lensState = 0;
    size_t aeStable = 0;
    size_t frameSync = 0;
    size_t sensorId = 0;
    size_t sensorMode = 0;
};

/// What a recording holds, in numbers. An interval is the time between the starts of exposure of
/// two neighbouring frames; a gap is an interval of more than 1.5 times the median one.
struct RecordingFacts {
    size_t frames = 0;
    int64_t lengthNs = 0;  ///< from the first start of exposure to the last
    double meanRateFps = 0;
    int64_t medianIntervalNs = 0;
    int64_t minIntervalNs = 0;
    int64_t maxIntervalNs = 0;
    int64_t jitterNs = 0;  ///< 95 % of the intervals that are no gaps are this near the median
    size_t gaps = 0;
    int64_t largestGapNs = 0;  ///< 0 without gaps
    MissingStates missing;
    size_t framesWithError = 0;
    size_t focusMoves = 0;            ///< frames whose lens state is MOVING
    std::vector<Column> absent = {};  ///< this and the next two as the recording's
    std::vector<DataColumn> dataColumns = {};
    std::optional<VideoFacts> video = {};
};

/// The facts of `recording`, computed from its frames alone. Without two frames every time is 0.
RecordingFacts computeFacts(Recording const& recording);

/// The median interval in ns, the mean of the middle two (rounded down) for an even number of
/// intervals; 0 without two frames. The times must ascend.
int64_t medianIntervalNs(std::vector<SensorFrame> const& frames);

/// Reads a recording, a CSV file with a line for each sensor frame (docs/recordings.md describes
/// what it may look like). The path `-` is standard input. Throws RecordingError or InputError for
/// whatever cannot be read in full: nothing is half-read.
Recording readRecording(std::string const& path, InputOptions const& options = {});

/// The same from a file that is open.
Recording readRecording(base::InputFile& file, InputOptions const& options = {});

/// The same from a stream; `name` stands for the path in errors and in the result.
Recording readRecording(std::istream& in, std::string const& name,
                        InputOptions const& options = {});

/// Writes every column but the absent ones, so that reading gives the same frames back. A state
/// without value becomes an empty cell. Errors are left in the stream's state.
void writeRecording(Recording const& recording, std::ostream& out);

/// The same into a file, which appears whole or not at all. Throws OutputError.
void writeRecording(Recording const& recording, std::string const& path);

}  // namespace zebcam::tool::recording
