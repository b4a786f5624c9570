// The converters between value types and ASN.1 structures: exact DER of what set fills,
// and get giving back an equal value from that DER.
#include "foundation/asn1_traits.h"

#include <gtest/gtest.h>

#include "foundation/codec_frame.h"
#include "foundation/oid_text.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::FromHex;
using velmor_test::HexOf;
using velmor_test::ToHex;

namespace {

// The DER of the structure that traits::set fills from value.
template <class Structure, class Traits, class Value> std::string EncodeWith(const Value& value) {
    return HexOf(Velmor::Codec::EncodeWith<Traits>(value));
}

// The value that traits::get builds from a DER structure.
template <class Structure, class Traits, class Value> Value DecodeWith(std::string_view hex) {
    Value value;
    Velmor::Codec::DecodeWith<Traits>(CBlob(FromHex(hex)), value);
    return value;
}

std::string OidHex(const char* text) {
    std::uint8_t out[256];
    const std::size_t size = Velmor::Codec::OidTextToContents(text, out);
    return ToHex(out, size);
}

std::string OidText(std::string_view hex) {
    const Bytes contents = FromHex(hex);
    std::string text;
    return Velmor::Codec::OidContentsToText(contents.data(), contents.size(), text) ? text
                                                                                    : "invalid";
}

// CN=test as a Name: SEQUENCE { SET { SEQUENCE { 2.5.4.3, UTF8String "test" } } }.
constexpr const char* kNameCnTest = "300f310d300b06035504030c0474657374";

} // namespace

TEST(OidText, ConvertsBothWaysForArcsOfAnySize) {
    EXPECT_EQ(OidHex("1.3.6.1.5.5.7.48.1.1"), "2b0601050507300101");
    EXPECT_EQ(OidHex("2.999.3"), "883703");
    EXPECT_EQ(OidHex("0.0"), "00");
    EXPECT_EQ(OidHex("2.25.329800735698586629295641978511506172918"),
              "6983f09da7ebcfdee0c7a1a7b2c0948cc8f9d776");
    // The common algorithm and OCSP OIDs (looked up, not computed) and arcs of every size.
    for (const char* text :
         {"1.3.6.1.5.5.7.48.1.1", "1.3.6.1.5.5.7.48.1.2", "1.3.14.3.2.26", "2.16.840.1.101.3.4.2.1",
          "1.2.840.113549.1.1.1", "1.2.840.113549.1.1.11", "1.2.840.10045.2.1",
          "1.2.840.10045.4.3.2", "1.3.6.1.5.5.7.48.1.3", "2.999.3", "1.39.18446744073709551616",
          "2.25.329800735698586629295641978511506172918"}) {
        EXPECT_EQ(OidText(OidHex(text)), text);
    }
    EXPECT_EQ(OidText("883703"), "2.999.3");
    EXPECT_EQ(OidText("4f"), "1.39");
    EXPECT_EQ(OidText("50"), "2.0");
}

// Each row of the looked-up table holds the octets that the arithmetic makes of its text, and
// is found from them.
TEST(OidText, KnownTableAgreesWithTheComputedConversion) {
    const auto texts = Velmor::Codec::KnownOidTexts();
    ASSERT_GE(texts.size(), 8u);
    for (const std::string_view text : texts) {
        const std::string hex = OidHex(std::string(text).c_str());
        const Bytes contents = FromHex(hex);
        std::string computed;
        ASSERT_TRUE(Velmor::Codec::ComputeOidText(contents.data(), contents.size(), computed))
            << text;
        EXPECT_EQ(computed, text);
        const std::string_view known =
            Velmor::Codec::KnownOidText(contents.data(), contents.size());
        EXPECT_EQ(known, text);
        EXPECT_EQ(known.data()[known.size()], '\0') << text; // callers pass it on as a C string
    }
}

TEST(OidText, RejectsWhatIsNotAnOid) {
    for (const char* text : {"", "1", "3.1", "1.40", "0.40", "01.2", "1.02", "1..2", "1.2.", ".1.2",
                             "1.2.a", "-1.2", "1.2 "}) {
        EXPECT_EQ(OidHex(text), "") << text;
    }
    EXPECT_EQ(OidText(""), "invalid");
    EXPECT_EQ(OidText("2b86"), "invalid");   // ends inside a subidentifier
    EXPECT_EQ(OidText("2b8001"), "invalid"); // subidentifier with a leading zero group
}

