// Helpers shared by the CryptoAPI functions: failing with a last error, the size-query
// protocol, owning pointers for OpenSSL objects, and the mapping of decoder statuses to
// CryptoAPI's ASN.1 errors.
#ifndef VELMOR_SRC_PLATFORM_CRYPT_SUPPORT_H
#define VELMOR_SRC_PLATFORM_CRYPT_SUPPORT_H

#include "platform/crypt_api.h"

#include <memory>
#include <openssl/evp.h>
#include <span>

namespace Velmor::Win32::Detail {

// Sets the last error and returns FALSE, for `return Fail(NTE_BAD_FLAGS);`.
inline BOOL Fail(DWORD error) noexcept {
    SetLastError(error);
    return FALSE;
}

// An HRESULT as a last-error value (GetLastError then gives back the same bits).
inline BOOL Fail(HRESULT error) noexcept { return Fail(static_cast<DWORD>(error)); }

// The size-query protocol of every variable-size output (see crypt_api.h): reports the size
// of bytes, or copies them to out when it is given and large enough.
BOOL CopyOut(std::span<const BYTE> bytes, BYTE* out, DWORD* outSize) noexcept;

// A DWORD output (HP_HASHSIZE, PP_PROVTYPE), with the same protocol.
BOOL CopyOutDword(DWORD value, BYTE* out, DWORD* outSize) noexcept;

// The CryptoAPI error for a negative status of the ASN.1 decoder: CRYPT_E_ASN1_EOD when
// the input ended too soon, CRYPT_E_ASN1_MEMORY when memory ran out, CRYPT_E_ASN1_BADTAG
// for anything else that is malformed.
DWORD DecodeError(int status) noexcept;

// True for X509_ASN_ENCODING, alone or with PKCS_7_ASN_ENCODING.
constexpr bool IsX509Encoding(DWORD encodingType) noexcept {
    return (encodingType & 0x0000FFFFu) == X509_ASN_ENCODING &&
           (encodingType & ~(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING)) == 0;
}

// unique_ptr deleters for OpenSSL objects.
template <auto FreeFunction> struct OpenSslFree {
    template <class T> void operator()(T* object) const noexcept { FreeFunction(object); }
};
using PkeyPtr = std::unique_ptr<EVP_PKEY, OpenSslFree<EVP_PKEY_free>>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, OpenSslFree<EVP_PKEY_CTX_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, OpenSslFree<EVP_MD_CTX_free>>;

} // namespace Velmor::Win32::Detail

#endif
