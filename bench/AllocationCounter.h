#pragma once

#include <cstdint>

namespace zebcam::bench {

/// Heap allocations of the process so far, by whatever way: malloc, realloc and operator new.
/// Always 0 in a build with sanitizers, which have a heap of their own.
uint64_t allocations();

}  // namespace zebcam::bench