TEST(ObjIdTraits, SetThrowsForBadTextAndGetForBadContents) {
    ASN1BEREncodeBuffer buffer;
    ASN1OBJID oid;
    EXPECT_HRESULT_THROW(ASN1TObjId_traits::set(buffer.getCtxtPtr(), oid, "1.40"),
                         CRYPT_E_ASN1_INTERNAL);
    EXPECT_HRESULT_THROW(ASN1TObjId_traits::set(buffer.getCtxtPtr(), oid, nullptr),
                         CRYPT_E_ASN1_INTERNAL);
    const std::uint8_t bad[] = {0x2b, 0x86};
    CStringProxy text("kept");
    EXPECT_HRESULT_THROW(ASN1TObjId_traits::get(ASN1OBJID{2, bad}, text), CRYPT_E_ASN1_INTERNAL);
    EXPECT_STREQ(text.c_str(), "kept");
}

TEST(GeneralizedTimeTraits, EncodesUtcAndReadsItBack) {
    EXPECT_EQ(HexOf(ASN1GeneralizedTime_traits::encode(CDateTime(0, 0))),
              "180f31393730303130313030303030305a");
    const CDateTime withFraction(1700000000, 250000000);
    const CBlob der = ASN1GeneralizedTime_traits::encode(withFraction);
    EXPECT_EQ(der.to_string_view().substr(2), "20231114221320.25Z");
    CDateTime back;
    ASN1GeneralizedTime_traits::decode(der, back);
    EXPECT_TRUE(back == withFraction);

    CDateTime unchanged(5, 0);
    EXPECT_HRESULT_THROW(ASN1GeneralizedTime_traits::decode(
                             CBlob(FromHex("170d3233313131343232313332305a")), unchanged),
                         CRYPT_E_ASN1_INTERNAL); // a UTCTime is not a GeneralizedTime
    EXPECT_HRESULT_THROW(
        ASN1GeneralizedTime_traits::decode(CBlob(FromHex("1805323032335a")), unchanged),
        CRYPT_E_ASN1_INTERNAL); // not a time
    EXPECT_TRUE(unchanged == CDateTime(5, 0));
}

TEST(NameTraits, KeepsTheNameExactlyAndOwnsItAndRejectsWhatIsNotAName) {
    const CBlob name(FromHex(kNameCnTest));
    EXPECT_EQ((EncodeWith<ASN1T_Name, ASN1T_Name_traits>(name)), kNameCnTest);
    EXPECT_EQ(HexOf(DecodeWith<ASN1T_Name, ASN1T_Name_traits, CBlob>(kNameCnTest)), kNameCnTest);

    ASN1BEREncodeBuffer buffer;
    ASN1T_Name out;
    EXPECT_HRESULT_THROW(ASN1T_Name_traits::set(buffer.getCtxtPtr(), out, CBlob(FromHex("0400"))),
                         CRYPT_E_ASN1_INTERNAL);
    EXPECT_HRESULT_THROW(ASN1T_Name_traits::set(buffer.getCtxtPtr(), out,
                                                CBlob(FromHex(std::string(kNameCnTest) + "00"))),
                         CRYPT_E_ASN1_INTERNAL);
    EXPECT_HRESULT_THROW(ASN1T_Name_traits::set(buffer.getCtxtPtr(), out, CBlob()), E_INVALIDARG);

    // The structure set from a name outlives the blob it came from.
    {
        CBlob name(FromHex(kNameCnTest));
        ASN1T_Name_traits::set(buffer.getCtxtPtr(), out, name);
        std::fill(name.begin(), name.end(), 0);
    }
    EXPECT_EQ(HexOf(Velmor::Codec::Encode(buffer, out)), kNameCnTest);
}

TEST(ExtensionsTraits, ExplicitFalseCriticalIsReadAndNotWritten) {
    const auto back = DecodeWith<ASN1T_Extensions, ASN1T_Extensions_traits, CExtensions>(
        "300e300c0603551d130101000402 3000");
    ASSERT_EQ(back.size(), 1u);
    EXPECT_FALSE(back.front().get_critical());
    EXPECT_EQ((EncodeWith<ASN1T_Extensions, ASN1T_Extensions_traits>(back)),
              "300b30090603551d1304023000");
}

