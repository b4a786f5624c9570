// The registry behind CryptoAPI handles: a table of live objects per handle kind, with the
// reference counts of CryptContextAddRef / CryptReleaseContext.
#ifndef VELMOR_SRC_PLATFORM_CRYPT_HANDLES_H
#define VELMOR_SRC_PLATFORM_CRYPT_HANDLES_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace Velmor::Win32::Detail {

enum class HandleKind : std::uint64_t { Provider = 1, Hash = 2, Key = 3 };

// A handle value packs the kind (bits 60-63), the slot's generation (bits 32-59) and the
// slot index plus one (bits 0-31). A released slot moves to the next generation, so its old
// handles stay unknown after the slot is reused; a handle of another kind and 0 are never
// found. Lookups hand out shared ownership, so an object being used by one thread survives
// its release by another.
template <class T> class HandleTable {
  public:
    explicit HandleTable(HandleKind kind) noexcept : kind_(kind) {}
    HandleTable(const HandleTable&) = delete;
    HandleTable& operator=(const HandleTable&) = delete;

    // A new handle holding one reference to object.
    std::uintptr_t Add(std::shared_ptr<T> object) {
        std::lock_guard lock(mutex_);
        std::uint32_t index = 0;
        if (!free_.empty()) {
            index = free_.back();
            free_.pop_back();
        } else {
            index = static_cast<std::uint32_t>(slots_.size());
            slots_.emplace_back();
            // Release then never allocates: every slot fits the free list.
            free_.reserve(slots_.size());
        }
        Slot& slot = slots_[index];
        slot.references = 1;
        slot.object = std::move(object);
        return Pack(index, slot.generation);
    }

    // The object of a live handle, or null.
    std::shared_ptr<T> Find(std::uintptr_t handle) const {
        std::lock_guard lock(mutex_);
        const Slot* slot = Locate(handle);
        return slot != nullptr ? slot->object : nullptr;
    }

    // Adds a reference; false for an unknown handle.
    bool AddRef(std::uintptr_t handle) {
        std::lock_guard lock(mutex_);
        Slot* slot = Locate(handle);
        if (slot == nullptr) {
            return false;
        }
        ++slot->references;
        return true;
    }

    // Drops a reference, and the table's hold on the object with the last one; false for an
    // unknown handle. The object itself is destroyed outside the lock.
    bool Release(std::uintptr_t handle) {
        std::shared_ptr<T> last;
        {
            std::lock_guard lock(mutex_);
            Slot* slot = Locate(handle);
            if (slot == nullptr) {
                return false;
            }
            if (--slot->references == 0) {
                last = std::move(slot->object);
                slot->generation = (slot->generation + 1) & kGenerationMask;
                free_.push_back(static_cast<std::uint32_t>(handle & kIndexMask) - 1);
            }
        }
        return true;
    }

  private:
    static constexpr std::uint64_t kIndexMask = 0xFFFFFFFFu;
    static constexpr std::uint32_t kGenerationMask = 0x0FFFFFFFu;
    static_assert(sizeof(std::uintptr_t) == 8, "handles pack 64 bits");

    struct Slot {
        std::uint32_t generation = 0;
        std::uint32_t references = 0;
        std::shared_ptr<T> object;
    };

    std::uintptr_t Pack(std::uint32_t index, std::uint32_t generation) const noexcept {
        return (static_cast<std::uint64_t>(kind_) << 60) |
               (static_cast<std::uint64_t>(generation) << 32) | (std::uint64_t{index} + 1);
    }

    // The live slot a handle names, or null. The caller holds the lock.
    const Slot* Locate(std::uintptr_t handle) const noexcept {
        const std::uint64_t index = handle & kIndexMask;
        if ((handle >> 60) != static_cast<std::uint64_t>(kind_) || index == 0 ||
            index > slots_.size()) {
            return nullptr;
        }
        const Slot& slot = slots_[index - 1];
        const auto generation = static_cast<std::uint32_t>(handle >> 32) & kGenerationMask;
        return slot.references != 0 && slot.generation == generation ? &slot : nullptr;
    }
    Slot* Locate(std::uintptr_t handle) noexcept {
        return const_cast<Slot*>(std::as_const(*this).Locate(handle));
    }

    const HandleKind kind_;
    mutable std::mutex mutex_;
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;
};

} // namespace Velmor::Win32::Detail

#endif
