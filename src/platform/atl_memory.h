// ATL's memory-manager interface and its C run-time heap implementation, for buffers that
// grow on demand (the provider enumerators' name buffers).
#ifndef VELMOR_SRC_PLATFORM_ATL_MEMORY_H
#define VELMOR_SRC_PLATFORM_ATL_MEMORY_H

#include <cstddef>

namespace ATL {

// Allocate and Reallocate return null when memory is out; Reallocate then leaves the old
// block as it was. Free and GetSize take null.
class IAtlMemMgr {
  public:
    virtual void* Allocate(std::size_t bytes) noexcept = 0;
    virtual void Free(void* block) noexcept = 0;
    virtual void* Reallocate(void* block, std::size_t bytes) noexcept = 0;
    virtual std::size_t GetSize(void* block) noexcept = 0;

  protected:
    ~IAtlMemMgr() = default;
};

// malloc, free and realloc.
class CCRTHeap final : public IAtlMemMgr {
  public:
    void* Allocate(std::size_t bytes) noexcept override;
    void Free(void* block) noexcept override;
    void* Reallocate(void* block, std::size_t bytes) noexcept override;
    std::size_t GetSize(void* block) noexcept override;
};

// The process's CCRTHeap, the default memory manager of the enumerators.
IAtlMemMgr& DefaultCrtHeap() noexcept;

} // namespace ATL

#endif
