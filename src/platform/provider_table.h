// The installed providers: provider types with their default providers, and providers with
// the algorithms they implement. The default table is static data; tests install their own
// through SetProviderTableForTesting.
#ifndef VELMOR_SRC_PLATFORM_PROVIDER_TABLE_H
#define VELMOR_SRC_PLATFORM_PROVIDER_TABLE_H

#include "platform/crypt_api.h"

#include <span>
#include <string_view>

namespace Velmor::Win32::Detail {

// One algorithm of a provider, as PP_ENUMALGS_EX reports it.
struct ProviderAlgorithm {
    ALG_ID algId;
    DWORD defaultLength;
    DWORD minLength;
    DWORD maxLength;
    DWORD protocols;
    const char* name;     // at most 19 characters
    const char* longName; // at most 39 characters
};

struct ProviderEntry {
    const char* name;
    DWORD type;
    // 0 when the provider opens; otherwise the last error CryptAcquireContextW fails with.
    DWORD openError;
    std::span<const ProviderAlgorithm> algorithms;
};

struct ProviderTypeEntry {
    DWORD type;
    const char* typeName;
    const char* defaultProvider; // null: the type has no default provider
};

struct ProviderTable {
    std::span<const ProviderTypeEntry> types;
    std::span<const ProviderEntry> providers;
};

// The table in force: the default one unless a test replaced it.
const ProviderTable& InstalledProviders() noexcept;

// Replaces the table in force until the next call; null restores the default table. The
// table and everything it points to must outlive every provider handle opened while it is
// installed. For tests only: it is not exported, and it is not synchronised with threads
// that are opening providers at the same time.
void SetProviderTableForTesting(const ProviderTable* table) noexcept;

const ProviderEntry* FindProvider(const ProviderTable& table, std::string_view name) noexcept;
const ProviderTypeEntry* FindProviderType(const ProviderTable& table, DWORD type) noexcept;
bool Implements(const ProviderEntry& provider, ALG_ID algId) noexcept;

} // namespace Velmor::Win32::Detail

#endif
