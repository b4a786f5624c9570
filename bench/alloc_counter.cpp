// Interposes glibc's allocation entry points in the benchmark executable and counts them
// per thread before handing the call to glibc's own implementation.
#include "alloc_counter.h"

#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);
}

namespace {
thread_local std::uint64_t t_allocations = 0;
}

namespace velmor_bench {
std::uint64_t AllocationCount() noexcept { return t_allocations; }
} // namespace velmor_bench

extern "C" {

void* malloc(std::size_t size) {
    ++t_allocations;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    ++t_allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
    ++t_allocations;
    return __libc_realloc(memory, size);
}

void free(void* memory) { __libc_free(memory); }

} // extern "C"
