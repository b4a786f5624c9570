// The CryptoAPI subset the library uses, with Windows' names, structures and argument
// conventions, implemented on OpenSSL 3. Internal: only the provider functions of
// <pki/ocsp/crypt_provider.h> are exported.
//
// Conventions shared by every function here:
// - Failure returns FALSE (or null, or 0) and sets the thread's last error; success leaves
//   the last error alone.
// - Variable-size output follows the size-query protocol: a null output buffer stores the
//   size needed in *size and succeeds; a buffer smaller than that fails with
//   ERROR_MORE_DATA and stores the size needed; otherwise the output is written and *size
//   becomes the number of bytes written.
// - Handles are reference counted (providers) or owned (hashes, keys). A handle of the
//   wrong kind, an unknown or released handle and 0 all fail with NTE_BAD_UID.
// - Hash, key and certificate handles keep what they were made from alive: a hash outlives
//   the release of its provider handle. One hash or key handle is not used from two threads
//   at once; different handles may be.
#ifndef VELMOR_SRC_PLATFORM_CRYPT_API_H
#define VELMOR_SRC_PLATFORM_CRYPT_API_H

#include <cstdint>
#include <pki/ocsp/crypt_provider.h>
#include <pki/ocsp/win32.h>

namespace Velmor::Win32 {

using UINT = unsigned int;

// ---- Algorithm identifiers ----------------------------------------------------------------

inline constexpr ALG_ID CALG_MD5 = 0x8003;
inline constexpr ALG_ID CALG_SHA1 = 0x8004;
inline constexpr ALG_ID CALG_SHA_256 = 0x800c;
inline constexpr ALG_ID CALG_SHA_384 = 0x800d;
inline constexpr ALG_ID CALG_SHA_512 = 0x800e;
inline constexpr ALG_ID CALG_RSA_SIGN = 0x2400;
inline constexpr ALG_ID CALG_RSA_KEYX = 0xa400;
inline constexpr ALG_ID CALG_ECDSA = 0x2203;

// ---- Encodings and structure types --------------------------------------------------------

inline constexpr DWORD X509_ASN_ENCODING = 0x00000001;
inline constexpr DWORD PKCS_7_ASN_ENCODING = 0x00010000;
// The structure type of CryptEncodeObject: a small integer in place of a name.
inline const char* const X509_MULTI_BYTE_INTEGER = reinterpret_cast<const char*>(28);

// ---- Parameters and flags -----------------------------------------------------------------

inline constexpr DWORD PP_NAME = 4;
inline constexpr DWORD PP_PROVTYPE = 16;
inline constexpr DWORD PP_ENUMALGS_EX = 22;
inline constexpr DWORD CRYPT_FIRST = 1;

inline constexpr DWORD HP_ALGID = 1;
inline constexpr DWORD HP_HASHVAL = 2;
inline constexpr DWORD HP_HASHSIZE = 4;

inline constexpr DWORD CRYPT_FLAG_SIGNING = 0x20;

inline constexpr DWORD CRYPT_OID_INFO_OID_KEY = 1;
inline constexpr DWORD CRYPT_OID_INFO_NAME_KEY = 2;
inline constexpr DWORD CRYPT_OID_INFO_ALGID_KEY = 3;
inline constexpr DWORD CRYPT_HASH_ALG_OID_GROUP_ID = 1;
inline constexpr DWORD CRYPT_PUBKEY_ALG_OID_GROUP_ID = 3;
inline constexpr DWORD CRYPT_SIGN_ALG_OID_GROUP_ID = 4;

inline constexpr UINT CP_ACP = 0;
inline constexpr UINT CP_UTF8 = 65001;
inline constexpr DWORD MB_ERR_INVALID_CHARS = 0x00000008;

// ---- Structures ---------------------------------------------------------------------------

struct CRYPT_INTEGER_BLOB {
    DWORD cbData;
    BYTE* pbData;
};
using CRYPT_OBJID_BLOB = CRYPT_INTEGER_BLOB;
using CRYPT_DATA_BLOB = CRYPT_INTEGER_BLOB;
using CERT_NAME_BLOB = CRYPT_INTEGER_BLOB;

struct CRYPT_BIT_BLOB {
    DWORD cbData;
    BYTE* pbData;
    DWORD cUnusedBits;
};

struct CRYPT_ALGORITHM_IDENTIFIER {
    char* pszObjId;
    CRYPT_OBJID_BLOB Parameters; // the whole encoded parameters element; empty when absent
};

struct CERT_PUBLIC_KEY_INFO {
    CRYPT_ALGORITHM_IDENTIFIER Algorithm;
    CRYPT_BIT_BLOB PublicKey; // the BIT STRING contents without the unused-bits octet
};

// 100-nanosecond intervals since 1601-01-01T00:00:00Z.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct CERT_EXTENSION {
    char* pszObjId;
    BOOL fCritical;
    CRYPT_OBJID_BLOB Value; // the extnValue OCTET STRING contents
};

