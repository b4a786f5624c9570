// Private keys of provider containers, signing and verifying, against the fixture PKIs and
// against OpenSSL's library as an oracle for RSA's deterministic signatures. (That OpenSSL
// accepts our RSA and ECDSA signatures is tested on signed requests, in tests/interop.)
#include "platform/crypt_api.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <string>
#include <thread>
#include <vector>

#include "support/crypt_test_support.h"
#include "support/test_support.h"

using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::DataPath;
using velmor_test::FailsWith;
using velmor_test::ReadData;

namespace {

std::wstring Wide(const std::string& text) { return {text.begin(), text.end()}; }

struct Pki {
    const char* folder;
    DWORD providerType;
};
const Pki kRsa{"rsa", PROV_RSA_FULL};
const Pki kEc{"ec", PROV_EC_ECDSA_FULL};

std::string KeyPath(const Pki& pki, const char* suffix = ".key.pem") {
    return DataPath(std::string("pki/") + pki.folder + "/leaf" + suffix);
}

HCRYPTPROV OpenKey(const std::string& location, DWORD type) {
    HCRYPTPROV provider = 0;
    EXPECT_TRUE(CryptAcquireContextW(&provider, Wide(location).c_str(), nullptr, type, 0))
        << location << " last error 0x" << std::hex << GetLastError();
    return provider;
}

HCRYPTHASH HashOf(HCRYPTPROV provider, ALG_ID algId, const Bytes& data) {
    HCRYPTHASH hash = 0;
    EXPECT_TRUE(CryptCreateHash(provider, algId, 0, 0, &hash));
    EXPECT_TRUE(CryptHashData(hash, data.data(), static_cast<DWORD>(data.size()), 0));
    return hash;
}

// The signature in CryptoAPI order, made as the library makes it: a size query, then the
// call into a buffer of that size, which must be filled exactly.
Bytes Sign(HCRYPTPROV provider, ALG_ID algId, const Bytes& data, DWORD keySpec = AT_SIGNATURE) {
    const HCRYPTHASH hash = HashOf(provider, algId, data);
    DWORD size = 0;
    EXPECT_TRUE(CryptSignHashW(hash, keySpec, nullptr, 0, nullptr, &size));
    Bytes signature(size);
    DWORD written = size;
    EXPECT_TRUE(CryptSignHashW(hash, keySpec, nullptr, 0, signature.data(), &written));
    EXPECT_EQ(written, size);
    EXPECT_TRUE(CryptDestroyHash(hash));
    return signature;
}

// A public key from a fixture certificate, imported through its CERT_PUBLIC_KEY_INFO.
HCRYPTKEY ImportFromCertificate(HCRYPTPROV provider, const Pki& pki, const char* name) {
    const Bytes der = ReadData(std::string("pki/") + pki.folder + "/" + name + ".der");
    const PCCERT_CONTEXT cert = CertCreateCertificateContext(
        X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()));
    EXPECT_NE(cert, nullptr);
    HCRYPTKEY key = 0;
    EXPECT_TRUE(CryptImportPublicKeyInfo(provider, X509_ASN_ENCODING,
                                         &cert->pCertInfo->SubjectPublicKeyInfo, &key));
    CertFreeCertificateContext(cert);
    return key;
}

BOOL Verify(const Pki& pki, const char* certificate, ALG_ID algId, const Bytes& data,
            const Bytes& signature) {
    HCRYPTPROV provider = 0;
    EXPECT_TRUE(
        CryptAcquireContextW(&provider, nullptr, nullptr, pki.providerType, CRYPT_VERIFYCONTEXT));
    const HCRYPTKEY key = ImportFromCertificate(provider, pki, certificate);
    const HCRYPTHASH hash = HashOf(provider, algId, data);
    const BOOL result = CryptVerifySignatureA(
        hash, signature.data(), static_cast<DWORD>(signature.size()), key, nullptr, 0);
    const DWORD error = GetLastError();
    CryptDestroyHash(hash);
    CryptDestroyKey(key);
    CryptReleaseContext(provider, 0);
    SetLastError(error);
    return result;
}

Bytes Reversed(Bytes bytes) { return {bytes.rbegin(), bytes.rend()}; }

