// The extension classes: their identifiers, the exact value bytes each setter writes, what a
// value decodes to, and the states that failed setters leave behind.
#include <gtest/gtest.h>
#include <pki/ocsp/ocsp_extensions.h>

#include <cstring>
#include <string>

#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::BlobOf;
using velmor_test::HexOf;

// Hex text without the spaces that group it.
std::string Hex(std::string_view grouped) {
    return velmor_test::ToHex(velmor_test::FromHex(grouped));
}

namespace {

// 2024-01-02T03:04:05Z.
const CDateTime kTime(1704164645, 0);
constexpr const char* kTimeDer = "180f32303234303130323033303430355a";
constexpr const char* kUrl = "http://crl.example/ca.crl";
// CrlID { [0] kUrl, [1] 7, [2] kTime }.
constexpr const char* kFullCrlId = "3035 a01b1619687474703a2f2f63726c2e6578616d706c652f63612e63726c"
                                   " a103020107 a211180f32303234303130323033303430355a";
constexpr const char* kName = "30123110300e06035504030c0754657374204341"; // CN=Test CA
// AuthorityInfoAccessSyntax { { id-ad-ocsp, URI http://ocsp.example/ } }.
constexpr const char* kAia =
    "3022302006082b060105050730018614687474703a2f2f6f6373702e6578616d706c652f";
constexpr const char* kBasic = "1.3.6.1.5.5.7.48.1.1";

CAuthorityInfoAccessSyntax OcspLocator() {
    CGeneralName uri;
    uri.put_uniformResourceIdentifier("http://ocsp.example/");
    CAuthorityInfoAccessSyntax locator;
    locator.push_back(CAccessDescription("1.3.6.1.5.5.7.48.1", uri));
    return locator;
}

CAcceptableResponses Responses(std::initializer_list<const char*> oids) {
    CAcceptableResponses list;
    for (const char* oid : oids) {
        list.push_back(CStringProxy(oid));
    }
    return list;
}

std::string Text(const CAcceptableResponses& list) {
    std::string text;
    for (const CStringProxy& oid : list) {
        text += std::string(oid.c_str()) + ";";
    }
    return text;
}

} // namespace

TEST(ExtensionClasses, CarryTheirOwnIdentifierAndAnEmptyValueUntilSet) {
    const struct {
        CExtValue value;
        const char* oid;
    } cases[] = {
        {CExtNonce(), "1.3.6.1.5.5.7.48.1.2"},
        {CExtCrlID(), "1.3.6.1.5.5.7.48.1.3"},
        {CExtAcceptableResponses(), "1.3.6.1.5.5.7.48.1.4"},
        {CExtArchiveCutoff(), "1.3.6.1.5.5.7.48.1.6"},
        {CExtServiceLocator(), "1.3.6.1.5.5.7.48.1.7"},
        {CExtCRLLocator(), "1.2.643.2.2.47.2"},
        {CExtInstantRevocationIndicator(), "1.2.643.2.2.47.3"},
        {CExtRevocationAnnouncementReference(), "1.2.643.2.2.47.4"},
        {CExtHistoricalRequest(), "1.2.643.2.2.47.5"},
    };
    for (const auto& c : cases) {
        EXPECT_STREQ(c.value.get_oid(), c.oid);
        EXPECT_EQ(c.value.get_value().cbData(), 0u) << c.oid;
    }
    // Whatever extension the bytes came from, the class's own identifier is carried.
    const CBlob crlId = BlobOf(kFullCrlId);
    EXPECT_STREQ(CExtCrlID(crlId).get_oid(), "1.3.6.1.5.5.7.48.1.3");
    EXPECT_STREQ(CExtHistoricalRequest(crlId).get_oid(), "1.2.643.2.2.47.5");
    EXPECT_STREQ(CExtInstantRevocationIndicator(crlId).get_oid(), "1.2.643.2.2.47.3");
}

