// Opening and releasing a cryptographic provider: what a caller needs to get the provider
// handle that the signing members take. The functions keep CryptoAPI's names and argument
// conventions; they return TRUE on success and FALSE on failure, with the reason in
// Velmor::Win32::GetLastError().
#ifndef VELMOR_PKI_OCSP_CRYPT_PROVIDER_H
#define VELMOR_PKI_OCSP_CRYPT_PROVIDER_H

#include <pki/ocsp/config.h>
#include <pki/ocsp/win32.h>

namespace Velmor::Win32 {

// Provider types.
inline constexpr DWORD PROV_RSA_FULL = 1;
inline constexpr DWORD PROV_EC_ECDSA_FULL = 16;

// Key specifications. A provider holds one private key, which serves both.
inline constexpr DWORD AT_KEYEXCHANGE = 1;
inline constexpr DWORD AT_SIGNATURE = 2;

// Flags of CryptAcquireContextW.
inline constexpr DWORD CRYPT_VERIFYCONTEXT = 0xF0000000u;
inline constexpr DWORD CRYPT_SILENT = 0x00000040u;

// Opens a provider and stores a new handle, holding one reference, in *provider.
//
// provider: the default provider of providerType when null, otherwise the provider of that
// name, whose type must be providerType (NTE_PROV_TYPE_NO_MATCH).
//
// With CRYPT_VERIFYCONTEXT the provider holds no key and container must be null
// (NTE_BAD_FLAGS). Without it, container names the private key: a file path or any URI
// that OpenSSL's store loader opens ("file:/etc/keys/signer.pem", a PKCS#11 URI with the
// matching OpenSSL provider configured), PEM or DER, PKCS#8 or the traditional RSA/EC
// forms. An encrypted key is not supported. A key that cannot be loaded, or whose
// algorithm the provider does not implement (an EC key in PROV_RSA_FULL), fails with
// NTE_BAD_KEYSET.
//
// Other failures: NTE_PROV_TYPE_NOT_DEF (no such provider type), NTE_KEYSET_NOT_DEF (no
// provider of that name), NTE_BAD_FLAGS (flags other than the two above),
// ERROR_INVALID_PARAMETER (provider pointer null).
VELMOR_OCSP_API BOOL CryptAcquireContextW(HCRYPTPROV* provider, const wchar_t* container,
                                          const wchar_t* providerName, DWORD providerType,
                                          DWORD flags);

// Adds a reference to an open provider handle. reserved must be null and flags 0
// (ERROR_INVALID_PARAMETER, NTE_BAD_FLAGS); an unknown or released handle fails with
// NTE_BAD_UID.
VELMOR_OCSP_API BOOL CryptContextAddRef(HCRYPTPROV provider, DWORD* reserved, DWORD flags);

// Drops one reference; the provider (and its key) is closed with the last one. flags must
// be 0 (NTE_BAD_FLAGS); an unknown or released handle fails with NTE_BAD_UID.
VELMOR_OCSP_API BOOL CryptReleaseContext(HCRYPTPROV provider, DWORD flags);

} // namespace Velmor::Win32

#endif
