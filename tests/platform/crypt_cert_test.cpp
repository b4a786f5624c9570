// Certificate contexts against OpenSSL's reading of the same fixture certificates, name
// comparison, the to-be-signed hash and the multi-byte integer encoding.
#include "platform/crypt_api.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <string>

#include "support/test_support.h"

using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::Cat;
using velmor_test::FromHex;
using velmor_test::ReadData;
using velmor_test::Text;
using velmor_test::Tlv;
using velmor_test::ToHex;

namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// One fixture certificate, parsed by both sides.
struct Fixture {
    explicit Fixture(const std::string& path) : der(ReadData(path)) {
        const unsigned char* p = der.data();
        x509 = d2i_X509(nullptr, &p, static_cast<long>(der.size()));
        context =
            CertCreateCertificateContext(kEncoding, der.data(), static_cast<DWORD>(der.size()));
    }
    ~Fixture() {
        X509_free(x509);
        CertFreeCertificateContext(context);
    }
    Fixture(const Fixture&) = delete;
    Fixture& operator=(const Fixture&) = delete;

    // The offset of an OpenSSL-encoded piece in the certificate, found independently.
    std::ptrdiff_t OffsetOf(const Bytes& piece, std::ptrdiff_t from = 0) const {
        const auto at = std::search(der.begin() + from, der.end(), piece.begin(), piece.end());
        return at == der.end() ? -1 : at - der.begin();
    }
    std::ptrdiff_t OffsetIn(const CRYPT_INTEGER_BLOB& blob) const {
        return blob.pbData - context->pbCertEncoded;
    }

    Bytes der;
    X509* x509 = nullptr;
    PCCERT_CONTEXT context = nullptr;
};

template <class T, class Encode> Bytes Encoded(T* value, Encode encode) {
    unsigned char* out = nullptr;
    const int length = encode(value, &out);
    Bytes bytes(out, out + std::max(length, 0));
    OPENSSL_free(out);
    return bytes;
}

Bytes BlobBytes(const CRYPT_INTEGER_BLOB& blob) { return {blob.pbData, blob.pbData + blob.cbData}; }

std::string OidText(const ASN1_OBJECT* object) {
    char text[128];
    OBJ_obj2txt(text, sizeof text, object, 1);
    return text;
}

// The DER of an algorithm's parameters; empty when they are absent.
Bytes ParametersOf(const X509_ALGOR* algorithm) {
    return algorithm->parameter != nullptr ? Encoded(algorithm->parameter, i2d_ASN1_TYPE) : Bytes();
}

// Seconds since 1970 of a FILETIME.
std::int64_t UnixSeconds(const FILETIME& time) {
    const auto ticks = (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    return static_cast<std::int64_t>(ticks / 10'000'000) - 11644473600;
}

std::int64_t UnixSeconds(const ASN1_TIME* time) {
    std::tm parts{};
    ASN1_TIME_to_tm(time, &parts);
    return timegm(&parts);
}

const char* const kNames[] = {"root", "inter", "leaf", "leaf00", "leaf20", "ocsp", "client"};

} // namespace

