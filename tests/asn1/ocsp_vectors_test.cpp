// The parts of the OCSP module that openssl does not write, from vectors assembled here: the
// other two certificate references, version v2, the OCSP extension values, BER forms of the
// signed parts, and encoder misuse.
#include "asn1/ocsp_types.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "support/asn1_test_support.h"
#include "support/test_support.h"

using velmor_test::AttributeCertificate;
using velmor_test::BasicResponseOf;
using velmor_test::BerForm;
using velmor_test::Bytes;
using velmor_test::Cat;
using velmor_test::Decoded;
using velmor_test::Elements;
using velmor_test::EncodeHex;
using velmor_test::FromHex;
using velmor_test::Hex;
using velmor_test::ReadData;
using velmor_test::Reheaded;
using velmor_test::Text;
using velmor_test::Tlv;
using velmor_test::ToHex;

namespace {

// Name ::= SEQUENCE { SET { SEQUENCE { commonName, UTF8String cn } } }
Bytes CommonName(std::string_view cn) {
    return Tlv(0x30, Tlv(0x31, Tlv(0x30, Cat({FromHex("0603550403"), Tlv(0x0C, Text(cn))}))));
}

const Bytes kEcdsaSha256 = FromHex("300a06082a8648ce3d040302");
const Bytes kTime2026 = Tlv(0x18, Text("20260101000000Z"));

// OCSPRequest, version v2, with one Request per certificate reference given.
Bytes RequestWith(std::initializer_list<Bytes> reqCerts) {
    Bytes list;
    for (const Bytes& reqCert : reqCerts) {
        list = Cat({list, Tlv(0x30, reqCert)});
    }
    return Tlv(0x30, Tlv(0x30, Cat({Tlv(0xA0, FromHex("020101")), Tlv(0x30, list)})));
}

// ---- ReqCert alternatives and version v2 --------------------------------------------------

TEST(OcspReqCert, FullCertificatesAndCertIdWithSignatureRoundTripInAVersion2Request) {
    const Bytes certificate = ReadData("pki/ec/leaf.der");
    const Bytes attributeCertificate = AttributeCertificate();
    const Bytes certIdWithSignature =
        Tlv(0x30, Cat({CommonName("Velmor CA"), FromHex("0203008f3a"), FromHex("030400aabbcc"),
                       kEcdsaSha256, FromHex("0303060140")}));
    const Bytes der =
        RequestWith({Tlv(0xA0, Tlv(0xA0, certificate)), Tlv(0xA0, Tlv(0xA1, attributeCertificate)),
                     Tlv(0xA1, certIdWithSignature)});

    // The alternatives' types and octets are checked through CReqCert (ReqCertChoice); here
    // the structures themselves: bit strings that end inside an octet, and the DER from the
    // fields alone (every raw cleared) and from a deep copy.
    Decoded<ASN1T_OCSPRequest> req(der);
    ASSERT_EQ(req.status, 0) << req.buffer.getErrorText();
    const auto entries = Elements<ASN1T_Request>(req.value.tbsRequest.requestList);
    ASSERT_EQ(entries.size(), 3u);
    const ASN1T_ReqCert& first = entries[0]->reqCert;
    const ASN1T_ReqCert& second = entries[1]->reqCert;
    const ASN1T_ReqCert& third = entries[2]->reqCert;
    ASSERT_TRUE(first.t == T_ReqCert_fullCertificate && second.t == T_ReqCert_fullCertificate);
    ASSERT_EQ(second.u.fullCertificate->t, T_FullCertificate_attributeCertificate);
    ASSERT_EQ(third.t, T_ReqCert_certIdWithSignature);
    EXPECT_EQ(third.u.certIdWithSignature->tbsCertificateHash.numbits, 24u);
    EXPECT_EQ(third.u.certIdWithSignature->signatureValue.numbits, 10u);
    EXPECT_EQ(Hex(second.u.fullCertificate->u.attributeCertificate->acinfo.serialNumber), "07");

    req.value.tbsRequest.raw = {};
    first.u.fullCertificate->u.certificate->raw = {};
    second.u.fullCertificate->u.attributeCertificate->raw = {};
    EXPECT_EQ(EncodeHex(req.value), ToHex(der));
    ASN1BEREncodeBuffer target;
    ASN1T_OCSPRequest copy{};
    ASSERT_EQ(asn1Copy_OCSPRequest(target.getCtxtPtr(), req.value, copy), 0);
    EXPECT_NE(
        Elements<ASN1T_Request>(copy.tbsRequest.requestList)[2]->reqCert.u.certIdWithSignature,
        third.u.certIdWithSignature);
    EXPECT_EQ(EncodeHex(copy), ToHex(der));
}

TEST(OcspReqCert, SelectedAlternativeMustBeThere) {
    ASN1T_SingleResponse entry{};
    entry.thisUpdate = "20260101000000Z";
    entry.certStatus.t = T_CertStatus_good;
    EXPECT_EQ(EncodeHex(entry), "error " + std::to_string(RTERR_INVPARAM)); // t = 0
    entry.certID.t = T_ReqCert_fullCertificate;                             // pointer null
    EXPECT_EQ(EncodeHex(entry), "error " + std::to_string(RTERR_INVPARAM));
    ASN1T_CertStatus revoked{};
    revoked.t = T_CertStatus_revoked;
    EXPECT_EQ(EncodeHex(revoked), "error " + std::to_string(RTERR_INVPARAM));
    ASN1T_ResponderID responder{};
    responder.t = 3;
    EXPECT_EQ(EncodeHex(responder), "error " + std::to_string(RTERR_INVPARAM));
}

TEST(OcspReqCert, LongListsOfSmallEntriesStayWithinTheDecodeArena) {
    // Only the alternative that was read is allocated, so an entry costs the arena a small
    // multiple of its own octets, however large the alternatives it did not use are.
    const Bytes request = Tlv(0x30, FromHex("300c 3003 06012a 0400 0400 020101"));
    const Bytes response = Tlv(0x30, Cat({FromHex("300c 3003 06012a 0400 0400 020101 8000"),
                                          Tlv(0x18, Text("20260101000000Z"))}));
    constexpr std::size_t kEntries = 20000;
    Bytes requests;
    Bytes responses;
    for (std::size_t i = 0; i < kEntries; ++i) {
        requests.insert(requests.end(), request.begin(), request.end());
        responses.insert(responses.end(), response.begin(), response.end());
    }
    Decoded<ASN1T_OCSPRequest> req(Tlv(0x30, Tlv(0x30, Tlv(0x30, requests))));
    ASSERT_EQ(req.status, 0) << req.buffer.getErrorText();
    EXPECT_EQ(req.value.tbsRequest.requestList.count, kEntries);
    const Bytes data = Cat({FromHex("a2020400"), kTime2026, Tlv(0x30, responses)});
    Decoded<ASN1T_BasicOCSPResponse> resp(
        Tlv(0x30, Cat({Tlv(0x30, data), kEcdsaSha256, FromHex("030100")})));
    ASSERT_EQ(resp.status, 0) << resp.buffer.getErrorText();
    EXPECT_EQ(resp.value.tbsResponseData.responses.count, kEntries);
}

// ---- Extension values ---------------------------------------------------------------------

TEST(OcspExtensionValues, CrlIdWithEveryFieldAndWithNoneAndItsNumberRange) {
    const Bytes url = Text("http://crl.velmor.test/inter.crl");
    const Bytes all =
        Tlv(0x30,
            Cat({Tlv(0xA0, Tlv(0x16, url)), FromHex("a10702050080000000"), Tlv(0xA2, kTime2026)}));
    ASN1T_CrlID built{};
    built.m.crlUrlPresent = built.m.crlNumPresent = built.m.crlTimePresent = 1;
    built.crlUrl = "http://crl.velmor.test/inter.crl";
    built.crlNum = 0x80000000u; // above INT32_MAX: needs the leading 00 octet
    built.crlTime = "20260101000000Z";
    EXPECT_EQ(EncodeHex(built), ToHex(all));

    Decoded<ASN1T_CrlID> decoded(all);
    ASSERT_EQ(decoded.status, 0);
    EXPECT_STREQ(decoded.value.crlUrl, built.crlUrl);
    EXPECT_EQ(decoded.value.crlNum, 0x80000000u);
    EXPECT_STREQ(decoded.value.crlTime, built.crlTime);

    Decoded<ASN1T_CrlID> none(FromHex("3000"));
    ASSERT_EQ(none.status, 0);
    EXPECT_FALSE(none.value.m.crlUrlPresent || none.value.m.crlNumPresent ||
                 none.value.m.crlTimePresent);
    EXPECT_EQ(EncodeHex(none.value), "3000");

    // The CRL number must fit thirty-two unsigned bits.
    EXPECT_EQ(Decoded<ASN1T_CrlID>(FromHex("3009a107020500ffffffff")).value.crlNum, 0xFFFFFFFFu);
    EXPECT_EQ(Decoded<ASN1T_CrlID>(FromHex("3005a103020100")).status, 0);
    for (const char* bad : {"3009a1070205010000000000", // 2^32
                            "3005a1030201ff",           // -1
                            "3006a104020200 7f",        // not minimal
                            "3004a1020200"}) {          // empty
        EXPECT_EQ(Decoded<ASN1T_CrlID>(FromHex(bad)).status, RTERR_BADVALUE) << bad;
    }
}

TEST(OcspExtensionValues, ServiceLocatorWithAndWithoutLocator) {
    const Bytes issuer = CommonName("Velmor RSA Intermediate CA");
    const Bytes access = Tlv(0x30, Tlv(0x30, Cat({FromHex("06082b06010505073001"),
                                                  Tlv(0x86, Text("http://ocsp.velmor.test"))})));
    for (const Bytes& der : {Tlv(0x30, issuer), Tlv(0x30, Cat({issuer, access}))}) {
        Decoded<ASN1T_ServiceLocator> locator(der);
        ASSERT_EQ(locator.status, 0);
        EXPECT_EQ(locator.value.issuer.rdnSequence.count, 1u);
        EXPECT_EQ(EncodeHex(locator.value), ToHex(der));
        if (der.size() > issuer.size() + 2) {
            ASSERT_TRUE(locator.value.m.locatorPresent);
            const auto& first = *Elements<ASN1T_AccessDescription>(locator.value.locator)[0];
            EXPECT_EQ(first.accessLocation.t, T_GeneralName_uniformResourceIdentifier);
            EXPECT_STREQ(first.accessLocation.text, "http://ocsp.velmor.test");
        } else {
            EXPECT_FALSE(locator.value.m.locatorPresent);
        }
    }
    // The locator is a SEQUENCE: anything else after the issuer is left unread.
    EXPECT_EQ(Decoded<ASN1T_ServiceLocator>(Tlv(0x30, Cat({issuer, FromHex("0500")}))).status,
              RTERR_TRAILING);
}

TEST(OcspExtensionValues, AcceptableResponsesKeepTheirOrder) {
    const std::string basic = "2b0601050507300101";
    const std::string other = "2b0601050507300104";
    const Bytes der = FromHex("3016 0609" + basic + "0609" + other);
    Decoded<ASN1T_AcceptableResponses> list(der);
    ASSERT_EQ(list.status, 0);
    ASSERT_EQ(list.value.count, 2u);
    EXPECT_EQ(Hex(*Elements<ASN1OBJID>(list.value)[0]), basic);
    EXPECT_EQ(Hex(*Elements<ASN1OBJID>(list.value)[1]), other);
    ASN1BEREncodeBuffer target;
    ASN1T_AcceptableResponses copy{};
    ASSERT_EQ(asn1Copy_AcceptableResponses(target.getCtxtPtr(), list.value, copy), 0);
    EXPECT_EQ(EncodeHex(copy), ToHex(der));

    EXPECT_EQ(EncodeHex(Decoded<ASN1T_AcceptableResponses>(FromHex("3000")).value), "3000");
    EXPECT_EQ(Decoded<ASN1T_AcceptableResponses>(FromHex("3004 0402 0101")).status, RTERR_IDNOTFOU);
}

TEST(OcspExtensionValues, ArchiveCutoffIsABareGeneralizedTime) {
    Decoded<ASN1T_ArchiveCutoff> cutoff(Cat({FromHex("1811"), Text("20260101000000.5Z")}));
    ASSERT_EQ(cutoff.status, 0);
    EXPECT_STREQ(cutoff.value.value, "20260101000000.5Z");
    EXPECT_EQ(EncodeHex(cutoff.value), ToHex(cutoff.der));
    EXPECT_EQ(Decoded<ASN1T_ArchiveCutoff>(Tlv(0x17, Text("260101000000Z"))).status,
              RTERR_IDNOTFOU); // UTCTime
}

// ---- BER forms of the signed parts --------------------------------------------------------

template <class T, class GetRaw>
void ExpectBerSignedPart(const Bytes& der, BerForm form, GetRaw getRaw) {
    const Bytes ber = Reheaded(der, form);
    ASSERT_NE(ber, der);
    Decoded<T> decoded(ber);
    ASSERT_EQ(decoded.status, 0) << decoded.buffer.getErrorText();
    ASN1OpenType& raw = getRaw(decoded.value);
    // raw is the signed part as received; the envelope around it is written in DER.
    const std::size_t start = form == BerForm::indefinite ? 2 : 6;
    EXPECT_EQ(raw.data, decoded.der.data() + start);
    const Bytes signedPart(raw.data, raw.data + raw.numocts);
    EXPECT_EQ(signedPart.at(1), form == BerForm::indefinite ? 0x80 : 0x84);
    const Bytes rest(decoded.der.begin() + static_cast<std::ptrdiff_t>(start + raw.numocts),
                     decoded.der.end() - (form == BerForm::indefinite ? 2 : 0));
    EXPECT_EQ(EncodeHex(decoded.value), ToHex(Tlv(0x30, Cat({signedPart, rest}))));
    raw = {};
    EXPECT_EQ(EncodeHex(decoded.value), ToHex(der));
}

TEST(OcspBer, SignedPartsKeepTheirBerOctetsAndEncodeToDerFromFields) {
    const Bytes request = ReadData("ocsp/req-signed-ec.der");
    const Bytes response = BasicResponseOf("ocsp/resp-ec.der");
    for (BerForm form : {BerForm::indefinite, BerForm::longLength}) {
        SCOPED_TRACE(form == BerForm::indefinite ? "indefinite" : "long form");
        ExpectBerSignedPart<ASN1T_OCSPRequest>(
            request, form, [](ASN1T_OCSPRequest& v) -> ASN1OpenType& { return v.tbsRequest.raw; });
        ExpectBerSignedPart<ASN1T_BasicOCSPResponse>(
            response, form,
            [](ASN1T_BasicOCSPResponse& v) -> ASN1OpenType& { return v.tbsResponseData.raw; });
    }
}

TEST(OcspBer, IndefiniteMessagesCutAnywhereFailAsCutOff) {
    // Inside an indefinite length the end of the input, not a length, shows the cut; a cut
    // where a CHOICE (ResponderID) should begin must say so too.
    velmor_test::ExpectEveryTruncationIsCutOff<ASN1T_OCSPRequest>(
        Reheaded(ReadData("ocsp/req-nonce.der"), BerForm::indefinite));
    velmor_test::ExpectEveryTruncationIsCutOff<ASN1T_BasicOCSPResponse>(
        Reheaded(BasicResponseOf("ocsp/resp-keyid-ec.der"), BerForm::indefinite));
}

TEST(OcspBer, ExplicitV1DecodesAndIsLeftOutOfTheDer) {
    const Bytes certId = FromHex("3015 300706052b0e03021a 04020102 04020102 02021001");
    const Bytes list = Tlv(0x30, Tlv(0x30, certId));
    Decoded<ASN1T_OCSPRequest> req(Tlv(0x30, Tlv(0x30, Cat({FromHex("a003020100"), list}))));
    ASSERT_EQ(req.status, 0) << req.buffer.getErrorText();
    EXPECT_TRUE(req.value.tbsRequest.m.versionPresent);
    EXPECT_EQ(req.value.tbsRequest.version, 0);
    req.value.tbsRequest.raw = {};
    EXPECT_EQ(EncodeHex(req.value), ToHex(Tlv(0x30, Tlv(0x30, list))));
    // v2 is written.
    req.value.tbsRequest.version = 1;
    EXPECT_EQ(EncodeHex(req.value), ToHex(RequestWith({certId})));
}

} // namespace
