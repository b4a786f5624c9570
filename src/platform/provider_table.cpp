// The default provider table and the hook that replaces it.
#include "platform/provider_table.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>

namespace Velmor::Win32::Detail {

namespace {

// The hashes both default providers implement, first in their algorithm lists.
constexpr ProviderAlgorithm kHashAlgorithms[] = {
    {CALG_MD5, 128, 128, 128, CRYPT_FLAG_SIGNING, "MD5", "Message Digest 5 (MD5)"},
    {CALG_SHA1, 160, 160, 160, CRYPT_FLAG_SIGNING, "SHA-1", "Secure Hash Algorithm (SHA-1)"},
    {CALG_SHA_256, 256, 256, 256, CRYPT_FLAG_SIGNING, "SHA-256", "Secure Hash Algorithm (SHA-256)"},
    {CALG_SHA_384, 384, 384, 384, CRYPT_FLAG_SIGNING, "SHA-384", "Secure Hash Algorithm (SHA-384)"},
    {CALG_SHA_512, 512, 512, 512, CRYPT_FLAG_SIGNING, "SHA-512", "Secure Hash Algorithm (SHA-512)"},
};

// The hash algorithms followed by a provider's own ones.
template <std::size_t N> constexpr auto WithHashes(const ProviderAlgorithm (&own)[N]) {
    std::array<ProviderAlgorithm, std::size(kHashAlgorithms) + N> all{};
    auto next = std::copy(std::begin(kHashAlgorithms), std::end(kHashAlgorithms), all.begin());
    std::copy(std::begin(own), std::end(own), next);
    return all;
}

constexpr ProviderAlgorithm kRsaAlgorithms[] = {
    {CALG_RSA_SIGN, 2048, 512, 16384, CRYPT_FLAG_SIGNING, "RSA_SIGN", "RSA Signature"},
    {CALG_RSA_KEYX, 2048, 512, 16384, CRYPT_FLAG_SIGNING, "RSA_KEYX", "RSA Key Exchange"},
};
constexpr ProviderAlgorithm kEcdsaAlgorithms[] = {
    {CALG_ECDSA, 256, 256, 521, CRYPT_FLAG_SIGNING, "ECDSA",
     "Elliptic Curve Digital Signature Alg."},
};

constexpr auto kRsaFullAlgorithms = WithHashes(kRsaAlgorithms);
constexpr auto kEcdsaFullAlgorithms = WithHashes(kEcdsaAlgorithms);

constexpr char kRsaFullProvider[] = "Microsoft Base Cryptographic Provider v1.0";
constexpr char kEcdsaFullProvider[] = "Velmor ECDSA Cryptographic Provider";

constexpr ProviderTypeEntry kDefaultTypes[] = {
    {PROV_RSA_FULL, "RSA Full (Signature and Key Exchange)", kRsaFullProvider},
    {PROV_EC_ECDSA_FULL, "EC ECDSA Full", kEcdsaFullProvider},
};

constexpr ProviderEntry kDefaultProviders[] = {
    {kRsaFullProvider, PROV_RSA_FULL, 0, kRsaFullAlgorithms},
    {kEcdsaFullProvider, PROV_EC_ECDSA_FULL, 0, kEcdsaFullAlgorithms},
};

constexpr ProviderTable kDefaultTable = {kDefaultTypes, kDefaultProviders};

std::atomic<const ProviderTable*> g_installed{&kDefaultTable};

} // namespace

const ProviderTable& InstalledProviders() noexcept {
    return *g_installed.load(std::memory_order_acquire);
}

void SetProviderTableForTesting(const ProviderTable* table) noexcept {
    g_installed.store(table != nullptr ? table : &kDefaultTable, std::memory_order_release);
}

const ProviderEntry* FindProvider(const ProviderTable& table, std::string_view name) noexcept {
    for (const ProviderEntry& provider : table.providers) {
        if (name == provider.name) {
            return &provider;
        }
    }
    return nullptr;
}

const ProviderTypeEntry* FindProviderType(const ProviderTable& table, DWORD type) noexcept {
    for (const ProviderTypeEntry& entry : table.types) {
        if (entry.type == type) {
            return &entry;
        }
    }
    return nullptr;
}

bool Implements(const ProviderEntry& provider, ALG_ID algId) noexcept {
    for (const ProviderAlgorithm& algorithm : provider.algorithms) {
        if (algorithm.algId == algId) {
            return true;
        }
    }
    return false;
}

} // namespace Velmor::Win32::Detail
