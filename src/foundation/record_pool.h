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

namespace Velmor::Detail {

inline constexpr std::size_t kLargestPooled = 512;
inline constexpr std::size_t kHeldBytesPerThread = std::size_t{4} << 20;

// A block of at least size octets, aligned for any fundamental type; throws std::bad_alloc.
VELMOR_OCSP_LOCAL void* PoolAllocate(std::size_t size);
// Gives back a block of PoolAllocate(size), with the same size.
VELMOR_OCSP_LOCAL void PoolFree(void* block, std::size_t size) noexcept;

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