// Every blob points into the certificate context's copy of the encoding: the names and the
// algorithm parameters are the exact bytes of the certificate. SignatureAlgorithm is the one
// named inside TBSCertificate. SerialNumber is the INTEGER's contents reversed.
struct CERT_INFO {
    DWORD dwVersion; // 0 for v1, 2 for v3
    CRYPT_INTEGER_BLOB SerialNumber;
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CERT_NAME_BLOB Issuer;
    FILETIME NotBefore;
    FILETIME NotAfter;
    CERT_NAME_BLOB Subject;
    CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
    CRYPT_BIT_BLOB IssuerUniqueId;
    CRYPT_BIT_BLOB SubjectUniqueId;
    DWORD cExtension;
    CERT_EXTENSION* rgExtension;
};

struct CERT_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    CERT_INFO* pCertInfo;
    void* hCertStore; // always null: there are no certificate stores
};
using PCCERT_CONTEXT = const CERT_CONTEXT*;

// One record of PP_ENUMALGS_EX (88 bytes, as on Windows).
struct PROV_ENUMALGS_EX {
    ALG_ID aiAlgid;
    DWORD dwDefaultLen;
    DWORD dwMinLen;
    DWORD dwMaxLen;
    DWORD dwProtocols;
    DWORD dwNameLen;
    char szName[20];
    DWORD dwLongNameLen;
    char szLongName[40];
};
static_assert(sizeof(PROV_ENUMALGS_EX) == 88, "PROV_ENUMALGS_EX keeps its Windows size");

struct CRYPT_OID_INFO {
    DWORD cbSize;
    const char* pszOID;
    const wchar_t* pwszName;
    DWORD dwGroupId;
    union {
        ALG_ID Algid;
        DWORD dwValue;
        DWORD dwLength;
    };
    CRYPT_DATA_BLOB ExtraInfo;
};
using PCCRYPT_OID_INFO = const CRYPT_OID_INFO*;

// ---- Providers (CryptAcquireContextW, CryptContextAddRef and CryptReleaseContext are in
// <pki/ocsp/crypt_provider.h>) -----------------------------------------------------------

// The installed provider types and providers, in table order. reserved must be null and
// flags 0 (ERROR_INVALID_PARAMETER); past the last entry ERROR_NO_MORE_ITEMS. The name
// follows the size-query protocol (sizes in bytes, the terminating NUL included).
BOOL CryptEnumProviderTypesA(DWORD index, DWORD* reserved, DWORD flags, DWORD* providerType,
                             char* typeName, DWORD* typeNameSize);
BOOL CryptEnumProvidersA(DWORD index, DWORD* reserved, DWORD flags, DWORD* providerType,
                         char* providerName, DWORD* providerNameSize);

// PP_ENUMALGS_EX: the provider's algorithms one PROV_ENUMALGS_EX record per call, from the
// first with CRYPT_FIRST, ERROR_NO_MORE_ITEMS after the last; the position belongs to the
// handle. PP_NAME: the provider's name (NUL-terminated). PP_PROVTYPE: its type (a DWORD).
// Other parameters: NTE_BAD_TYPE.
BOOL CryptGetProvParam(HCRYPTPROV provider, DWORD param, BYTE* data, DWORD* dataSize, DWORD flags);

// ---- Hashing ------------------------------------------------------------------------------

// A hash object for algId, which the provider must implement (NTE_BAD_ALGID). key must be
// 0 (NTE_BAD_KEY) and flags 0 (NTE_BAD_FLAGS).
BOOL CryptCreateHash(HCRYPTPROV provider, ALG_ID algId, HCRYPTKEY key, DWORD flags,
                     HCRYPTHASH* hash);
// Adds data; after the value has been read or signed, NTE_BAD_HASH_STATE.
BOOL CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD dataSize, DWORD flags);
// HP_ALGID and HP_HASHSIZE (DWORDs), HP_HASHVAL (the digest; finishes the hash).
BOOL CryptGetHashParam(HCRYPTHASH hash, DWORD param, BYTE* data, DWORD* dataSize, DWORD flags);
BOOL CryptDestroyHash(HCRYPTHASH hash);

// ---- Signatures and keys ------------------------------------------------------------------

