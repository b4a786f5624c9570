// Public-key import: keys made from their numbers against OpenSSL's decoder as the oracle, the
// cache of imported keys (sharing, eviction, its bound), and signature checks from several
// threads at once.
#include "platform/crypt_api.h"
#include "platform/crypt_keys.h"
#include "platform/crypt_objects.h"
#include "platform/key_cache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <pki/ocsp/request_message.h>
#include <string>
#include <thread>
#include <vector>

#include "support/crypt_test_support.h"
#include "support/test_support.h"

using namespace Velmor::Win32;
using Velmor::CBlob;
using Velmor::Win32::Detail::PkeyPtr;
using velmor_test::Bytes;
using velmor_test::Cat;
using velmor_test::FailsWith;
using velmor_test::FromHex;
using velmor_test::ReadData;
using velmor_test::Tlv;

namespace {

constexpr char kRsaOid[] = "1.2.840.113549.1.1.1";
constexpr char kEcOid[] = "1.2.840.10045.2.1";
const Bytes kRsaOidDer = FromHex("06092a864886f70d010101");
const Bytes kEcOidDer = FromHex("06072a8648ce3d0201");
const Bytes kNull = FromHex("0500");
const Bytes kP256 = FromHex("06082a8648ce3d030107");
const Bytes kP384 = FromHex("06052b81040022");

// A SubjectPublicKeyInfo held as its parts, given both as DER and as the CryptoAPI structure.
struct KeyInfo {
    std::string oid;
    Bytes oidDer;
    Bytes parameters; // the whole element; empty when absent
    Bytes bits;
    BYTE unusedBits = 0;

    Bytes Der() const {
        return Tlv(0x30, Cat({Tlv(0x30, Cat({oidDer, parameters})),
                              Tlv(0x03, Cat({Bytes{unusedBits}, bits}))}));
    }
    // Points into this object, which must outlive the result.
    CERT_PUBLIC_KEY_INFO Info() {
        CERT_PUBLIC_KEY_INFO info{};
        info.Algorithm.pszObjId = oid.data();
        info.Algorithm.Parameters = {static_cast<DWORD>(parameters.size()), parameters.data()};
        info.PublicKey = {static_cast<DWORD>(bits.size()), bits.data(), unusedBits};
        return info;
    }
};

// The key bits of a fixture certificate, as the certificate context gives them.
Bytes KeyBits(const std::string& certificate) {
    const Bytes der = ReadData("pki/" + certificate);
    const PCCERT_CONTEXT cert =
        CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()));
    EXPECT_NE(cert, nullptr) << certificate;
    const CRYPT_BIT_BLOB& bits = cert->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    Bytes copy(bits.pbData, bits.pbData + bits.cbData);
    CertFreeCertificateContext(cert);
    return copy;
}

// The RSA fixture client's key: SEQUENCE (4 octets), the modulus INTEGER (4 octets of header
// and a sign octet, then 256), the exponent 65537. With any other odd exponent the modulus
// makes another valid key.
const Bytes& ClientModulus() {
    static const Bytes modulus = [] {
        const Bytes bits = KeyBits("rsa/client.der");
        EXPECT_EQ(velmor_test::ToHex(Bytes(bits.begin(), bits.begin() + 9)), "3082010a0282010100");
        return Bytes(bits.begin() + 9, bits.begin() + 265);
    }();
    return modulus;
}

Bytes SmallMagnitude(unsigned value) {
    Bytes bytes;
    for (; value != 0; value >>= 8) {
        bytes.insert(bytes.begin(), static_cast<std::uint8_t>(value));
    }
    return bytes;
}

KeyInfo RsaInfo(const Bytes& rsaPublicKey, Bytes parameters = kNull) {
    return {kRsaOid, kRsaOidDer, std::move(parameters), rsaPublicKey};
}

KeyInfo RsaInfoWithExponent(unsigned exponent) {
    return RsaInfo(Tlv(0x30, Cat({Tlv(0x02, Cat({Bytes{0}, ClientModulus()})),
                                  Tlv(0x02, SmallMagnitude(exponent))})));
}

KeyInfo EcInfo(Bytes parameters, Bytes point) {
    return {kEcOid, kEcOidDer, std::move(parameters), std::move(point)};
}

