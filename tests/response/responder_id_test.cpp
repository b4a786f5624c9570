// CResponderID: the exact DER of both forms, failures that change nothing, and equality that
// compares names as names.
#include <gtest/gtest.h>
#include <pki/ocsp/responder_id.h>

#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::BlobOf;
using velmor_test::Bytes;
using velmor_test::HexOf;
using velmor_test::ReadData;
using velmor_test::Text;
using velmor_test::Tlv;

namespace {

// A Name of one RDN per attribute: country (PrintableString), organization and common name
// in the string type given.
CBlob Name(std::uint8_t stringType, const char* organization, const char* commonName) {
    const auto attribute = [](const char* oid, std::uint8_t type, const char* value) {
        return Tlv(
            0x31, Tlv(0x30, velmor_test::Cat({velmor_test::FromHex(oid), Tlv(type, Text(value))})));
    };
    return CBlob(Tlv(0x30, velmor_test::Cat({attribute("0603550406", 0x13, "DE"),
                                             attribute("060355040a", stringType, organization),
                                             attribute("0603550403", stringType, commonName)})));
}

} // namespace

TEST(CResponderID, BothFormsInExactDerAndBack) {
    // (That fromCert gives the identifiers openssl and Python write is checked against their
    // responses in tests/interop.)
    const CBlob certificate(ReadData("pki/ec/ocsp.der"));
    const CResponderID byName = CResponderID::fromCert(CResponderID::byName, certificate);
    const CResponderID byKey = CResponderID::fromCert(CResponderID::byKey, certificate);
    EXPECT_EQ(byKey.get_value().cbData(), 20u);
    EXPECT_EQ(HexOf(byName.encode()),
              velmor_test::ToHex(Tlv(0xa1, byName.get_value().to_vector())));
    EXPECT_EQ(HexOf(byKey.encode()), "a2160414" + HexOf(byKey.get_value()));
    for (const CResponderID& id : {byName, byKey}) {
        CResponderID decoded(CResponderID::byKey, BlobOf("ff"));
        decoded.decode(id.encode());
        EXPECT_EQ(decoded.get_type(), id.get_type());
        EXPECT_EQ(HexOf(decoded.get_value()), HexOf(id.get_value()));
    }
    // The certificate is parsed first; only a good one has its type looked at.
    const auto badType = static_cast<CResponderID::Type>(5);
    EXPECT_HRESULT_THROW(CResponderID::fromCert(badType, BlobOf("3000")), CRYPT_E_ASN1_BADTAG);
    EXPECT_HRESULT_THROW(CResponderID::fromCert(badType, certificate), E_INVALIDARG);
}

TEST(CResponderID, EncodeAndDecodeFailuresChangeNothing) {
    CResponderID id(CResponderID::byKey, BlobOf("0102"));
    EXPECT_EQ(HexOf(id.encode()), "a20404020102");
    for (const char* bad :
         {"", "a20304020102", "a20404020102 00", "a3040402 0102", "a1023000 00", "a2048402 0102"}) {
        EXPECT_HRESULT_THROW(id.decode(BlobOf(bad)), CRYPT_E_ASN1_INTERNAL) << bad;
    }
    EXPECT_EQ(HexOf(id.encode()), "a20404020102");

    EXPECT_HRESULT_THROW(CResponderID(static_cast<CResponderID::Type>(2), BlobOf("01")).encode(),
                         E_INVALIDARG);
    EXPECT_HRESULT_THROW(CResponderID().encode(), E_INVALIDARG); // an empty Name
    EXPECT_HRESULT_THROW(CResponderID(CResponderID::byName, BlobOf("0401aa")).encode(),
                         CRYPT_E_ASN1_INTERNAL);
    // An empty key hash is a valid, empty OCTET STRING.
    EXPECT_EQ(HexOf(CResponderID(CResponderID::byKey, CBlob()).encode()), "a2020400");
}

TEST(CResponderID, NamesAreWrittenAsDerEveryTime) {
    // The same Name with a long-form length: written as DER, also when the DER form was
    // written just before and the BER form many times (a Name written once is not taken
    // for DER because its octets were seen). A Name that stopped being one fails each time.
    const CBlob der = Name(0x0c, "Velmor", "Responder");
    Bytes longForm = der.to_vector();
    longForm.erase(longForm.begin(), longForm.begin() + 2);
    longForm.insert(longForm.begin(), {0x30, 0x81, der.pbData()[1]});
    const std::string expected = velmor_test::ToHex(Tlv(0xa1, der.to_vector()));
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(HexOf(CResponderID(CResponderID::byName, der).encode()), expected);
        EXPECT_EQ(HexOf(CResponderID(CResponderID::byName, CBlob(longForm)).encode()), expected);
        Bytes broken = der.to_vector();
        broken.pop_back(); // one octet short of its length
        EXPECT_HRESULT_THROW(CResponderID(CResponderID::byName, CBlob(broken)).encode(),
                             CRYPT_E_ASN1_INTERNAL);
    }
}

TEST(CResponderID, NamesCompareAsNamesAndKeysAsBytes) {
    const CBlob utf8 = Name(0x0c, "Velmor Test PKI", "Velmor RSA OCSP Responder");
    const CResponderID name(CResponderID::byName, utf8);
    // Other case, other spacing, PrintableString instead of UTF8String: the same name.
    for (const CBlob& same : {Name(0x0c, "velmor test pki", "VELMOR RSA OCSP RESPONDER"),
                              Name(0x0c, "  Velmor   Test PKI ", "Velmor  RSA OCSP Responder"),
                              Name(0x13, "Velmor Test PKI", "Velmor RSA OCSP Responder")}) {
        EXPECT_NE(HexOf(same), HexOf(utf8));
        EXPECT_TRUE(name == CResponderID(CResponderID::byName, same)) << HexOf(same);
        EXPECT_FALSE(name != CResponderID(CResponderID::byName, same));
    }
    EXPECT_NE(name, CResponderID(CResponderID::byName,
                                 Name(0x0c, "Velmor Test PKI", "Velmor EC OCSP Responder")));
    // The subject of the fixture responder is this name, as the certificate writes it.
    EXPECT_EQ(name,
              CResponderID::fromCert(CResponderID::byName, CBlob(ReadData("pki/rsa/ocsp.der"))));

    // Another type is never equal, whatever the bytes; key hashes are bytes.
    EXPECT_NE(name, CResponderID(CResponderID::byKey, utf8));
    EXPECT_EQ(CResponderID(CResponderID::byKey, BlobOf("0102")),
              CResponderID(CResponderID::byKey, BlobOf("0102")));
    EXPECT_NE(CResponderID(CResponderID::byKey, BlobOf("0102")),
              CResponderID(CResponderID::byKey, BlobOf("0103")));
    // A byName value that is not a Name equals nothing, not even itself.
    const CResponderID broken(CResponderID::byName, BlobOf("0401aa"));
    EXPECT_NE(broken, broken);
}
