#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <queue>
#include <utility>
#include <vector>

#include "log/Explanation.h"
#include "pipeline/CaptureRecord.h"
#include "recording/Recording.h"
#include "report/JsonParts.h"
#include "report/TraceEvents.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::report {

/// Spreads slices that overlap over as few lanes as possible, so that those of one lane do not.
class Lanes {
public:
    explicit Lanes(size_t limit = std::numeric_limits<size_t>::max()) : mLimit(limit) {}

    /// The lowest lane that is free at `beginNs`, which must not descend from call to call; it is
    /// taken until `endNs`. None when all lanes are.
    std::optional<size_t> take(int64_t beginNs, int64_t endNs) {
        while (!mBusy.empty() && mBusy.top().first <= beginNs) {
            mFree.push(mBusy.top().second);
            mBusy.pop();
        }
        if (mFree.empty() && mCount == mLimit) {
            return std::nullopt;
        }
        size_t const lane = mFree.empty() ? mCount++ : mFree.top();
        if (!mFree.empty()) {
            mFree.pop();
        }
        mBusy.push({endNs, lane});
        return lane;
    }

private:
    template <typename T>
    using LeastFirst = std::priority_queue<T, std::vector<T>, std::greater<>>;

    size_t const mLimit;
    size_t mCount = 0;
    LeastFirst<std::pair<int64_t, size_t>> mBusy;  ///< by the end of their slices
    LeastFirst<size_t> mFree;
};

/// A sensor frame as it is drawn.
struct FrameSlice {
    size_t row = 0;
    int64_t arrivalNs = 0;
    int64_t endNs = 0;    ///< the arrival, or earlier in the row for what is too much
    bool isLost = false;  ///< it never arrived; `arrivalNs` is when it should have
    size_t frames = 1;    ///< drawn as this slice, from this frame on; 0: it is in an earlier one
    recording::SensorFrame const* told = nullptr;  ///< states as the pipeline told them
    pipeline::FaultSet faults;                     ///< that were injected into it
};

/// The frames by the order of the recording. As many rows as frames overlap, at most
/// MAX_FRAME_ROWS; what finds none free goes to one more, in which a slice ends where the next
/// frame begins. Of a recording of more than MAX_WHOLE_FRAMES those that no capture has to do with
/// are drawn together.
constexpr size_t MAX_FRAME_ROWS = 64;
constexpr size_t MAX_WHOLE_FRAMES = 5'000;
std::vector<FrameSlice> frameSlices(recording::Recording const& recording,
                                    run::ReplayResult const& result);

/// Columns of which the recording tells nothing, so that whatever the pipeline told in their place
/// must not be shown as the sensor's. Frame numbers are counted, and images usable until a fault
/// makes them otherwise.
std::vector<recording::Column> untoldColumns(recording::Recording const& recording);

/// Writes the frames, with their metadata.
void writeFrames(TraceEvents& events, int process, recording::Recording const& recording,
                 std::vector<FrameSlice> const& slices, TraceFlows const& flows);

/// Frames of a capture that came back together. Times are boot times.
struct Answer {
    size_t capture = 0;  ///< position among the captures
    int64_t timeNs = 0;
    std::optional<int64_t> resultNs;
    int64_t endNs = 0;  ///< of the mark of the result
    bool isFlush = false;
    bool isFromHistory = false;  ///< at least one of the frames
    std::vector<size_t> frames;  ///< indices within the capture
};

/// A time in which the processor owed frames.
struct Wait {
    int64_t beginNs = 0;
    int64_t endNs = 0;
    size_t frames = 0;
};

/// A capture as it is drawn: a slice from the press to its last result. The waits follow each other
/// in it, and the press, an instant, gets some length that fits in the first of them.
struct CaptureShape {
    int64_t endNs = 0;
    int64_t pressEndNs = 0;
    std::vector<Wait> waits;
    std::vector<Answer> answers;  ///< ascending in time
};

/// `markNs`: length of a drawn instant, more than 0; `replayEndNs`: until when an unanswered frame
/// waits.
CaptureShape shapeOf(pipeline::CaptureRecord const& record, size_t capture, int64_t markNs,
                     int64_t replayEndNs);

/// Writes the captures, one row of slices and one of instants for as many as overlap. `shapes` are
/// theirs; a null explanation leaves the refusals out.
void writeCaptures(TraceEvents& events, int process,
                   std::vector<pipeline::CaptureRecord> const& captures,
                   std::vector<CaptureShape> const& shapes, log::Explanation const* explanation,
                   TraceFlows const& flows);

struct TraceInput;

/// Writes all tracks, and `about` the whole.
void writeTracks(TraceInput const& input, Json const& about, std::ostream& out);

/// Writes what became of the frames that came back: the reprocessing and the results.
void writeAnswers(TraceEvents& events, int process,
                  std::vector<pipeline::CaptureRecord> const& captures,
                  std::vector<CaptureShape> const& shapes, TraceFlows const& flows);

}  // namespace zebcam::tool::report