HCRYPTPROV VerifyContext(DWORD providerType) {
    HCRYPTPROV provider = 0;
    EXPECT_TRUE(
        CryptAcquireContextW(&provider, nullptr, nullptr, providerType, CRYPT_VERIFYCONTEXT));
    return provider;
}

// Compares the import of variant with OpenSSL's decoder of its DER: a key made from its
// numbers (expected exactly for the plain forms) is the decoder's key, and the import
// succeeds exactly when the decoder reads a key, else fails with CRYPT_E_ASN1_BADTAG, the
// second time too.
void ExpectAsTheDecoder(KeyInfo variant, bool plain, const char* label) {
    SCOPED_TRACE(label);
    const Bytes der = variant.Der();
    const unsigned char* p = der.data();
    const PkeyPtr decoded(d2i_PUBKEY(nullptr, &p, static_cast<long>(der.size())));
    ERR_clear_error();
    const bool rsa = variant.oid == kRsaOid;
    const CERT_PUBLIC_KEY_INFO info = variant.Info();
    const PkeyPtr made = Detail::KeyFromParameters(info, rsa ? CALG_RSA_KEYX : CALG_ECDSA);
    EXPECT_EQ(made != nullptr, plain);
    if (made != nullptr) {
        ASSERT_NE(decoded, nullptr);
        EXPECT_EQ(EVP_PKEY_eq(made.get(), decoded.get()), 1);
    }
    const HCRYPTPROV provider = VerifyContext(rsa ? PROV_RSA_FULL : PROV_EC_ECDSA_FULL);
    for (int attempt = 0; attempt < 2; ++attempt) {
        HCRYPTKEY key = 0;
        const BOOL imported = CryptImportPublicKeyInfo(provider, X509_ASN_ENCODING, &info, &key);
        if (decoded != nullptr) {
            EXPECT_TRUE(imported);
            EXPECT_TRUE(CryptDestroyKey(key));
        } else {
            EXPECT_TRUE(FailsWith(imported, CRYPT_E_ASN1_BADTAG));
        }
    }
    CryptReleaseContext(provider, 0);
}

HCRYPTKEY Import(HCRYPTPROV provider, KeyInfo variant) {
    const CERT_PUBLIC_KEY_INFO info = variant.Info();
    HCRYPTKEY key = 0;
    EXPECT_TRUE(CryptImportPublicKeyInfo(provider, X509_ASN_ENCODING, &info, &key));
    return key;
}

EVP_PKEY* KeyOf(HCRYPTKEY key) {
    const auto state = Detail::KeyHandles().Find(key);
    return state != nullptr ? state->key.get() : nullptr;
}

// Whether a signed fixture request verifies with a fixture certificate; tampered, with one
// octet in the middle of its signature changed.
bool Verifies(const char* request, const char* certificate, bool tampered = false) {
    Bytes der = ReadData(std::string("ocsp/") + request);
    Velmor::PKI::OCSP::CRequestMessage message;
    message.decode(CBlob(der));
    if (tampered) {
        const CBlob& signature = *message.get_signature();
        const auto at = std::search(der.begin(), der.end(), signature.pbData(),
                                    signature.pbData() + signature.cbData());
        EXPECT_NE(at, der.end());
        *(at + signature.cbData() / 2) ^= 1;
        message.decode(CBlob(der));
    }
    return message.verify(CBlob(ReadData(std::string("pki/") + certificate)));
}

