// CBasicResponse on its own: a new response, the version rule, optional lists, the
// received tbsResponseData and copies, and bad input of every kind: what throws which code,
// and what each failure leaves of the object.
#include <gtest/gtest.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/response_message.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "foundation/codec_frame.h"
#include "response/basic_response_builders.h"
#include "support/asn1_test_support.h"

using namespace velmor_test;
using Velmor::ASN1::CExtension;
using Velmor::ASN1::CExtensions;
using Velmor::Detail::Records;

namespace {

CBlob Body(const std::string& file) {
    CResponseMessage message;
    message.decode(CBlob(ReadData(file)));
    return *message.get_response();
}

Bytes BodyBytes(const std::string& file) { return Body(file).to_vector(); }

CSingleResponseList Entries(std::initializer_list<CReqCert> references) {
    CSingleResponseList list;
    for (const CReqCert& reference : references) {
        list.push_back(CSingleResponse(reference, CCertStatus(), kTime));
    }
    return list;
}

// The offsets of the identifier octets of every element of der that the decoder reads as a
// structure: the outer element and, inside each constructed one, its children.
void TagOffsets(const Bytes& der, std::size_t at, std::size_t end, std::vector<std::size_t>& out) {
    while (at < end) {
        out.push_back(at);
        const std::uint8_t first = der[at + 1];
        const std::size_t count = first < 0x80 ? 0 : first & 0x7f;
        std::size_t length = first < 0x80 ? first : 0;
        for (std::size_t i = 0; i < count; ++i) {
            length = (length << 8) | der[at + 2 + i];
        }
        const std::size_t contents = at + 2 + count;
        if ((der[at] & 0x20) != 0) {
            TagOffsets(der, contents, contents + length, out);
        }
        at = contents + length;
    }
}

// What a failed decode must leave of a response: everything it encodes to, and the received
// tbsResponseData.
std::string State(const CBasicResponse& response) {
    return HexOf(response.encode()) + "/" + HexOf(Records::Of(response).signedPart.received);
}

} // namespace

TEST(CBasicResponse, NewResponseIsUnsignedAndCannotBeEncoded) {
    const CBasicResponse empty;
    EXPECT_EQ(empty.get_producedAt(), CDateTime(0, 0));
    EXPECT_EQ(empty.get_responderID().get_type(), CResponderID::byName);
    EXPECT_EQ(empty.get_responderID().get_value().cbData(), 0u);
    EXPECT_TRUE(empty.get_responses().empty());
    EXPECT_HRESULT_THROW(empty.encode(), E_FAIL);

    CBasicResponse built(kTime, CResponderID(CResponderID::byKey, BlobOf("0102")));
    built.put_responses(Entries({CertIdOf(1)}));
    EXPECT_EQ(built.get_responderID(), CResponderID(CResponderID::byKey, BlobOf("0102")));
    EXPECT_EQ(built.get_signature(), nullptr);
    EXPECT_EQ(built.get_signatureAlgorithm(), nullptr);
    EXPECT_HRESULT_THROW(built.encode(), E_FAIL);
}

TEST(CBasicResponse, VersionFollowsTheKindOfCertificateReference) {
    // An empty list, and a list of CertIDs: v1, no [0] version, an empty SEQUENCE OF.
    CBasicResponse response = ByKeyResponse();
    EXPECT_EQ(HexOf(response.encode()), ByKeyResponseHex(""));
    response.put_responses(Entries({CertIdOf(1)}));
    EXPECT_EQ(response.get_version(), v1);
    const std::string certIdEntry = "3029" + CertIdHex(1) + "8200" + kTimeHex;
    EXPECT_EQ(HexOf(response.encode()), ByKeyResponseHex(certIdEntry));

    // One entry naming an attribute certificate in full: v2, written as [0] { 1 }.
    const Bytes attribute = AttributeCertificate();
    response.put_responses(
        Entries({CertIdOf(1), CReqCert(CReqCert::attributeCertificate, CBlob(attribute))}));
    EXPECT_EQ(response.get_version(), v2);
    const std::string fullEntry =
        ToHex(Tlv(0x30, Cat({Tlv(0xa0, Tlv(0xa1, attribute)), FromHex("8200" + kTimeHex)})));
    const std::string v2Hex = ByKeyResponseHex(certIdEntry + fullEntry, "a003020101");
    EXPECT_EQ(HexOf(response.encode()), v2Hex);

    // A v2 response read back whose entries are all CertIDs: its own list, given again,
    // only works the version out anew.
    CBasicResponse decoded;
    decoded.decode(BlobOf(ByKeyResponseHex(certIdEntry, "a003020101")));
    EXPECT_EQ(decoded.get_version(), v2);
    decoded.put_responses(decoded.get_responses());
    EXPECT_EQ(decoded.get_version(), v1);
    EXPECT_EQ(decoded.get_responses().size(), 1u);
    EXPECT_EQ(HexOf(decoded.encode()), ByKeyResponseHex(certIdEntry));
}

