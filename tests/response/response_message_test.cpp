#include <gtest/gtest.h>
#include <pki/ocsp/response_message.h>

#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::FromHex;
using velmor_test::ToHex;

namespace {

constexpr const char* kBasicType = "1.3.6.1.5.5.7.48.1.1";

CBlob BlobFromHex(std::string_view hex) { return CBlob(FromHex(hex)); }

std::string HexOf(const CBlob& blob) { return ToHex(blob.pbData(), blob.cbData()); }

CResponseMessage MessageWithBody(ResponseStatus status, std::string_view bodyHex) {
    CResponseMessage message;
    message.put_responseStatus(status);
    const CBlob body = BlobFromHex(bodyHex);
    message.put_response(kBasicType, &body);
    return message;
}

// The fields of a message, for checking that a failed call changed nothing.
struct Snapshot {
    ResponseStatus status;
    std::string type;
    std::string body;
    bool hasBody;

    explicit Snapshot(const CResponseMessage& m)
        : status(m.get_responseStatus()), type(m.get_responseType() ? m.get_responseType() : ""),
          body(m.get_response() ? HexOf(*m.get_response()) : ""),
          hasBody(m.get_response() != nullptr) {}

    bool operator==(const Snapshot& o) const {
        return status == o.status && type == o.type && body == o.body && hasBody == o.hasBody;
    }
};

// tryLater, with a basic-response body of three octets 01 02 03.
constexpr const char* kTryLaterWithBody = "3017 0a0103 a012 3010 06092b0601050507300101 0403010203";

} // namespace

TEST(CResponseMessage, DefaultIsInternalErrorWithoutBody) {
    const CResponseMessage message;
    EXPECT_EQ(message.get_responseStatus(), internalError);
    EXPECT_EQ(message.get_responseType(), nullptr);
    EXPECT_EQ(message.get_response(), nullptr);
    EXPECT_EQ(HexOf(message.encode()), "30030a0102");
}

TEST(CResponseMessage, EncodesBodyUnderContextTagZero) {
    CResponseMessage message = MessageWithBody(successful, "010203");
    EXPECT_EQ(HexOf(message.encode()), "30170a0100a012301006092b06010505073001010403010203");

    message.put_response(nullptr, nullptr);
    EXPECT_EQ(message.get_response(), nullptr);
    EXPECT_EQ(message.get_responseType(), nullptr);
    EXPECT_EQ(HexOf(message.encode()), "30030a0100");
}

TEST(CResponseMessage, StatusAndBodyAreIndependent) {
    // A body is written whatever the status, and any status value is carried as it is.
    const CResponseMessage message = MessageWithBody(tryLater, "010203");
    const CBlob encoded = message.encode();
    EXPECT_EQ(HexOf(encoded), HexOf(BlobFromHex(kTryLaterWithBody)));

    CResponseMessage decoded;
    decoded.decode(encoded);
    EXPECT_EQ(decoded.get_responseStatus(), tryLater);
    ASSERT_NE(decoded.get_response(), nullptr);
    EXPECT_STREQ(decoded.get_responseType(), kBasicType);
    EXPECT_EQ(HexOf(*decoded.get_response()), "010203");

    CResponseMessage unusual;
    unusual.put_responseStatus(static_cast<ResponseStatus>(4));
    EXPECT_EQ(HexOf(unusual.encode()), "30030a0104");
    unusual.put_responseStatus(successful); // successful without a body is written as is
    EXPECT_EQ(HexOf(unusual.encode()), "30030a0100");
}

TEST(CResponseMessage, PutResponseWithOneNullArgumentChangesNothing) {
    CResponseMessage message = MessageWithBody(successful, "aabb");
    const Snapshot before(message);
    const CBlob body = BlobFromHex("cc");
    EXPECT_HRESULT_THROW(message.put_response(kBasicType, nullptr), E_INVALIDARG);
    EXPECT_HRESULT_THROW(message.put_response(nullptr, &body), E_INVALIDARG);
    EXPECT_TRUE(Snapshot(message) == before);
}

TEST(CResponseMessage, PutResponseCopiesItsArguments) {
    CResponseMessage message;
    std::string type = "1.3.6.1.5.5.7.48.1.1";
    CBlob body = BlobFromHex("0102");
    message.put_response(type.c_str(), &body);
    type[0] = '2';
    body.pbData()[0] = 0xFF;
    EXPECT_STREQ(message.get_responseType(), kBasicType);
    EXPECT_EQ(HexOf(*message.get_response()), "0102");
}

TEST(CResponseMessage, DecodeWithoutBodyClearsAnEarlierBody) {
    CResponseMessage message = MessageWithBody(successful, "01");
    message.decode(BlobFromHex("30030a0106"));
    EXPECT_EQ(message.get_responseStatus(), unauthorized);
    EXPECT_EQ(message.get_responseType(), nullptr);
    EXPECT_EQ(message.get_response(), nullptr);
}

TEST(CResponseMessage, EmptyBodyRoundTrips) {
    const CResponseMessage message = MessageWithBody(successful, "");
    const CBlob encoded = message.encode();
    EXPECT_EQ(HexOf(encoded), "30140a0100a00f300d06092b06010505073001010400");
    CResponseMessage decoded;
    decoded.decode(encoded);
    ASSERT_NE(decoded.get_response(), nullptr);
    EXPECT_EQ(decoded.get_response()->cbData(), 0u);
}

