// The CryptoAPI subset without keys: hashing, handles, provider enumeration, the OID tables
// and UTF-8 conversion.
#include "platform/crypt_api.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "support/crypt_test_support.h"
#include "support/test_support.h"

using namespace Velmor::Win32;
using velmor_test::FailsWith;
using velmor_test::ToHex;

namespace {

HCRYPTPROV VerifyContext(DWORD type = PROV_RSA_FULL) {
    HCRYPTPROV provider = 0;
    EXPECT_TRUE(CryptAcquireContextW(&provider, nullptr, nullptr, type, CRYPT_VERIFYCONTEXT));
    return provider;
}

std::string HashValueHex(HCRYPTHASH hash) {
    BYTE value[64];
    DWORD size = sizeof value;
    EXPECT_TRUE(CryptGetHashParam(hash, HP_HASHVAL, value, &size, 0));
    return ToHex(value, size);
}

DWORD DwordParam(HCRYPTHASH hash, DWORD param) {
    DWORD value = 0;
    DWORD size = sizeof value;
    EXPECT_TRUE(CryptGetHashParam(hash, param, reinterpret_cast<BYTE*>(&value), &size, 0));
    EXPECT_EQ(size, sizeof value);
    return value;
}

const BYTE kAbc[] = {'a', 'b', 'c'};

struct KnownDigest {
    ALG_ID algId;
    const char* hex;
};

const KnownDigest kAbcDigests[] = {
    {CALG_MD5, "900150983cd24fb0d6963f7d28e17f72"},
    {CALG_SHA1, "a9993e364706816aba3e25717850c26c9cd0d89d"},
    {CALG_SHA_256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {CALG_SHA_384, "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7"
                   "cc2358baeca134c825a7"},
    {CALG_SHA_512, "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274f"
                   "c1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
};

} // namespace

// ---- Hashing ------------------------------------------------------------------------------

TEST(CryptHash, KnownDigestsInBothDefaultProviders) {
    for (DWORD type : {PROV_RSA_FULL, PROV_EC_ECDSA_FULL}) {
        const HCRYPTPROV provider = VerifyContext(type);
        for (const KnownDigest& known : kAbcDigests) {
            HCRYPTHASH hash = 0;
            ASSERT_TRUE(CryptCreateHash(provider, known.algId, 0, 0, &hash));
            // Fed in two pieces and with an empty piece: the digest is of the concatenation.
            EXPECT_TRUE(CryptHashData(hash, kAbc, 1, 0));
            EXPECT_TRUE(CryptHashData(hash, nullptr, 0, 0));
            EXPECT_TRUE(CryptHashData(hash, kAbc + 1, 2, 0));
            EXPECT_EQ(DwordParam(hash, HP_ALGID), known.algId);
            EXPECT_EQ(DwordParam(hash, HP_HASHSIZE), std::strlen(known.hex) / 2);
            EXPECT_EQ(HashValueHex(hash), known.hex) << std::hex << known.algId;
            EXPECT_TRUE(CryptDestroyHash(hash));
        }
        EXPECT_TRUE(CryptReleaseContext(provider, 0));
    }
}

TEST(CryptHash, SizeQueryDoesNotFinishTheHash) {
    const HCRYPTPROV provider = VerifyContext();
    HCRYPTHASH hash = 0;
    ASSERT_TRUE(CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash));
    ASSERT_TRUE(CryptHashData(hash, kAbc, 2, 0));

    DWORD size = 0;
    EXPECT_TRUE(CryptGetHashParam(hash, HP_HASHVAL, nullptr, &size, 0));
    EXPECT_EQ(size, 32u);
    BYTE shortBuffer[31] = {};
    size = sizeof shortBuffer;
    EXPECT_TRUE(
        FailsWith(CryptGetHashParam(hash, HP_HASHVAL, shortBuffer, &size, 0), ERROR_MORE_DATA));
    EXPECT_EQ(size, 32u);
    EXPECT_EQ(shortBuffer[0], 0) << "a short buffer is left untouched";

    // Neither query finished the hash: the last byte still counts.
    ASSERT_TRUE(CryptHashData(hash, kAbc + 2, 1, 0));
    EXPECT_EQ(HashValueHex(hash), kAbcDigests[2].hex);
    EXPECT_TRUE(FailsWith(CryptHashData(hash, kAbc, 1, 0), NTE_BAD_HASH_STATE));
    EXPECT_EQ(HashValueHex(hash), kAbcDigests[2].hex) << "the value can be read again";

    EXPECT_TRUE(CryptDestroyHash(hash));
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

// ---- Handles ------------------------------------------------------------------------------

TEST(CryptHandles, ReferencesAreCounted) {
    const HCRYPTPROV provider = VerifyContext();
    ASSERT_TRUE(CryptContextAddRef(provider, nullptr, 0));
    HCRYPTHASH hash = 0;
    ASSERT_TRUE(CryptCreateHash(provider, CALG_SHA1, 0, 0, &hash));

    EXPECT_TRUE(CryptReleaseContext(provider, 0));
    // One reference is left: the handle still works.
    HCRYPTHASH second = 0;
    ASSERT_TRUE(CryptCreateHash(provider, CALG_MD5, 0, 0, &second));
    EXPECT_TRUE(CryptReleaseContext(provider, 0));

    // The last reference is gone: the handle is unknown, its hashes keep working.
    EXPECT_TRUE(FailsWith(CryptCreateHash(provider, CALG_SHA1, 0, 0, &hash), NTE_BAD_UID));
    EXPECT_TRUE(FailsWith(CryptReleaseContext(provider, 0), NTE_BAD_UID));
    EXPECT_TRUE(FailsWith(CryptContextAddRef(provider, nullptr, 0), NTE_BAD_UID));
    EXPECT_TRUE(CryptHashData(hash, kAbc, 3, 0));
    EXPECT_EQ(HashValueHex(hash), kAbcDigests[1].hex);
    EXPECT_TRUE(CryptDestroyHash(hash));
    EXPECT_TRUE(CryptDestroyHash(second));
    EXPECT_TRUE(FailsWith(CryptDestroyHash(hash), NTE_BAD_UID));
}

TEST(CryptHandles, MisuseIsRejected) {
    const HCRYPTPROV provider = VerifyContext();
    HCRYPTHASH hash = 0;
    ASSERT_TRUE(CryptCreateHash(provider, CALG_SHA1, 0, 0, &hash));
    DWORD size = 0;
    for (HCRYPTPROV bad : {HCRYPTPROV{0}, HCRYPTPROV{1}, HCRYPTPROV{0x12345678}, hash}) {
        EXPECT_TRUE(FailsWith(CryptContextAddRef(bad, nullptr, 0), NTE_BAD_UID));
        EXPECT_TRUE(FailsWith(CryptReleaseContext(bad, 0), NTE_BAD_UID));
        EXPECT_TRUE(FailsWith(CryptGetProvParam(bad, PP_NAME, nullptr, &size, 0), NTE_BAD_UID));
    }
    EXPECT_TRUE(FailsWith(CryptHashData(provider, kAbc, 1, 0), NTE_BAD_UID));
    EXPECT_TRUE(FailsWith(CryptDestroyHash(provider), NTE_BAD_UID));
    EXPECT_TRUE(FailsWith(CryptDestroyKey(hash), NTE_BAD_UID));
    EXPECT_TRUE(FailsWith(CryptContextAddRef(provider, &size, 0), ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(FailsWith(CryptReleaseContext(provider, 1), NTE_BAD_FLAGS));
    EXPECT_TRUE(FailsWith(CryptGetHashParam(hash, 3, nullptr, &size, 0), NTE_BAD_TYPE));
    EXPECT_TRUE(FailsWith(CryptHashData(hash, kAbc, 1, 1), NTE_BAD_FLAGS));
    EXPECT_TRUE(FailsWith(CryptHashData(hash, nullptr, 1, 0), ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(CryptDestroyHash(hash));

    // What the provider does not implement, and arguments CryptCreateHash does not take.
    HCRYPTHASH none = 0;
    EXPECT_TRUE(FailsWith(CryptCreateHash(provider, CALG_ECDSA, 0, 0, &none), NTE_BAD_ALGID));
    EXPECT_TRUE(FailsWith(CryptCreateHash(provider, 0, 0, 0, &none), NTE_BAD_ALGID));
    EXPECT_TRUE(FailsWith(CryptCreateHash(provider, CALG_SHA1, 1, 0, &none), NTE_BAD_KEY));
    EXPECT_TRUE(FailsWith(CryptCreateHash(provider, CALG_SHA1, 0, 1, &none), NTE_BAD_FLAGS));
    EXPECT_EQ(none, 0u) << "no handle is stored on failure";

    // A released handle stays unknown when its slot is used again.
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
    const HCRYPTPROV reused = VerifyContext();
    EXPECT_NE(reused, provider);
    EXPECT_TRUE(FailsWith(CryptReleaseContext(provider, 0), NTE_BAD_UID));
    EXPECT_TRUE(CryptReleaseContext(reused, 0));
}

// ---- Providers ----------------------------------------------------------------------------

TEST(CryptProviders, DefaultTableEnumeratesInOrder) {
    using EnumFunction = BOOL (*)(DWORD, DWORD*, DWORD, DWORD*, char*, DWORD*);
    const std::tuple<EnumFunction, DWORD, DWORD, const char*> rows[] = {
        {CryptEnumProviderTypesA, 0, PROV_RSA_FULL, "RSA Full (Signature and Key Exchange)"},
        {CryptEnumProviderTypesA, 1, PROV_EC_ECDSA_FULL, "EC ECDSA Full"},
        {CryptEnumProvidersA, 0, PROV_RSA_FULL, "Microsoft Base Cryptographic Provider v1.0"},
        {CryptEnumProvidersA, 1, PROV_EC_ECDSA_FULL, "Velmor ECDSA Cryptographic Provider"}};
    for (const auto& [enumerate, index, expectedType, expectedName] : rows) {
        DWORD type = 0;
        DWORD size = 0;
        ASSERT_TRUE(enumerate(index, nullptr, 0, &type, nullptr, &size));
        ASSERT_EQ(size, std::strlen(expectedName) + 1);
        std::string name(size, '?');
        ASSERT_TRUE(enumerate(index, nullptr, 0, &type, name.data(), &size));
        EXPECT_STREQ(name.c_str(), expectedName);
        EXPECT_EQ(type, expectedType);
        DWORD reserved = 0;
        EXPECT_TRUE(FailsWith(enumerate(index, &reserved, 0, &type, nullptr, &size),
                              ERROR_INVALID_PARAMETER));
        EXPECT_TRUE(
            FailsWith(enumerate(2, nullptr, 0, &type, nullptr, &size), ERROR_NO_MORE_ITEMS));
    }
}

TEST(CryptProviders, AlgorithmWalkRestartsAndEnds) {
    const HCRYPTPROV provider = VerifyContext(PROV_RSA_FULL);
    std::vector<ALG_ID> seen;
    PROV_ENUMALGS_EX record{};
    DWORD size = sizeof record;
    for (DWORD flags = CRYPT_FIRST; CryptGetProvParam(
             provider, PP_ENUMALGS_EX, reinterpret_cast<BYTE*>(&record), &size, flags);
         flags = 0, size = sizeof record) {
        seen.push_back(record.aiAlgid);
        EXPECT_EQ(record.dwNameLen, std::strlen(record.szName) + 1);
    }
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
    EXPECT_EQ(seen, (std::vector<ALG_ID>{CALG_MD5, CALG_SHA1, CALG_SHA_256, CALG_SHA_384,
                                         CALG_SHA_512, CALG_RSA_SIGN, CALG_RSA_KEYX}));

    // Size query and short buffer do not move the position; CRYPT_FIRST restarts.
    size = 0;
    EXPECT_TRUE(CryptGetProvParam(provider, PP_ENUMALGS_EX, nullptr, &size, CRYPT_FIRST));
    EXPECT_EQ(size, 88u);
    size = 87;
    EXPECT_TRUE(FailsWith(
        CryptGetProvParam(provider, PP_ENUMALGS_EX, reinterpret_cast<BYTE*>(&record), &size, 0),
        ERROR_MORE_DATA));
    size = sizeof record;
    ASSERT_TRUE(
        CryptGetProvParam(provider, PP_ENUMALGS_EX, reinterpret_cast<BYTE*>(&record), &size, 0));
    EXPECT_EQ(record.aiAlgid, CALG_MD5);
    EXPECT_STREQ(record.szName, "MD5");
    EXPECT_TRUE(FailsWith(CryptGetProvParam(provider, 99, nullptr, &size, 0), NTE_BAD_TYPE));
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

TEST(CryptProviders, AcquireReportsWhyItCannotOpen) {
    HCRYPTPROV provider = 0;
    EXPECT_TRUE(
        FailsWith(CryptAcquireContextW(&provider, nullptr, nullptr, 24, CRYPT_VERIFYCONTEXT),
                  NTE_PROV_TYPE_NOT_DEF));
    EXPECT_TRUE(FailsWith(CryptAcquireContextW(&provider, nullptr, L"No Such Provider",
                                               PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
                          NTE_KEYSET_NOT_DEF));
    EXPECT_TRUE(
        FailsWith(CryptAcquireContextW(&provider, nullptr, L"Velmor ECDSA Cryptographic Provider",
                                       PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
                  NTE_PROV_TYPE_NO_MATCH));
    EXPECT_TRUE(FailsWith(
        CryptAcquireContextW(&provider, L"key.pem", nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
        NTE_BAD_FLAGS));
    EXPECT_TRUE(
        FailsWith(CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, 0x10000000),
                  NTE_BAD_FLAGS));
    EXPECT_TRUE(FailsWith(
        CryptAcquireContextW(nullptr, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
        ERROR_INVALID_PARAMETER));
    EXPECT_EQ(provider, 0u);
}

// ---- Object identifiers -------------------------------------------------------------------

TEST(CryptOidInfo, EveryOidMapsToItsAlgorithm) {
    // A hash, a signature of each family (also the OIW and ECDSA-with-SHA1 ones) and the
    // two public-key algorithms.
    const std::pair<const char*, ALG_ID> rows[] = {{"2.16.840.1.101.3.4.2.3", CALG_SHA_512},
                                                   {"1.2.840.113549.1.1.12", CALG_SHA_384},
                                                   {"1.3.14.3.2.29", CALG_SHA1},
                                                   {"1.2.840.10045.4.1", CALG_SHA1},
                                                   {"1.2.840.10045.4.3.2", CALG_SHA_256},
                                                   {"1.2.840.113549.1.1.1", CALG_RSA_KEYX},
                                                   {"1.2.840.10045.2.1", CALG_ECDSA}};
    for (const auto& [oid, algId] : rows) {
        EXPECT_EQ(CertOIDToAlgId(oid), algId) << oid;
    }
    EXPECT_EQ(CertOIDToAlgId("1.2.840.113549.1.1.10"), 0u) << "RSASSA-PSS is not supported";
    EXPECT_EQ(CertOIDToAlgId("2.16.840.1.101.3.4.2"), 0u) << "a prefix is not a match";
    EXPECT_EQ(CertOIDToAlgId(""), 0u);
    EXPECT_EQ(CertOIDToAlgId(nullptr), 0u);
}

TEST(CryptOidInfo, SignatureGroupLookup) {
    const PCCRYPT_OID_INFO ecdsa = CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, "1.2.840.10045.4.3.3",
                                                    CRYPT_SIGN_ALG_OID_GROUP_ID);
    ASSERT_NE(ecdsa, nullptr);
    EXPECT_EQ(ecdsa->Algid, CALG_SHA_384);
    EXPECT_EQ(ecdsa->dwGroupId, CRYPT_SIGN_ALG_OID_GROUP_ID);
    // Hash and public-key OIDs are not signature algorithms.
    for (const char* oid : {"2.16.840.1.101.3.4.2.1", "1.2.840.113549.1.1.1"}) {
        EXPECT_EQ(CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, oid, CRYPT_SIGN_ALG_OID_GROUP_ID),
                  nullptr);
    }
    const PCCRYPT_OID_INFO byName =
        CryptFindOIDInfo(CRYPT_OID_INFO_NAME_KEY, L"SHA256rsa", CRYPT_SIGN_ALG_OID_GROUP_ID);
    ASSERT_NE(byName, nullptr);
    EXPECT_STREQ(byName->pszOID, "1.2.840.113549.1.1.11");
    const ALG_ID sha1 = CALG_SHA1;
    const PCCRYPT_OID_INFO byAlgId = CryptFindOIDInfo(CRYPT_OID_INFO_ALGID_KEY, &sha1, 0);
    ASSERT_NE(byAlgId, nullptr);
    EXPECT_STREQ(byAlgId->pszOID, "1.3.14.3.2.26") << "the hash group is searched first";
}

// ---- Text ---------------------------------------------------------------------------------

TEST(MultiByteToWideChar, Utf8ToOneWideCharacterPerCodePoint) {
    const char text[] = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"; // a, e-acute, euro, emoji
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0), 5);
    wchar_t wide[8];
    ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, wide, 5), 5);
    EXPECT_EQ(std::wstring(wide), L"a\u00E9\u20AC\U0001F600");
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, 3, wide, 5), 2) << "no terminator";
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, -1, wide, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, text, -1, wide, 5), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);

    // A lone continuation byte, an overlong '/', a surrogate, a sequence cut short.
    for (const char* bad : {"x\x80y", "\xC0\xAF", "\xED\xA0\x80", "\xE2\x82"}) {
        ASSERT_GT(MultiByteToWideChar(CP_UTF8, 0, bad, -1, wide, 8), 0);
        EXPECT_NE(std::wstring(wide).find(L'\uFFFD'), std::wstring::npos) << bad;
        EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bad, -1, wide, 8), 0);
        EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    }
}
