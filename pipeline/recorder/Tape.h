#pragma once

#include <IZslProcessor.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "Describer.h"
#include "Encoder.h"
#include "OutSets.h"
#include "RecordFile.h"

namespace NSCam::v3::pipeline::model::record {

ClockReading readClocks();

/**
 * The recording as it is made: an operation at a time, whose record goes to the file when the
 * operation is over. One thread at a time carries out an operation; what other threads do to the
 * processor's surroundings meanwhile is not recorded.
 *
 * Nothing here throws. Where recording itself fails, the recording ends.
 */
class Tape {
public:
    Tape(std::unique_ptr<RecordFile> file, ZslRecorderOptions const& options);

    /// Writes the header.
    void start(int openId) noexcept;

    RecordFile& file() { return *mFile; }
    bool isRunning() const { return mFile->isRunning(); }

    /// Begins an operation on this thread.
    void begin(Operation operation) noexcept;
    /// Ends it, and the thread's hold of the tape.
    void end() noexcept;

    /// Lets `write` add to the record of this thread's operation, if there is one.
    template <typename Write>
    void note(Write write) noexcept {
        if (mThread.load(std::memory_order_relaxed) != std::this_thread::get_id() || !mIsOn) {
            return;
        }
        try {
            write(*this);
            if (mOut.size() > mLargestOperation) {
                stop(ZslRecordingEnd::MEMORY_FULL);
            }
        } catch (...) {
            stop(ZslRecordingEnd::INTERRUPTED);
        }
    }

    // For use within `note`
    Encoder& out() { return mOut; }
    Describer& describer() { return mDescriber; }
    OutSets& outSets() { return mOutSets; }
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
    Describer mDescriber;
    OutSets mOutSets;
};

/// The text of the exception in hand.
std::string currentExceptionText();

}  // namespace NSCam::v3::pipeline::model::record
