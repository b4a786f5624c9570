// The per-thread free lists behind PoolAllocate and PoolFree.
#include "foundation/record_pool.h"

#include <array>

#if defined(__SANITIZE_ADDRESS__)
#define VELMOR_POOL_BYPASS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELMOR_POOL_BYPASS 1
#endif
#endif

namespace Velmor::Detail {

namespace {

constexpr std::size_t kGranule = 16;
constexpr std::size_t kClasses = kLargestPooled / kGranule;

struct FreeBlock {
    FreeBlock* next;
};

// Trivially destructible, so that it stays readable while the thread's other thread-local
// objects are being destroyed; Teardown empties it and closes it first.
struct ThreadCache {
    std::array<FreeBlock*, kClasses> heads;
    std::size_t heldBytes;
    bool registered;
};

constexpr std::size_t kClosed = kHeldBytesPerThread + 1;

thread_local ThreadCache t_cache{};

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

// Marks the cache as holding blocks and makes sure Teardown runs at the thread's exit. Out
// of line: it runs once per thread.
[[gnu::noinline]] void Register(ThreadCache& cache) noexcept {
    cache.registered = true;
    static_cast<void>(&t_teardown); // constructs it, so its destructor runs at exit
}

// The class of a size in 1..kLargestPooled, and the octets of a block of that class.
std::size_t ClassOf(std::size_t size) noexcept { return (size + kGranule - 1) / kGranule - 1; }
std::size_t BytesOf(std::size_t sizeClass) noexcept { return (sizeClass + 1) * kGranule; }

bool Pooled(std::size_t size) noexcept {
#if defined(VELMOR_POOL_BYPASS)
    (void)size;
    return false;
#else
    return size != 0 && size <= kLargestPooled;
#endif
}

} // namespace

void* PoolAllocate(std::size_t size) {
    if (!Pooled(size)) {
        return ::operator new(size);
    }
    const std::size_t sizeClass = ClassOf(size);
    ThreadCache& cache = t_cache;
    FreeBlock* block = cache.heads[sizeClass];
    if (block == nullptr) {
        return ::operator new(BytesOf(sizeClass));
    }
    cache.heads[sizeClass] = block->next;
    cache.heldBytes -= BytesOf(sizeClass);
    return block;
}

void PoolFree(void* block, std::size_t size) noexcept {
    if (block == nullptr) {
        return;
    }
    ThreadCache& cache = t_cache;
    const std::size_t sizeClass = ClassOf(size);
    // A closed cache holds kClosed octets, so that nothing fits any more.
    if (!Pooled(size) || cache.heldBytes + BytesOf(sizeClass) > kHeldBytesPerThread) {
        ::operator delete(block);
        return;
    }
    if (!cache.registered) {
        Register(cache);
    }
    auto* freed = static_cast<FreeBlock*>(block);
    freed->next = cache.heads[sizeClass];
    cache.heads[sizeClass] = freed;
    cache.heldBytes += BytesOf(sizeClass);
}

bool PoolRecycles() noexcept { return Pooled(1); }

std::size_t PoolHeldBytes() noexcept {
    return t_cache.heldBytes == kClosed ? 0 : t_cache.heldBytes;
}

} // namespace Velmor::Detail
