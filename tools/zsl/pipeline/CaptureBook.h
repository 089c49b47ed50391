#pragma once

#include <IZslProcessor.h>
#include <host/FrameBuilder.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "pipeline/CaptureRecord.h"
#include "pipeline/ObservedProvider.h"

namespace zebcam::tool::pipeline {

/// A frame that the processor returned; the pipeline reprocesses or exposes it now.
struct BuiltFrame {
    size_t capture = 0;  ///< position in the book
    size_t index = 0;    ///< within the capture
    std::shared_ptr<host::FrameBuilder> builder;
};

/// Frames of all captures, by what became of them.
struct CaptureTotals {
    size_t captures = 0;
    size_t answeredCaptures = 0;  ///< every frame came back
    size_t frames = 0;
    std::map<Served, size_t> served;
};

/**
 * What a pipeline knows of its captures: the tries that the processor made, what it answered, the
 * early shutters and the results.
 *
 * Thread-safe: several threads may be inside the processor at once. Its lock is a leaf: nothing is
 * called under it but the metadata buffers of answered frames.
 */
class CaptureBook {
public:
    using Builders = std::vector<std::shared_ptr<host::FrameBuilder>>;

    /// Which tries of a capture are kept.
    enum class Tries {
        All,     ///< for a report
        Newest,  ///< for a run without end, whose book must not grow with every arrival
    };

    /// `appResult` is the stream in whose metadata a frame tells its number and time.
    CaptureBook(NSCam::v3::StreamId_T appResult, Tries kept);

    /**
     * One call into the processor, on the thread that makes it. What the processor tries until the
     * end of its life belongs to it.
     */
    class Operation {
    public:
        explicit Operation(CaptureBook& book);
        ~Operation();
        Operation(Operation const&) = delete;
        Operation& operator=(Operation const&) = delete;

        /// Books the frames that the call returned. What nobody asked for, or came before, is left
        /// out and told in `problems`.
        std::vector<BuiltFrame> take(NSCam::v3::pipeline::model::ZslFrameBuilders const& lists,
                                     bool isFlush, std::vector<std::string>& problems);

    private:
        CaptureBook& mBook;
    };

    /// Books a capture that is about to be submitted, and gives its position. Its request number is
    /// that plus one.
    size_t open(std::map<uint32_t, uint32_t> sensorModes, size_t frames);
    /// The frame builders of a capture, one for each of its frames.
    void setBuilders(size_t capture, Builders builders);

    /// The processor tries a capture. Called with the processor's lock held, so that tries follow
    /// one another; endTry() may be repeated. `timedOut` frames were served only because the
    /// capture had waited too long.
    void beginTry(size_t capture, int64_t ageMs, Offer offer);
    void endTry(size_t timedOut);

    void setEarlyShutter(uint32_t requestNo, std::optional<int64_t> timestampNs);

    /// A frame's result is about to be told; gives how many of its capture are still to come.
    size_t beginResult(BuiltFrame const& frame);
    /// It was told, and the application saw this sensor timestamp in it.
    void endResult(BuiltFrame const& frame, std::optional<int64_t> reportedNs);

    uint32_t requestNoOf(size_t capture) const { return static_cast<uint32_t>(capture + 1); }
    int64_t ageMs(size_t capture) const;
    size_t triesOf(size_t capture) const;
    std::vector<CaptureRecord> records() const;
    CaptureTotals totals() const;

private:
    /// A capture while the pipeline works on it.
    struct Capture {
        CaptureRecord record;
        Builders builders;
        size_t tries = 0;           ///< made so far
        size_t timedOutFrames = 0;  ///< served because of the time-out, but not yet returned
        size_t unfinished = 0;      ///< frames whose result is still to come
    };

    /// Position of a try among those of its capture, by capture, of one operation.
    using OperationTries = std::map<size_t, size_t>;

    std::optional<BuiltFrame> find(std::shared_ptr<host::FrameBuilder> const& builder,
                                   std::string& problem) const;
    void answer(BuiltFrame const& frame, bool isFlush, size_t remaining);
    void book(BuiltFrame const& frame, Served served, std::optional<size_t> tryIndex);
    void identify(BuiltFrame const& frame, FrameOutcome& outcome) const;

    NSCam::v3::StreamId_T const mAppResult;
    Tries const mKept;
    mutable std::mutex mLock;
    std::deque<Capture> mCaptures;
    std::map<std::thread::id, OperationTries> mOperations;  ///< that are running
    std::optional<size_t> mTried;                           ///< capture of the running try
    CaptureTotals mTotals;
};

}  // namespace zebcam::tool::pipeline