TEST(ExtensionClasses, OpaqueValuesAreKeptByteForByte) {
    const CBlob notDer = BlobOf("ff00 0102 80");
    CExtNonce nonce(notDer);
    EXPECT_EQ(HexOf(nonce.get_nonce()), "ff00010280");
    EXPECT_EQ(&nonce.get_nonce(), &nonce.get_value());
    nonce.put_nonce(BlobOf("0401aa"));
    EXPECT_EQ(HexOf(nonce.get_value()), "0401aa");
    EXPECT_EQ(HexOf(CExtInstantRevocationIndicator(notDer).get_value()), "ff00010280");
    EXPECT_EQ(HexOf(CExtRevocationAnnouncementReference(notDer).get_value()), "ff00010280");
}

TEST(CExtCrlID, EachSetterRewritesTheWholeValue) {
    CExtCrlID crl;
    crl.put_crlNum(nullptr);
    EXPECT_EQ(HexOf(crl.get_value()), "3000");
    EXPECT_EQ(crl.get_crlUrl(), nullptr);
    EXPECT_EQ(crl.get_crlNum(), nullptr);
    EXPECT_EQ(crl.get_crlTime(), nullptr);

    crl.put_crlUrl("");
    ASSERT_NE(crl.get_crlUrl(), nullptr);
    EXPECT_STREQ(crl.get_crlUrl(), "");
    EXPECT_EQ(HexOf(crl.get_value()), "3004a0021600");

    crl.put_crlUrl(kUrl);
    const unsigned long seven = 7;
    crl.put_crlNum(&seven);
    crl.put_crlTime(&kTime);
    EXPECT_EQ(HexOf(crl.get_value()), Hex(kFullCrlId));
    EXPECT_STREQ(crl.get_crlUrl(), kUrl);
    EXPECT_EQ(*crl.get_crlNum(), 7u);
    EXPECT_EQ(*crl.get_crlTime(), kTime);

    crl.put_crlUrl(crl.get_crlUrl()); // its own text
    EXPECT_EQ(HexOf(crl.get_value()), Hex(kFullCrlId));
    crl.put_crlUrl(nullptr);
    EXPECT_EQ(crl.get_crlUrl(), nullptr);
    EXPECT_EQ(HexOf(crl.get_value()), "3018a103020107a211" + std::string(kTimeDer));
}

TEST(CExtCrlID, CrlNumberCoversThirtyTwoBitsAndRefusesMore) {
    CExtCrlID crl;
    const unsigned long high = 0x80000000ul;
    crl.put_crlNum(&high);
    EXPECT_EQ(HexOf(crl.get_value()), "3009a10702050080000000");
    const unsigned long largest = 0xFFFFFFFFul;
    crl.put_crlNum(&largest);
    EXPECT_EQ(HexOf(crl.get_value()), "3009a107020500ffffffff");
    EXPECT_EQ(*CExtCrlID(crl.get_value()).get_crlNum(), 0xFFFFFFFFul);

    const unsigned long tooLarge = 0x100000000ul;
    EXPECT_HRESULT_THROW(crl.put_crlNum(&tooLarge), E_INVALIDARG);
    EXPECT_EQ(*crl.get_crlNum(), 0xFFFFFFFFul);
    EXPECT_EQ(HexOf(crl.get_value()), "3009a107020500ffffffff");

    // Decoded numbers must be minimal and fit 0 .. 2^32 - 1.
    for (const char* bad : {"300aa108020600ffffffffff", "3005a1030201ff", "3009a1070205010000 0000",
                            "3006a104020200 7f"}) {
        EXPECT_HRESULT_THROW(CExtCrlID(BlobOf(bad)), CRYPT_E_ASN1_INTERNAL) << bad;
    }
}

