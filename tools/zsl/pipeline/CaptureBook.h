#pragma once

#include <IZslProcessor.h>
#include <host/FrameBuilder.h>
#include <utils/Timers.h>
#include <zebcam/ThreadSafety.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "base/Distribution.h"
#include "pipeline/CaptureRecord.h"

namespace zebcam::tool::pipeline {

/// The sensor's clock, by which presses, tries and answers are timed: boot time, ns.
inline int64_t nowNs() {
    return systemTime(SYSTEM_TIME_BOOTTIME);
}

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
    size_t withoutHistory = 0;  ///< answered as ordinary captures
    base::Distribution lag{};   ///< see CaptureRecord::lagNs()
    base::Distribution wait{};  ///< see CaptureRecord::waitNs()
};

/**
 * What a pipeline knows of its captures, whether it is simulated or a device's made again: the
 * tries that the processor made, what it answered, the early shutters and the results. Times are
 * those that the boot-time clock shows when something is told. Which history frame an answer was
 * built from is what the ledger knows of its images.
 *
 * Thread-safe: several threads may be inside the processor at once. Its lock is a leaf: nothing is
 * called under it but the buffers of answered frames.
 */
class CaptureBook {
public:
    using Builders = std::vector<std::shared_ptr<host::FrameBuilder>>;

    /// Which tries of a capture are kept.
    enum class Tries {
        All,     ///< for a report
        Newest,  ///< for a run without end, whose book must not grow with every arrival
    };

    explicit CaptureBook(Tries kept) : mKept(kept) {}

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

    /// Books a capture that is about to be submitted, and gives its position. Without a request
    /// number of somebody else's it gets that plus one.
    size_t open(std::map<uint32_t, uint32_t> sensorModes, size_t frames,
                std::optional<uint32_t> requestNo = std::nullopt) EXCLUDES(mLock);
    /// The frame builders of a capture, one for each of its frames.
    void setBuilders(size_t capture, Builders const& builders) EXCLUDES(mLock);

    /// A fault was injected into a capture.
    void addFault(size_t capture, FaultKind kind) EXCLUDES(mLock);

    /// The processor tries a capture, with what `offer` says; the book fills in the time and
    /// whether it is a retry. Called with the processor's lock held, so that tries follow one
    /// another; endTry() may be repeated. `timedOut` frames were served only because the capture
    /// had waited too long.
    void beginTry(size_t capture, TryRecord offer) EXCLUDES(mLock);
    void endTry(size_t timedOut) EXCLUDES(mLock);

    /// How the newest try of a capture compares with the one before.
    enum class Repeat {
        None,    ///< to be kept: it built something, or found another history
        Alike,   ///< it found the same history and built nothing either
        Unlike,  ///< it built nothing either, and there is no room for more that differ
    };
    /// foldRepeat() counts a repeat with the try before, so that a capture that waits among many,
    /// tried anew with each of them, takes no room for each time. To be called between two tries of
    /// the capture, while no other thread is inside the processor.
    Repeat repeatOf(size_t capture) const EXCLUDES(mLock);
    void foldRepeat(size_t capture, Repeat repeat) EXCLUDES(mLock);

    /// In beginTry()'s place: if the newest try of a capture built nothing though `offer` is what
    /// it had, all of it, then one more is counted with it.
    bool addRepeat(size_t capture, TryRecord const& offer) EXCLUDES(mLock);
    /// Whether the next one that waits would be such a repeat, too, after one that was.
    bool isNextRepeat(size_t capture, TryRecord const& offer) const EXCLUDES(mLock);

    /// How many tries were folded that found another history.
    size_t unlikeRepeats() const EXCLUDES(mLock);

    /// Of the newest capture with this number; of none when there is none.
    void setEarlyShutter(uint32_t requestNo, std::optional<int64_t> timestampNs) EXCLUDES(mLock);

    /// A frame's result is about to be told; gives how many of its capture are still to come.
    size_t beginResult(BuiltFrame const& frame) EXCLUDES(mLock);
    /// It was told, and the application saw this sensor timestamp in it.
    void endResult(BuiltFrame const& frame, std::optional<int64_t> reportedNs) EXCLUDES(mLock);

    /// What is known so far of the capture of a frame that came back, of its tries only the one
    /// that built it: none of a flushed frame.
    CaptureRecord recordOf(BuiltFrame const& frame) const EXCLUDES(mLock);
    uint32_t requestNoOf(size_t capture) const EXCLUDES(mLock);
    /// As the processor counts it.
    int64_t ageMs(size_t capture) const EXCLUDES(mLock);
    size_t triesOf(size_t capture) const EXCLUDES(mLock);
    std::vector<CaptureRecord> records() const EXCLUDES(mLock);
    CaptureTotals totals() const EXCLUDES(mLock);

private:
    /// A capture while the pipeline works on it.
    struct Capture {
        CaptureRecord record;
        std::vector<uint32_t> inFlight;  ///< at the newest try
        int64_t pressWallNs = 0;
        size_t tries = 0;           ///< made so far
        size_t timedOutFrames = 0;  ///< served because of the time-out, but not yet returned
        size_t unfinished = 0;      ///< frames whose result is still to come
    };

    /// Frames that tries were offered and asked for, over all that are kept, up to which those that
    /// differ are kept: with all that is told of each, half a GB.
    static constexpr size_t MOST_FRAMES = 250'000;

    /// Position of a try among those of its capture that are kept, by capture, of one operation.
    using OperationTries = std::map<size_t, size_t>;

    bool wouldRepeat(Capture const& capture, TryRecord const& offer) const REQUIRES(mLock);
    std::optional<BuiltFrame> find(std::shared_ptr<host::FrameBuilder> const& builder,
                                   std::string& problem) const REQUIRES(mLock);
    void answer(BuiltFrame const& frame, bool isFlush, size_t remaining) REQUIRES(mLock);
    void book(BuiltFrame const& frame, Served served, std::optional<size_t> tryIndex)
        REQUIRES(mLock);
    static size_t keptTry(CaptureRecord const& record, size_t tryIndex);

    Tries const mKept;
    mutable Mutex mLock;
    std::deque<Capture> mCaptures GUARDED_BY(mLock);
    std::unordered_map<uint32_t, size_t> mNewest GUARDED_BY(mLock);  ///< by request number
    /// Every builder that was given out, and its capture and frame. Kept alive, so that one that
    /// comes back late or twice is not taken for another at the same address.
    std::unordered_map<std::shared_ptr<host::FrameBuilder>, std::pair<size_t, size_t>> mBuilders
        GUARDED_BY(mLock);
    std::map<std::thread::id, OperationTries> mOperations GUARDED_BY(mLock);  ///< that are running
    std::optional<size_t> mTried GUARDED_BY(mLock);  ///< capture of the running try
    size_t mKeptFrames GUARDED_BY(mLock) = 0;
    size_t mUnlikeRepeats GUARDED_BY(mLock) = 0;
    CaptureTotals mTotals GUARDED_BY(mLock);
};

}  // namespace zebcam::tool::pipeline