// Signs the hash with the provider's private key and gives the signature in CryptoAPI's
// byte order: the wire signature reversed (the RSA PKCS#1 v1.5 block, or the DER
// Ecdsa-Sig-Value). The first call computes the signature and keeps it with the hash, so
// that a size query reports the exact size of the ECDSA signature the next call returns.
// keySpec AT_SIGNATURE or AT_KEYEXCHANGE (else NTE_BAD_ALGID); description is ignored;
// flags must be 0. A provider without a key: NTE_NO_KEY.
BOOL CryptSignHashW(HCRYPTHASH hash, DWORD keySpec, const wchar_t* description, DWORD flags,
                    BYTE* signature, DWORD* signatureSize);
// Checks a signature given in CryptoAPI's byte order; a mismatch (or a signature that is
// malformed) fails with NTE_BAD_SIGNATURE.
BOOL CryptVerifySignatureA(HCRYPTHASH hash, const BYTE* signature, DWORD signatureSize,
                           HCRYPTKEY publicKey, const char* description, DWORD flags);
// A public-key handle from a SubjectPublicKeyInfo (rsaEncryption or id-ecPublicKey) whose
// algorithm the provider implements (NTE_BAD_ALGID); undecodable key bits give
// CRYPT_E_ASN1_BADTAG.
BOOL CryptImportPublicKeyInfo(HCRYPTPROV provider, DWORD encodingType,
                              const CERT_PUBLIC_KEY_INFO* info, HCRYPTKEY* key);
BOOL CryptDestroyKey(HCRYPTKEY key);

// ---- Certificates -------------------------------------------------------------------------

// Parses a DER X.509 certificate (encoding X509_ASN_ENCODING, optionally with
// PKCS_7_ASN_ENCODING; another encoding is ERROR_FILE_NOT_FOUND). Malformed input fails
// with CRYPT_E_ASN1_BADTAG, truncated input with CRYPT_E_ASN1_EOD; null is returned.
PCCERT_CONTEXT CertCreateCertificateContext(DWORD encodingType, const BYTE* encoded,
                                            DWORD encodedSize);
// Frees a context made by CertCreateCertificateContext; null is accepted.
BOOL CertFreeCertificateContext(PCCERT_CONTEXT context);
// TRUE when the two encoded Names are the same name (RFC 5280 comparison: case and
// repeated white space in directory strings do not count). A blob that is not a Name gives
// FALSE with CRYPT_E_ASN1_BADTAG.
BOOL CertCompareCertificateName(DWORD encodingType, const CERT_NAME_BLOB* name1,
                                const CERT_NAME_BLOB* name2);
// The hash of the to-be-signed part of a signed encoding (certificate, CRL, ...) with the
// hash of its outer signature algorithm (NTE_BAD_ALGID when that is unknown). provider is
// not used.
BOOL CryptHashToBeSigned(HCRYPTPROV provider, DWORD encodingType, const BYTE* encoded,
                         DWORD encodedSize, BYTE* hash, DWORD* hashSize);
// X509_MULTI_BYTE_INTEGER only: a CRYPT_INTEGER_BLOB (little-endian two's complement) to a
// DER INTEGER. Other structure types: ERROR_FILE_NOT_FOUND.
BOOL CryptEncodeObject(DWORD encodingType, const char* structType, const void* structInfo,
                       BYTE* encoded, DWORD* encodedSize);

// ---- Object identifiers -------------------------------------------------------------------

// The ALG_ID of an OID of any group (a signature OID gives its hash's); 0 when unknown.
ALG_ID CertOIDToAlgId(const char* oid);
// The table row for an OID (key CRYPT_OID_INFO_OID_KEY, key points to the dotted text),
// a name (CRYPT_OID_INFO_NAME_KEY, a wide string, compared without case) or an ALG_ID
// (CRYPT_OID_INFO_ALGID_KEY, key points to it), in group groupId or in any group for 0;
// null when there is none.
PCCRYPT_OID_INFO CryptFindOIDInfo(DWORD keyType, const void* key, DWORD groupId);

// ---- Text ---------------------------------------------------------------------------------

// UTF-8 to wchar_t (UTF-32). codePage CP_ACP or CP_UTF8. sourceSize -1 converts up to and
// including the NUL. destinationCount 0 returns the count needed; a smaller destination
// fails with ERROR_INSUFFICIENT_BUFFER. Malformed UTF-8 becomes U+FFFD, or fails with
// ERROR_NO_UNICODE_TRANSLATION under MB_ERR_INVALID_CHARS. Returns the wide characters
// written (or needed), 0 on failure.
int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceSize,
                        wchar_t* destination, int destinationCount);

} // namespace Velmor::Win32

#endif
