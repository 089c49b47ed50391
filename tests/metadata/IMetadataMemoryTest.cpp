#include <gtest/gtest.h>
#include <metadata/IMetadata.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <new>
#include <vector>

namespace {

/// What this thread asked of the heap, and after how many allocations the heap is to refuse.
struct Heap {
    size_t allocations = 0;
    size_t largest = 0;
    size_t allowed = SIZE_MAX;
};
thread_local Heap heap;

}  // namespace

// Not inlined, lest the compiler takes one half of a pair for the library's.
[[gnu::noinline]] void* operator new(size_t bytes) {
    if (heap.allocations >= heap.allowed) {
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(std::max<size_t>(bytes, 1));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++heap.allocations;
    heap.largest = std::max(heap.largest, bytes);
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
// The array forms too: a sanitizer's do not come by the ones above.
[[gnu::noinline]] void* operator new[](size_t bytes) {
    return operator new(bytes);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}

namespace NSCam {
namespace {

using IEntry = IMetadata::IEntry;
constexpr Type2Type<int32_t> INT32;

IEntry makeEntry(IMetadata::Tag tag, size_t items, int32_t value) {
    IEntry entry(tag);
    for (size_t i = 0; i < items; ++i) {
        entry.push_back(value, INT32);
    }
    return entry;
}

/// Entries of `step`, 2 x `step`, ...; every third one is large.
IMetadata makeMetadata(size_t entries, IMetadata::Tag step, int32_t value) {
    IMetadata metadata;
    for (IMetadata::Tag i = 1; i <= entries; ++i) {
        metadata.update(i * step, makeEntry(i * step, i % 3 == 0 ? 50 : 1, value));
    }
    return metadata;
}

std::vector<int32_t> contentOf(IMetadata const& metadata) {
    std::vector<int32_t> content;
    for (size_t i = 0; i < metadata.count(); ++i) {
        IEntry const entry = metadata.entryAt(i);
        content.push_back(static_cast<int32_t>(entry.tag()));
        for (size_t k = 0; k < entry.count(); ++k) {
            content.push_back(entry.itemAt(k, INT32));
        }
    }
    return content;
}

TEST(IMetadataMemory, CopyAndMergeAllocateOnceAndLookupsNever) {
    IMetadata const some = makeMetadata(100, 2, 1);
    IMetadata const more = makeMetadata(200, 1, 2);

    heap = {};
    IMetadata copy(some);
    EXPECT_EQ(heap.allocations, 1U);
    copy += more;
    EXPECT_EQ(heap.allocations, 2U);

    IMetadata full(copy);  // without spare room
    heap = {};
    full.update(10, some.entryFor(2));
    EXPECT_EQ(heap.allocations, 0U) << "a small entry takes the place of another";

    heap = {};
    int64_t sum = 0;
    for (IMetadata::Tag tag = 0; tag < 210; ++tag) {
        sum += copy.entryFor(tag).itemAt(0, INT32) + copy.entryAt(tag).itemAt(0, INT32);
    }
    EXPECT_EQ(heap.allocations, 0U);
    EXPECT_EQ(sum, 200 * 2 + 200 * 2);
}

TEST(IMetadataMemory, StaysInProportionToWhatItHolds) {
    constexpr size_t ITEMS = 1000;
    constexpr size_t LIVE_BYTES = 2 * ITEMS * sizeof(int32_t);
    IMetadata other;
    other.update(1, makeEntry(1, ITEMS, 1));
    other.update(2, makeEntry(2, ITEMS, 2));
    std::vector<std::function<void(IMetadata&, size_t)>> const changes{
        [&](IMetadata& metadata, size_t) { metadata += other; },
        [&](IMetadata& metadata, size_t i) {
            metadata.update(1, makeEntry(1, 3, 1));
            metadata.update(1, makeEntry(1, ITEMS, 1));
            metadata.remove(1 + i % 2);
            metadata.update(1 + i % 2, makeEntry(1, ITEMS, 1));
        },
    };
    for (size_t change = 0; change < changes.size(); ++change) {
        IMetadata metadata = other;
        heap = {};
        for (size_t i = 0; i < 200; ++i) {
            changes[change](metadata, i);
        }
        EXPECT_LE(heap.largest, 5 * LIVE_BYTES) << "change " << change;
        EXPECT_EQ(metadata.count(), 2U);
        heap = {};
        IMetadata const compact(metadata);
        EXPECT_GE(heap.largest, LIVE_BYTES + 2 * 16)
            << "no room for what is alive, change " << change;
    }
}

TEST(IMetadataMemory, AFailedAllocationChangesNothing) {
    IMetadata const other = makeMetadata(30, 2, 5);
    IEntry const large = makeEntry(9, 60, 6);
    std::vector<std::function<void(IMetadata&)>> const changes{
        [&](IMetadata& metadata) { metadata += other; },
        [&](IMetadata& metadata) { metadata.update(9, large); },
        [&](IMetadata& metadata) { metadata.update(10, metadata.entryFor(3)); },
        [&](IMetadata& metadata) {
            IEntry entry = metadata.entryFor(3);
            entry.push_back(1, INT32);
            metadata.update(3, entry);
        },
    };
    IMetadata full = makeMetadata(10, 1, 4);
    full = IMetadata(full);  // a copy has no spare room
    std::vector<int32_t> const before = contentOf(full);
    for (size_t change = 0; change < changes.size(); ++change) {
        size_t failures = 0;
        for (bool done = false; !done;) {
            IMetadata metadata(full);
            heap = {.allowed = failures};
            try {
                changes[change](metadata);
                done = true;
            } catch (std::bad_alloc const&) {
                ++failures;
            }
            heap = {};
            EXPECT_EQ(contentOf(metadata) == before, !done) << "change " << change;
            ASSERT_LT(failures, 10U);
        }
        EXPECT_GE(failures, 1U) << "change " << change;
    }
}

}  // namespace
}  // namespace NSCam
