#include "RecordFile.h"

#include <android/log.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <limits>
#include <utility>

#include "Crc32.h"
#include "Encoder.h"
#include "RecordFormat.h"

namespace NSCam::v3::pipeline::model::record {

bool RecordRing::push(std::span<uint8_t const> entry) {
    // Relaxed: this thread is the one that moves it.
    uint64_t const put = mPut.load(std::memory_order_relaxed);
    // Pairs with the release in pop(): the bytes that it gave free have been read.
    uint64_t const used = put - mTaken.load(std::memory_order_acquire);
    uint64_t const needed = ENTRY_HEADER_BYTES + uint64_t{entry.size()};
    if (needed > mCapacity - used || entry.size() > std::numeric_limits<uint32_t>::max()) {
        return false;
    }
    std::array<uint8_t, ENTRY_HEADER_BYTES> length{};
    for (size_t i = 0; i < length.size(); ++i) {
        length[i] = static_cast<uint8_t>(entry.size() >> (8 * i));
    }
    write(put, length);
    write(put + length.size(), entry);
    // Pairs with the acquire in peek(): whoever sees the entry sees its bytes. Once for both parts,
    // so that nobody sees a length without its entry.
    mPut.store(put + needed, std::memory_order_release);
    return true;
}

void RecordRing::write(uint64_t position, std::span<uint8_t const> bytes) {
    size_t const offset = position % mCapacity;
    size_t const first = std::min(bytes.size(), mCapacity - offset);
    std::copy_n(bytes.begin(), first, mBytes.get() + offset);
    std::copy(bytes.begin() + static_cast<std::ptrdiff_t>(first), bytes.end(), mBytes.get());
}

RecordRing::Pieces RecordRing::peek() const {
    // Relaxed: this thread is the one that moves it.
    uint64_t const taken = mTaken.load(std::memory_order_relaxed);
    // Pairs with the release in push().
    size_t const size = mPut.load(std::memory_order_acquire) - taken;
    size_t const offset = taken % mCapacity;
    size_t const first = std::min(size, mCapacity - offset);
    return {std::span(mBytes.get() + offset, first), std::span(mBytes.get(), size - first)};
}

void RecordRing::pop(size_t bytes) {
    // Pairs with the acquire in push(): nothing of these bytes is read any more.
    mTaken.fetch_add(bytes, std::memory_order_release);
}

namespace {

constexpr char TAG[] = "ZebCam/ZslRec";
constexpr size_t LEAST_MEMORY = 4096;  // the header and a configuration fit
// Kept free for the end, which must fit whatever the bound: its kind, its reason, and a number of
// at most ten bytes, rounded up.
constexpr uint64_t END_BLOCK_BYTES = BLOCK_HEADER_BYTES + ENTRY_HEADER_BYTES + 16;
// The length of a block has 32 bits, and a ring may be larger.
constexpr uint64_t MOST_BLOCK_BYTES = uint64_t{1} << 30;

size_t sizeOf(RecordRing::Pieces const& pieces) {
    return pieces[0].size() + pieces[1].size();
}

uint8_t at(RecordRing::Pieces const& pieces, size_t index) {
    return index < pieces[0].size() ? pieces[0][index] : pieces[1][index - pieces[0].size()];
}

uint32_t lengthAt(RecordRing::Pieces const& pieces, size_t index) {
    uint32_t length = 0;
    for (size_t i = 0; i < ENTRY_HEADER_BYTES; ++i) {
        length |= uint32_t{at(pieces, index + i)} << (8 * i);
    }
    return length;
}

/// How many whole entries fit into `limit` bytes, which take up `taken`.
uint64_t countEntries(RecordRing::Pieces const& pieces, uint64_t limit, size_t& taken) {
    uint64_t entries = 0;
    taken = 0;
    // The ring holds whole entries only, so that no length reaches beyond its end.
    while (taken < sizeOf(pieces)) {
        size_t const size = ENTRY_HEADER_BYTES + size_t{lengthAt(pieces, taken)};
        if (taken + size > limit) {
            break;
        }
        taken += size;
        ++entries;
    }
    return entries;
}

RecordRing::Pieces firstBytes(RecordRing::Pieces const& pieces, size_t size) {
    size_t const first = std::min(size, pieces[0].size());
    return {pieces[0].first(first), pieces[1].first(size - first)};
}

}  // namespace

std::unique_ptr<RecordFile> RecordFile::create(ZslRecorderOptions const& options) {
    // "e": a child of the camera's process must not keep the file open.
    FilePtr file(std::fopen(options.path.c_str(), "wbe"), std::fclose);
    if (file == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, TAG, "%s: cannot be created: %s",
                            options.path.c_str(), std::strerror(errno));
        return nullptr;
    }
    Encoder start;
    for (uint8_t const byte : MAGIC) {
        start.byte(byte);
    }
    start.fixed(VERSION);
    // Flushed, so that a full disk shows now, while the caller can still be told.
    if (std::fwrite(start.data(), start.size(), 1, file.get()) != 1 ||
        std::fflush(file.get()) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, TAG, "%s: cannot be written: %s",
                            options.path.c_str(), std::strerror(errno));
        return nullptr;
    }
    try {  // memory and a thread may both be refused
        return std::unique_ptr<RecordFile>(new RecordFile(std::move(file), options));
    } catch (std::exception const& error) {
        __android_log_print(ANDROID_LOG_ERROR, TAG, "%s: cannot be recorded: %s",
                            options.path.c_str(), error.what());
        return nullptr;
    }
}

