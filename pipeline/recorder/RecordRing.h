#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace NSCam::v3::pipeline::model::record {

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

}  // namespace NSCam::v3::pipeline::model::record
