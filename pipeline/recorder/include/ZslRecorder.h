#pragma once

#include <IZslProcessor.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace NSCam::v3::pipeline::model {

/// Where a recording goes and what it may cost.
struct ZslRecorderOptions {
    /// The file; one that is there already is replaced.
    std::string path;

    /// Bound of what is recorded but not written yet, bytes; allocated once, at creation.
    size_t memoryBytes = size_t{4} << 20;

    /// Bound of the file, bytes.
    uint64_t maxFileBytes = uint64_t{256} << 20;

    /// Metadata entries with more bytes of items are left out: shading maps, statistics.
    size_t largestEntryBytes = 64;
};

/// How a recording ended.
enum class ZslRecordingEnd : uint8_t {
    RUNNING = 0,       ///< not yet
    FINISHED = 1,      ///< by `finish` or by the recorder's destruction
    MEMORY_FULL = 2,   ///< the file took the records more slowly than they came
    FILE_FULL = 3,     ///< `maxFileBytes` was reached
    WRITE_FAILED = 4,  ///< the file did not take a block; `ZslRecorderStatus::writeError` says why
    INTERRUPTED = 5,   ///< recording itself failed, for want of memory
};

/// `running`, `finished`, or the name of what went wrong.
constexpr char const* toString(ZslRecordingEnd end) {
    switch (end) {
        case ZslRecordingEnd::RUNNING:
            return "running";
        case ZslRecordingEnd::FINISHED:
            return "finished";
        case ZslRecordingEnd::MEMORY_FULL:
            return "memory full";
        case ZslRecordingEnd::FILE_FULL:
            return "file full";
        case ZslRecordingEnd::WRITE_FAILED:
            return "write failed";
        case ZslRecordingEnd::INTERRUPTED:
            break;
    }
    return "interrupted";
}

/// The state of a recording.
struct ZslRecorderStatus {
    ZslRecordingEnd end = ZslRecordingEnd::RUNNING;
    int writeError = 0;         ///< errno of the write that failed, else 0
    uint64_t operations = 0;    ///< operations of the processor that are whole in the recording
    uint64_t unrecorded = 0;    ///< operations that came after its end
    uint64_t bytesWritten = 0;  ///< size of the file so far
};

/**
 * A processor that passes everything on to another one and records what that one sees and does, so
 * that the same decisions can be made again elsewhere.
 *
 * It stands between the pipeline model and the processor. The caller gets the frame builders back
 * that it gave in, in the same lists; exceptions pass through; the processor gets a history buffer
 * provider, selector and frame builders that forward to the caller's.
 *
 * The operations that can change a decision (all but `hasZslPendingRequest` and `debug`) enter one
 * at a time, so that the order in the file is the one in which they were carried out. Nothing in
 * them waits for the file: a thread of the recorder's own writes what they leave in its memory. A
 * recording has no holes. Where it cannot go on, it ends, one warning in the Android log says why,
 * and the operations are passed on unrecorded.
 */
class __attribute__((visibility("default"))) ZslRecorder : public IZslProcessor {
public:
    /// Records what `processor`, made for the sensor opened under `openId`, does from now on;
    /// `processor` must not have been used yet. Null, with an error line in the Android log, when
    /// `processor` is null or the file or the thread cannot be made.
    static android::sp<ZslRecorder> create(int openId, android::sp<IZslProcessor> processor,
                                           ZslRecorderOptions const& options);

    ~ZslRecorder() override;

    /// Ends the recording, waits until the file has everything and closes it. Operations are then
    /// passed on unrecorded. May be repeated; the destructor does it too. Waits for a running
    /// operation, so it must not be called out of one.
    virtual ZslRecorderStatus finish() = 0;

    /// The state so far. Never waits.
    virtual ZslRecorderStatus status() const = 0;
};

}  // namespace NSCam::v3::pipeline::model
