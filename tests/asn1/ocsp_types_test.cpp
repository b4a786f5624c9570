// The OCSP structures against the requests and responses that the openssl command wrote:
// every fixture decodes, its fields are those that `openssl ocsp -req_text / -resp_text`
// prints, it encodes from its fields to exactly the bytes it came from, the signed part is
// kept as received, and cut-off or retagged messages fail with the runtime's statuses.
#include "asn1/ocsp_types.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/asn1_test_support.h"
#include "support/test_support.h"

using velmor_test::Bytes;
using velmor_test::Decoded;
using velmor_test::EncodeHex;
using velmor_test::Hex;
using velmor_test::ReadData;
using velmor_test::ToHex;

namespace {

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// A serial as openssl prints it: the "0x" text without the octets that only carry the sign.
std::string PrintedSerial(const char* text) {
    std::string hex = Upper(std::string(text).substr(2));
    while (hex.size() > 2 && hex.compare(0, 2, "00") == 0) {
        hex.erase(0, 2);
    }
    return hex;
}

template <class T> std::vector<const T*> Elements(const OSRTDList& list) {
    std::vector<const T*> out;
    for (const OSRTDListNode* n = list.head; n != nullptr; n = n->next) {
        out.push_back(static_cast<const T*>(n->data));
    }
    return out;
}

// The value of the nonce extension (1.3.6.1.5.5.7.48.1.2) in list, or "".
std::string Nonce(const ASN1T_Extensions& list) {
    for (const ASN1T_Extension* e : Elements<ASN1T_Extension>(list)) {
        if (Hex(e->extnID) == "2b0601050507300102") {
            return Upper(Hex(e->extnValue));
        }
    }
    return "";
}

void ClearCertificateRaws(ASN1T__SeqOfCertificate& certs) {
    for (OSRTDListNode* n = certs.head; n != nullptr; n = n->next) {
        static_cast<ASN1T_Certificate*>(n->data)->raw = {};
    }
}

// The BasicOCSPResponse carried by an OCSPResponse fixture.
Bytes BasicResponseOf(const std::string& path) {
    Decoded<ASN1T_OCSPResponse> outer(ReadData(path));
    EXPECT_EQ(outer.status, 0) << path;
    const ASN1TDynOctStr& body = outer.value.responseBytes.response;
    return Bytes(body.data, body.data + body.numocts);
}

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

Bytes SignedPartBytes(const Bytes& der) {
    const auto [offset, size] = SignedPartExtent(der);
    return Bytes(der.begin() + static_cast<std::ptrdiff_t>(offset),
                 der.begin() + static_cast<std::ptrdiff_t>(offset + size));
}

const std::vector<std::string> kRequests = {"req-plain", "req-nonce",      "req-sha256",
                                            "req-two",   "req-revoked",    "req-unknown",
                                            "req-ec",    "req-signed-rsa", "req-signed-ec"};
const std::vector<std::string> kResponses = {
    "resp-good-rsa",    "resp-plain-rsa",  "resp-two-rsa", "resp-revoked-rsa",
    "resp-unknown-rsa", "resp-sha256-rsa", "resp-ec",      "resp-keyid-ec"};

std::string FixturePath(const std::string& name) { return "ocsp/" + name + ".der"; }

std::string TestName(const ::testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

// ---- Every fixture ------------------------------------------------------------------------

class RequestFixture : public ::testing::TestWithParam<std::string> {};

TEST_P(RequestFixture, KeepsItsSignedPartAndEncodesFromFieldsToTheSameBytes) {
    Decoded<ASN1T_OCSPRequest> req(ReadData(FixturePath(GetParam())));
    ASSERT_EQ(req.status, 0) << req.buffer.getErrorText();
    const auto [offset, size] = SignedPartExtent(req.der);
    EXPECT_EQ(req.value.tbsRequest.raw.data, req.der.data() + offset);
    EXPECT_EQ(req.value.tbsRequest.raw.numocts, size);

    req.value.tbsRequest.raw = {};
    ClearCertificateRaws(req.value.optionalSignature.certs);
    EXPECT_EQ(EncodeHex(req.value), ToHex(req.der));
}

TEST_P(RequestFixture, DeepCopyOutlivesItsSource) {
    const Bytes der = ReadData(FixturePath(GetParam()));
    ASN1BEREncodeBuffer target;
    ASN1T_OCSPRequest withRaw{};
    ASN1T_OCSPRequest fromFields{};
    {
        Decoded<ASN1T_OCSPRequest> req(der);
        ASSERT_EQ(req.status, 0);
        ASSERT_EQ(asn1Copy_OCSPRequest(target.getCtxtPtr(), req.value, withRaw), 0);
        req.value.tbsRequest.raw = {};
        ASSERT_EQ(asn1Copy_OCSPRequest(target.getCtxtPtr(), req.value, fromFields), 0);
        std::memset(req.der.data(), 0xEE, req.der.size()); // the copies must not point here
    }
    EXPECT_EQ(Hex(withRaw.tbsRequest.raw), ToHex(SignedPartBytes(der)));
    EXPECT_EQ(EncodeHex(withRaw), ToHex(der));
    EXPECT_EQ(fromFields.tbsRequest.raw.numocts, 0u);
    EXPECT_EQ(EncodeHex(fromFields), ToHex(der));
}

INSTANTIATE_TEST_SUITE_P(Openssl, RequestFixture, ::testing::ValuesIn(kRequests), TestName);

class ResponseFixture : public ::testing::TestWithParam<std::string> {};

TEST_P(ResponseFixture, KeepsItsSignedPartAndEncodesFromFieldsToTheSameBytes) {
    Decoded<ASN1T_BasicOCSPResponse> resp(BasicResponseOf(FixturePath(GetParam())));
    ASSERT_EQ(resp.status, 0) << resp.buffer.getErrorText();
    const auto [offset, size] = SignedPartExtent(resp.der);
    EXPECT_EQ(resp.value.tbsResponseData.raw.data, resp.der.data() + offset);
    EXPECT_EQ(resp.value.tbsResponseData.raw.numocts, size);

    resp.value.tbsResponseData.raw = {};
    ClearCertificateRaws(resp.value.certs);
    EXPECT_EQ(EncodeHex(resp.value), ToHex(resp.der));
}

TEST_P(ResponseFixture, DeepCopyOutlivesItsSource) {
    const Bytes der = BasicResponseOf(FixturePath(GetParam()));
    ASN1BEREncodeBuffer target;
    ASN1T_BasicOCSPResponse copy{};
    {
        Decoded<ASN1T_BasicOCSPResponse> resp(der);
        ASSERT_EQ(resp.status, 0);
        resp.value.tbsResponseData.raw = {};
        ASSERT_EQ(asn1Copy_BasicOCSPResponse(target.getCtxtPtr(), resp.value, copy), 0);
        std::memset(resp.der.data(), 0xEE, resp.der.size());
    }
    EXPECT_EQ(EncodeHex(copy), ToHex(der));
}

INSTANTIATE_TEST_SUITE_P(Openssl, ResponseFixture, ::testing::ValuesIn(kResponses), TestName);

// ---- Fields, as `openssl ocsp -reqin F -req_text` prints them -------------------------------

constexpr const char* kSha1 = "2b0e03021a";
constexpr const char* kSha256 = "608648016503040201";
constexpr const char* kSha256WithRsa = "2a864886f70d01010b";
constexpr const char* kEcdsaWithSha256 = "2a8648ce3d040302";
constexpr const char* kRsaNameHash = "30294056E47E5751A25335C2AB93DD19F00FE554";

struct RequestText {
    const char* name;
    const char* hashAlgorithm;
    const char* issuerNameHash; // of the first entry
    std::vector<std::string> serials;
    const char* nonce;              // "" when there is none
    const char* signatureAlgorithm; // "" when unsigned
    unsigned certs;
};

const RequestText kRequestTexts[] = {
    {"req-plain", kSha1, kRsaNameHash, {"1001"}, "", "", 0},
    {"req-nonce", kSha1, kRsaNameHash, {"1001"}, "0410AD0CBEBAE3A8E04BD38EAECE2A9E98F1", "", 0},
    {"req-sha256",
     kSha256,
     "393074C37D28200F94951E43657C1D98BCFF25B26026BF0BF974A64810DE0665",
     {"1001"},
     "",
     "",
     0},
    {"req-two",
     kSha1,
     kRsaNameHash,
     {"1001", "7E1D2C3B4A59687786950A1B2C3D4E5F60718293"},
     "041003976E7A64DB62F46379C9263A8771B5",
     "",
     0},
    {"req-revoked", kSha1, kRsaNameHash, {"8F3A5C11D2"}, "", "", 0},
    {"req-unknown", kSha1, kRsaNameHash, {"3001"}, "", "", 0},
    {"req-ec",
     kSha256,
     "DEE47DD3830B226638C87D02CF2D49262B70584AF1796E3225515D6559838517",
     {"1001", "8F3A5C11D2"},
     "0410BC6E887EE00B05EF6F7D88A65944BE4D",
     "",
     0},
    {"req-signed-rsa",
     kSha1,
     kRsaNameHash,
     {"1001"},
     "041040D1B3055FAD2C273A28DB9F08CD5035",
     kSha256WithRsa,
     2},
    {"req-signed-ec",
     kSha1,
     "DD343672C83644B0D8652175CAD885D634D96606",
     {"1001"},
     "0410053F85629988B3D394A89328CCE02EF4",
     kEcdsaWithSha256,
     1},
};

TEST(OcspRequestFields, MatchWhatOpensslPrints) {
    for (const RequestText& text : kRequestTexts) {
        SCOPED_TRACE(text.name);
        Decoded<ASN1T_OCSPRequest> req(ReadData(FixturePath(text.name)));
        ASSERT_EQ(req.status, 0);
        const ASN1T_TBSRequest& tbs = req.value.tbsRequest;
        EXPECT_FALSE(tbs.m.versionPresent);
        const auto entries = Elements<ASN1T_Request>(tbs.requestList);
        ASSERT_EQ(entries.size(), text.serials.size());
        for (std::size_t i = 0; i < entries.size(); ++i) {
            ASSERT_EQ(entries[i]->reqCert.t, T_ReqCert_certID);
            const ASN1T_CertID& id = *entries[i]->reqCert.u.certID;
            EXPECT_EQ(Hex(id.hashAlgorithm.algorithm), text.hashAlgorithm);
            EXPECT_EQ(Upper(Hex(id.issuerNameHash)), text.issuerNameHash);
            EXPECT_EQ(PrintedSerial(id.serialNumber), text.serials[i]);
            EXPECT_FALSE(entries[i]->m.singleRequestExtensionsPresent);
        }
        EXPECT_EQ(tbs.m.requestExtensionsPresent, *text.nonce != '\0');
        EXPECT_EQ(Nonce(tbs.requestExtensions), text.nonce);

        const bool isSigned = *text.signatureAlgorithm != '\0';
        ASSERT_EQ(req.value.m.optionalSignaturePresent, isSigned);
        EXPECT_EQ(tbs.m.requestorNamePresent, isSigned); // openssl names the signer
        if (isSigned) {
            EXPECT_EQ(tbs.requestorName.t, T_GeneralName_directoryName);
            const ASN1T_Signature& sig = req.value.optionalSignature;
            EXPECT_EQ(Hex(sig.signatureAlgorithm.algorithm), text.signatureAlgorithm);
            EXPECT_EQ(sig.certs.count, text.certs);
        }
    }
}

// ---- Fields, as `openssl ocsp -respin F -resp_text -noverify` prints them -----------------

struct EntryText {
    const char* serial;
    unsigned status; // T_CertStatus_*
    const char* revocationTime;
    int reason; // -1 when none is given
};

struct ResponseText {
    const char* name;
    const char* responderKeyHash; // "" for a responder named by its Name
    const char* producedAt;
    const char* hashAlgorithm;
    std::vector<EntryText> entries;
    const char* thisUpdate;
    const char* nextUpdate;
    const char* nonce;
    const char* signatureAlgorithm;
    unsigned certs;
};

constexpr unsigned kGood = T_CertStatus_good;

const ResponseText kResponseTexts[] = {
    {"resp-good-rsa",
     "",
     "20261123063438Z",
     kSha1,
     {{"1001", kGood, nullptr, -1}},
     "20261123063438Z",
     "20361120063438Z",
     "0410AD0CBEBAE3A8E04BD38EAECE2A9E98F1",
     kSha256WithRsa,
     1},
    {"resp-plain-rsa",
     "",
     "20261123063438Z",
     kSha1,
     {{"1001", kGood, nullptr, -1}},
     "20261123063438Z",
     "20361120063438Z",
     "",
     kSha256WithRsa,
     1},
    {"resp-two-rsa",
     "",
     "20261123063439Z",
     kSha1,
     {{"1001", kGood, nullptr, -1},
      {"7E1D2C3B4A59687786950A1B2C3D4E5F60718293", kGood, nullptr, -1}},
     "20261123063439Z",
     "20361120063439Z",
     "041003976E7A64DB62F46379C9263A8771B5",
     kSha256WithRsa,
     1},
    {"resp-revoked-rsa",
     "",
     "20261123063439Z",
     kSha1,
     {{"8F3A5C11D2", T_CertStatus_revoked, "20260101000000Z", 1}},
     "20261123063439Z",
     "20361120063439Z",
     "",
     kSha256WithRsa,
     1},
    {"resp-unknown-rsa",
     "",
     "20261123063439Z",
     kSha1,
     {{"3001", T_CertStatus_unknown, nullptr, -1}},
     "20261123063439Z",
     "20361120063439Z",
     "",
     kSha256WithRsa,
     1},
    {"resp-sha256-rsa",
     "",
     "20261123063439Z",
     kSha256,
     {{"1001", kGood, nullptr, -1}},
     "20261123063439Z",
     "20361120063439Z",
     "",
     "2a864886f70d01010c",
     1}, // sha384WithRSA
    {"resp-ec",
     "",
     "20261123063439Z",
     kSha256,
     {{"1001", kGood, nullptr, -1}, {"8F3A5C11D2", T_CertStatus_revoked, "20260101000000Z", 1}},
     "20261123063439Z",
     "20361120063439Z",
     "0410BC6E887EE00B05EF6F7D88A65944BE4D",
     kEcdsaWithSha256,
     1},
    {"resp-keyid-ec",
     "0E3F7CDB1F9B97AC6F6CF33654ED1557ED7336FB",
     "20261123063439Z",
     kSha1,
     {{"1001", kGood, nullptr, -1}},
     "20261123063439Z",
     "20361120063439Z",
     "0410053F85629988B3D394A89328CCE02EF4",
     kEcdsaWithSha256,
     0},
};

void ExpectEntry(const ASN1T_SingleResponse& entry, const ResponseText& text,
                 const EntryText& expected) {
    ASSERT_EQ(entry.certID.t, T_ReqCert_certID);
    EXPECT_EQ(Hex(entry.certID.u.certID->hashAlgorithm.algorithm), text.hashAlgorithm);
    EXPECT_EQ(PrintedSerial(entry.certID.u.certID->serialNumber), expected.serial);
    ASSERT_EQ(entry.certStatus.t, expected.status);
    if (expected.status == T_CertStatus_revoked) {
        const ASN1T_RevokedInfo& info = *entry.certStatus.u.revoked;
        EXPECT_STREQ(info.revocationTime, expected.revocationTime);
        EXPECT_EQ(info.m.revocationReasonPresent, expected.reason >= 0);
        EXPECT_EQ(info.revocationReason, expected.reason);
    }
    EXPECT_STREQ(entry.thisUpdate, text.thisUpdate);
    ASSERT_TRUE(entry.m.nextUpdatePresent);
    EXPECT_STREQ(entry.nextUpdate, text.nextUpdate);
    EXPECT_FALSE(entry.m.singleExtensionsPresent);
}

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
        EXPECT_STREQ(data.producedAt, text.producedAt);
        const auto entries = Elements<ASN1T_SingleResponse>(data.responses);
        ASSERT_EQ(entries.size(), text.entries.size());
        for (std::size_t i = 0; i < entries.size(); ++i) {
            ExpectEntry(*entries[i], text, text.entries[i]);
        }
        EXPECT_EQ(data.m.responseExtensionsPresent, *text.nonce != '\0');
        EXPECT_EQ(Nonce(data.responseExtensions), text.nonce);
        EXPECT_EQ(Hex(resp.value.signatureAlgorithm.algorithm), text.signatureAlgorithm);
        EXPECT_EQ(resp.value.m.certsPresent, text.certs != 0);
        EXPECT_EQ(resp.value.certs.count, text.certs);
    }
}