RecordFile::RecordFile(FilePtr file, ZslRecorderOptions const& options)
    : mOptions(options),
      mRing(std::max(options.memoryBytes, LEAST_MEMORY)),
      mBytes(FILE_HEADER_BYTES),
      mFile(std::move(file)),
      mWriter([this] { write(); }) {
}

RecordFile::~RecordFile() {
    finish();
}

void RecordFile::put(std::span<uint8_t const> entry) noexcept {
    if (!isRunning()) {
        return;
    }
    if (!mRing.push(entry)) {
        // A hole in a recording would be decisions that nothing explains: rather an end.
        skip();
        end(ZslRecordingEnd::MEMORY_FULL);
        return;
    }
    wakeWriter();
}

void RecordFile::end(ZslRecordingEnd why) noexcept {
    ZslRecordingEnd expected = RUNNING;
    // Pairs with the acquire in write(): what was put in before is in the ring for who sees the
    // end.
    if (mEnd.compare_exchange_strong(expected, why, std::memory_order_release,
                                     std::memory_order_relaxed)) {
        wakeWriter();
    }
}

void RecordFile::finish() noexcept {
    end(ZslRecordingEnd::FINISHED);
    LockGuard const lock(mJoinLock);  // a second caller waits as well, and finds it joined
    if (mWriter.joinable()) {
        mWriter.join();
    }
}

void RecordFile::wakeWriter() noexcept {
    // Pairs with the acquire in write(): the reason for the wake-up is seen with it.
    mWakeUps.fetch_add(1, std::memory_order_release);
    mWakeUps.notify_one();
}

ZslRecorderStatus RecordFile::status() const {
    // The end first, and with acquire: the figures are then at least those of its moment. Pairs
    // with the release in fail() and drain().
    ZslRecordingEnd const end = mEnd.load(std::memory_order_acquire);
    uint64_t const entries = mEntries.load(std::memory_order_relaxed);
    return {.end = end,
            .writeError = mWriteError.load(std::memory_order_relaxed),
            .operations = entries - std::min(entries, uint64_t{1}),
            .unrecorded = mUnrecorded.load(std::memory_order_relaxed),
            .bytesWritten = mBytes.load(std::memory_order_relaxed)};
}

