// What provider, hash and key handles stand for, and the tables that hold them.
#ifndef VELMOR_SRC_PLATFORM_CRYPT_OBJECTS_H
#define VELMOR_SRC_PLATFORM_CRYPT_OBJECTS_H

#include "platform/crypt_handles.h"
#include "platform/crypt_support.h"
#include "platform/provider_table.h"

#include <array>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace Velmor::Win32::Detail {

// An open provider: its table row and, unless it is a verification context, its private
// key.
struct ProviderState {
    const ProviderEntry* entry = nullptr;
    PkeyPtr key;
    // Index of the next PP_ENUMALGS_EX record; shared by every reference to the handle.
    std::atomic<std::size_t> nextAlgorithm{0};
    // Signing contexts for key not in use, each with the digest it was set up for. Setting
    // one up (OpenSSL 3.0 fetches the signature and the digest again by name) costs a few
    // microseconds, a tenth of a P-256 signature, and one context makes any number of
    // signatures; threads that sign with the provider at once each take their own.
    std::mutex signingMutex;
    std::vector<std::pair<const EVP_MD*, PkeyCtxPtr>> idleSigning;
};

// A hash in progress (context set) or finished (value set).
struct HashState {
    std::shared_ptr<ProviderState> provider;
    ALG_ID algId = 0;
    MdCtxPtr context;
    std::array<BYTE, EVP_MAX_MD_SIZE> value{};
    DWORD valueSize = 0;
    // The signature the first CryptSignHashW made, in CryptoAPI byte order.
    std::vector<BYTE> signature;
};

// An imported public key.
struct KeyState {
    PkeyPtr key;
    ALG_ID algId = 0; // CALG_RSA_KEYX or CALG_ECDSA
};

HandleTable<ProviderState>& ProviderHandles() noexcept;
HandleTable<HashState>& HashHandles() noexcept;
HandleTable<KeyState>& KeyHandles() noexcept;

// The digest of a hash ALG_ID, fetched from OpenSSL's default provider once per process;
// null for an ALG_ID that is not one of the five hashes.
const EVP_MD* DigestFor(ALG_ID algId) noexcept;

// Finishes a hash (once) and returns its value.
std::span<const BYTE> FinishHash(HashState& hash) noexcept;

} // namespace Velmor::Win32::Detail

#endif
