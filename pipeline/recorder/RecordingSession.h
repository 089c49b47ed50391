#pragma once

#include <IZslProcessor.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BufferEncoder.h"
#include "Encoder.h"
#include "RecordFile.h"

namespace NSCam::v3::pipeline::model::record {

/// The buffer sets that are handed out: providers gave them away, and they are neither back nor in
/// a frame builder. Known by their images, or else by number and timestamp.
class HandOuts {
public:
    struct Set {
        uint32_t frameNo = 0;
        int64_t timestamp = 0;
        bool isClone = false;
        std::vector<void const*> images;
    };

    void add(HistoryBufferSet const& set, bool isClone);
    /// The set comes back. Tells whether it is a clone.
    bool takeBack(HistoryBufferSet const& set);
    /// Moves the set with an image, or else of a timestamp, to who uses it. False: there is none.
    bool take(void const* image, Set& taken);
    bool take(int64_t timestamp, Set& taken);

private:
    template <typename Matches>
    bool takeIf(Matches matches, Set& taken);

    std::list<Set> mSets;
};

/// All clocks, now.
ClockReading readClocks();

/// The text of the exception in hand. Only within a catch block.
std::string currentExceptionText();

/**
 * The recording as it is made: an operation at a time, whose record goes to the file when the
 * operation is over. Operations must not overlap: whoever calls `begin` holds a lock of its own
 * until `end`, and that lock guards everything here. `note` may be called on any thread, also
 * without the lock; what another thread than the operation's does to the processor's surroundings
 * meanwhile is not recorded.
 *
 * Nothing here throws. Where recording itself fails, the recording ends.
 */
class RecordingSession {
public:
    RecordingSession(std::unique_ptr<RecordFile> file, ZslRecorderOptions const& options);

    /// Writes the header.
    void start(int openId) noexcept;

    RecordFile& file() { return *mFile; }
    bool isRunning() const { return mFile->isRunning(); }

    /// Begins an operation on this thread.
    void begin(Operation operation) noexcept;
    /// Ends it, and the thread's hold of the session.
    void end() noexcept;

    /// Lets `write` add to the record of this thread's operation, if there is one.
    template <typename Write>
    void note(Write write) noexcept {
        // Relaxed: only the thread itself stores its own id, and any other value means "not now".
        // Everything else is read after that, so that another thread touches none of it.
        if (mThread.load(std::memory_order_relaxed) != std::this_thread::get_id() || !mIsOn) {
            return;
        }
        try {
            write(*this);
            if (mOut.size() > mLargestOperation) {
                stop(ZslRecordingEnd::MEMORY_FULL);
            }
        } catch (...) {  // no memory, or an object of the caller's that throws where none may
            stop(ZslRecordingEnd::INTERRUPTED);
        }
    }

    // For use within `note`
    Encoder& out() { return mOut; }
    BufferEncoder& buffers() { return mBuffers; }
    HandOuts& handOuts() { return mHandOuts; }
    void item(Item item) { mOut.tag(item); }
    void clock() { mClock.put(mOut, readClocks()); }
    /// By now the processor has read the clock for the submission; the first time counts.
    void submissionClock();
    /// A selection that began with an offer ends; the first time counts.
    void selectionEnd();
    void awaitSelectionEnd() { mAwaitsSelectionEnd = true; }
    /// How often a call of a provider has been made in this operation, this one included.
    uint64_t countCall(ProviderCall call) { return ++mCalls.at(static_cast<size_t>(call)); }

private:
    void stop(ZslRecordingEnd why) noexcept;

    std::unique_ptr<RecordFile> const mFile;
    size_t const mLargestOperation;
    std::atomic<std::thread::id> mThread;  ///< that carries out an operation
    bool mIsOn = false;                    ///< the operation is being recorded
    bool mAwaitsSubmissionClock = false;
    bool mAwaitsSelectionEnd = false;
    std::array<uint64_t, PROVIDER_CALLS> mCalls{};
    Encoder mOut;
    ClockEncoder mClock;
    BufferEncoder mBuffers;
    HandOuts mHandOuts;
};

}  // namespace NSCam::v3::pipeline::model::record
