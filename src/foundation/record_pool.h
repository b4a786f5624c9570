// Per-thread recycling of the small blocks that value-class records, list objects and
// alternatives are made of. A decode builds a handful of such blocks per entry and the
// object that held the previous answer frees the same shapes: handing the freed blocks to
// the next decode on the same thread skips the general-purpose allocator for them.
//
// Blocks are rounded up to 16 octets; sizes over kLargestPooled go straight to operator new.
// A thread keeps at most kHeldBytesPerThread octets of free blocks; beyond that, and after
// the thread's own cache has been torn down at thread exit, freed blocks return to operator
// delete. A block may be freed on another thread than the one that made it. Under
// AddressSanitizer every block goes to operator new/delete, so that use after free is
// still reported.
#ifndef VELMOR_SRC_FOUNDATION_RECORD_POOL_H
#define VELMOR_SRC_FOUNDATION_RECORD_POOL_H

#include <cstddef>
#include <new>
#include <pki/ocsp/config.h>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#define VELMOR_POOL_BYPASS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELMOR_POOL_BYPASS 1
#endif
#endif

namespace Velmor::Detail {

inline constexpr std::size_t kLargestPooled = 512;
inline constexpr std::size_t kHeldBytesPerThread = std::size_t{4} << 20;

namespace Pool {

inline constexpr std::size_t kGranule = 16;
inline constexpr std::size_t kClasses = kLargestPooled / kGranule;

struct FreeBlock {
    FreeBlock* next;
};

// The thread's free lists, one per class of 16 octets. Trivially destructible and constant
// initialised, so that it stays readable while the thread's other thread-local objects are
// being destroyed, and is reached without an initialisation check.
struct ThreadCache {
    FreeBlock* heads[kClasses];
    std::size_t heldBytes;
    bool registered; // the thread's teardown will empty it
};

VELMOR_OCSP_LOCAL extern constinit thread_local ThreadCache t_cache;

// The class of a size in 1..kLargestPooled, and the octets of a block of that class.
constexpr std::size_t ClassOf(std::size_t size) noexcept { return (size - 1) / kGranule; }
constexpr std::size_t BytesOf(std::size_t sizeClass) noexcept { return (sizeClass + 1) * kGranule; }

// Whether size is one the pool keeps blocks of, in this build.
constexpr bool Pooled(std::size_t size) noexcept {
#if defined(VELMOR_POOL_BYPASS)
    static_cast<void>(size);
    return false;
#else
    return size - 1 < kLargestPooled; // 1..kLargestPooled
#endif
}

// Everything the inline paths below leave: sizes not pooled, an empty list, a full or
// closed cache, and a thread's first block.
[[gnu::noinline]] VELMOR_OCSP_LOCAL void* AllocateElsewhere(std::size_t size);
[[gnu::noinline]] VELMOR_OCSP_LOCAL void FreeElsewhere(void* block, std::size_t size) noexcept;

} // namespace Pool

// A block of at least size octets, aligned for any fundamental type; throws std::bad_alloc.
// A block of the thread's list for its class is taken inline.
[[gnu::always_inline]] inline void* PoolAllocate(std::size_t size) {
    if (Pool::Pooled(size)) {
        const std::size_t sizeClass = Pool::ClassOf(size);
        Pool::ThreadCache& cache = Pool::t_cache;
        if (Pool::FreeBlock* block = cache.heads[sizeClass]) {
            cache.heads[sizeClass] = block->next;
            cache.heldBytes -= Pool::BytesOf(sizeClass);
            return block;
        }
    }
    return Pool::AllocateElsewhere(size);
}

// Gives back a block of PoolAllocate(size), with the same size. Onto the thread's list for
// its class inline, while the cache is open and has room.
[[gnu::always_inline]] inline void PoolFree(void* block, std::size_t size) noexcept {
    if (block != nullptr && Pool::Pooled(size)) {
        const std::size_t sizeClass = Pool::ClassOf(size);
        Pool::ThreadCache& cache = Pool::t_cache;
        // A closed cache holds more than the limit, so that nothing fits any more.
        if (cache.registered && cache.heldBytes + Pool::BytesOf(sizeClass) <= kHeldBytesPerThread) {
            auto* freed = static_cast<Pool::FreeBlock*>(block);
            freed->next = cache.heads[sizeClass];
            cache.heads[sizeClass] = freed;
            cache.heldBytes += Pool::BytesOf(sizeClass);
            return;
        }
    }
    Pool::FreeElsewhere(block, size);
}

// Whether blocks are recycled at all in this build (not under AddressSanitizer).
VELMOR_OCSP_LOCAL bool PoolRecycles() noexcept;
// Octets of free blocks the calling thread holds.
VELMOR_OCSP_LOCAL std::size_t PoolHeldBytes() noexcept;

// Base of a private record: new and delete of the record (and of any class derived from it,
// through a virtual destructor) go through the pool.
struct PooledRecord {
    static void* operator new(std::size_t size) { return PoolAllocate(size); }
    static void operator delete(void* block, std::size_t size) noexcept { PoolFree(block, size); }
};

// A T made in a pool block, and its end; for objects whose type cannot derive from
// PooledRecord (a standard container).
template <class T, class... Args> T* PoolNew(Args&&... args) {
    void* block = PoolAllocate(sizeof(T));
    try {
        return ::new (block) T(std::forward<Args>(args)...);
    } catch (...) {
        PoolFree(block, sizeof(T));
        throw;
    }
}

template <class T> void PoolDelete(T* object) noexcept {
    if (object != nullptr) {
        object->~T();
        PoolFree(object, sizeof(T));
    }
}

} // namespace Velmor::Detail

#endif