TEST(CBasicResponse, OptionalListsWrittenOnlyWhenNotEmpty) {
    CBasicResponse response = ByKeyResponse();
    const CBlobList noCerts;
    const CExtensions noExtensions;
    response.put_certs(&noCerts);
    response.put_responseExtensions(&noExtensions);
    ASSERT_NE(response.get_certs(), nullptr);
    ASSERT_NE(response.get_responseExtensions(), nullptr);
    EXPECT_EQ(HexOf(response.encode()), ByKeyResponseHex(""));

    CExtensions nonce;
    nonce.push_back(CExtension("1.3.6.1.5.5.7.48.1.2", false, BlobOf("0401aa")));
    response.put_responseExtensions(&nonce);
    CBlobList certs;
    certs.push_back(CBlob(ReadData("pki/ec/ocsp.der")));
    response.put_certs(&certs);
    const std::string withBoth =
        ByKeyResponseHex("", "", "a114 3012 3010 06092b0601050507300102 0403 0401aa");
    const Bytes certsField = Tlv(0xa0, Tlv(0x30, ReadData("pki/ec/ocsp.der")));
    Bytes expected = FromHex(withBoth);
    expected = Tlv(0x30, Cat({Bytes(expected.begin() + 2, expected.end()), certsField}));
    EXPECT_EQ(HexOf(response.encode()), ToHex(expected));

    // A blob that is not a certificate fails the encoding, not put_certs; null removes.
    certs.push_back(BlobOf("3000"));
    response.put_certs(&certs);
    EXPECT_HRESULT_THROW(response.encode(), CRYPT_E_ASN1_INTERNAL);
    response.put_certs(nullptr);
    response.put_responseExtensions(nullptr);
    EXPECT_EQ(response.get_certs(), nullptr);
    EXPECT_EQ(HexOf(response.encode()), ByKeyResponseHex(""));
}

TEST(CBasicResponse, DecodeKeepsTheReceivedTbsResponseDataButCopiesDoNot) {
    const CBlob der = Body("ocsp/resp-mixed-rsa.der");
    CBasicResponse response;
    response.decode(der);
    // The received tbsResponseData is the first element inside the outer SEQUENCE (4 octets).
    const CBlob& received = Records::Of(response).signedPart.received;
    ASSERT_GT(received.cbData(), 100u);
    EXPECT_EQ(HexOf(received), HexOf(CBlob(der.pbData() + 4, received.cbData())));

    CBasicResponse copy(response);
    CBasicResponse assigned;
    assigned = response;
    for (const CBasicResponse* other : {&copy, &assigned}) {
        EXPECT_EQ(Records::Of(*other).signedPart.received.cbData(), 0u);
        EXPECT_EQ(HexOf(other->encode()), HexOf(der));
        EXPECT_EQ(HexOf(Records::Of(*other).EncodeTbsResponseData()), HexOf(received));
    }
    response = response;
    EXPECT_EQ(HexOf(Records::Of(response).signedPart.received), HexOf(received));
}

