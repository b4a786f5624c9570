// Counts heap allocations (malloc, calloc, realloc and everything built on them, such as
// operator new and OpenSSL's allocator), so a benchmark can report allocations per
// operation. Read the counter before and after the work.
#ifndef VELMOR_BENCH_ALLOC_COUNTER_H
#define VELMOR_BENCH_ALLOC_COUNTER_H

#include <cstdint>

namespace velmor_bench {

// Number of heap allocations made by this thread so far.
std::uint64_t AllocationCount() noexcept;

} // namespace velmor_bench

#endif
