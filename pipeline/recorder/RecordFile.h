#pragma once

#include <ZslRecorder.h>
#include <zebcam/ThreadSafety.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <thread>

namespace NSCam::v3::pipeline::model::record {

using zebcam::LockGuard;
using zebcam::Mutex;

/**
 * A ring of bytes between one thread that puts entries in and one that takes them out. Neither
 * waits for the other: an entry for which there is no room is refused.
 *
 * Each thread alone moves its own position and reads the other's. The positions only grow, so that
 * a stale one is safe: it shows less room, or fewer entries, than there are.
 */
class RecordRing {
public:
    using Pieces = std::array<std::span<uint8_t const>, 2>;  ///< the second after a wrap-around

    explicit RecordRing(size_t capacity)
        : mCapacity(capacity), mBytes(std::make_unique<uint8_t[]>(capacity)) {}

    /// Puts an entry in, its length before it. False, and nothing done, when it does not fit.
    bool push(std::span<uint8_t const> entry);

    /// Everything that was put in and not taken out: whole entries. For the taking thread.
    Pieces peek() const;
    /// Takes out that many bytes of what peek gave.
    void pop(size_t bytes);

private:
    void write(uint64_t position, std::span<uint8_t const> bytes);

    size_t const mCapacity;
    std::unique_ptr<uint8_t[]> const mBytes;
    std::atomic<uint64_t> mPut{0};    ///< bytes ever put in
    std::atomic<uint64_t> mTaken{0};  ///< bytes ever taken out
};

/**
 * A file of entries and the thread that writes it.
 *
 * One thread at a time puts entries in; it never waits and does no input or output. Each time the
 * writer finds entries it makes one block of them.
 */
class RecordFile {
public:
    /// Creates the file and starts the writer. Null, with an error line, when either fails.
    static std::unique_ptr<RecordFile> create(ZslRecorderOptions const& options);
    ~RecordFile();

    RecordFile(RecordFile const&) = delete;
    RecordFile& operator=(RecordFile const&) = delete;

    bool isRunning() const { return mEnd.load(std::memory_order_relaxed) == RUNNING; }

    /// Takes a copy of an entry. Without room for it the recording ends.
    void put(std::span<uint8_t const> entry) noexcept;
    /// An operation goes unrecorded.
    void skip() noexcept { mUnrecorded.fetch_add(1, std::memory_order_relaxed); }
    /// Ends the recording after what was put in. Never waits. The first reason holds, unless the
    /// file does not take what was put in until then.
    void end(ZslRecordingEnd why) noexcept;
    /// Ends the recording and waits until it is written.
    void finish() noexcept;

    ZslRecorderStatus status() const;

private:
    using FilePtr = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
    static constexpr auto RUNNING = ZslRecordingEnd::RUNNING;

    RecordFile(FilePtr file, ZslRecorderOptions const& options);

    void write();
    void drain();
    bool hasFailed() const { return mWriteError.load(std::memory_order_relaxed) != 0; }
    void fail(int error);
    void writeBlock(RecordRing::Pieces const& content);
    void writeEnd(ZslRecordingEnd why);
    void append(std::span<uint8_t const> bytes);
    void close();
    void wakeWriter() noexcept;

    ZslRecorderOptions const mOptions;
    RecordRing mRing;

    /// Set from RUNNING by whoever ends the recording, later by the writer only. Stored with
    /// release, after what it is the end of, and loaded with acquire by whoever wants to see that.
    std::atomic<ZslRecordingEnd> mEnd{RUNNING};
    /// Counts the reasons to look into the ring. One that comes after the writer has read the count
    /// ends its wait at once, so that none is missed.
    std::atomic<uint32_t> mWakeUps{0};

    // Figures for `status`, each by itself and so relaxed throughout. All but mUnrecorded are
    // changed by the writer only.
    std::atomic<int> mWriteError{0};    ///< errno of the first write that failed
    std::atomic<uint64_t> mEntries{0};  ///< written, the header among them
    std::atomic<uint64_t> mUnrecorded{0};
    std::atomic<uint64_t> mBytes{0};  ///< size of the file

    FilePtr mFile;  ///< the writer's once it runs
    Mutex mJoinLock;
    std::thread mWriter GUARDED_BY(mJoinLock);  ///< last: it uses everything above
};

}  // namespace NSCam::v3::pipeline::model::record
