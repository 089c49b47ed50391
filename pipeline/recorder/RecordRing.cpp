#include "RecordRing.h"

#include <algorithm>
#include <limits>

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

}  // namespace NSCam::v3::pipeline::model::record