void RecordFile::write() {
    while (true) {
        // Before the ring is looked at, with acquire (see wakeWriter): what came before is found in
        // it, and what comes later ends the wait.
        uint32_t const wakeUps = mWakeUps.load(std::memory_order_acquire);
        // Likewise (see end): whatever was put in before the end is in the ring by now.
        bool const isLast = mEnd.load(std::memory_order_acquire) != RUNNING;
        drain();
        if (isLast) {
            break;
        }
        // An end that drain() itself brought about wakes nobody. The wait needs no order of its
        // own: the count is read again, above.
        if (isRunning()) {
            mWakeUps.wait(wakeUps, std::memory_order_relaxed);
        }
    }
    close();
    ZslRecorderStatus const last = status();
    if (last.end != ZslRecordingEnd::FINISHED) {
        __android_log_print(ANDROID_LOG_WARN, TAG, "%s: ends after %llu operations: %s%s%s",
                            mOptions.path.c_str(), static_cast<unsigned long long>(last.operations),
                            toString(last.end), last.writeError != 0 ? ": " : "",
                            last.writeError != 0 ? std::strerror(last.writeError) : "");
    }
}

void RecordFile::drain() {
    RecordRing::Pieces const pieces = mRing.peek();
    uint64_t const reserved =
        mBytes.load(std::memory_order_relaxed) + BLOCK_HEADER_BYTES + END_BLOCK_BYTES;
    uint64_t const room = mOptions.maxFileBytes - std::min(mOptions.maxFileBytes, reserved);
    uint64_t const limit = std::min(room, MOST_BLOCK_BYTES);
    size_t taken = 0;
    uint64_t const entries = countEntries(pieces, limit, taken);
    if (taken > 0) {
        writeBlock(firstBytes(pieces, taken));
        if (hasFailed()) {  // the entries stay in the ring: close() counts them as unrecorded
            return;
        }
        mEntries.fetch_add(entries, std::memory_order_relaxed);
        mRing.pop(taken);
    }
    if (taken < sizeOf(pieces)) {
        mEnd.store(ZslRecordingEnd::FILE_FULL, std::memory_order_release);
    }
}

void RecordFile::writeBlock(RecordRing::Pieces const& content) {
    Crc32 crc;
    for (auto const& piece : content) {
        crc.add(piece.data(), piece.size());
    }
    Encoder header;
    header.fixed(BLOCK_MAGIC);
    header.fixed(static_cast<uint32_t>(sizeOf(content)));
    header.fixed(crc.value());
    append({header.data(), header.size()});
    append(content[0]);
    append(content[1]);
    // Flushed block by block: a process that dies leaves whole blocks behind.
    if (!hasFailed() && std::fflush(mFile.get()) != 0) {
        fail(errno);
    }
    if (!hasFailed()) {
        mBytes.fetch_add(header.size() + sizeOf(content), std::memory_order_relaxed);
    }
}

void RecordFile::append(std::span<uint8_t const> bytes) {
    if (!bytes.empty() && !hasFailed() &&
        std::fwrite(bytes.data(), bytes.size(), 1, mFile.get()) != 1) {
        fail(errno);
    }
}

/// The file takes no more. Holds against every earlier reason: what that one promised is not there.
void RecordFile::fail(int error) {
    mWriteError.store(error, std::memory_order_relaxed);
    mEnd.store(ZslRecordingEnd::WRITE_FAILED, std::memory_order_release);
}

void RecordFile::writeEnd(ZslRecordingEnd why) {
    Encoder end;
    end.tag(Entry::END);
    end.tag(why);
    end.number(mUnrecorded.load(std::memory_order_relaxed));
    Encoder entry;
    entry.fixed(static_cast<uint32_t>(end.size()));
    writeBlock({std::span(entry.data(), entry.size()), std::span(end.data(), end.size())});
}

void RecordFile::close() {
    // What the file had no room for, or did not take, is lost with the ring.
    RecordRing::Pieces const left = mRing.peek();
    size_t size = 0;
    mUnrecorded.fetch_add(countEntries(left, sizeOf(left), size), std::memory_order_relaxed);
    if (!hasFailed()) {
        writeEnd(mEnd.load(std::memory_order_relaxed));
    }
    // A network's file system may refuse what it has buffered no sooner than now.
    if (std::fclose(mFile.release()) != 0 && !hasFailed()) {
        fail(errno);
    }
}

}  // namespace NSCam::v3::pipeline::model::record
