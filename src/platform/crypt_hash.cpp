// Hash objects on OpenSSL digests.
#include "platform/crypt_objects.h"

namespace Velmor::Win32 {

using namespace Detail;

namespace Detail {

namespace {

struct DigestName {
    ALG_ID algId;
    const char* name;
};

constexpr DigestName kDigests[] = {
    {CALG_MD5, "MD5"},        {CALG_SHA1, "SHA1"},      {CALG_SHA_256, "SHA256"},
    {CALG_SHA_384, "SHA384"}, {CALG_SHA_512, "SHA512"},
};

// Fetching a digest takes a lookup in OpenSSL's method store; doing it once per process
// keeps it out of every hash.
std::array<const EVP_MD*, std::size(kDigests)> FetchDigests() noexcept {
    std::array<const EVP_MD*, std::size(kDigests)> fetched{};
    for (std::size_t i = 0; i < fetched.size(); ++i) {
        fetched[i] = EVP_MD_fetch(nullptr, kDigests[i].name, nullptr);
    }
    return fetched;
}

} // namespace

const EVP_MD* DigestFor(ALG_ID algId) noexcept {
    static const auto digests = FetchDigests();
    for (std::size_t i = 0; i < digests.size(); ++i) {
        if (kDigests[i].algId == algId) {
            return digests[i];
        }
    }
    return nullptr;
}

std::span<const BYTE> FinishHash(HashState& hash) noexcept {
    if (hash.context != nullptr) {
        unsigned size = 0;
        EVP_DigestFinal_ex(hash.context.get(), hash.value.data(), &size);
        hash.context.reset();
    }
    return {hash.value.data(), hash.valueSize};
}

} // namespace Detail

BOOL CryptCreateHash(HCRYPTPROV provider, ALG_ID algId, HCRYPTKEY key, DWORD flags,
                     HCRYPTHASH* hash) {
    auto state = ProviderHandles().Find(provider);
    if (state == nullptr) {
        return Fail(NTE_BAD_UID);
    }
    if (hash == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (key != 0) {
        return Fail(NTE_BAD_KEY);
    }
    if (flags != 0) {
        return Fail(NTE_BAD_FLAGS);
    }
    const EVP_MD* digest = DigestFor(algId);
    if (digest == nullptr || !Implements(*state->entry, algId)) {
        return Fail(NTE_BAD_ALGID);
    }
    auto created = std::make_shared<HashState>();
    created->provider = std::move(state);
    created->algId = algId;
    created->valueSize = static_cast<DWORD>(EVP_MD_get_size(digest));
    created->context.reset(EVP_MD_CTX_new());
    if (created->context == nullptr ||
        EVP_DigestInit_ex2(created->context.get(), digest, nullptr) != 1) {
        return Fail(NTE_NO_MEMORY);
    }
    *hash = HashHandles().Add(std::move(created));
    return TRUE;
}

BOOL CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD dataSize, DWORD flags) {
    const auto state = HashHandles().Find(hash);
    if (state == nullptr) {
        return Fail(NTE_BAD_UID);
    }
    if (flags != 0) {
        return Fail(NTE_BAD_FLAGS);
    }
    if (data == nullptr && dataSize != 0) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (state->context == nullptr) {
        return Fail(NTE_BAD_HASH_STATE);
    }
    if (dataSize != 0 && EVP_DigestUpdate(state->context.get(), data, dataSize) != 1) {
        return Fail(NTE_BAD_HASH_STATE);
    }
    return TRUE;
}

BOOL CryptGetHashParam(HCRYPTHASH hash, DWORD param, BYTE* data, DWORD* dataSize, DWORD flags) {
    const auto state = HashHandles().Find(hash);
    if (state == nullptr) {
        return Fail(NTE_BAD_UID);
    }
    if (flags != 0) {
        return Fail(NTE_BAD_FLAGS);
    }
    if (dataSize == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    switch (param) {
    case HP_ALGID:
        return CopyOutDword(state->algId, data, dataSize);
    case HP_HASHSIZE:
        return CopyOutDword(state->valueSize, data, dataSize);
    case HP_HASHVAL:
        // Only a read of the value itself finishes the hash; a size query does not.
        if (data != nullptr && *dataSize >= state->valueSize) {
            FinishHash(*state);
        }
        return CopyOut({state->value.data(), state->valueSize}, data, dataSize);
    default:
        return Fail(NTE_BAD_TYPE);
    }
}

BOOL CryptDestroyHash(HCRYPTHASH hash) {
    return HashHandles().Release(hash) ? TRUE : Fail(NTE_BAD_UID);
}

} // namespace Velmor::Win32