TEST(GeneralNameTraits, EveryChoiceHasItsTagAndAnUnsetNameCannotBeEncoded) {
    struct Case {
        CGeneralName name;
        const char* der;
    };
    std::vector<Case> cases(7);
    cases[0].name.put_rfc822Name("a@b");
    cases[0].der = "8103614062";
    cases[1].name.put_dNSName("a.b");
    cases[1].der = "8203612e62";
    cases[2].name.put_uniformResourceIdentifier("http://o");
    cases[2].der = "8608687474703a2f2f6f";
    cases[3].name.put_iPAddress(CBlob(FromHex("7f000001")));
    cases[3].der = "87047f000001";
    cases[4].name.put_registeredID("1.2.3");
    cases[4].der = "88022a03";
    cases[5].name.put_directoryName(CBlob(FromHex(kNameCnTest)));
    cases[5].der = "a411300f310d300b06035504030c0474657374";
    cases[6].name.put_other(CGeneralName::otherName, CBlob(FromHex("a00806032a03048101ff")));
    cases[6].der = "a00806032a03048101ff";
    for (const Case& c : cases) {
        const std::string der = EncodeWith<ASN1T_GeneralName, ASN1T_GeneralName_traits>(c.name);
        EXPECT_EQ(der, c.der);
        const auto back =
            DecodeWith<ASN1T_GeneralName, ASN1T_GeneralName_traits, CGeneralName>(der);
        EXPECT_TRUE(back == c.name) << c.der;
    }
    ASN1BEREncodeBuffer buffer;
    ASN1T_GeneralName out;
    EXPECT_HRESULT_THROW(ASN1T_GeneralName_traits::set(buffer.getCtxtPtr(), out, CGeneralName()),
                         CRYPT_E_ASN1_INTERNAL);
}

TEST(CrlDistPointsTraits, RelativeNameIsKeptAsItsSet) {
    const std::string der = "3013 3011 a00f a10d 300b06035504030c0474657374";
    const auto points = DecodeWith<ASN1T_CRLDistPointsSyntax, ASN1T_CRLDistPointsSyntax_traits,
                                   CCRLDistPointsSyntax>(der);
    ASSERT_EQ(points.size(), 1u);
    const CBlob* relative = points.front().get_nameRelativeToCRLIssuer();
    ASSERT_NE(relative, nullptr);
    EXPECT_EQ(HexOf(*relative), "310d300b06035504030c0474657374");
    EXPECT_EQ((EncodeWith<ASN1T_CRLDistPointsSyntax, ASN1T_CRLDistPointsSyntax_traits>(points)),
              ToHex(FromHex(der)));
}

TEST(AlgorithmIdentifierConverters, KeepParametersExactly) {
    CAlgorithmIdentifier withNull;
    withNull.put_algorithm("1.2.840.113549.1.1.11");
    withNull.put_parameters(CBlob(FromHex("0500")));
    EXPECT_EQ((EncodeWith<ASN1T_AlgorithmIdentifier, ASN1T_AlgorithmIdentifier_traits>(withNull)),
              "300d06092a864886f70d01010b0500");
    const auto back = DecodeWith<ASN1T_AlgorithmIdentifier, ASN1T_AlgorithmIdentifier_traits,
                                 CAlgorithmIdentifier>("300d06092a864886f70d01010b0500");
    EXPECT_TRUE(back == withNull);

    CAlgorithmIdentifier absent;
    absent.put_algorithm("2.16.840.1.101.3.4.2.1");
    EXPECT_EQ((EncodeWith<ASN1T_AlgorithmIdentifier, ASN1T_AlgorithmIdentifier_traits>(absent)),
              "300b0609608648016503040201");
    EXPECT_EQ((DecodeWith<ASN1T_AlgorithmIdentifier, ASN1T_AlgorithmIdentifier_traits,
                          CAlgorithmIdentifier>("300b0609608648016503040201")
                   .get_parameters()
                   .cbData()),
              0u);
}

// INTEGER contents travel as octets, a redundant leading octet included, both ways.
TEST(BigIntegerConverters, KeepTheOctetsExactly) {
    for (const char* content : {"00ff10", "0005", "ff7f", "00"}) {
        CBigInteger value;
        value.decode(CBlob(FromHex(content)));
        ASN1BEREncodeBuffer buffer;
        ASN1TDynBigInt out;
        ASN1TDynBigInt_traits::set(buffer.getCtxtPtr(), out, value);
        CBigInteger back;
        ASN1TDynBigInt_traits::get(out, back);
        EXPECT_EQ(HexOf(back.get_content()), content);
    }
    CBigInteger unchanged;
    EXPECT_HRESULT_THROW(ASN1TDynBigInt_traits::get(ASN1TDynBigInt{}, unchanged),
                         CRYPT_E_ASN1_INTERNAL);
}
