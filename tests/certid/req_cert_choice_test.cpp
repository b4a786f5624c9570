// The ReqCert CHOICE between CReqCert and its ASN.1 structure, as request and response entries
// fill and read it: each alternative to its DER, each decoded alternative back, the refusal of
// whole X.509 certificates, and the failures that must leave a CReqCert as it was.
#include "asn1/ocsp_types.h"
#include "certid/cert_id_traits.h"
#include "foundation/codec_frame.h"

#include <gtest/gtest.h>
#include <pki/ocsp/algorithm_identifier_ex.h>

#include <string>

#include "support/asn1_test_support.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::AttributeCertificate;
using velmor_test::Bytes;
using velmor_test::Decoded;
using velmor_test::EncodeHex;
using velmor_test::FromHex;
using velmor_test::HexOf;
using velmor_test::ReadData;
using velmor_test::Tlv;
using velmor_test::ToHex;

namespace {

// The CertID of pki/rsa/leaf issued by pki/rsa/inter, as
// `openssl ocsp -issuer inter.pem -cert leaf.pem -no_nonce -reqout` writes it.
constexpr const char* kOpensslCertId = "303b 3009 06052b0e03021a 0500"
                                       " 0414 30294056e47e5751a25335c2ab93dd19f00fe554"
                                       " 0414 bed2336af7b0d24b9d86ee2cb0fc06c4c90a05b7"
                                       " 02021001";

CBlob Fixture(const char* path) { return CBlob(ReadData(path)); }

// The DER of value's alternative, through ASN1T_ReqCert_set and the ReqCert encoder.
std::string EncodedHex(const CReqCert& value) {
    ASN1BEREncodeBuffer arena;
    ASN1T_ReqCert structure{};
    ASN1T_ReqCert_traits::set(arena.getCtxtPtr(), structure, value);
    return EncodeHex(structure);
}

// value after ASN1T_ReqCert_get of the decoded ReqCert der.
void ReadInto(const Bytes& der, CReqCert& value) {
    Decoded<ASN1T_ReqCert> decoded(der);
    ASSERT_EQ(decoded.status, 0) << decoded.buffer.getErrorText();
    ASN1T_ReqCert_traits::get(decoded.value, value);
}

TEST(ReqCertChoice, CertIdIsWrittenUntaggedAndReadBack) {
    const CBlob null(Bytes{0x05, 0x00});
    const CCertID id(CAlgorithmIdentifierEx("1.3.14.3.2.26", &null), Fixture("pki/rsa/leaf.der"),
                     Fixture("pki/rsa/inter.der"));
    EXPECT_EQ(EncodedHex(CReqCert(id)), ToHex(FromHex(kOpensslCertId)));

    CReqCert read(CReqCert::attributeCertificate, CBlob(Bytes{0x30, 0x00}));
    ReadInto(FromHex(kOpensslCertId), read);
    ASSERT_NE(read.get_certID(), nullptr);
    EXPECT_EQ(*read.get_certID(), id);
    EXPECT_EQ(read.get_fullCert(), nullptr);
}

TEST(ReqCertChoice, CertIdWithSignatureIsWrittenUnderTagOneAndReadBack) {
    const CCertIdWithSignature id(Fixture("pki/ec/leaf.der"));
    const CBlob inner = id.encode();
    const Bytes der = Tlv(0xA1, Bytes(inner.begin(), inner.end()));
    EXPECT_EQ(EncodedHex(CReqCert(id)), ToHex(der));

    CReqCert read;
    ReadInto(der, read);
    ASSERT_NE(read.get_certIdWithSignature(), nullptr);
    EXPECT_EQ(*read.get_certIdWithSignature(), id);
    EXPECT_EQ(read.get_certID(), nullptr);
}

TEST(ReqCertChoice, OnlyAttributeCertificatesCanBeWrittenWhole) {
    const Bytes certificate = ReadData("pki/rsa/leaf.der");
    const Bytes attribute = AttributeCertificate();
    ASN1BEREncodeBuffer arena;
    ASN1T_ReqCert out{};
    EXPECT_HRESULT_THROW(
        ASN1T_ReqCert_traits::set(arena.getCtxtPtr(), out,
                                  CReqCert(CReqCert::certificate, CBlob(certificate))),
        E_INVALIDARG);
    EXPECT_HRESULT_THROW(
        ASN1T_ReqCert_traits::set(arena.getCtxtPtr(), out,
                                  CReqCert(CReqCert::certificate, CBlob(attribute))),
        CRYPT_E_ASN1_INTERNAL);
    EXPECT_HRESULT_THROW(
        ASN1T_ReqCert_traits::set(arena.getCtxtPtr(), out,
                                  CReqCert(CReqCert::attributeCertificate, CBlob(certificate))),
        CRYPT_E_ASN1_INTERNAL);
    EXPECT_HRESULT_THROW(ASN1T_ReqCert_traits::set(
                             arena.getCtxtPtr(), out,
                             CReqCert(CReqCert::certificate, CBlob(Bytes{0xde, 0xad, 0xbe, 0xef}))),
                         CRYPT_E_ASN1_INTERNAL);

    EXPECT_EQ(EncodedHex(CReqCert(CReqCert::attributeCertificate, CBlob(attribute))),
              ToHex(Tlv(0xA0, Tlv(0xA1, attribute))));
    // A type outside the enumeration is filled in, but cannot be encoded.
    const auto unknownType = static_cast<CReqCert::fullCertificateType>(7);
    EXPECT_EQ(EncodedHex(CReqCert(unknownType, CBlob(attribute))),
              "error " + std::to_string(RTERR_INVPARAM));
}

TEST(ReqCertChoice, DecodedWholeCertificatesKeepTheirTypeAndOctets) {
    const Bytes certificate = ReadData("pki/ec/leaf20.der");
    const Bytes attribute = AttributeCertificate();
    CReqCert read;
    ReadInto(Tlv(0xA0, Tlv(0xA0, certificate)), read);
    ASSERT_NE(read.get_fullCertType(), nullptr);
    EXPECT_EQ(*read.get_fullCertType(), CReqCert::certificate);
    ASSERT_NE(read.get_fullCert(), nullptr);
    EXPECT_EQ(HexOf(*read.get_fullCert()), ToHex(certificate));

    ReadInto(Tlv(0xA0, Tlv(0xA1, attribute)), read);
    ASSERT_NE(read.get_fullCertType(), nullptr);
    EXPECT_EQ(*read.get_fullCertType(), CReqCert::attributeCertificate);
    ASSERT_NE(read.get_fullCert(), nullptr);
    EXPECT_EQ(HexOf(*read.get_fullCert()), ToHex(attribute));
}

TEST(ReqCertChoice, UnknownAlternativesLeaveTheReferenceAsItWas) {
    const CCertIdWithSignature id(Fixture("pki/rsa/leaf00.der"));
    CReqCert value(id);
    const CCertIdWithSignature* held = value.get_certIdWithSignature();

    ASN1T_ReqCert unset{};
    ASN1T_ReqCert_traits::get(unset, value);
    ASN1T_ReqCert unknown{};
    unknown.t = 9;
    ASN1T_ReqCert_traits::get(unknown, value);
    EXPECT_EQ(value.get_certIdWithSignature(), held);

    ASN1T_FullCertificate emptyChoice{};
    ASN1T_ReqCert full{};
    full.t = T_ReqCert_fullCertificate;
    full.u.fullCertificate = &emptyChoice;
    EXPECT_HRESULT_THROW(ASN1T_ReqCert_traits::get(full, value), CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(value.get_certIdWithSignature(), held);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(*held, id);
    EXPECT_EQ(value.get_fullCert(), nullptr);
}

} // namespace