TEST(KeyImport, KeysAreMadeAsTheDecoderMakesThem) {
    const Bytes n = Tlv(0x02, Cat({Bytes{0}, ClientModulus()}));
    const Bytes e = FromHex("0203010001");
    const Bytes plain = Tlv(0x30, Cat({n, e}));
    ExpectAsTheDecoder(RsaInfo(plain), true, "NULL parameters");
    ExpectAsTheDecoder(RsaInfo(plain, {}), true, "no parameters");
    ExpectAsTheDecoder(RsaInfoWithExponent(3), true, "exponent 3");
    ExpectAsTheDecoder(RsaInfo(plain, FromHex("0400")), false, "parameters that are not NULL");
    ExpectAsTheDecoder(RsaInfo(Tlv(0x30, Cat({Tlv(0x02, Cat({Bytes{0, 0}, ClientModulus()})), e}))),
                       false, "modulus with a redundant leading octet");
    ExpectAsTheDecoder(RsaInfo(Tlv(0x30, Cat({Tlv(0x02, ClientModulus()), e}))), false,
                       "modulus without its sign octet");
    ExpectAsTheDecoder(RsaInfo(Tlv(0x30, Cat({n, FromHex("028103010001")}))), false,
                       "exponent with a long-form length");
    ExpectAsTheDecoder(RsaInfo(Tlv(0x30, Cat({n, FromHex("020100")}))), false, "exponent zero");
    ExpectAsTheDecoder(RsaInfo(Cat({plain, Bytes{0}})), false, "an octet after the key");
    ExpectAsTheDecoder(RsaInfo(Bytes(plain.begin(), plain.end() - 1)), false, "cut short");
    KeyInfo unused = RsaInfo(Cat({plain, Bytes{0}}));
    unused.unusedBits = 1;
    ExpectAsTheDecoder(unused, false, "unused bits");

    const Bytes point = KeyBits("ec/client.der");
    ASSERT_EQ(point.size(), 65u);
    ExpectAsTheDecoder(EcInfo(kP256, point), true, "P-256");
    Bytes offCurve = point;
    offCurve.back() ^= 1;
    ExpectAsTheDecoder(EcInfo(kP256, offCurve), false, "a point off the curve");
    const Bytes compressed = Cat({Bytes{static_cast<std::uint8_t>(0x02 | (point.back() & 1))},
                                  Bytes(point.begin() + 1, point.begin() + 33)});
    ExpectAsTheDecoder(EcInfo(kP256, compressed), false, "a compressed point");
    ExpectAsTheDecoder(EcInfo(kP384, point), false, "a P-256 point named P-384");
    ExpectAsTheDecoder(EcInfo({}, point), false, "no curve");
    ExpectAsTheDecoder(EcInfo(kP256, Bytes{0}), false, "the point at infinity");
}

TEST(KeyImport, RepeatedImportsShareOneKeyAndDistinctKeysStayApart) {
    const HCRYPTPROV provider = VerifyContext(PROV_RSA_FULL);
    const HCRYPTKEY first = Import(provider, RsaInfoWithExponent(65537));
    const HCRYPTKEY second = Import(provider, RsaInfoWithExponent(65537));
    const HCRYPTKEY other = Import(provider, RsaInfoWithExponent(3));
    ASSERT_NE(KeyOf(first), nullptr);
    EXPECT_EQ(KeyOf(first), KeyOf(second));
    EXPECT_NE(KeyOf(first), KeyOf(other));
    for (const HCRYPTKEY key : {first, second, other}) {
        EXPECT_TRUE(CryptDestroyKey(key));
    }
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
    // Each verification imports its key and destroys the handle; the key the cache keeps
    // serves the next one, and keys of the same size and type do not stand in for each other.
    // A signature that does not match leaves the thread's context for the key usable.
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(Verifies("req-signed-rsa.der", "rsa/client.der"));
        EXPECT_FALSE(Verifies("req-signed-rsa.der", "rsa/leaf.der"));
        EXPECT_FALSE(Verifies("req-signed-rsa.der", "rsa/client.der", true));
        EXPECT_TRUE(Verifies("req-signed-ec.der", "ec/client.der"));
        EXPECT_FALSE(Verifies("req-signed-ec.der", "ec/leaf.der"));
        EXPECT_FALSE(Verifies("req-signed-ec.der", "ec/client.der", true));
    }
}