TEST(CertContext, InfoIsTheCertificatesOwnBytesAndTheSerialIsLittleEndian) {
    for (const char* pki : {"rsa", "ec"}) {
        for (const char* name : kNames) {
            const Fixture cert(std::string("pki/") + pki + "/" + name + ".der");
            SCOPED_TRACE(std::string(pki) + "/" + name);
            ASSERT_NE(cert.x509, nullptr);
            ASSERT_NE(cert.context, nullptr);
            const CERT_INFO& info = *cert.context->pCertInfo;
            EXPECT_EQ(cert.context->dwCertEncodingType, kEncoding);
            EXPECT_EQ(Bytes(cert.context->pbCertEncoded,
                            cert.context->pbCertEncoded + cert.context->cbCertEncoded),
                      cert.der);
            EXPECT_NE(cert.context->pbCertEncoded, cert.der.data()) << "the context has a copy";

            const Bytes issuer = Encoded(X509_get_issuer_name(cert.x509), i2d_X509_NAME);
            const Bytes subject = Encoded(X509_get_subject_name(cert.x509), i2d_X509_NAME);
            EXPECT_EQ(BlobBytes(info.Issuer), issuer);
            EXPECT_EQ(cert.OffsetIn(info.Issuer), cert.OffsetOf(issuer));
            EXPECT_EQ(BlobBytes(info.Subject), subject);
            // The subject follows the issuer (a root's two names are the same bytes).
            EXPECT_EQ(cert.OffsetIn(info.Subject),
                      cert.OffsetOf(subject, cert.OffsetIn(info.Issuer) + info.Issuer.cbData));

            const ASN1_BIT_STRING* key = X509_get0_pubkey_bitstr(cert.x509);
            const CRYPT_BIT_BLOB& bits = info.SubjectPublicKeyInfo.PublicKey;
            EXPECT_EQ(Bytes(bits.pbData, bits.pbData + bits.cbData),
                      Bytes(key->data, key->data + key->length));
            EXPECT_EQ(bits.cUnusedBits, 0u);

            const X509_ALGOR* signature = X509_get0_tbs_sigalg(cert.x509);
            EXPECT_EQ(info.SignatureAlgorithm.pszObjId, OidText(signature->algorithm));
            EXPECT_EQ(BlobBytes(info.SignatureAlgorithm.Parameters), ParametersOf(signature));

            X509_ALGOR* keyAlgorithm = nullptr;
            X509_PUBKEY_get0_param(nullptr, nullptr, nullptr, &keyAlgorithm,
                                   X509_get_X509_PUBKEY(cert.x509));
            const CRYPT_ALGORITHM_IDENTIFIER& ourKeyAlgorithm = info.SubjectPublicKeyInfo.Algorithm;
            EXPECT_EQ(ourKeyAlgorithm.pszObjId, OidText(keyAlgorithm->algorithm));
            EXPECT_EQ(BlobBytes(ourKeyAlgorithm.Parameters), ParametersOf(keyAlgorithm));

            // The INTEGER contents as OpenSSL writes them (with the sign octet), reversed.
            Bytes serial = Encoded(X509_get0_serialNumber(cert.x509), i2d_ASN1_INTEGER);
            serial.erase(serial.begin(), serial.begin() + 2); // tag and one-octet length
            EXPECT_EQ(BlobBytes(info.SerialNumber), Bytes(serial.rbegin(), serial.rend()));

            EXPECT_EQ(info.dwVersion, static_cast<DWORD>(X509_get_version(cert.x509)));
            EXPECT_EQ(UnixSeconds(info.NotBefore), UnixSeconds(X509_get0_notBefore(cert.x509)));
            EXPECT_EQ(UnixSeconds(info.NotAfter), UnixSeconds(X509_get0_notAfter(cert.x509)));

            ASSERT_EQ(info.cExtension, static_cast<DWORD>(X509_get_ext_count(cert.x509)));
            for (DWORD i = 0; i < info.cExtension; ++i) {
                X509_EXTENSION* extension = X509_get_ext(cert.x509, static_cast<int>(i));
                const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(extension);
                EXPECT_EQ(info.rgExtension[i].pszObjId,
                          OidText(X509_EXTENSION_get_object(extension)));
                EXPECT_EQ(info.rgExtension[i].fCritical, X509_EXTENSION_get_critical(extension));
                EXPECT_EQ(BlobBytes(info.rgExtension[i].Value),
                          Bytes(value->data, value->data + value->length));
            }
        }
    }
    const Fixture leaf00("pki/ec/leaf00.der");
    EXPECT_EQ(ToHex(BlobBytes(leaf00.context->pCertInfo->SerialNumber)), "d2115c3a8f00")
        << "the sign octet is kept, last";
}

TEST(CertContext, MalformedAndTruncatedInput) {
    const Bytes der = ReadData("pki/rsa/leaf.der");
    const auto create = [](const Bytes& bytes) {
        return CertCreateCertificateContext(kEncoding, bytes.data(),
                                            static_cast<DWORD>(bytes.size()));
    };
    const auto expectFailure = [](PCCERT_CONTEXT context, auto error, const char* what) {
        EXPECT_EQ(context, nullptr) << what;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(error)) << what;
    };
    expectFailure(create(Bytes(der.begin(), der.end() - 1)), CRYPT_E_ASN1_EOD, "one byte short");
    expectFailure(create({}), CRYPT_E_ASN1_EOD, "empty");
    Bytes wrongTag = der;
    wrongTag[0] = 0x31;
    expectFailure(create(wrongTag), CRYPT_E_ASN1_BADTAG, "SET for SEQUENCE");
    Bytes trailing = der;
    trailing.push_back(0);
    expectFailure(create(trailing), CRYPT_E_ASN1_BADTAG, "trailing byte");
    Bytes badSerialTag = der;
    ASSERT_EQ(badSerialTag[13], 0x02) << "the serial number follows the [0] version";
    badSerialTag[13] = 0x04;
    expectFailure(create(badSerialTag), CRYPT_E_ASN1_BADTAG, "OCTET STRING for INTEGER");
    expectFailure(CertCreateCertificateContext(PKCS_7_ASN_ENCODING, der.data(),
                                               static_cast<DWORD>(der.size())),
                  ERROR_FILE_NOT_FOUND, "not X.509");
    EXPECT_TRUE(CertFreeCertificateContext(nullptr));
}