TEST(CExtCrlID, DecodesEveryFieldAndTheHistoricalRequestReadsTheSameSyntax) {
    const CExtCrlID crl(BlobOf(kFullCrlId));
    EXPECT_STREQ(crl.get_crlUrl(), kUrl);
    EXPECT_EQ(*crl.get_crlNum(), 7u);
    EXPECT_EQ(*crl.get_crlTime(), kTime);
    EXPECT_EQ(HexOf(crl.get_value()), Hex(kFullCrlId));

    const CExtHistoricalRequest historical(crl.get_value());
    EXPECT_STREQ(historical.get_crlUrl(), kUrl);
    EXPECT_EQ(*historical.get_crlNum(), 7u);
    EXPECT_EQ(*historical.get_crlTime(), kTime);

    // Only the number: the other getters stay null.
    const CExtCrlID number(BlobOf("3005a103020107"));
    EXPECT_EQ(number.get_crlUrl(), nullptr);
    EXPECT_EQ(*number.get_crlNum(), 7u);
    EXPECT_EQ(number.get_crlTime(), nullptr);
}

TEST(CExtCrlID, AFailedEncodingKeepsTheNewFieldAndTheOldValue) {
    CExtHistoricalRequest crl;
    const unsigned long seven = 7;
    crl.put_crlNum(&seven);
    const CDateTime year10000(253402300800, 0); // a GeneralizedTime has four year digits
    EXPECT_HRESULT_THROW(crl.put_crlTime(&year10000), E_INVALIDARG);
    ASSERT_NE(crl.get_crlTime(), nullptr);
    EXPECT_EQ(*crl.get_crlTime(), year10000);
    EXPECT_EQ(HexOf(crl.get_value()), "3005a103020107");
    crl.put_crlTime(nullptr);
    EXPECT_EQ(HexOf(crl.get_value()), "3005a103020107");
}

TEST(CExtArchiveCutoff, IsABareGeneralizedTime) {
    CExtArchiveCutoff cutoff;
    EXPECT_EQ(cutoff.get_archiveCutoff(), CDateTime(0, 0));
    cutoff.put_archiveCutoff(kTime);
    EXPECT_EQ(HexOf(cutoff.get_value()), kTimeDer);
    EXPECT_EQ(HexOf(CExtArchiveCutoff(kTime).get_value()), kTimeDer);
    EXPECT_EQ(HexOf(CExtArchiveCutoff(CDateTime(1704164645, 250000000)).get_value()),
              "1812" + velmor_test::ToHex(velmor_test::Text("20240102030405.25Z")));

    // Read with an offset and a fraction; the value keeps the bytes given.
    const CBlob offset(velmor_test::Tlv(0x18, velmor_test::Text("20240102050405.5+0200")));
    const CExtArchiveCutoff read(offset);
    EXPECT_EQ(read.get_archiveCutoff(), CDateTime(1704164645, 500000000));
    EXPECT_EQ(HexOf(read.get_value()), HexOf(offset));

    const CDateTime year10000(253402300800, 0);
    EXPECT_HRESULT_THROW(cutoff.put_archiveCutoff(year10000), E_INVALIDARG);
    EXPECT_EQ(cutoff.get_archiveCutoff(), year10000);
    EXPECT_EQ(HexOf(cutoff.get_value()), kTimeDer);
    EXPECT_HRESULT_THROW(CExtArchiveCutoff{year10000}, E_INVALIDARG);
}

