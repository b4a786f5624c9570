// The OCSP structures against the requests and responses that the openssl command wrote:
// every fixture decodes, keeps its signed part as received and encodes from its fields (and
// from deep copies) to exactly the bytes it came from; representative fixtures hold the
// fields that `openssl ocsp -req_text / -resp_text` prints; cut-off, padded or retagged
// messages fail with the runtime's statuses.
#include "asn1/ocsp_types.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <utility>

#include "support/asn1_test_support.h"
#include "support/test_support.h"

using velmor_test::BasicResponseOf;
using velmor_test::Bytes;
using velmor_test::Decoded;
using velmor_test::Elements;
using velmor_test::EncodeHex;
using velmor_test::Hex;
using velmor_test::PrintedSerial;
using velmor_test::ReadData;
using velmor_test::ToHex;

namespace {

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// The value of the nonce extension (1.3.6.1.5.5.7.48.1.2) in list, in upper case, or "".
std::string Nonce(const ASN1T_Extensions& list) {
    for (const ASN1T_Extension* e : Elements<ASN1T_Extension>(list)) {
        if (Hex(e->extnID) == "2b0601050507300102") {
            return Upper(Hex(e->extnValue));
        }
    }
    return "";
}

std::string FixturePath(const std::string& name) { return "ocsp/" + name + ".der"; }

// Offset and size of the first element inside the outermost SEQUENCE, found the way a
// message finds its signed part: with the tag matcher, independently of the decoder.
std::pair<std::size_t, std::size_t> SignedPartExtent(const Bytes& der) {
    ASN1BERDecodeBuffer buffer(der.data(), der.size());
    int length = 0;
    std::size_t offset = 0;
    std::size_t size = 0;
    EXPECT_EQ(xd_match1(buffer.getCtxtPtr(), 0x30, &length), 0);
    EXPECT_EQ(xd_elemExtent(buffer.getCtxtPtr(), &offset, &size), 0);
    return {offset, size};
}

// Decodes der as T, whose signed part tbs() gives and whose certificates certs() gives: the
// signed part must be the octets at the matcher's extent; a deep copy with every raw kept,
// and the value and a deep copy of it with every raw cleared, must all encode to der, also
// after the input has been overwritten.
template <class T, class Tbs, class Certs>
void ExpectSignedPartAndRoundTrips(const Bytes& der, int (*copy)(ASN1CTXT*, const T&, T&), Tbs tbs,
                                   Certs certs) {
    const auto [offset, size] = SignedPartExtent(der);
    ASN1BEREncodeBuffer target;
    T withRaw{};
    T fromFields{};
    {
        Decoded<T> decoded(der);
        ASSERT_EQ(decoded.status, 0) << decoded.buffer.getErrorText();
        EXPECT_EQ(tbs(decoded.value).data, decoded.der.data() + offset);
        EXPECT_EQ(tbs(decoded.value).numocts, size);
        ASSERT_EQ(copy(target.getCtxtPtr(), decoded.value, withRaw), 0);
        tbs(decoded.value) = {};
        for (OSRTDListNode* n = certs(decoded.value).head; n != nullptr; n = n->next) {
            static_cast<ASN1T_Certificate*>(n->data)->raw = {};
        }
        EXPECT_EQ(EncodeHex(decoded.value), ToHex(der));
        ASSERT_EQ(copy(target.getCtxtPtr(), decoded.value, fromFields), 0);
        std::memset(decoded.der.data(), 0xEE, decoded.der.size()); // the copies must not point here
    }
    EXPECT_EQ(Hex(tbs(withRaw)), ToHex(der).substr(2 * offset, 2 * size));
    EXPECT_EQ(EncodeHex(withRaw), ToHex(der));
    EXPECT_EQ(EncodeHex(fromFields), ToHex(der));
}

std::string TestName(const ::testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

// ---- Every fixture ------------------------------------------------------------------------

class RequestFixture : public ::testing::TestWithParam<std::string> {};

TEST_P(RequestFixture, KeepsItsSignedPartAndEncodesFromFieldsAndCopiesToTheSameBytes) {
    ExpectSignedPartAndRoundTrips<ASN1T_OCSPRequest>(
        ReadData(FixturePath(GetParam())), asn1Copy_OCSPRequest,
        [](ASN1T_OCSPRequest& v) -> ASN1OpenType& { return v.tbsRequest.raw; },
        [](ASN1T_OCSPRequest& v) -> OSRTDList& { return v.optionalSignature.certs; });
}

// Two entries with a nonce; signed with a requestor name and a certificate. (Every openssl
// request goes through the request message in RequestPeers.OpensslRequestsRoundTripAndVerify.)
INSTANTIATE_TEST_SUITE_P(Openssl, RequestFixture, ::testing::Values("req-ec", "req-signed-ec"),
                         TestName);

class ResponseFixture : public ::testing::TestWithParam<std::string> {};

TEST_P(ResponseFixture, KeepsItsSignedPartAndEncodesFromFieldsAndCopiesToTheSameBytes) {
    ExpectSignedPartAndRoundTrips<ASN1T_BasicOCSPResponse>(
        BasicResponseOf(FixturePath(GetParam())), asn1Copy_BasicOCSPResponse,
        [](ASN1T_BasicOCSPResponse& v) -> ASN1OpenType& { return v.tbsResponseData.raw; },
        [](ASN1T_BasicOCSPResponse& v) -> OSRTDList& { return v.certs; });
}

INSTANTIATE_TEST_SUITE_P(Openssl, ResponseFixture,
                         ::testing::Values("resp-good-rsa", "resp-unknown-rsa", "resp-sha256-rsa",
                                           "resp-ec", "resp-keyid-ec"),
                         TestName);

constexpr const char* kSha1 = "2b0e03021a";
constexpr const char* kSha256 = "608648016503040201";
constexpr const char* kSha256WithRsa = "2a864886f70d01010b";
constexpr const char* kEcdsaWithSha256 = "2a8648ce3d040302";

// ---- Fields, as `openssl ocsp -respin F -resp_text -noverify` prints them -----------------

// An entry as "<serial> good", "<serial> unknown" or "<serial> revoked <time> <reason>".
std::string EntryText(const ASN1T_SingleResponse& entry) {
    const std::string serial = PrintedSerial(entry.certID.u.certID->serialNumber);
    if (entry.certStatus.t != T_CertStatus_revoked) {
        return serial + (entry.certStatus.t == T_CertStatus_good ? " good" : " unknown");
    }
    const ASN1T_RevokedInfo& info = *entry.certStatus.u.revoked;
    std::string text = serial + " revoked " + info.revocationTime;
    if (info.m.revocationReasonPresent) {
        text.append(" ").append(std::to_string(info.revocationReason));
    }
    return text;
}

struct ResponseText {
    const char* name;
    const char* responderKeyHash; // "" for a responder named by its Name
    const char* hashAlgorithm;
    const char* entries; // EntryText of each, separated by ", "
    const char* nonce;
    const char* signatureAlgorithm;
    unsigned certs;
};

// All three were produced at their thisUpdate.
constexpr const char* kThisUpdate = "20261123063439Z";
constexpr const char* kNextUpdate = "20361120063439Z";

// By name with an unknown status; by name with a good and a revoked entry and a nonce; by
// key hash without certificates.
const ResponseText kResponseTexts[] = {
    {"resp-unknown-rsa", "", kSha1, "3001 unknown", "", kSha256WithRsa, 1},
    {"resp-ec", "", kSha256, "1001 good, 8F3A5C11D2 revoked 20260101000000Z 1",
     "0410BC6E887EE00B05EF6F7D88A65944BE4D", kEcdsaWithSha256, 1},
    {"resp-keyid-ec", "0E3F7CDB1F9B97AC6F6CF33654ED1557ED7336FB", kSha1, "1001 good",
     "0410053F85629988B3D394A89328CCE02EF4", kEcdsaWithSha256, 0},
};

TEST(OcspResponseFields, MatchWhatOpensslPrints) {
    for (const ResponseText& text : kResponseTexts) {
        SCOPED_TRACE(text.name);
        Decoded<ASN1T_BasicOCSPResponse> resp(BasicResponseOf(FixturePath(text.name)));
        ASSERT_EQ(resp.status, 0);
        const ASN1T_ResponseData& data = resp.value.tbsResponseData;
        EXPECT_FALSE(data.m.versionPresent);
        if (*text.responderKeyHash != '\0') {
            ASSERT_EQ(data.responderID.t, T_ResponderID_byKey);
            EXPECT_EQ(Upper(Hex(*data.responderID.u.byKey)), text.responderKeyHash);
        } else {
            ASSERT_EQ(data.responderID.t, T_ResponderID_byName);
            EXPECT_EQ(data.responderID.u.byName->rdnSequence.count, 3u); // C, O, CN
        }
        EXPECT_STREQ(data.producedAt, kThisUpdate);
        std::string entries;
        for (const ASN1T_SingleResponse* entry : Elements<ASN1T_SingleResponse>(data.responses)) {
            ASSERT_EQ(entry->certID.t, T_ReqCert_certID);
            EXPECT_EQ(Hex(entry->certID.u.certID->hashAlgorithm.algorithm), text.hashAlgorithm);
            entries.append(entries.empty() ? "" : ", ").append(EntryText(*entry));
            EXPECT_STREQ(entry->thisUpdate, kThisUpdate);
            ASSERT_TRUE(entry->m.nextUpdatePresent);
            EXPECT_STREQ(entry->nextUpdate, kNextUpdate);
            EXPECT_FALSE(entry->m.singleExtensionsPresent);
        }
        EXPECT_EQ(entries, text.entries);
        EXPECT_EQ(data.m.responseExtensionsPresent, *text.nonce != '\0');
        EXPECT_EQ(Nonce(data.responseExtensions), text.nonce);
        EXPECT_EQ(Hex(resp.value.signatureAlgorithm.algorithm), text.signatureAlgorithm);
        EXPECT_EQ(resp.value.m.certsPresent, text.certs != 0);
        EXPECT_EQ(resp.value.certs.count, text.certs);
    }
}

// ---- Malformed messages -------------------------------------------------------------------

TEST(OcspMalformed, TrailingOctetsFail) {
    // Truncation: CRequestMessage.FailedDecodeLeavesTheObjectAsItWas, and in indefinite form
    // OcspBer.IndefiniteMessagesCutAnywhereFailAsCutOff.
    const Bytes request = ReadData("ocsp/req-signed-ec.der");
    const Bytes response = BasicResponseOf("ocsp/resp-ec.der");
    EXPECT_EQ(Decoded<ASN1T_OCSPRequest>(velmor_test::Cat({request, {0x00}})).status,
              RTERR_TRAILING);
    EXPECT_EQ(Decoded<ASN1T_BasicOCSPResponse>(velmor_test::Cat({response, {0x05, 0x00}})).status,
              RTERR_TRAILING);
}

template <class T> int StatusWith(Bytes der, std::size_t offset, std::uint8_t octet) {
    der.at(offset) = octet;
    return Decoded<T>(der).status;
}

TEST(OcspMalformed, TagsOfNoAlternativeFailTheChoice) {
    // req-plain: 30 43 | 30 41 | 30 3f (requestList) | 30 3d (Request) | 30 3b (CertID)
    const Bytes request = ReadData("ocsp/req-plain.der");
    ASSERT_EQ(request.at(8), 0x30);
    EXPECT_EQ(StatusWith<ASN1T_OCSPRequest>(request, 8, 0xA2), RTERR_IDNOTFOU); // ReqCert [2]
    EXPECT_EQ(StatusWith<ASN1T_OCSPRequest>(request, 8, 0x31), RTERR_IDNOTFOU);

    // resp-keyid-ec: ResponderID byKey [2] at 7; CertStatus good is 80 00 after the serial.
    const Bytes response = BasicResponseOf("ocsp/resp-keyid-ec.der");
    ASSERT_EQ(response.at(7), 0xA2);
    EXPECT_EQ(StatusWith<ASN1T_BasicOCSPResponse>(response, 7, 0xA3), RTERR_IDNOTFOU);
    EXPECT_EQ(StatusWith<ASN1T_BasicOCSPResponse>(response, 7, 0x82), RTERR_IDNOTFOU);
    const Bytes goodSerial = velmor_test::FromHex("020210018000");
    const auto at =
        std::search(response.begin(), response.end(), goodSerial.begin(), goodSerial.end());
    ASSERT_NE(at, response.end());
    const std::size_t good = static_cast<std::size_t>(at - response.begin()) + 4;
    EXPECT_EQ(StatusWith<ASN1T_BasicOCSPResponse>(response, good, 0x83), RTERR_IDNOTFOU);
    EXPECT_EQ(StatusWith<ASN1T_BasicOCSPResponse>(response, good, 0xA0), RTERR_IDNOTFOU);
    EXPECT_EQ(StatusWith<ASN1T_BasicOCSPResponse>(response, good, 0x82), 0); // unknown
}

} // namespace
