// Signing a hash with a provider's private key and checking a signature with an imported
// public key. CryptoAPI's signatures are the wire signatures byte-reversed, for RSA
// PKCS#1 v1.5 and ECDSA (DER Ecdsa-Sig-Value) alike.
#include "platform/crypt_objects.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <mutex>
#include <openssl/err.h>
#include <openssl/rsa.h>

namespace Velmor::Win32 {

using namespace Detail;

namespace {

// A signing or verifying context for key over digests made with md (PKCS#1 v1.5 padding for
// RSA), or null when the key cannot be used with that digest.
PkeyCtxPtr SignatureContext(EVP_PKEY* key, const EVP_MD* md, bool signing) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (context == nullptr || md == nullptr) {
        return nullptr;
    }
    int ok = signing ? EVP_PKEY_sign_init(context.get()) : EVP_PKEY_verify_init(context.get());
    if (ok == 1 && EVP_PKEY_is_a(key, "RSA") == 1) {
        ok = EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING);
    }
    if (ok == 1) {
        ok = EVP_PKEY_CTX_set_signature_md(context.get(), md);
    }
    return ok == 1 ? std::move(context) : nullptr;
}

// Verifying contexts kept per thread for the last few (key, digest) pairs used: setting one
// up (the signature's fetch, the padding, the digest, which OpenSSL 3.0 fetches again by
// name) costs about 2 us, a tenth of an RSA-2048 check, and one context checks any number of
// signatures. A context holds a reference to its key, so the key, and with it its address,
// lives as long as the context is kept. Freed when the thread ends.
class VerifyContexts {
  public:
    // A context for key and md, or null when the key cannot be used with that digest.
    EVP_PKEY_CTX* For(EVP_PKEY* key, const EVP_MD* md) {
        ++clock_;
        for (Entry& entry : entries_) {
            if (entry.key == key && entry.md == md) {
                entry.lastUse = clock_;
                return entry.context.get();
            }
        }
        PkeyCtxPtr context = SignatureContext(key, md, false);
        if (context == nullptr) {
            return nullptr;
        }
        Entry& oldest =
            *std::min_element(entries_.begin(), entries_.end(),
                              [](const Entry& a, const Entry& b) { return a.lastUse < b.lastUse; });
        oldest = {key, md, std::move(context), clock_};
        return oldest.context.get();
    }

  private:
    struct Entry {
        const EVP_PKEY* key = nullptr;
        const EVP_MD* md = nullptr;
        PkeyCtxPtr context;
        std::uint64_t lastUse = 0;
    };
    std::array<Entry, 4> entries_;
    std::uint64_t clock_ = 0;
};

// The most idle signing contexts a provider keeps: as many as threads that sign with it at
// once, in any likely use.
constexpr std::size_t kMostIdleSigning = 64;

// A signing context for the provider's key and md, taken from those it keeps or set up anew;
// null when the key cannot be used with that digest.
PkeyCtxPtr TakeSigningContext(ProviderState& provider, const EVP_MD* md) {
    {
        const std::lock_guard<std::mutex> lock(provider.signingMutex);
        auto& idle = provider.idleSigning;
        for (auto it = idle.rbegin(); it != idle.rend(); ++it) {
            if (it->first == md) {
                PkeyCtxPtr context = std::move(it->second);
                idle.erase(std::next(it).base());
                return context;
            }
        }
    }
    return SignatureContext(provider.key.get(), md, true);
}

void ReturnSigningContext(ProviderState& provider, const EVP_MD* md, PkeyCtxPtr context) {
    const std::lock_guard<std::mutex> lock(provider.signingMutex);
    if (provider.idleSigning.size() < kMostIdleSigning) {
        provider.idleSigning.emplace_back(md, std::move(context));
    }
}

// Signs the hash with its provider's key and keeps the signature, reversed, in the hash.
// OpenSSL's errors are taken off its queue again: the last error reports the failure.
BOOL SignHash(HashState& hash) {
    EVP_PKEY* key = hash.provider->key.get();
    if (key == nullptr) {
        return Fail(NTE_NO_KEY);
    }
    ERR_set_mark();
    const EVP_MD* md = DigestFor(hash.algId);
    PkeyCtxPtr context = TakeSigningContext(*hash.provider, md);
    if (context == nullptr) {
        ERR_pop_to_mark();
        return Fail(NTE_BAD_ALGID);
    }
    const std::span<const BYTE> digest = FinishHash(hash);
    std::size_t size = 0;
    std::vector<BYTE> signature;
    bool ok = EVP_PKEY_sign(context.get(), nullptr, &size, digest.data(), digest.size()) == 1;
    if (ok) {
        signature.resize(size);
        ok = EVP_PKEY_sign(context.get(), signature.data(), &size, digest.data(), digest.size()) ==
             1;
    }
    ERR_pop_to_mark();
    if (!ok) {
        return Fail(NTE_BAD_KEY); // the context is not used again
    }
    ReturnSigningContext(*hash.provider, md, std::move(context));
    signature.resize(size);
    std::reverse(signature.begin(), signature.end());
    hash.signature = std::move(signature);
    return TRUE;
}

// A copy of size bytes at data in reverse order.
std::vector<BYTE> Reversed(const BYTE* data, DWORD size) {
    std::vector<BYTE> bytes(size);
    for (DWORD i = 0; i < size; ++i) {
        bytes[i] = data[size - 1 - i];
    }
    return bytes;
}

} // namespace

BOOL CryptSignHashW(HCRYPTHASH hash, DWORD keySpec, const wchar_t* /*description*/, DWORD flags,
                    BYTE* signature, DWORD* signatureSize) {
    const auto state = HashHandles().Find(hash);
    if (state == nullptr) {
        return Fail(NTE_BAD_UID);
    }
    if (flags != 0) {
        return Fail(NTE_BAD_FLAGS);
    }
    if (keySpec != AT_SIGNATURE && keySpec != AT_KEYEXCHANGE) {
        return Fail(NTE_BAD_ALGID);
    }
    if (signatureSize == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    // ECDSA signatures vary in length: signing once and keeping the result makes the size a
    // query reports the size of the signature the next call returns.
    if (state->signature.empty() && !SignHash(*state)) {
        return FALSE;
    }
    return CopyOut(state->signature, signature, signatureSize);
}

BOOL CryptVerifySignatureA(HCRYPTHASH hash, const BYTE* signature, DWORD signatureSize,
                           HCRYPTKEY publicKey, const char* /*description*/, DWORD flags) {
    const auto hashState = HashHandles().Find(hash);
    const auto keyState = KeyHandles().Find(publicKey);
    if (hashState == nullptr || keyState == nullptr) {
        return Fail(NTE_BAD_UID);
    }
    if (flags != 0) {
        return Fail(NTE_BAD_FLAGS);
    }
    if (signature == nullptr && signatureSize != 0) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    ERR_set_mark();
    thread_local VerifyContexts contexts;
    EVP_PKEY_CTX* context = contexts.For(keyState->key.get(), DigestFor(hashState->algId));
    if (context == nullptr) {
        ERR_pop_to_mark();
        return Fail(NTE_BAD_ALGID);
    }
    const std::vector<BYTE> wire = Reversed(signature, signatureSize);
    const std::span<const BYTE> digest = FinishHash(*hashState);
    const int verified =
        EVP_PKEY_verify(context, wire.data(), wire.size(), digest.data(), digest.size());
    ERR_pop_to_mark();
    return verified == 1 ? TRUE : Fail(NTE_BAD_SIGNATURE);
}

} // namespace Velmor::Win32