TEST(CExtAcceptableResponses, WritesTheIdentifiersInListOrder) {
    const CExtAcceptableResponses basic(Responses({kBasic}));
    EXPECT_EQ(HexOf(basic.get_value()), "300b06092b0601050507300101");
    EXPECT_EQ(Text(CExtAcceptableResponses(basic.get_value()).get_acceptableResponses()),
              "1.3.6.1.5.5.7.48.1.1;");

    const CExtAcceptableResponses two(Responses({"2.999.1", kBasic}));
    EXPECT_EQ(HexOf(two.get_value()), Hex("3010 0603883701 06092b0601050507300101"));
    EXPECT_EQ(Text(CExtAcceptableResponses(two.get_value()).get_acceptableResponses()),
              "2.999.1;1.3.6.1.5.5.7.48.1.1;");

    // Its own list given back: kept, and written (the default value was empty).
    CExtAcceptableResponses empty;
    empty.put_acceptableResponses(empty.get_acceptableResponses());
    EXPECT_EQ(HexOf(empty.get_value()), "3000");
    EXPECT_TRUE(CExtAcceptableResponses(empty.get_value()).get_acceptableResponses().empty());

    CExtAcceptableResponses bad(Responses({kBasic}));
    EXPECT_HRESULT_THROW(bad.put_acceptableResponses(Responses({kBasic, "1.3.six"})),
                         CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(Text(bad.get_acceptableResponses()), "1.3.6.1.5.5.7.48.1.1;1.3.six;");
    EXPECT_EQ(HexOf(bad.get_value()), "300b06092b0601050507300101");
}

TEST(CExtAcceptableResponses, ThousandsOfIdentifiersAndVeryLongOnes) {
    CAcceptableResponses many;
    std::string expected;
    for (int i = 0; i < 5000; ++i) {
        const std::string oid = "1.3.6.1.4.1." + std::to_string(i * 7919);
        many.push_back(CStringProxy(oid.c_str()));
        expected += oid + ";";
    }
    const CExtAcceptableResponses written(many);
    EXPECT_EQ(Text(CExtAcceptableResponses(written.get_value()).get_acceptableResponses()),
              expected);

    // 128 arcs are written; 129 are not. Longer ones are still read.
    std::string arcs = "1.2";
    for (int i = 2; i < 128; ++i) {
        arcs += "." + std::to_string(i);
    }
    const CExtAcceptableResponses longest(Responses({arcs.c_str()}));
    EXPECT_EQ(Text(CExtAcceptableResponses(longest.get_value()).get_acceptableResponses()),
              arcs + ";");
    const std::string tooMany = arcs + ".128";
    EXPECT_HRESULT_THROW(CExtAcceptableResponses(Responses({tooMany.c_str()})),
                         CRYPT_E_ASN1_INTERNAL);

    velmor_test::Bytes contents{0x2a}; // 1.2, then 398 more arcs of 300
    std::string text = "1.2";
    for (int i = 0; i < 398; ++i) {
        contents.insert(contents.end(), {0x82, 0x2c});
        text += ".300";
    }
    const CBlob read(velmor_test::Tlv(0x30, velmor_test::Tlv(0x06, contents)));
    EXPECT_EQ(Text(CExtAcceptableResponses(read).get_acceptableResponses()), text + ";");
}

TEST(CExtServiceLocator, TheLocatorWaitsForTheIssuerAndAnEmptyOneIsNotWritten) {
    const std::string withLocator = Hex("3038") + kName + kAia;
    const std::string issuerOnly = Hex("3014") + kName;
    CExtServiceLocator locator;
    const CAuthorityInfoAccessSyntax aia = OcspLocator();
    locator.put_locator(&aia);
    EXPECT_EQ(locator.get_value().cbData(), 0u);
    locator.put_issuer(BlobOf(kName));
    EXPECT_EQ(HexOf(locator.get_value()), withLocator);

    const CAuthorityInfoAccessSyntax none;
    locator.put_locator(&none);
    ASSERT_NE(locator.get_locator(), nullptr);
    EXPECT_TRUE(locator.get_locator()->empty());
    EXPECT_EQ(HexOf(locator.get_value()), issuerOnly);
    locator.put_locator(&aia);
    locator.put_locator(nullptr);
    EXPECT_EQ(locator.get_locator(), nullptr);
    EXPECT_EQ(HexOf(locator.get_value()), issuerOnly);

    // A Name that is not one is stored, but the value keeps its bytes.
    EXPECT_HRESULT_THROW(locator.put_issuer(BlobOf("0500")), CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(HexOf(locator.get_issuer()), "0500");
    EXPECT_EQ(HexOf(locator.get_value()), issuerOnly);
    EXPECT_HRESULT_THROW(locator.put_issuer(CBlob()), E_INVALIDARG);
}

TEST(CExtServiceLocator, ValueReadIsWrittenAgainFromItsFields) {
    const CExtServiceLocator der(BlobOf(Hex("3038") + kName + kAia));
    EXPECT_EQ(HexOf(der.get_issuer()), kName);
    ASSERT_NE(der.get_locator(), nullptr);
    ASSERT_EQ(der.get_locator()->size(), 1u);
    EXPECT_EQ(der.get_locator()->front(), OcspLocator().front());
    EXPECT_EQ(HexOf(der.get_value()), Hex("3038") + kName + kAia);

    // Long-form lengths become DER; an empty locator is dropped from the value.
    const std::string name(kName);
    const CExtServiceLocator ber(BlobOf("308139 308112" + name.substr(4) + kAia));
    EXPECT_EQ(HexOf(ber.get_issuer()), kName);
    EXPECT_EQ(HexOf(ber.get_value()), Hex("3038") + kName + kAia);
    const CExtServiceLocator emptyLocator(BlobOf("3016" + name + "3000"));
    ASSERT_NE(emptyLocator.get_locator(), nullptr);
    EXPECT_TRUE(emptyLocator.get_locator()->empty());
    EXPECT_EQ(HexOf(emptyLocator.get_value()), Hex("3014") + kName);
}

TEST(CExtCRLLocator, WritesTheDistributionPointsAndKeepsTheBytesItReads) {
    CGeneralNames names;
    CGeneralName uri;
    uri.put_uniformResourceIdentifier(kUrl);
    names.push_back(uri);
    CDistributionPoint point;
    point.put_fullName(&names);
    CCRLDistPointsSyntax points;
    points.push_back(point);
    const std::string urlHex = velmor_test::ToHex(velmor_test::Text(kUrl));
    const CExtCRLLocator locator(points);
    EXPECT_EQ(HexOf(locator.get_value()), "3021301fa01da01b8619" + urlHex);

    const CBlob ber = BlobOf("308121 301fa01da01b8619" + urlHex);
    const CExtCRLLocator read(ber);
    EXPECT_EQ(HexOf(read.get_value()), HexOf(ber));
    ASSERT_EQ(read.get_distributionPoints().size(), 1u);
    const CGeneralNames* full = read.get_distributionPoints().front().get_fullName();
    ASSERT_NE(full, nullptr);
    EXPECT_STREQ(full->front().get_uniformResourceIdentifier(), kUrl);

    CExtCRLLocator cleared(read);
    cleared.put_distributionPoints(CCRLDistPointsSyntax());
    EXPECT_EQ(HexOf(cleared.get_value()), "3000");
    EXPECT_TRUE(cleared.get_distributionPoints().empty());
    EXPECT_EQ(HexOf(read.get_value()), HexOf(ber));
}

namespace {

// Every field of a distribution point, in one line, for comparing decoded points with the
// ones they were written from.
std::string Describe(const CGeneralNames* names) {
    if (names == nullptr) {
        return "-";
    }
    std::string text;
    for (const CGeneralName& name : *names) {
        const char* words = name.get_uniformResourceIdentifier();
        const CBlob* octets = name.get_directoryName();
        text += std::to_string(name.get_choice()) + ":" + (words != nullptr ? words : "") +
                (octets != nullptr ? HexOf(*octets) : "") + ",";
    }
    return text;
}

std::string Describe(const CDistributionPoint& point) {
    const CBlob* rdn = point.get_nameRelativeToCRLIssuer();
    const unsigned* reasons = point.get_reasons();
    return Describe(point.get_fullName()) + " rdn=" + (rdn != nullptr ? HexOf(*rdn) : "-") +
           " reasons=" + (reasons != nullptr ? std::to_string(*reasons) : "-") +
           " issuer=" + Describe(point.get_cRLIssuer());
}

std::string Describe(const CCRLDistPointsSyntax& points) {
    std::string text;
    for (const CDistributionPoint& point : points) {
        text += Describe(point) + "; ";
    }
    return text;
}

} // namespace

// Decoded points and names may be built in the elements of lists destroyed before: each must
// still hold exactly the fields of its own bytes, whatever the one before held.
TEST(CExtCRLLocator, EachReadPointHoldsOnlyTheFieldsOfItsOwnBytes) {
    CGeneralName directory;
    directory.put_directoryName(BlobOf(kName));
    CGeneralName uri;
    uri.put_uniformResourceIdentifier(kUrl);
    CGeneralNames names;
    names.push_back(directory);
    names.push_back(uri);
    CGeneralNames issuer;
    issuer.push_back(uri);
    CDistributionPoint full;
    full.put_fullName(&names);
    const unsigned reasons = (1u << CDistributionPoint::keyCompromise) |
                             (1u << CDistributionPoint::cessationOfOperation);
    full.put_reasons(&reasons);
    full.put_cRLIssuer(&issuer);
    CDistributionPoint relative;
    const CBlob rdn = BlobOf("3110300e06035504030c0754657374204341");
    relative.put_nameRelativeToCRLIssuer(&rdn);

    CCRLDistPointsSyntax mixed;
    mixed.push_back(full);
    mixed.push_back(relative);
    CCRLDistPointsSyntax relativeOnly;
    relativeOnly.push_back(relative);
    relativeOnly.push_back(relative);
    CDistributionPoint fewer; // fewer names than full, and other ones
    fewer.put_fullName(&issuer);
    fewer.put_cRLIssuer(&names);
    CCRLDistPointsSyntax fewerNames;
    fewerNames.push_back(fewer);
    // Encoded first: the encoding objects' copies of the points must not be what the decodes
    // below reuse. Each decode then takes the elements of the one before.
    const CBlob mixedDer = CExtCRLLocator(mixed).get_value();
    const CBlob fewerDer = CExtCRLLocator(fewerNames).get_value();
    const CBlob relativeDer = CExtCRLLocator(relativeOnly).get_value();
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(Describe(CExtCRLLocator(mixedDer).get_distributionPoints()), Describe(mixed));
        EXPECT_EQ(Describe(CExtCRLLocator(fewerDer).get_distributionPoints()),
                  Describe(fewerNames));
        EXPECT_EQ(Describe(CExtCRLLocator(relativeDer).get_distributionPoints()),
                  Describe(relativeOnly));
    }
}

TEST(ExtensionClasses, CopiesAreIndependent) {
    const unsigned long nine = 9;
    const CExtCrlID crl(BlobOf(kFullCrlId));
    CExtCrlID crlCopy(crl);
    crlCopy.put_crlNum(&nine);
    EXPECT_EQ(*crl.get_crlNum(), 7u);
    EXPECT_EQ(HexOf(crl.get_value()), Hex(kFullCrlId));
    CExtCrlID assigned;
    assigned = crlCopy;
    crlCopy = crlCopy;
    EXPECT_EQ(*assigned.get_crlNum(), 9u);
    EXPECT_STREQ(assigned.get_crlUrl(), kUrl);
    EXPECT_EQ(HexOf(assigned.get_value()), HexOf(crlCopy.get_value()));

    const CExtServiceLocator locator(BlobOf(Hex("3038") + kName + kAia));
    CExtServiceLocator locatorCopy;
    locatorCopy = locator;
    locatorCopy.put_locator(nullptr);
    EXPECT_NE(locator.get_locator(), nullptr);
    EXPECT_EQ(HexOf(locator.get_value()), Hex("3038") + kName + kAia);
    EXPECT_EQ(HexOf(locatorCopy.get_value()), Hex("3014") + kName);

    const CExtAcceptableResponses responses(Responses({kBasic}));
    CExtAcceptableResponses responsesCopy(responses);
    responsesCopy.put_acceptableResponses(Responses({"2.5"}));
    EXPECT_EQ(Text(responses.get_acceptableResponses()), "1.3.6.1.5.5.7.48.1.1;");
    EXPECT_EQ(HexOf(responses.get_value()), "300b06092b0601050507300101");
}