TEST(KeyImport, TheProcessCacheStaysBoundedAndEvictsTheOldest) {
    const HCRYPTPROV provider = VerifyContext(PROV_RSA_FULL);
    auto& cache = Detail::ImportedPublicKeys();
    // Keyed by the DER of the SubjectPublicKeyInfo: the client certificate's is this one.
    const Bytes client = RsaInfoWithExponent(65537).Der();
    EXPECT_TRUE(Verifies("req-signed-rsa.der", "rsa/client.der"));
    EXPECT_NE(cache.Find(client), nullptr);

    const unsigned count = Detail::kImportedKeyCacheSize + 6;
    for (unsigned i = 0; i < count; ++i) {
        const HCRYPTKEY key = Import(provider, RsaInfoWithExponent(3 + 2 * i));
        EXPECT_TRUE(CryptDestroyKey(key)) << i;
        EXPECT_LE(cache.Size(), Detail::kImportedKeyCacheSize);
    }
    EXPECT_EQ(cache.Size(), Detail::kImportedKeyCacheSize);
    EXPECT_EQ(cache.Find(client), nullptr);
    EXPECT_EQ(cache.Find(RsaInfoWithExponent(3).Der()), nullptr);
    EXPECT_NE(cache.Find(RsaInfoWithExponent(1 + 2 * count).Der()), nullptr);
    // An evicted key is imported anew.
    EXPECT_TRUE(Verifies("req-signed-rsa.der", "rsa/client.der"));
    EXPECT_NE(cache.Find(client), nullptr);
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

TEST(PublicKeyCache, EvictsTheLeastRecentlyUsedAndKeepsTheFirstOfTwins) {
    PkeyPtr keys[4];
    for (unsigned i = 0; i < 4; ++i) {
        keys[i] = Detail::KeyFromParameters(RsaInfoWithExponent(3 + 2 * i).Info(), CALG_RSA_KEYX);
        ASSERT_NE(keys[i], nullptr);
    }
    const Bytes a = {1};
    const Bytes b = {2};
    const Bytes c = {3};
    const Bytes d = {1, 0};
    Detail::PublicKeyCache cache(3);
    cache.Insert(a, keys[0].get());
    cache.Insert(b, keys[1].get());
    cache.Insert(c, keys[2].get());
    EXPECT_EQ(cache.Find(a).get(), keys[0].get()); // a is now used after b
    cache.Insert(a, keys[3].get());                // already there: kept as it was
    cache.Insert(d, keys[3].get());                // evicts b
    EXPECT_EQ(cache.Size(), 3u);
    EXPECT_EQ(cache.Find(a).get(), keys[0].get());
    EXPECT_EQ(cache.Find(b), nullptr);
    EXPECT_EQ(cache.Find(c).get(), keys[2].get());
    EXPECT_EQ(cache.Find(d).get(), keys[3].get());
    EXPECT_EQ(cache.Find(Bytes{}), nullptr);

    Detail::PublicKeyCache none(0);
    none.Insert(a, keys[0].get());
    EXPECT_EQ(none.Size(), 0u);
    EXPECT_EQ(none.Find(a), nullptr);
}

TEST(KeyImport, ARequestWithAMalformedSignerKeyFailsAsBefore) {
    // The client certificate with the tag of its RSAPublicKey changed: the certificate
    // still parses, its key does not.
    Bytes certificate = ReadData("pki/rsa/client.der");
    const Bytes marker = FromHex("0382010f003082010a");
    const auto at =
        std::search(certificate.begin(), certificate.end(), marker.begin(), marker.end());
    ASSERT_NE(at, certificate.end());
    *(at + 5) = 0x31;
    Velmor::PKI::OCSP::CRequestMessage request;
    request.decode(CBlob(ReadData("ocsp/req-signed-rsa.der")));
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_HRESULT_THROW(request.verify(CBlob(certificate)), CRYPT_E_ASN1_BADTAG);
    }
    EXPECT_TRUE(request.verify(CBlob(ReadData("pki/rsa/client.der"))));
}

TEST(KeyImport, ConcurrentVerificationsAreCorrect) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&wrong, t] {
            HCRYPTPROV provider = 0;
            if (!CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL,
                                      CRYPT_VERIFYCONTEXT)) {
                ++wrong;
                return;
            }
            for (unsigned round = 0; round < 12; ++round) {
                try {
                    wrong += Verifies("req-signed-rsa.der", "rsa/client.der") ? 0 : 1;
                    wrong += Verifies("req-signed-rsa.der", "rsa/leaf.der") ? 1 : 0;
                    wrong += Verifies("req-signed-ec.der", "ec/client.der") ? 0 : 1;
                } catch (...) {
                    ++wrong;
                }
                // Keys of this thread's own, enough to evict the others' keys meanwhile.
                for (unsigned k = 0; k < Detail::kImportedKeyCacheSize / 4; ++k) {
                    KeyInfo variant = RsaInfoWithExponent(1001 + 2 * (t * 1000 + round * 50 + k));
                    const CERT_PUBLIC_KEY_INFO info = variant.Info();
                    HCRYPTKEY key = 0;
                    wrong += CryptImportPublicKeyInfo(provider, X509_ASN_ENCODING, &info, &key) &&
                                     CryptDestroyKey(key)
                                 ? 0
                                 : 1;
                }
            }
            CryptReleaseContext(provider, 0);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_LE(Detail::ImportedPublicKeys().Size(), Detail::kImportedKeyCacheSize);
}

} // namespace
