#include "AllocationCounter.h"

#include <atomic>
#include <cstddef>

namespace zebcam::bench {
namespace {

// Benchmarks run on one thread; the atomic is for whatever a library does besides, and is used
// without locked instructions so that it does not show in the times.
std::atomic<uint64_t> counter{0};

}  // namespace

uint64_t allocations() {
    return counter.load(std::memory_order_relaxed);
}

}  // namespace zebcam::bench

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// The C library's own entry points, for those who put something in front of them.
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the C library's.
extern "C" void* __libc_malloc(size_t bytes);
extern "C" void* __libc_realloc(void* memory, size_t bytes);
// NOLINTEND(bugprone-reserved-identifier)

namespace {

void count() {
    using zebcam::bench::counter;
    counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void* malloc(size_t bytes) {
    count();
    return __libc_malloc(bytes);
}

extern "C" __attribute__((visibility("default"))) void* realloc(void* memory, size_t bytes) {
    count();
    return __libc_realloc(memory, bytes);
}

#endif
