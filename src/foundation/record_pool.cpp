// The per-thread free lists behind PoolAllocate and PoolFree.
#include "foundation/record_pool.h"

namespace Velmor::Detail {

namespace Pool {

constinit thread_local ThreadCache t_cache{};

namespace {

constexpr std::size_t kClosed = kHeldBytesPerThread + 1;

void Drain(ThreadCache& cache) noexcept {
    for (FreeBlock*& head : cache.heads) {
        while (head != nullptr) {
            FreeBlock* block = head;
            head = block->next;
            ::operator delete(block);
        }
    }
    cache.heldBytes = 0;
}

// Frees the thread's cached blocks when the thread ends; later frees bypass the cache.
struct Teardown {
    Teardown() noexcept = default;
    Teardown(const Teardown&) = delete;
    Teardown& operator=(const Teardown&) = delete;
    ~Teardown() {
        Drain(t_cache);
        t_cache.heldBytes = kClosed;
    }
};

thread_local Teardown t_teardown;

} // namespace

void* AllocateElsewhere(std::size_t size) {
    // A pooled size whose list is empty gets a block of its whole class, so that it can go
    // on that list when freed.
    return ::operator new(Pooled(size) ? BytesOf(ClassOf(size)) : size);
}

void FreeElsewhere(void* block, std::size_t size) noexcept {
    if (block == nullptr) {
        return;
    }
    ThreadCache& cache = t_cache;
    if (!Pooled(size) || cache.heldBytes + BytesOf(ClassOf(size)) > kHeldBytesPerThread) {
        ::operator delete(block);
        return;
    }
    // The thread's first block: its teardown is made, so that it runs at the thread's exit.
    cache.registered = true;
    static_cast<void>(&t_teardown);
    PoolFree(block, size);
}

} // namespace Pool

bool PoolRecycles() noexcept { return Pool::Pooled(1); }

std::size_t PoolHeldBytes() noexcept {
    const std::size_t held = Pool::t_cache.heldBytes;
    return held > kHeldBytesPerThread ? 0 : held; // a closed cache holds nothing
}

} // namespace Velmor::Detail
