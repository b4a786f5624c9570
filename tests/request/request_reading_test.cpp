// The two readers of a request: the strict-DER fast path must give exactly what the BER
// runtime gives for every input it takes, and must leave every other input to the runtime.
#include <gtest/gtest.h>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/request_message.h>

#include "request/request_message_data.h"
#include "support/test_support.h"

#include <sstream>

using namespace Velmor;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::Cat;
using velmor_test::FromHex;
using velmor_test::HexOf;
using velmor_test::Tlv;

namespace {

CBlob BlobOf(const Bytes& bytes) { return CBlob(bytes); }

// Everything a reader produced, as one comparable text: version, the DER of tbsRequest
// written from the fields, the octets kept for verification, and which extension lists
// are present (a present empty list writes nothing).
std::string FieldsOf(DecodedRequest& decoded) {
    CRequestMessage::Data data;
    data.Adopt(decoded);
    std::ostringstream out;
    out << "version=" << data.version << " tbs=" << HexOf(data.EncodeTbsRequest())
        << " signed=" << HexOf(data.signedBytes)
        << " requestExtensions=" << (data.requestExtensions != nullptr) << " entryExtensions=";
    for (const CSingleRequest& entry : data.requestList) {
        out << (entry.get_singleRequestExtensions() != nullptr);
    }
    return out.str();
}

// The fields from the fast path, or "declined".
std::string FastFields(const Bytes& der) {
    DecodedRequest decoded;
    return ReadDerRequest(BlobOf(der), decoded) ? FieldsOf(decoded) : "declined";
}

std::string RuntimeFields(const Bytes& der) {
    DecodedRequest decoded;
    ReadBerRequest(BlobOf(der), decoded);
    return FieldsOf(decoded);
}

// ---- requests built from their parts

Bytes Repeat(std::uint8_t octet, std::size_t count) { return Bytes(count, octet); }

const Bytes kSha1Oid = FromHex("2b0e03021a");
const Bytes kNonceOid = FromHex("2b0601050507300102");

Bytes Sha1WithNull() { return Tlv(0x30, Cat({Tlv(0x06, kSha1Oid), Tlv(0x05, {})})); }

Bytes CertId(const Bytes& algorithm, const Bytes& serialContents) {
    return Tlv(0x30, Cat({algorithm, Tlv(0x04, Repeat(0xaa, 20)), Tlv(0x04, Repeat(0xbb, 20)),
                          Tlv(0x02, serialContents)}));
}

Bytes Nonce(const Bytes& criticalElement = {}) {
    return Tlv(
        0x30, Cat({Tlv(0x06, kNonceOid), criticalElement, Tlv(0x04, Tlv(0x04, Repeat(0x5a, 16)))}));
}

// OCSPRequest { TBSRequest { SEQUENCE OF entries, [2] EXPLICIT extensions } }.
Bytes Request(const Bytes& entries, const Bytes& requestExtensions) {
    return Tlv(0x30, Tlv(0x30, Cat({Tlv(0x30, entries), requestExtensions})));
}

Bytes UsualRequest() {
    return Request(Tlv(0x30, CertId(Sha1WithNull(), {0x01, 0x02})), Tlv(0xA2, Tlv(0x30, Nonce())));
}

TEST(RequestReading, FastPathTakesTheUsualRequestsAndAgreesWithTheRuntime) {
    // The unsigned requests openssl wrote: one and two entries, nonce, SHA-256, EC issuer.
    for (const char* name : {"req-plain", "req-nonce", "req-sha256", "req-two", "req-ec",
                             "req-revoked", "req-unknown"}) {
        const Bytes der = velmor_test::ReadData(std::string("ocsp/") + name + ".der");
        const std::string fast = FastFields(der);
        EXPECT_NE(fast, "declined") << name;
        EXPECT_EQ(fast, RuntimeFields(der)) << name;
    }
    // Entry extensions, a hash without parameters, values the runtime reads the same way
    // though DER would not write them (a critical flag of FALSE, a redundant serial octet),
    // and empty lists.
    const Bytes entryWithExtension =
        Tlv(0x30, Cat({CertId(Sha1WithNull(), {0x05}), Tlv(0xA0, Tlv(0x30, Nonce()))}));
    const Bytes noParameters = Tlv(0x30, Tlv(0x06, kSha1Oid));
    const std::vector<Bytes> cases = {
        UsualRequest(),
        Request(Cat({entryWithExtension, Tlv(0x30, CertId(Sha1WithNull(), {0x06}))}), {}),
        Request(Tlv(0x30, CertId(noParameters, {0x7f})), {}),
        Request(Tlv(0x30, CertId(Sha1WithNull(), {0x00, 0x01})),
                Tlv(0xA2, Tlv(0x30, Nonce(Tlv(0x01, {0x00}))))),
        Request(Tlv(0x30, CertId(Sha1WithNull(), {0x80})),
                Tlv(0xA2, Tlv(0x30, Nonce(Tlv(0x01, {0x01}))))),
        Request({}, Tlv(0xA2, Tlv(0x30, {}))),
        Request(Tlv(0x30, Cat({CertId(Sha1WithNull(), {0x01}), Tlv(0xA0, Tlv(0x30, {}))})), {}),
    };
    for (const Bytes& der : cases) {
        const std::string fast = FastFields(der);
        EXPECT_NE(fast, "declined") << velmor_test::ToHex(der);
        EXPECT_EQ(fast, RuntimeFields(der)) << velmor_test::ToHex(der);
    }
    // decode() takes the same fields.
    CRequestMessage message;
    message.decode(BlobOf(UsualRequest()));
    EXPECT_EQ(HexOf(message.encode()), velmor_test::ToHex(UsualRequest()));
}

TEST(RequestReading, OtherShapesAndEncodingsAreLeftToTheRuntime) {
    const Bytes usual = UsualRequest();
    const Bytes tbs(usual.begin() + 2, usual.end());
    const Bytes longFormLength = Cat({{0x30, 0x81, static_cast<std::uint8_t>(tbs.size())}, tbs});
    const Bytes indefiniteLength = Cat({{0x30, 0x80}, tbs, {0x00, 0x00}});
    const Bytes version =
        Tlv(0x30, Tlv(0x30, Cat({Tlv(0xA0, Tlv(0x02, {0x00})),
                                 Tlv(0x30, Tlv(0x30, CertId(Sha1WithNull(), {0x01})))})));
    const Bytes otherParameters = Request(
        Tlv(0x30, CertId(Tlv(0x30, Cat({Tlv(0x06, kSha1Oid), Tlv(0x04, {0x01})})), {0x01})), {});
    const Bytes constructedValue = Request(
        Tlv(0x30, CertId(Sha1WithNull(), {0x01})),
        Tlv(0xA2,
            Tlv(0x30, Tlv(0x30, Cat({Tlv(0x06, kNonceOid), Tlv(0x24, Tlv(0x04, {0x04, 0x00}))})))));
    const std::vector<std::pair<const char*, Bytes>> cases = {
        {"signed RSA", velmor_test::ReadData("ocsp/req-signed-rsa.der")},
        {"signed EC", velmor_test::ReadData("ocsp/req-signed-ec.der")},
        {"long-form length", longFormLength},
        {"indefinite length", indefiniteLength},
        {"explicit version", version},
        {"parameters other than NULL", otherParameters},
        {"constructed extension value", constructedValue},
    };
    for (const auto& [name, der] : cases) {
        EXPECT_EQ(FastFields(der), "declined") << name;
        EXPECT_NO_THROW(RuntimeFields(der)) << name;
        CRequestMessage message;
        EXPECT_NO_THROW(message.decode(BlobOf(der))) << name;
    }
    // The BER forms of the usual request give its fields, only the kept octets differ.
    CRequestMessage message;
    message.decode(BlobOf(indefiniteLength));
    EXPECT_EQ(HexOf(message.encode()), velmor_test::ToHex(usual));
}

TEST(RequestReading, InputsNeitherReaderTakesFailWithTheRuntimeError) {
    // An OID subidentifier with a leading zero group, a BOOLEAN of two octets, an empty
    // INTEGER, and a text element where the hash belongs: each is declined by the fast path,
    // and decode throws what the runtime reports, leaving the message alone.
    const Bytes badOid =
        Request(Tlv(0x30, CertId(Tlv(0x30, Tlv(0x06, {0x2b, 0x80, 0x01})), {0x01})), {});
    const Bytes longBoolean = Request(Tlv(0x30, CertId(Sha1WithNull(), {0x01})),
                                      Tlv(0xA2, Tlv(0x30, Nonce(Tlv(0x01, {0xff, 0xff})))));
    const Bytes emptySerial = Request(Tlv(0x30, CertId(Sha1WithNull(), {})), {});
    const Bytes wrongTag =
        Request(Tlv(0x30, Tlv(0x30, Cat({Sha1WithNull(), Tlv(0x0c, {0x41}), Tlv(0x04, {0x01}),
                                         Tlv(0x02, {0x01})}))),
                {});
    CRequestMessage message;
    message.decode(BlobOf(UsualRequest()));
    const std::string before = HexOf(message.encode());
    for (const Bytes& der : {badOid, longBoolean, emptySerial, wrongTag}) {
        EXPECT_EQ(FastFields(der), "declined") << velmor_test::ToHex(der);
        HRESULT runtimeError = S_OK;
        try {
            RuntimeFields(der);
        } catch (const ATL::CAtlException& e) {
            runtimeError = e;
        }
        EXPECT_LT(runtimeError, 0) << velmor_test::ToHex(der);
        EXPECT_HRESULT_THROW(message.decode(BlobOf(der)), runtimeError);
        EXPECT_EQ(HexOf(message.encode()), before);
    }
}

} // namespace