const Bytes kData = {'t', 'b', 's', ' ', 'd', 'a', 't', 'a'};

EVP_PKEY* ReadFixtureKey(const Pki& pki) {
    BIO* in = BIO_new_file(KeyPath(pki).c_str(), "r");
    EVP_PKEY* key = PEM_read_bio_PrivateKey(in, nullptr, nullptr, nullptr);
    BIO_free(in);
    EXPECT_NE(key, nullptr);
    return key;
}

// The fixture key written again as encrypted PKCS#8, to a scratch file.
std::string WriteEncryptedKey(const Pki& pki) {
    EVP_PKEY* key = ReadFixtureKey(pki);
    BIO* out = BIO_new(BIO_s_mem());
    char password[] = "secret";
    PEM_write_bio_PKCS8PrivateKey(out, key, EVP_aes_256_cbc(), password, 6, nullptr, nullptr);
    char* data = nullptr;
    const long size = BIO_get_mem_data(out, &data);
    const Bytes bytes(data, data + size);
    BIO_free(out);
    EVP_PKEY_free(key);
    return velmor_test::WriteTempFile(bytes, std::string(pki.folder) + "-encrypted.key");
}

} // namespace

TEST(CryptKeys, PemDerAndUriLoadTheFixtureKey) {
    // Which encodings a store reads is OpenSSL's business; these are the three ways in.
    for (const Pki& pki : {kRsa, kEc}) {
        const std::string locations[] = {KeyPath(pki, ".key.pem"), KeyPath(pki, ".key.der"),
                                         "file:" + KeyPath(pki, ".key.pem")};
        for (const std::string& location : locations) {
            const HCRYPTPROV provider = OpenKey(location, pki.providerType);
            // The loaded key is the certificate's: a signature with it verifies.
            EXPECT_TRUE(Verify(pki, "leaf", CALG_SHA_256, kData,
                               Sign(provider, CALG_SHA_256, kData, AT_KEYEXCHANGE)))
                << location;
            EXPECT_TRUE(CryptReleaseContext(provider, 0));
        }
    }
}

TEST(CryptKeys, WhatCannotBeLoadedIsABadKeyset) {
    const Bytes garbage = {'n', 'o', 't', ' ', 'a', ' ', 'k', 'e', 'y'};
    const std::string locations[] = {
        DataPath("pki/rsa/missing.key.pem"), DataPath("pki/rsa/leaf.pem"),
        velmor_test::WriteTempFile(garbage, "garbage.key"), WriteEncryptedKey(kRsa)};
    HCRYPTPROV provider = 0;
    for (const std::string& location : locations) {
        EXPECT_TRUE(FailsWith(
            CryptAcquireContextW(&provider, Wide(location).c_str(), nullptr, PROV_RSA_FULL, 0),
            NTE_BAD_KEYSET))
            << location;
    }
    EXPECT_TRUE(FailsWith(CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, 0),
                          NTE_BAD_KEYSET));
    // A provider that does not implement the key's algorithm.
    EXPECT_TRUE(FailsWith(
        CryptAcquireContextW(&provider, Wide(KeyPath(kEc)).c_str(), nullptr, PROV_RSA_FULL, 0),
        NTE_BAD_KEYSET));
    EXPECT_TRUE(FailsWith(CryptAcquireContextW(&provider, Wide(KeyPath(kRsa)).c_str(), nullptr,
                                               PROV_EC_ECDSA_FULL, 0),
                          NTE_BAD_KEYSET));
    EXPECT_EQ(provider, 0u);
}