TEST(CResponseMessage, BadTypeTextFailsAtEncode) {
    const CBlob body = BlobFromHex("01");
    for (const char* type : {"", "1", "3.1", "1.40", "1.2.x", "1..2", "1.2."}) {
        CResponseMessage message;
        message.put_response(type, &body); // not checked until encoding
        EXPECT_HRESULT_THROW(message.encode(), CRYPT_E_ASN1_INTERNAL);
    }
}

TEST(CResponseMessage, CopiesAreIndependent) {
    CResponseMessage source = MessageWithBody(successful, "0102");
    CResponseMessage copy(source);
    CResponseMessage assigned;
    assigned = source;
    const CBlob other = BlobFromHex("ff");
    copy.put_response("1.2.3", &other);
    assigned.put_response(nullptr, nullptr);
    assigned.put_responseStatus(tryLater);
    EXPECT_STREQ(source.get_responseType(), kBasicType);
    EXPECT_EQ(HexOf(*source.get_response()), "0102");
    EXPECT_EQ(source.get_responseStatus(), successful);

    CResponseMessage& alias = source;
    source = alias;
    EXPECT_EQ(HexOf(*source.get_response()), "0102");
}

TEST(CResponseMessage, DecodeOfEmptyBlobThrowsInvalidArg) {
    CResponseMessage message = MessageWithBody(tryLater, "01");
    const Snapshot before(message);
    EXPECT_HRESULT_THROW(message.decode(CBlob()), E_INVALIDARG);
    EXPECT_TRUE(Snapshot(message) == before);
}

TEST(CResponseMessage, EveryTruncationFailsAndChangesNothing) {
    const Bytes full = FromHex(kTryLaterWithBody);
    CResponseMessage message = MessageWithBody(sigRequired, "ee");
    const Snapshot before(message);
    for (std::size_t length = 1; length < full.size(); ++length) {
        EXPECT_HRESULT_THROW(message.decode(CBlob(full.data(), length)), CRYPT_E_ASN1_INTERNAL)
            << "length " << length;
        EXPECT_TRUE(Snapshot(message) == before);
    }
}

TEST(CResponseMessage, MalformedInputsFailAndChangeNothing) {
    const char* malformed[] = {
        "31030a0102",                                   // SET instead of SEQUENCE
        "30030a010200",                                 // a trailing octet after the message
        "3003020102",                                   // INTEGER instead of ENUMERATED
        "30040a020002",                                 // non-minimal ENUMERATED
        "30050a0102a000",                               // responseBytes without its SEQUENCE
        "30080a0100a103300100",                         // wrong context tag, and garbage inside
        "30140a0100a00f300d06092b06010505073001010500", // NULL where OCTET STRING belongs
        "30170a0100a012301006092b0601050507300101040401020303", // body length overruns its parent
        "30840a0102",                                           // length octets missing
        "30ff0a0102",                                           // reserved length octet
        "3080",                                                 // indefinite length that never ends
        "30030a0102a000",                 // inner element overruns the outer length
        "300e0a0100a009300706022a830400", // OID ending with a continuation octet
    };
    CResponseMessage message = MessageWithBody(tryLater, "01");
    const Snapshot before(message);
    for (const char* hex : malformed) {
        EXPECT_HRESULT_THROW(message.decode(BlobFromHex(hex)), CRYPT_E_ASN1_INTERNAL) << hex;
        EXPECT_TRUE(Snapshot(message) == before) << hex;
    }
}

TEST(CResponseMessage, DeepNestingIsRejected) {
    // A responseBytes made of 40 nested explicit tags: deeper than any OCSP response.
    std::string hex;
    for (int i = 0; i < 40; ++i) {
        hex += "a080";
    }
    hex += "0500";
    for (int i = 0; i < 40; ++i) {
        hex += "0000";
    }
    CResponseMessage message;
    EXPECT_HRESULT_THROW(message.decode(BlobFromHex("30800a0100" + hex + "0000")),
                         CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(message.get_responseStatus(), internalError);
}

TEST(CResponseMessage, BerFormsDecodeAndReencodeAsDer) {
    const std::string der = HexOf(BlobFromHex(kTryLaterWithBody));
    const char* berForms[] = {
        // indefinite lengths everywhere
        "30800a0103a080308006092b0601050507300101040301020300000000 0000",
        // long-form lengths, one with a leading zero octet
        "3082001c 0a0103 a08116 3083000011 06092b0601050507300101 04810301 0203",
        // the body as a constructed OCTET STRING in two segments, one of them nested
        "301d0a0103a0183016 06092b0601050507300101 2409 040101 2404 04020203",
    };
    for (const char* hex : berForms) {
        CResponseMessage message;
        message.decode(BlobFromHex(hex));
        EXPECT_EQ(message.get_responseStatus(), tryLater) << hex;
        ASSERT_NE(message.get_response(), nullptr) << hex;
        EXPECT_EQ(HexOf(*message.get_response()), "010203") << hex;
        EXPECT_EQ(HexOf(message.encode()), der) << hex;
    }
}
