// The object identifiers CryptoAPI knows, with their ALG_IDs: hashes, signature algorithms
// (whose ALG_ID is their hash's) and public-key algorithms.
#include "platform/crypt_api.h"

#include <cstring>
#include <cwctype>

namespace Velmor::Win32 {

namespace {

constexpr DWORD kHash = CRYPT_HASH_ALG_OID_GROUP_ID;
constexpr DWORD kSign = CRYPT_SIGN_ALG_OID_GROUP_ID;
constexpr DWORD kPublicKey = CRYPT_PUBKEY_ALG_OID_GROUP_ID;

constexpr CRYPT_OID_INFO Row(const char* oid, const wchar_t* name, DWORD group, ALG_ID algId) {
    return {sizeof(CRYPT_OID_INFO), oid, name, group, {algId}, {0, nullptr}};
}

// Searched in this order, so a lookup by ALG_ID in any group finds the hash first.
constexpr CRYPT_OID_INFO kOidInfo[] = {
    Row("1.2.840.113549.2.5", L"md5", kHash, CALG_MD5),
    Row("1.3.14.3.2.26", L"sha1", kHash, CALG_SHA1),
    Row("2.16.840.1.101.3.4.2.1", L"sha256", kHash, CALG_SHA_256),
    Row("2.16.840.1.101.3.4.2.2", L"sha384", kHash, CALG_SHA_384),
    Row("2.16.840.1.101.3.4.2.3", L"sha512", kHash, CALG_SHA_512),
    Row("1.2.840.113549.1.1.4", L"md5RSA", kSign, CALG_MD5),
    Row("1.2.840.113549.1.1.5", L"sha1RSA", kSign, CALG_SHA1),
    Row("1.2.840.113549.1.1.11", L"sha256RSA", kSign, CALG_SHA_256),
    Row("1.2.840.113549.1.1.12", L"sha384RSA", kSign, CALG_SHA_384),
    Row("1.2.840.113549.1.1.13", L"sha512RSA", kSign, CALG_SHA_512),
    Row("1.3.14.3.2.29", L"sha1RSA", kSign, CALG_SHA1),
    Row("1.2.840.10045.4.1", L"sha1ECDSA", kSign, CALG_SHA1),
    Row("1.2.840.10045.4.3.2", L"sha256ECDSA", kSign, CALG_SHA_256),
    Row("1.2.840.10045.4.3.3", L"sha384ECDSA", kSign, CALG_SHA_384),
    Row("1.2.840.10045.4.3.4", L"sha512ECDSA", kSign, CALG_SHA_512),
    Row("1.2.840.113549.1.1.1", L"RSA", kPublicKey, CALG_RSA_KEYX),
    Row("1.2.840.10045.2.1", L"ECC", kPublicKey, CALG_ECDSA),
};

bool SameNameIgnoringCase(const wchar_t* a, const wchar_t* b) noexcept {
    for (; *a != L'\0' && *b != L'\0'; ++a, ++b) {
        if (std::towlower(static_cast<wint_t>(*a)) != std::towlower(static_cast<wint_t>(*b))) {
            return false;
        }
    }
    return *a == *b;
}

bool Matches(const CRYPT_OID_INFO& row, DWORD keyType, const void* key) noexcept {
    switch (keyType) {
    case CRYPT_OID_INFO_OID_KEY:
        return std::strcmp(row.pszOID, static_cast<const char*>(key)) == 0;
    case CRYPT_OID_INFO_NAME_KEY:
        return SameNameIgnoringCase(row.pwszName, static_cast<const wchar_t*>(key));
    case CRYPT_OID_INFO_ALGID_KEY:
        return row.Algid == *static_cast<const ALG_ID*>(key);
    default:
        return false;
    }
}

} // namespace

PCCRYPT_OID_INFO CryptFindOIDInfo(DWORD keyType, const void* key, DWORD groupId) {
    if (key == nullptr) {
        return nullptr;
    }
    for (const CRYPT_OID_INFO& row : kOidInfo) {
        if ((groupId == 0 || row.dwGroupId == groupId) && Matches(row, keyType, key)) {
            return &row;
        }
    }
    return nullptr;
}

ALG_ID CertOIDToAlgId(const char* oid) {
    const PCCRYPT_OID_INFO row = CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, oid, 0);
    return row != nullptr ? row->Algid : 0;
}

} // namespace Velmor::Win32
