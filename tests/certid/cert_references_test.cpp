// Value semantics and DER of the three ways to name a certificate: CCertID,
// CCertIdWithSignature and the CReqCert choice between them and a whole certificate.
#include <gtest/gtest.h>
#include <pki/ocsp/req_cert.h>

#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;

namespace {

constexpr const char* kSha1 = "1.3.14.3.2.26";
constexpr const char* kSha256WithRsa = "1.2.840.113549.1.1.11";
// CN=test as a Name.
constexpr const char* kNameCnTest = "300f310d300b06035504030c0474657374";

CBlob Hex(std::string_view hex) { return velmor_test::BlobOf(hex); }
using velmor_test::HexOf;

CCertID SampleCertID() {
    const CBlob null = Hex("0500");
    return CCertID(CAlgorithmIdentifier(kSha1, &null), Hex("0102"), Hex("0304"),
                   CBigInteger::FromHex("1001"));
}

CCertIdWithSignature SampleCertIdWithSignature() {
    return CCertIdWithSignature(Hex(kNameCnTest), CBigInteger::FromHex("008f"), Hex("aabb"),
                                CAlgorithmIdentifier(kSha256WithRsa), Hex("ccddee"));
}

} // namespace

TEST(CCertID, EncodesToExactDerAndDecodesBack) {
    // SEQUENCE { SEQUENCE { sha1, NULL }, OCTET STRING name hash, OCTET STRING key hash,
    //            INTEGER 0x1001 }
    const char* der = "3017 3009 06052b0e03021a 0500 04020102 04020304 02021001";
    EXPECT_EQ(HexOf(SampleCertID().encode()), HexOf(Hex(der)));
    CCertID decoded;
    decoded.decode(Hex(der));
    EXPECT_EQ(decoded, SampleCertID());
    EXPECT_FALSE(decoded != SampleCertID());
}

TEST(CCertID, EqualityLooksAtEveryField) {
    EXPECT_EQ(CCertID(), CCertID());
    CCertID changed = SampleCertID();
    changed.put_issuerKeyHash(Hex("0305"));
    EXPECT_NE(changed, SampleCertID());
    changed = SampleCertID();
    changed.put_issuerNameHash(Hex("0103"));
    EXPECT_NE(changed, SampleCertID());
    changed = SampleCertID();
    changed.put_serialNumber(CBigInteger::FromHex("1002"));
    EXPECT_NE(changed, SampleCertID());
    changed = SampleCertID();
    changed.put_hashAlgorithm(CAlgorithmIdentifier(kSha1)); // no parameters this time
    EXPECT_NE(changed, SampleCertID());
}

TEST(CCertID, FailedDecodeChangesNothingAndSelfAssignmentKeepsTheValue) {
    CCertID id = SampleCertID();
    EXPECT_HRESULT_THROW(id.decode(Hex("3003020101")), CRYPT_E_ASN1_INTERNAL);
    EXPECT_HRESULT_THROW(id.decode(CBlob()), CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(id, SampleCertID());
    const CCertID& alias = id;
    id = alias;
    EXPECT_EQ(id, SampleCertID());
}

TEST(CCertIdWithSignature, AnIssuerThatIsNotANameCannotBeEncoded) {
    EXPECT_HRESULT_THROW(CCertIdWithSignature().encode(), CRYPT_E_ASN1_INTERNAL);
    CCertIdWithSignature value = SampleCertIdWithSignature();
    value.put_issuer(Hex("0401aa"));
    EXPECT_HRESULT_THROW(value.encode(), CRYPT_E_ASN1_INTERNAL);
}

TEST(CCertIdWithSignature, EqualityLooksAtTheSignature) {
    CCertIdWithSignature other = SampleCertIdWithSignature();
    other.put_signatureValue(Hex("ccddef"));
    EXPECT_TRUE(other != SampleCertIdWithSignature());
    other.put_signatureValue(Hex("ccddee"));
    EXPECT_EQ(other, SampleCertIdWithSignature());
}

TEST(CReqCert, EachAlternativeAnswersOnlyItsOwnGetter) {
    CReqCert ref; // an empty CertID
    ASSERT_NE(ref.get_certID(), nullptr);
    EXPECT_EQ(*ref.get_certID(), CCertID());
    EXPECT_EQ(ref.get_fullCertType(), nullptr);
    ref.put_fullCert(CReqCert::attributeCertificate, Hex("3000"));
    ASSERT_NE(ref.get_fullCert(), nullptr);
    EXPECT_EQ(HexOf(*ref.get_fullCert()), "3000");
    ASSERT_NE(ref.get_fullCertType(), nullptr);
    EXPECT_EQ(*ref.get_fullCertType(), 1u);
    EXPECT_EQ(ref.get_certID(), nullptr);
    EXPECT_EQ(ref.get_certIdWithSignature(), nullptr);

    ref.put_certIdWithSignature(SampleCertIdWithSignature());
    ASSERT_NE(ref.get_certIdWithSignature(), nullptr);
    EXPECT_EQ(*ref.get_certIdWithSignature(), SampleCertIdWithSignature());
    EXPECT_EQ(ref.get_fullCert(), nullptr);

    ref.put_certID(SampleCertID());
    ASSERT_NE(ref.get_certID(), nullptr);
    EXPECT_EQ(*ref.get_certID(), SampleCertID());
    EXPECT_EQ(ref.get_certIdWithSignature(), nullptr);
}

TEST(CReqCert, CopiesAreDeepAndSelfAssignmentChangesNothing) {
    CReqCert source(SampleCertIdWithSignature());
    CReqCert copy(source);
    CReqCert assigned;
    assigned = source;
    source.put_fullCert(CReqCert::certificate, Hex("3000"));
    ASSERT_NE(copy.get_certIdWithSignature(), nullptr);
    EXPECT_EQ(*copy.get_certIdWithSignature(), SampleCertIdWithSignature());
    ASSERT_NE(assigned.get_certIdWithSignature(), nullptr);
    EXPECT_NE(assigned.get_certIdWithSignature(), copy.get_certIdWithSignature());

    const CBlob* before = source.get_fullCert();
    const CReqCert& alias = source;
    source = alias;
    EXPECT_EQ(source.get_fullCert(), before); // the same alternative object, untouched
}

TEST(CReqCert, MovesTakeTheAlternativeAndLeaveNone) {
    CReqCert source(SampleCertID());
    const CCertID* alternative = source.get_certID();
    CReqCert moved(std::move(source));
    EXPECT_EQ(moved.get_certID(), alternative); // taken over, not copied
    // The moved-from reference answers null everywhere, copies as such and can be reused.
    EXPECT_EQ(source.get_certID(), nullptr);
    EXPECT_EQ(source.get_fullCertType(), nullptr);
    EXPECT_EQ(CReqCert(source).get_certIdWithSignature(), nullptr);
    source = moved;
    ASSERT_NE(source.get_certID(), nullptr);
    EXPECT_EQ(*source.get_certID(), SampleCertID());
}