TEST(CertCompareCertificateName, ComparesNamesNotBytes) {
    // Name ::= SEQUENCE { SET { SEQUENCE { id-at-commonName, <tag> <text> } } }
    const auto name = [](BYTE tag, const std::string& text) {
        const Bytes commonName = {0x06, 0x03, 0x55, 0x04, 0x03};
        return Tlv(0x30, Tlv(0x31, Tlv(0x30, Cat({commonName, Tlv(tag, Text(text))}))));
    };
    const auto compare = [](Bytes a, Bytes b) {
        const CERT_NAME_BLOB first{static_cast<DWORD>(a.size()), a.data()};
        const CERT_NAME_BLOB second{static_cast<DWORD>(b.size()), b.data()};
        return CertCompareCertificateName(kEncoding, &first, &second);
    };
    const Bytes printable = name(0x13, "Velmor Test CA");
    EXPECT_TRUE(compare(printable, printable));
    EXPECT_TRUE(compare(printable, name(0x0C, "velmor test ca")));
    EXPECT_TRUE(compare(printable, name(0x0C, "  VELMOR   Test  CA ")));
    EXPECT_FALSE(compare(printable, name(0x13, "Velmor Test CB")));
    EXPECT_FALSE(compare(printable, name(0x13, "VelmorTest CA")));

    // The fixture names against each other.
    const Fixture leaf("pki/rsa/leaf.der");
    const Fixture inter("pki/rsa/inter.der");
    const CERT_INFO& leafInfo = *leaf.context->pCertInfo;
    EXPECT_TRUE(CertCompareCertificateName(kEncoding, &leafInfo.Issuer,
                                           &inter.context->pCertInfo->Subject));
    EXPECT_FALSE(CertCompareCertificateName(kEncoding, &leafInfo.Issuer, &leafInfo.Subject));

    Bytes notAName = {0x04, 0x00};
    const CERT_NAME_BLOB bad{2, notAName.data()};
    EXPECT_FALSE(CertCompareCertificateName(kEncoding, &bad, &leafInfo.Issuer));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(CRYPT_E_ASN1_BADTAG));
}

TEST(CryptHashToBeSigned, HashesTheTbsWithTheSignaturesHash) {
    for (const char* path : {"pki/rsa/leaf.der", "pki/ec/leaf.der", "pki/ec/root.der"}) {
        const Fixture cert(path);
        const Bytes tbs = Encoded(cert.x509, i2d_re_X509_tbs);
        ASSERT_GE(cert.OffsetOf(tbs), 0) << "fixture re-encodes to its own bytes";
        BYTE expected[EVP_MAX_MD_SIZE];
        unsigned expectedSize = 0;
        EVP_Digest(tbs.data(), tbs.size(), expected, &expectedSize, EVP_sha256(), nullptr);

        DWORD size = 0;
        ASSERT_TRUE(CryptHashToBeSigned(0, kEncoding, cert.der.data(),
                                        static_cast<DWORD>(cert.der.size()), nullptr, &size));
        ASSERT_EQ(size, expectedSize);
        Bytes hash(size);
        ASSERT_TRUE(CryptHashToBeSigned(0, kEncoding, cert.der.data(),
                                        static_cast<DWORD>(cert.der.size()), hash.data(), &size));
        EXPECT_EQ(hash, Bytes(expected, expected + expectedSize)) << path;
    }
    const Bytes der = ReadData("pki/rsa/leaf.der");
    DWORD size = 0;
    EXPECT_FALSE(CryptHashToBeSigned(0, kEncoding, der.data(), static_cast<DWORD>(der.size() - 1),
                                     nullptr, &size));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(CRYPT_E_ASN1_EOD));
}

TEST(CryptEncodeObject, MultiByteIntegerIsMinimalDer) {
    const std::pair<const char*, const char*> cases[] = {
        {"d2115c3a8f00", "0206008f3a5c11d2"}, // little-endian with its sign octet
        {"0110", "02021001"},
        {"0000", "020100"},   // redundant zeros go
        {"80ffff", "020180"}, // redundant sign extension of a negative number goes
        {"", "020100"},
    };
    for (const auto& [littleEndian, der] : cases) {
        Bytes value = FromHex(littleEndian);
        const CRYPT_INTEGER_BLOB blob{static_cast<DWORD>(value.size()), value.data()};
        DWORD size = 0;
        ASSERT_TRUE(CryptEncodeObject(kEncoding, X509_MULTI_BYTE_INTEGER, &blob, nullptr, &size));
        Bytes encoded(size);
        ASSERT_TRUE(
            CryptEncodeObject(kEncoding, X509_MULTI_BYTE_INTEGER, &blob, encoded.data(), &size));
        EXPECT_EQ(ToHex(encoded), der) << littleEndian;
    }
    // A certificate's serial number goes back to the INTEGER the certificate holds.
    const Fixture leaf20("pki/rsa/leaf20.der");
    DWORD size = 64;
    Bytes encoded(size);
    ASSERT_TRUE(CryptEncodeObject(kEncoding, X509_MULTI_BYTE_INTEGER,
                                  &leaf20.context->pCertInfo->SerialNumber, encoded.data(), &size));
    encoded.resize(size);
    EXPECT_EQ(encoded, Encoded(X509_get0_serialNumber(leaf20.x509), i2d_ASN1_INTEGER));

    EXPECT_FALSE(CryptEncodeObject(kEncoding, "1.2.3", &leaf20, nullptr, &size));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}