TEST(CryptSign, RsaSignaturesAreOpenSslsReversed) {
    const HCRYPTPROV provider = OpenKey(KeyPath(kRsa), PROV_RSA_FULL);
    EVP_PKEY* key = ReadFixtureKey(kRsa);
    const std::pair<ALG_ID, const EVP_MD*> hashes[] = {{CALG_MD5, EVP_md5()},
                                                       {CALG_SHA1, EVP_sha1()},
                                                       {CALG_SHA_256, EVP_sha256()},
                                                       {CALG_SHA_384, EVP_sha384()},
                                                       {CALG_SHA_512, EVP_sha512()}};
    for (const auto& [algId, md] : hashes) {
        EVP_MD_CTX* context = EVP_MD_CTX_new();
        std::size_t size = 0;
        ASSERT_EQ(EVP_DigestSignInit(context, nullptr, md, nullptr, key), 1);
        EVP_DigestSign(context, nullptr, &size, kData.data(), kData.size());
        Bytes expected(size);
        EVP_DigestSign(context, expected.data(), &size, kData.data(), kData.size());
        EVP_MD_CTX_free(context);
        // PKCS#1 v1.5 is deterministic: our signature is OpenSSL's, byte for byte, reversed.
        EXPECT_EQ(Sign(provider, algId, kData), Reversed(expected)) << std::hex << algId;
    }
    EVP_PKEY_free(key);
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

// A provider keeps the signing contexts it set up and uses them again: each signature must
// still be made with the digest its hash asked for, by one thread or by several at once.
TEST(CryptSign, SigningAgainKeepsEachHashsDigest) {
    const HCRYPTPROV provider = OpenKey(KeyPath(kRsa), PROV_RSA_FULL);
    EVP_PKEY* key = ReadFixtureKey(kRsa);
    const std::pair<ALG_ID, const EVP_MD*> hashes[] = {
        {CALG_SHA1, EVP_sha1()}, {CALG_SHA_256, EVP_sha256()}, {CALG_SHA_512, EVP_sha512()}};
    std::vector<Bytes> expected;
    for (const auto& [algId, md] : hashes) {
        EVP_MD_CTX* context = EVP_MD_CTX_new();
        std::size_t size = 0;
        EXPECT_EQ(EVP_DigestSignInit(context, nullptr, md, nullptr, key), 1);
        EVP_DigestSign(context, nullptr, &size, kData.data(), kData.size());
        Bytes signature(size);
        EVP_DigestSign(context, signature.data(), &size, kData.data(), kData.size());
        EVP_MD_CTX_free(context);
        expected.push_back(Reversed(signature));
    }
    EVP_PKEY_free(key);
    for (int round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t at = round % 2 == 0 ? i : 2 - i;
            EXPECT_EQ(Sign(provider, hashes[at].first, kData), expected[at]) << round << " " << at;
        }
    }
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (std::size_t n = 0; n < 30; ++n) {
                const std::size_t at = (t + n) % 3;
                EXPECT_EQ(Sign(provider, hashes[at].first, kData), expected[at]) << t << " " << n;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

TEST(CryptSign, VerificationRejectsEveryAlteration) {
    for (const Pki& pki : {kRsa, kEc}) {
        const HCRYPTPROV provider = OpenKey(KeyPath(pki), pki.providerType);
        const Bytes signature = Sign(provider, CALG_SHA_384, kData);
        const Bytes sha256Signature = Sign(provider, CALG_SHA_256, kData);
        EXPECT_TRUE(CryptReleaseContext(provider, 0));
        EXPECT_TRUE(Verify(pki, "leaf", CALG_SHA_384, kData, signature)) << pki.folder;
        // The same key with another hash right after.
        EXPECT_TRUE(Verify(pki, "leaf", CALG_SHA_256, kData, sha256Signature)) << pki.folder;

        Bytes flipped = signature;
        flipped[flipped.size() / 2] ^= 0x01;
        Bytes otherData = kData;
        otherData.back() ^= 0x01;
        EXPECT_TRUE(
            FailsWith(Verify(pki, "leaf", CALG_SHA_384, kData, flipped), NTE_BAD_SIGNATURE));
        EXPECT_TRUE(
            FailsWith(Verify(pki, "leaf", CALG_SHA_384, otherData, signature), NTE_BAD_SIGNATURE));
        EXPECT_TRUE(
            FailsWith(Verify(pki, "root", CALG_SHA_384, kData, signature), NTE_BAD_SIGNATURE));
        EXPECT_TRUE(
            FailsWith(Verify(pki, "leaf", CALG_SHA_256, kData, signature), NTE_BAD_SIGNATURE));
        // The wire order is not CryptoAPI's order.
        EXPECT_TRUE(FailsWith(Verify(pki, "leaf", CALG_SHA_384, kData, Reversed(signature)),
                              NTE_BAD_SIGNATURE));
    }
}

TEST(CryptSign, EcdsaSizeQueryIsExact) {
    const HCRYPTPROV provider = OpenKey(KeyPath(kEc), PROV_EC_ECDSA_FULL);
    bool sawShortSignature = false;
    for (BYTE i = 0; i < 32; ++i) {
        const Bytes data = {i};
        const HCRYPTHASH hash = HashOf(provider, CALG_SHA_256, data);
        DWORD size = 0;
        ASSERT_TRUE(CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, nullptr, &size));
        Bytes signature(size - 1);
        DWORD written = size - 1;
        EXPECT_TRUE(
            FailsWith(CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, signature.data(), &written),
                      ERROR_MORE_DATA));
        EXPECT_EQ(written, size);
        signature.resize(size);
        ASSERT_TRUE(CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, signature.data(), &written));
        EXPECT_EQ(written, size);
        // Reversed DER: the SEQUENCE's tag and length close the CryptoAPI form.
        EXPECT_EQ(signature[size - 1], 0x30);
        EXPECT_EQ(signature[size - 2], size - 2);
        sawShortSignature |= size < 72;
        EXPECT_TRUE(CryptDestroyHash(hash));
    }
    EXPECT_TRUE(sawShortSignature) << "some of 32 P-256 signatures are shorter than 72 bytes";
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

