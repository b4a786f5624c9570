// CResponseMessage: the exact DER of every status and body, BER forms read back and written as
// DER, and failed calls that leave the message as it was.
#include <gtest/gtest.h>
#include <pki/ocsp/response_message.h>

#include <utility>

#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::BlobOf;
using velmor_test::Bytes;
using velmor_test::FromHex;
using velmor_test::HexOf;

namespace {

constexpr const char* kBasicType = "1.3.6.1.5.5.7.48.1.1";

// A message with status and, unless bodyHex is null, a basic response body.
CResponseMessage Message(ResponseStatus status, const char* bodyHex = nullptr) {
    CResponseMessage message;
    message.put_responseStatus(status);
    if (bodyHex != nullptr) {
        const CBlob body = BlobOf(bodyHex);
        message.put_response(kBasicType, &body);
    }
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

TEST(CResponseMessage, EncodesExactDerAndDecodesItBack) {
    const std::pair<CResponseMessage, const char*> cases[] = {
        {CResponseMessage(), "30030a0102"}, // internalError without a body
        {Message(successful, "010203"), "30170a0100a012301006092b06010505073001010403010203"},
        {Message(tryLater, "010203"), kTryLaterWithBody}, // a body whatever the status
        {Message(successful, ""), "30140a0100a00f300d06092b06010505073001010400"},
        {Message(static_cast<ResponseStatus>(4)), "30030a0104"}, // any value, as it is
        {Message(successful), "30030a0100"},                     // successful without a body
        // Values that need more than one octet, or are negative, in minimal two's complement.
        {Message(static_cast<ResponseStatus>(200)), "30040a0200c8"},
        {Message(static_cast<ResponseStatus>(-1)), "30030a01ff"},
        {Message(static_cast<ResponseStatus>(128), "010203"),
         "3018 0a020080 a012301006092b06010505073001010403010203"},
    };
    for (const auto& [message, der] : cases) {
        const CBlob encoded = message.encode();
        EXPECT_EQ(HexOf(encoded), HexOf(BlobOf(der)));
        // Decoding replaces everything, also an earlier body with none.
        CResponseMessage decoded = Message(sigRequired, "ee");
        decoded.decode(encoded);
        EXPECT_TRUE(Snapshot(decoded) == Snapshot(message)) << der;
    }
}

TEST(CResponseMessage, PutResponseCopiesOrRemovesTheBodyAndRefusesHalfOfIt) {
    CResponseMessage message;
    std::string type = kBasicType;
    CBlob body = BlobOf("0102");
    message.put_response(type.c_str(), &body);
    type[0] = '2';
    body.pbData()[0] = 0xFF;
    EXPECT_STREQ(message.get_responseType(), kBasicType);
    EXPECT_EQ(HexOf(*message.get_response()), "0102");

    const Snapshot before(message);
    EXPECT_HRESULT_THROW(message.put_response(kBasicType, nullptr), E_INVALIDARG);
    EXPECT_HRESULT_THROW(message.put_response(nullptr, &body), E_INVALIDARG);
    EXPECT_TRUE(Snapshot(message) == before);

    message.put_response(nullptr, nullptr);
    EXPECT_EQ(message.get_response(), nullptr);
    EXPECT_EQ(message.get_responseType(), nullptr);
}

TEST(CResponseMessage, BadTypeTextFailsAtEncode) {
    const CBlob body = BlobOf("01");
    for (const char* type : {"", "1.40", "1..2"}) {
        CResponseMessage message;
        message.put_response(type, &body); // not checked until encoding
        EXPECT_HRESULT_THROW(message.encode(), CRYPT_E_ASN1_INTERNAL) << type;
    }
}

TEST(CResponseMessage, CopiesAreIndependent) {
    CResponseMessage source = Message(successful, "0102");
    CResponseMessage copy(source);
    CResponseMessage assigned;
    assigned = source;
    const CBlob other = BlobOf("ff");
    copy.put_response("1.2.3", &other);
    assigned.put_response(nullptr, nullptr);
    assigned.put_responseStatus(tryLater);
    EXPECT_TRUE(Snapshot(source) == Snapshot(Message(successful, "0102")));

    CResponseMessage& alias = source;
    source = alias;
    EXPECT_EQ(HexOf(*source.get_response()), "0102");
}

TEST(CResponseMessage, FailedDecodesChangeNothing) {
    const char* malformed[] = {
        "31030a0102",                                   // SET instead of SEQUENCE
        "30030a010200",                                 // a trailing octet after the message
        "3003020102",                                   // INTEGER instead of ENUMERATED
        "30040a020002",                                 // non-minimal ENUMERATED
        "30050a0102a000",                               // responseBytes without its SEQUENCE
        "30080a0100a103300100",                         // wrong context tag, and garbage inside
        "30140a0100a00f300d06092b06010505073001010500", // NULL where OCTET STRING belongs
        "30170a0100a012301006092b0601050507300101040401020303", // body length overruns its parent
        "30030a0102a000", // inner element overruns the outer length
    };
    CResponseMessage message = Message(tryLater, "01");
    const Snapshot before(message);
    for (const char* hex : malformed) {
        EXPECT_HRESULT_THROW(message.decode(BlobOf(hex)), CRYPT_E_ASN1_INTERNAL) << hex;
        EXPECT_TRUE(Snapshot(message) == before) << hex;
    }
    const Bytes full = FromHex(kTryLaterWithBody);
    for (std::size_t length = 1; length < full.size(); ++length) {
        EXPECT_HRESULT_THROW(message.decode(CBlob(full.data(), length)), CRYPT_E_ASN1_INTERNAL)
            << "cut to " << length;
        EXPECT_TRUE(Snapshot(message) == before);
    }
    EXPECT_HRESULT_THROW(message.decode(CBlob()), E_INVALIDARG);
    EXPECT_TRUE(Snapshot(message) == before);

    // A responseBytes made of 40 nested explicit tags: deeper than any OCSP response.
    std::string deep = "30800a0100";
    for (int i = 0; i < 40; ++i) {
        deep += "a080";
    }
    deep += "0500";
    for (int i = 0; i < 41; ++i) {
        deep += "0000";
    }
    EXPECT_HRESULT_THROW(message.decode(BlobOf(deep)), CRYPT_E_ASN1_INTERNAL);
    EXPECT_TRUE(Snapshot(message) == before);
}

TEST(CResponseMessage, BerFormsDecodeAndReencodeAsDer) {
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
        message.decode(BlobOf(hex));
        EXPECT_TRUE(Snapshot(message) == Snapshot(Message(tryLater, "010203"))) << hex;
        EXPECT_EQ(HexOf(message.encode()), HexOf(BlobOf(kTryLaterWithBody))) << hex;
    }
}
