// A bounded cache of imported public keys, keyed by the DER SubjectPublicKeyInfo they were
// imported from, so that importing the key of the same certificate again costs a lookup.
#ifndef VELMOR_SRC_PLATFORM_KEY_CACHE_H
#define VELMOR_SRC_PLATFORM_KEY_CACHE_H

#include "platform/crypt_support.h"

#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace Velmor::Win32::Detail {

// At most capacity keys; when it is full, a new key takes the place of the one looked up or
// stored longest ago. Every member may be called from any thread. The cache shares the keys
// (EVP_PKEY_up_ref) with its callers, who must only use them in ways that do not change
// them, as signature checks do.
class PublicKeyCache {
  public:
    explicit PublicKeyCache(std::size_t capacity);
    PublicKeyCache(const PublicKeyCache&) = delete;
    PublicKeyCache& operator=(const PublicKeyCache&) = delete;

    // A reference of the caller's own to the key stored for spki, or null.
    PkeyPtr Find(std::span<const BYTE> spki);
    // Stores a reference to key for spki, unless a key is stored for it already.
    void Insert(std::span<const BYTE> spki, EVP_PKEY* key);

    std::size_t Size() const;
    std::size_t Capacity() const noexcept { return capacity_; }

  private:
    struct Entry {
        std::size_t hash = 0;
        std::vector<BYTE> spki;
        PkeyPtr key;
        std::uint64_t lastUse = 0;
    };

    // The entry for spki, or null. The caller holds the lock.
    Entry* Locate(std::size_t hash, std::span<const BYTE> spki) noexcept;

    const std::size_t capacity_;
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
    std::uint64_t clock_ = 0;
};

// The number of keys the process-wide cache holds at most.
inline constexpr std::size_t kImportedKeyCacheSize = 64;

// The process-wide cache that CryptImportPublicKeyInfo uses. It is never destroyed, so that
// no key is freed at exit after OpenSSL has cleaned up.
PublicKeyCache& ImportedPublicKeys() noexcept;

} // namespace Velmor::Win32::Detail

#endif
