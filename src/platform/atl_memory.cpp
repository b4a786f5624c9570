// CCRTHeap on the C run-time heap.
#include "platform/atl_memory.h"

#include <cstdlib>
#include <malloc.h>

namespace ATL {

void* CCRTHeap::Allocate(std::size_t bytes) noexcept { return std::malloc(bytes); }

void CCRTHeap::Free(void* block) noexcept { std::free(block); }

void* CCRTHeap::Reallocate(void* block, std::size_t bytes) noexcept {
    return std::realloc(block, bytes);
}

std::size_t CCRTHeap::GetSize(void* block) noexcept {
    return block != nullptr ? malloc_usable_size(block) : 0;
}

IAtlMemMgr& DefaultCrtHeap() noexcept {
    static CCRTHeap heap;
    return heap;
}

} // namespace ATL