TEST(CryptSign, MisuseIsReported) {
    HCRYPTPROV verifyOnly = 0;
    ASSERT_TRUE(
        CryptAcquireContextW(&verifyOnly, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    HCRYPTHASH hash = HashOf(verifyOnly, CALG_SHA1, kData);
    DWORD size = 0;
    EXPECT_TRUE(
        FailsWith(CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, nullptr, &size), NTE_NO_KEY));
    EXPECT_TRUE(CryptDestroyHash(hash));

    const HCRYPTPROV provider = OpenKey(KeyPath(kRsa), PROV_RSA_FULL);
    hash = HashOf(provider, CALG_SHA1, kData);
    EXPECT_TRUE(FailsWith(CryptSignHashW(hash, 3, nullptr, 0, nullptr, &size), NTE_BAD_ALGID));
    EXPECT_TRUE(
        FailsWith(CryptSignHashW(hash, AT_SIGNATURE, nullptr, 1, nullptr, &size), NTE_BAD_FLAGS));
    EXPECT_TRUE(
        FailsWith(CryptSignHashW(0, AT_SIGNATURE, nullptr, 0, nullptr, &size), NTE_BAD_UID));
    EXPECT_TRUE(FailsWith(CryptVerifySignatureA(hash, nullptr, 0, 0, nullptr, 0), NTE_BAD_UID));
    EXPECT_TRUE(CryptDestroyHash(hash));
    EXPECT_TRUE(CryptReleaseContext(provider, 0));

    // An EC key in an RSA provider, and key bits that are not a key.
    const Bytes der = ReadData("pki/ec/leaf.der");
    const PCCERT_CONTEXT cert =
        CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()));
    ASSERT_NE(cert, nullptr);
    HCRYPTKEY key = 0;
    EXPECT_TRUE(FailsWith(CryptImportPublicKeyInfo(verifyOnly, X509_ASN_ENCODING,
                                                   &cert->pCertInfo->SubjectPublicKeyInfo, &key),
                          NTE_BAD_ALGID));
    HCRYPTPROV ecProvider = 0;
    ASSERT_TRUE(CryptAcquireContextW(&ecProvider, nullptr, nullptr, PROV_EC_ECDSA_FULL,
                                     CRYPT_VERIFYCONTEXT));
    CERT_PUBLIC_KEY_INFO truncated = cert->pCertInfo->SubjectPublicKeyInfo;
    truncated.PublicKey.cbData -= 1;
    EXPECT_TRUE(FailsWith(CryptImportPublicKeyInfo(ecProvider, X509_ASN_ENCODING, &truncated, &key),
                          CRYPT_E_ASN1_BADTAG));
    EXPECT_TRUE(
        FailsWith(CryptImportPublicKeyInfo(ecProvider, 0, &truncated, &key), ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(key, 0u);
    CertFreeCertificateContext(cert);
    EXPECT_TRUE(CryptReleaseContext(ecProvider, 0));
    EXPECT_TRUE(CryptReleaseContext(verifyOnly, 0));
}
