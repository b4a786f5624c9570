// What provider, hash and key handles stand for, and the tables that hold them.
#ifndef VELMOR_SRC_PLATFORM_CRYPT_OBJECTS_H
#define VELMOR_SRC_PLATFORM_CRYPT_OBJECTS_H

#include "platform/crypt_handles.h"
#include "platform/crypt_support.h"
#include "platform/provider_table.h"

#include <array>
#include <atomic>
#include <vector>

namespace Velmor::Win32::Detail {

// An open provider: its table row and, unless it is a verification context, its private
// key.
struct ProviderState {
    const ProviderEntry* entry = nullptr;
    PkeyPtr key;
    // Index of the next PP_ENUMALGS_EX record; shared by every reference to the handle.
    std::atomic<std::size_t> nextAlgorithm{0};
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
