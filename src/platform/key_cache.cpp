// The imported-key cache: a small array searched under one lock. With a few dozen entries a
// scan of their hashes costs less than a hash table's upkeep, and the lock is held for
// that scan only, a small part of the signature check that follows.
#include "platform/key_cache.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <string_view>

namespace Velmor::Win32::Detail {

namespace {

std::size_t HashOf(std::span<const BYTE> bytes) noexcept {
    return std::hash<std::string_view>()(
        std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

PkeyPtr Share(EVP_PKEY* key) noexcept { return EVP_PKEY_up_ref(key) == 1 ? PkeyPtr(key) : nullptr; }

} // namespace

PublicKeyCache::PublicKeyCache(std::size_t capacity) : capacity_(capacity) {
    entries_.reserve(capacity);
}

PublicKeyCache::Entry* PublicKeyCache::Locate(std::size_t hash,
                                              std::span<const BYTE> spki) noexcept {
    for (Entry& entry : entries_) {
        if (entry.hash == hash && entry.spki.size() == spki.size() &&
            std::memcmp(entry.spki.data(), spki.data(), spki.size()) == 0) {
            return &entry;
        }
    }
    return nullptr;
}

PkeyPtr PublicKeyCache::Find(std::span<const BYTE> spki) {
    const std::size_t hash = HashOf(spki);
    const std::lock_guard lock(mutex_);
    Entry* entry = Locate(hash, spki);
    if (entry == nullptr) {
        return nullptr;
    }
    entry->lastUse = ++clock_;
    return Share(entry->key.get());
}

void PublicKeyCache::Insert(std::span<const BYTE> spki, EVP_PKEY* key) {
    if (capacity_ == 0) {
        return;
    }
    PkeyPtr stored = Share(key);
    if (stored == nullptr) {
        return;
    }
    const std::size_t hash = HashOf(spki);
    PkeyPtr evicted; // freed after the lock is given up
    const std::lock_guard lock(mutex_);
    if (Locate(hash, spki) != nullptr) {
        return; // another thread stored the same key first
    }
    if (entries_.size() < capacity_) {
        entries_.push_back({hash, {spki.begin(), spki.end()}, std::move(stored), ++clock_});
        return;
    }
    Entry& oldest =
        *std::min_element(entries_.begin(), entries_.end(),
                          [](const Entry& a, const Entry& b) { return a.lastUse < b.lastUse; });
    oldest.spki.assign(spki.begin(), spki.end()); // if this throws, the entry stays as it was
    oldest.hash = hash;
    evicted = std::move(oldest.key);
    oldest.key = std::move(stored);
    oldest.lastUse = ++clock_;
}

std::size_t PublicKeyCache::Size() const {
    const std::lock_guard lock(mutex_);
    return entries_.size();
}

PublicKeyCache& ImportedPublicKeys() noexcept {
    static auto* cache = new PublicKeyCache(kImportedKeyCacheSize);
    return *cache;
}

} // namespace Velmor::Win32::Detail
