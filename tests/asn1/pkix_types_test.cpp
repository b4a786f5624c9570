// The PKIX structures against real certificates made by the openssl command: every fixture
// certificate decodes, and encodes from its fields and from a deep copy to exactly the bytes
// it came from; BER headers and cut-off input fail or pass as they should; the extension
// values that the library converts to value types survive the round trip.
#include "asn1/pkix_types.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "foundation/asn1_traits.h"
#include "support/asn1_test_support.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using velmor_test::BerForm;
using velmor_test::Bytes;
using velmor_test::Decoded;
using velmor_test::EncodeHex;
using velmor_test::Hex;
using velmor_test::ReadData;
using velmor_test::ToHex;

namespace {

std::vector<std::string> FixturePaths() {
    std::vector<std::string> paths;
    for (const char* keyType : {"rsa", "ec"}) {
        for (const char* name : {"root", "inter", "leaf", "leaf00", "leaf20", "ocsp", "client"}) {
            paths.push_back(std::string("pki/") + keyType + "/" + name + ".der");
        }
    }
    return paths;
}

const ASN1T_Extension* FindExtension(const ASN1T_Certificate& cert, const char* oidHex) {
    for (const ASN1T_Extension* extension :
         velmor_test::Elements<ASN1T_Extension>(cert.tbsCertificate.extensions)) {
        if (Hex(extension->extnID) == oidHex) {
            return extension;
        }
    }
    return nullptr;
}

TEST(PkixCertificate, EveryFixtureEncodesFromItsFieldsAndFromACopyToTheSameBytes) {
    for (const std::string& path : FixturePaths()) {
        SCOPED_TRACE(path);
        const Bytes der = ReadData(path);
        ASN1BEREncodeBuffer target;
        ASN1T_Certificate copy{};
        {
            Decoded<ASN1T_Certificate> cert(der);
            ASSERT_EQ(cert.status, 0);
            EXPECT_EQ(Hex(cert.value.raw), ToHex(der));
            cert.value.raw = {}; // from now on the encoder works from the fields alone
            EXPECT_EQ(EncodeHex(cert.value), ToHex(der));
            ASSERT_EQ(asn1Copy_Certificate(target.getCtxtPtr(), cert.value, copy), 0);

            // The extensions, through the value types and back.
            CExtensions extensions;
            ASN1T_Extensions_traits::get(cert.value.tbsCertificate.extensions, extensions);
            ASN1BEREncodeBuffer out;
            ASN1T_Extensions rebuilt{};
            ASN1T_Extensions_traits::set(out.getCtxtPtr(), rebuilt, extensions);
            EXPECT_EQ(EncodeHex(rebuilt), EncodeHex(cert.value.tbsCertificate.extensions));
            std::memset(cert.der.data(), 0xEE, cert.der.size()); // the copy must not point here
        }
        EXPECT_EQ(EncodeHex(copy), ToHex(der));
    }
}

TEST(PkixCertificate, BerCertificateIsKeptAsReceivedAndEncodesToDerFromFields) {
    const Bytes der = ReadData("pki/rsa/leaf.der");
    for (BerForm form : {BerForm::indefinite, BerForm::longLength}) {
        const Bytes ber = velmor_test::Reheaded(der, form);
        Decoded<ASN1T_Certificate> cert(ber);
        ASSERT_EQ(cert.status, 0);
        // Passed through unchanged, a certificate keeps its issuer's bytes (and signature).
        EXPECT_EQ(EncodeHex(cert.value), ToHex(ber));
        cert.value.raw = {};
        EXPECT_EQ(EncodeHex(cert.value), ToHex(der));
    }
}

TEST(PkixCertificate, MalformedCertificatesFail) {
    const Bytes der = ReadData("pki/ec/leaf.der");
    velmor_test::ExpectEveryTruncationIsCutOff<ASN1T_Certificate>(der);
    Bytes wrongTag = der;
    wrongTag[4] = 0x31; // the TBSCertificate SEQUENCE becomes a SET
    EXPECT_EQ(Decoded<ASN1T_Certificate>(wrongTag).status, RTERR_IDNOTFOU);
}

// The extension oidHex of a fixture certificate as the value type Value; the structure set
// from that value must encode to the extension's octets again.
template <class Structure, class Traits, class Value>
Value ExtensionValue(const char* path, const char* oidHex) {
    Decoded<ASN1T_Certificate> cert(ReadData(path));
    EXPECT_EQ(cert.status, 0);
    const ASN1T_Extension* extension = FindExtension(cert.value, oidHex);
    if (extension == nullptr) {
        ADD_FAILURE() << "no extension " << oidHex << " in " << path;
        return Value();
    }
    const ASN1TDynOctStr& octets = extension->extnValue;
    Decoded<Structure> structure(Bytes(octets.data, octets.data + octets.numocts));
    EXPECT_EQ(structure.status, 0);
    Value value;
    Traits::get(structure.value, value);
    ASN1BEREncodeBuffer out;
    Structure rebuilt{};
    Traits::set(out.getCtxtPtr(), rebuilt, value);
    EXPECT_EQ(EncodeHex(rebuilt), Hex(octets));
    return value;
}

TEST(PkixExtensions, ValuesOfTheLeavesRoundTripThroughValueTypes) {
    const auto points = // 2.5.29.31
        ExtensionValue<ASN1T_CRLDistPointsSyntax, ASN1T_CRLDistPointsSyntax_traits,
                       CCRLDistPointsSyntax>("pki/rsa/leaf.der", "551d1f");
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

    const auto access = // 1.3.6.1.5.5.7.1.1
        ExtensionValue<ASN1T_AuthorityInfoAccessSyntax, ASN1T_AuthorityInfoAccessSyntax_traits,
                       CAuthorityInfoAccessSyntax>("pki/ec/leaf.der", "2b06010505070101");
    ASSERT_EQ(access.size(), 2u);
    EXPECT_STREQ(access.front().get_accessMethod(), "1.3.6.1.5.5.7.48.1");
    EXPECT_STREQ(access.front().get_accessLocation().get_uniformResourceIdentifier(),
                 "http://ocsp.velmor.test/inter");
    EXPECT_STREQ(access.back().get_accessMethod(), "1.3.6.1.5.5.7.48.2");
}

} // namespace