TEST(CBasicResponse, BadInputThrowsAndLeavesTheObjectAsItWas) {
    CBasicResponse response;
    response.decode(Body("ocsp/resp-mixed-rsa.der"));
    const std::string before = State(response);
    const Bytes input = BodyBytes("ocsp/resp-py-key-ec.der");

    EXPECT_HRESULT_THROW(response.decode(CBlob()), E_INVALIDARG);
    for (std::size_t size = 1; size < input.size(); ++size) {
        EXPECT_HRESULT_THROW(response.decode(CBlob(input.data(), size)), CRYPT_E_ASN1_INTERNAL)
            << "cut to " << size;
    }
    // Every element's tag replaced by universal 0, which no element may carry.
    std::vector<std::size_t> tags;
    TagOffsets(input, 0, input.size(), tags);
    EXPECT_GT(tags.size(), 80u);
    for (const std::size_t at : tags) {
        Bytes changed = input;
        changed[at] = 0x00;
        EXPECT_HRESULT_THROW(response.decode(CBlob(changed)), CRYPT_E_ASN1_INTERNAL)
            << "tag at " << at;
    }
    EXPECT_HRESULT_THROW(response.decode(CBlob(Cat({input, {0x00}}))), CRYPT_E_ASN1_INTERNAL);

    // signatureAlgorithm's parameters nested 40 deep in indefinite lengths.
    Bytes nested;
    for (int depth = 0; depth < 40; ++depth) {
        nested.insert(nested.begin(), {0x30, 0x80});
        nested.insert(nested.end(), {0x00, 0x00});
    }
    const Bytes tbs = Tlv(0x30, FromHex("a204 0402 0102" + kZeroTimeHex + "3000"));
    const Bytes deep = Tlv(
        0x30,
        Cat({tbs, Tlv(0x30, Cat({FromHex("06082a8648ce3d040302"), nested})), FromHex("030100")}));
    EXPECT_HRESULT_THROW(response.decode(CBlob(deep)), CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(Velmor::Codec::LastFailure().status, RTERR_TOODEEP);

    // A responses list that claims four gigabytes.
    const Bytes huge =
        Tlv(0x30, Cat({Tlv(0x30, FromHex("a204 0402 0102" + kZeroTimeHex + "3084ffffffff 3000"))}));
    EXPECT_HRESULT_THROW(response.decode(CBlob(huge)), CRYPT_E_ASN1_INTERNAL);

    EXPECT_EQ(State(response), before);
}

TEST(CBasicResponse, ConversionFailureAfterDecodingLeavesItPartlyReplaced) {
    // resp-mixed-rsa with the second entry's revocationTime in month 14: valid BER, no time.
    CBasicResponse response;
    response.decode(Body("ocsp/resp-py-name-rsa.der"));
    Bytes der = BodyBytes("ocsp/resp-mixed-rsa.der");
    const Bytes leaf00Serial = FromHex("8f3a5c11d2");
    const auto serial =
        std::search(der.begin(), der.end(), leaf00Serial.begin(), leaf00Serial.end());
    const Bytes timeTag = FromHex("180f");
    const auto time = std::search(serial, der.end(), timeTag.begin(), timeTag.end());
    ASSERT_NE(time, der.end());
    time[2 + 4] = '1';
    time[2 + 5] = '4';

    EXPECT_HRESULT_THROW(response.decode(CBlob(der)), CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(response.get_signature(), nullptr);
    EXPECT_EQ(response.get_signatureAlgorithm(), nullptr);
    EXPECT_EQ(response.get_certs(), nullptr);
    EXPECT_EQ(response.get_responseExtensions(), nullptr); // the Python response's nonce
    ASSERT_EQ(response.get_responses().size(), 1u);        // the entry before the bad one
    EXPECT_TRUE(response.get_responses().front().get_certStatus().isGood());
    EXPECT_HRESULT_THROW(response.encode(), E_FAIL);
}

TEST(CBasicResponse, ManyEntriesDecodeInTime) {
    // 20 000 small entries (about 900 KB): every one read, in bounded time and memory.
    constexpr int kCount = 20000;
    const Bytes entry = FromHex("3029" + CertIdHex(7) + "8000" + kTimeHex);
    Bytes entries;
    entries.reserve(entry.size() * kCount);
    for (int i = 0; i < kCount; ++i) {
        entries.insert(entries.end(), entry.begin(), entry.end());
    }
    const Bytes tbs =
        Tlv(0x30, Cat({FromHex("a204 0402 0102" + kZeroTimeHex), Tlv(0x30, entries)}));
    const Bytes der = Tlv(0x30, Cat({tbs, FromHex("300a 06082a8648ce3d040302 0303 00abcd")}));
    CBasicResponse response;
    const auto start = std::chrono::steady_clock::now();
    response.decode(CBlob(der));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(response.get_responses().size(), static_cast<std::size_t>(kCount));
    EXPECT_LT(elapsed, std::chrono::seconds(10));
    EXPECT_EQ(HexOf(response.encode()), ToHex(der));
}