// ---- Malformed messages -------------------------------------------------------------------

template <class T> void ExpectEveryTruncationIsCutOff(const Bytes& der) {
    for (std::size_t size = 0; size < der.size(); ++size) {
        Decoded<T> cut(Bytes(der.begin(), der.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_EQ(cut.status, RTERR_ENDOFBUF) << "cut to " << size << " octets";
    }
}

TEST(OcspMalformed, EveryTruncationFailsAsCutOff) {
    ExpectEveryTruncationIsCutOff<ASN1T_OCSPRequest>(ReadData("ocsp/req-signed-ec.der"));
    ExpectEveryTruncationIsCutOff<ASN1T_BasicOCSPResponse>(BasicResponseOf("ocsp/resp-ec.der"));
}

TEST(OcspMalformed, TrailingOctetsFail) {
    Bytes request = ReadData("ocsp/req-plain.der");
    Bytes response = BasicResponseOf("ocsp/resp-keyid-ec.der");
    request.push_back(0x00);
    response.insert(response.end(), {0x05, 0x00});
    EXPECT_EQ(Decoded<ASN1T_OCSPRequest>(request).status, RTERR_TRAILING);
    EXPECT_EQ(Decoded<ASN1T_BasicOCSPResponse>(response).status, RTERR_TRAILING);
}

// Offset of the first occurrence of hex in bytes (the test fails when there is none).
std::size_t Find(const Bytes& bytes, const std::string& hex) {
    const Bytes needle = velmor_test::FromHex(hex);
    const auto at = std::search(bytes.begin(), bytes.end(), needle.begin(), needle.end());
    EXPECT_NE(at, bytes.end()) << hex;
    return static_cast<std::size_t>(at - bytes.begin());
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
    const std::size_t good = Find(response, "020210018000") + 4;
    EXPECT_EQ(StatusWith<ASN1T_BasicOCSPResponse>(response, good, 0x83), RTERR_IDNOTFOU);
    EXPECT_EQ(StatusWith<ASN1T_BasicOCSPResponse>(response, good, 0xA0), RTERR_IDNOTFOU);
    EXPECT_EQ(StatusWith<ASN1T_BasicOCSPResponse>(response, good, 0x82), 0); // unknown
}

} // namespace
