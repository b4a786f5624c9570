// The PKIX structures against real certificates made by the openssl command: every fixture
// certificate decodes, and encodes from its fields to exactly the bytes it came from; the
// extension values that the library converts to value types survive the round trip.
#include "asn1/pkix_types.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "foundation/asn1_traits.h"
#include "foundation/codec_frame.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using velmor_test::Bytes;
using velmor_test::ReadData;
using velmor_test::ToHex;

namespace {

const char* const kCertificates[] = {"root", "inter", "leaf", "leaf00", "leaf20", "ocsp", "client"};
const char* const kKeyTypes[] = {"rsa", "ec"};

std::string Hex(const ASN1OCTET* data, std::size_t size) { return ToHex(data, size); }

template <class T> std::string EncodeHex(const T& value) {
    ASN1BEREncodeBuffer buffer;
    const CBlob der = Codec::TakeEncoding(buffer, asn1E(buffer, value));
    return ToHex(der.pbData(), der.cbData());
}

// A decoded certificate together with its input and the buffer that owns its memory (the
// structure points into both).
struct DecodedCertificate {
    explicit DecodedCertificate(Bytes input)
        : der(std::move(input)), buffer(der.data(), der.size()) {
        ASN1C_Certificate control(buffer, value);
        status = control.Decode();
    }
    Bytes der;
    ASN1BERDecodeBuffer buffer;
    ASN1T_Certificate value{};
    int status = 0;
};

const ASN1T_Extension* FindExtension(const ASN1T_Certificate& cert, const char* oidHex) {
    const OSRTDList& list = cert.tbsCertificate.extensions;
    for (const OSRTDListNode* node = list.head; node != nullptr; node = node->next) {
        const auto* extension = static_cast<const ASN1T_Extension*>(node->data);
        if (Hex(extension->extnID.data, extension->extnID.numocts) == oidHex) {
            return extension;
        }
    }
    return nullptr;
}

// Re-encodes der with every definite length of the outermost element in the long form
// 0x84 + four octets, which BER allows and DER forbids.
Bytes WithLongOuterLength(const Bytes& der) {
    std::size_t headerSize = 2;
    std::size_t length = der[1];
    if (der[1] & 0x80) {
        const std::size_t count = der[1] & 0x7f;
        length = 0;
        for (std::size_t i = 0; i < count; ++i) {
            length = (length << 8) | der[2 + i];
        }
        headerSize = 2 + count;
    }
    Bytes out = {der[0],
                 0x84,
                 static_cast<std::uint8_t>(length >> 24),
                 static_cast<std::uint8_t>(length >> 16),
                 static_cast<std::uint8_t>(length >> 8),
                 static_cast<std::uint8_t>(length)};
    out.insert(out.end(), der.begin() + static_cast<std::ptrdiff_t>(headerSize), der.end());
    return out;
}

class FixtureCertificate : public ::testing::TestWithParam<std::string> {};

TEST_P(FixtureCertificate, EncodesFromItsFieldsToTheSameBytes) {
    const Bytes der = ReadData(GetParam());
    DecodedCertificate cert(der);
    ASSERT_EQ(cert.status, 0) << GetParam();
    EXPECT_EQ(Hex(cert.value.raw.data, cert.value.raw.numocts), ToHex(der.data(), der.size()));

    cert.value.raw = {}; // from now on the encoder works from the fields alone
    EXPECT_EQ(EncodeHex(cert.value), ToHex(der.data(), der.size()));
}

TEST_P(FixtureCertificate, DeepCopyOutlivesTheDecodeBuffer) {
    const Bytes der = ReadData(GetParam());
    ASN1BEREncodeBuffer target;
    ASN1T_Certificate copy{};
    {
        DecodedCertificate cert(der);
        ASSERT_EQ(cert.status, 0);
        cert.value.raw = {};
        ASSERT_EQ(asn1Copy_Certificate(target.getCtxtPtr(), cert.value, copy), 0);
        std::memset(cert.der.data(), 0xEE, cert.der.size()); // the copy must not point here
    }
    EXPECT_EQ(EncodeHex(copy), ToHex(der.data(), der.size()));
}

std::vector<std::string> FixturePaths() {
    std::vector<std::string> paths;
    for (const char* keyType : kKeyTypes) {
        for (const char* name : kCertificates) {
            paths.push_back(std::string("pki/") + keyType + "/" + name + ".der");
        }
    }
    return paths;
}

INSTANTIATE_TEST_SUITE_P(Pki, FixtureCertificate, ::testing::ValuesIn(FixturePaths()),
                         [](const auto& info) {
                             std::string name = info.param.substr(4);
                             for (char& c : name) {
                                 c = (c == '/' || c == '.') ? '_' : c;
                             }
                             return name;
                         });

TEST(PkixCertificate, SerialsAndValidityKeepTheirEncodedForms) {
    DecodedCertificate leaf00(ReadData("pki/rsa/leaf00.der"));
    DecodedCertificate leaf20(ReadData("pki/ec/leaf20.der"));
    DecodedCertificate root(ReadData("pki/rsa/root.der"));
    ASSERT_EQ(leaf00.status, 0);
    ASSERT_EQ(leaf20.status, 0);
    ASSERT_EQ(root.status, 0);

    // A serial whose high bit is set keeps the 00 octet that makes it positive.
    EXPECT_STREQ(leaf00.value.tbsCertificate.serialNumber, "0x008f3a5c11d2");
    EXPECT_STREQ(leaf20.value.tbsCertificate.serialNumber,
                 "0x7e1d2c3b4a59687786950a1b2c3d4e5f60718293");
    EXPECT_EQ(leaf00.value.tbsCertificate.version, 2);

    // The root's notAfter lies after 2049, so it is a GeneralizedTime; notBefore is UTCTime.
    EXPECT_EQ(root.value.tbsCertificate.validity.notBefore.t, T_Time_utcTime);
    EXPECT_EQ(root.value.tbsCertificate.validity.notAfter.t, T_Time_generalTime);
    EXPECT_EQ(std::string(root.value.tbsCertificate.validity.notAfter.value).substr(0, 4), "2054");
}

TEST(PkixCertificate, BerCertificateIsKeptAsReceivedAndEncodesToDerFromFields) {
    const Bytes der = ReadData("pki/rsa/leaf.der");
    const Bytes ber = WithLongOuterLength(der);
    ASSERT_NE(ber, der);
    DecodedCertificate cert(ber);
    ASSERT_EQ(cert.status, 0);

    // Passed through unchanged, a certificate keeps its issuer's bytes (and its signature).
    EXPECT_EQ(EncodeHex(cert.value), ToHex(ber.data(), ber.size()));
    cert.value.raw = {};
    EXPECT_EQ(EncodeHex(cert.value), ToHex(der.data(), der.size()));
}

TEST(PkixCertificate, MalformedCertificatesFail) {
    const Bytes der = ReadData("pki/ec/leaf.der");
    for (std::size_t size = 0; size < der.size(); ++size) {
        DecodedCertificate cert(
            Bytes(der.begin(), der.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_LT(cert.status, 0) << "truncated to " << size;
    }
    Bytes wrongTag = der;
    wrongTag[4] = 0x31; // the TBSCertificate SEQUENCE becomes a SET
    EXPECT_LT(DecodedCertificate(wrongTag).status, 0);
}

// 2.5.29.31 and 1.3.6.1.5.5.7.1.1 as DER contents.
constexpr const char* kCrlDistributionPoints = "551d1f";
constexpr const char* kAuthorityInfoAccess = "2b06010505070101";

template <class Structure, class Traits, class Value>
Value ConvertExtension(const ASN1T_Extension& extension, std::string& reencoded) {
    ASN1BERDecodeBuffer in(extension.extnValue.data, extension.extnValue.numocts);
    Structure structure{};
    ASN1CTypeT<Structure> control(in, structure);
    Codec::ThrowIfFailed(control.Decode());
    Value value;
    Traits::get(structure, value);

    ASN1BEREncodeBuffer out;
    Structure rebuilt{};
    Traits::set(out.getCtxtPtr(), rebuilt, value);
    const CBlob der = Codec::TakeEncoding(out, asn1E(out, rebuilt));
    reencoded = ToHex(der.pbData(), der.cbData());
    return value;
}

TEST(PkixExtensions, CrlDistributionPointsOfTheLeafRoundTripThroughValueTypes) {
    DecodedCertificate leaf(ReadData("pki/rsa/leaf.der"));
    ASSERT_EQ(leaf.status, 0);
    const ASN1T_Extension* extension = FindExtension(leaf.value, kCrlDistributionPoints);
    ASSERT_NE(extension, nullptr);

    std::string reencoded;
    const auto points =
        ConvertExtension<ASN1T_CRLDistPointsSyntax, ASN1T_CRLDistPointsSyntax_traits,
                         CCRLDistPointsSyntax>(*extension, reencoded);
    EXPECT_EQ(reencoded, Hex(extension->extnValue.data, extension->extnValue.numocts));

    ASSERT_EQ(points.size(), 1u);
    const CDistributionPoint& point = points.front();
    ASSERT_NE(point.get_fullName(), nullptr);
    ASSERT_EQ(point.get_fullName()->size(), 2u);
    EXPECT_STREQ(point.get_fullName()->front().get_uniformResourceIdentifier(),
                 "http://crl.velmor.test/inter.crl");
    // keyCompromise (1), cACompromise (2), superseded (4) as bits of the ReasonFlags.
    ASSERT_NE(point.get_reasons(), nullptr);
    EXPECT_EQ(*point.get_reasons(), (1u << 1) | (1u << 2) | (1u << 4));
    ASSERT_NE(point.get_cRLIssuer(), nullptr);
    EXPECT_EQ(point.get_cRLIssuer()->front().get_choice(), CGeneralName::directoryName);
}

TEST(PkixExtensions, AuthorityInfoAccessOfTheLeafRoundTripsThroughValueTypes) {
    DecodedCertificate leaf(ReadData("pki/ec/leaf.der"));
    ASSERT_EQ(leaf.status, 0);
    const ASN1T_Extension* extension = FindExtension(leaf.value, kAuthorityInfoAccess);
    ASSERT_NE(extension, nullptr);

    std::string reencoded;
    const auto access =
        ConvertExtension<ASN1T_AuthorityInfoAccessSyntax, ASN1T_AuthorityInfoAccessSyntax_traits,
                         CAuthorityInfoAccessSyntax>(*extension, reencoded);
    EXPECT_EQ(reencoded, Hex(extension->extnValue.data, extension->extnValue.numocts));

    ASSERT_EQ(access.size(), 2u);
    EXPECT_STREQ(access.front().get_accessMethod(), "1.3.6.1.5.5.7.48.1");
    EXPECT_STREQ(access.front().get_accessLocation().get_uniformResourceIdentifier(),
                 "http://ocsp.velmor.test/inter");
    EXPECT_STREQ(access.back().get_accessMethod(), "1.3.6.1.5.5.7.48.2");
}

TEST(PkixExtensions, ExtensionsOfEveryCertificateRoundTripThroughValueTypes) {
    for (const std::string& path : FixturePaths()) {
        DecodedCertificate cert(ReadData(path));
        ASSERT_EQ(cert.status, 0) << path;
        CExtensions extensions;
        ASN1T_Extensions_traits::get(cert.value.tbsCertificate.extensions, extensions);
        ASN1BEREncodeBuffer out;
        ASN1T_Extensions rebuilt{};
        ASN1T_Extensions_traits::set(out.getCtxtPtr(), rebuilt, extensions);
        EXPECT_EQ(EncodeHex(rebuilt), EncodeHex(cert.value.tbsCertificate.extensions)) << path;
    }
}

} // namespace
