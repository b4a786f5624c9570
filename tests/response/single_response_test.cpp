// CCertStatus and CSingleResponse: their defaults and kept quirks, the exact DER of every
// status and optional field inside a basic response, and copies of entries and lists.
#include <gtest/gtest.h>
#include <pki/ocsp/single_response.h>

#include "response/basic_response_builders.h"
#include "response/response_traits.h"
#include "support/test_support.h"

using namespace velmor_test;
using Velmor::ASN1::CExtension;
using Velmor::ASN1::CExtensions;
using Velmor::ASN1::CrlReason;
using Velmor::Detail::Records;

namespace {

const CrlReason kKeyCompromise = Velmor::ASN1::keyCompromise;

std::string EncodedWith(const CSingleResponseList& entries) {
    CBasicResponse response = ByKeyResponse();
    response.put_responses(entries);
    return HexOf(response.encode());
}

CSingleResponseList One(const CSingleResponse& entry) {
    CSingleResponseList list;
    list.push_back(entry);
    return list;
}

} // namespace

TEST(CCertStatus, StartsUnknownAndKeepsRevocationFieldsOutOfReach) {
    const CCertStatus unknown;
    EXPECT_TRUE(unknown.isUnknown());
    EXPECT_EQ(unknown.get_revocationTime(), nullptr);
    EXPECT_EQ(unknown.get_revocationReason(), nullptr);

    CCertStatus status(kTime, &kKeyCompromise);
    ASSERT_TRUE(status.isRevoked());
    EXPECT_EQ(*status.get_revocationTime(), kTime);
    EXPECT_EQ(*status.get_revocationReason(), kKeyCompromise);

    // put_good changes the kind only: the getters answer null, yet time and reason stay inside
    // and travel with a copy until put_revoked replaces both.
    status.put_good();
    EXPECT_TRUE(status.isGood());
    EXPECT_EQ(status.get_revocationTime(), nullptr);
    EXPECT_EQ(status.get_revocationReason(), nullptr);
    const CCertStatus copy = status;
    EXPECT_EQ(Records::Of(copy).revocationTime, kTime);
    EXPECT_EQ(Records::Of(copy).revocationReason, kKeyCompromise);

    status.put_unknown();
    status.put_revoked(CDateTime(5, 0), nullptr);
    EXPECT_EQ(*status.get_revocationTime(), CDateTime(5, 0));
    EXPECT_EQ(status.get_revocationReason(), nullptr);
    EXPECT_TRUE(copy.isGood()); // copies are independent
}

TEST(CCertStatus, SelectorsOtherThanGoodAndRevokedReadAsUnknown) {
    CCertStatus status(kTime, &kKeyCompromise);
    for (const OSUINT32 selector : {OSUINT32{T_CertStatus_unknown}, 0u, 4u, 77u}) {
        ASN1T_CertStatus in{};
        in.t = selector;
        ASN1T_CertStatus_traits::get(in, status);
        EXPECT_TRUE(status.isUnknown()) << selector;
        EXPECT_EQ(Records::Of(status).revocationReason, std::nullopt);
    }
}

TEST(CSingleResponse, DefaultEntryNamesAnEmptyFullCertificate) {
    const CSingleResponse entry;
    ASSERT_NE(entry.get_reqCert().get_fullCertType(), nullptr);
    EXPECT_EQ(*entry.get_reqCert().get_fullCertType(), CReqCert::certificate);
    EXPECT_EQ(entry.get_reqCert().get_fullCert()->cbData(), 0u);
    EXPECT_EQ(entry.get_reqCert().get_certID(), nullptr);
    EXPECT_TRUE(entry.get_certStatus().isUnknown());
    EXPECT_EQ(entry.get_thisUpdate(), CDateTime(0, 0));
    EXPECT_EQ(entry.get_nextUpdate(), nullptr);
    EXPECT_EQ(entry.get_singleExtensions(), nullptr);
    // Not a CertID: a list holding it asks for v2, and it cannot be written.
    CBasicResponse response = ByKeyResponse();
    response.put_responses(One(entry));
    EXPECT_EQ(response.get_version(), v2);
    EXPECT_HRESULT_THROW(response.encode(), CRYPT_E_ASN1_INTERNAL);
}

TEST(CSingleResponse, EveryStatusAndOptionalFieldInExactDer) {
    CCertStatus good;
    good.put_good();
    const CDateTime next(0, 0);
    const CExtensions none;
    CExtensions one;
    one.push_back(CExtension("1.2.3", true, BlobOf("0500")));

    CSingleResponse revoked(CertIdOf(2), CCertStatus(kTime, &kKeyCompromise), kTime);
    revoked.put_singleExtensions(&none); // present but empty: left off the wire
    CSingleResponse unknown(CertIdOf(3), CCertStatus(), kTime);
    unknown.put_nextUpdate(&next);
    unknown.put_singleExtensions(&one);

    CSingleResponseList entries;
    entries.push_back(CSingleResponse(CertIdOf(1), good, kTime));
    entries.push_back(revoked);
    entries.push_back(CSingleResponse(CertIdOf(4), CCertStatus(kTime, nullptr), kTime));
    entries.push_back(unknown);
    const std::string expected = ByKeyResponseHex(
        "3029" + CertIdHex(1) + "8000" + kTimeHex +                           // good
        "303f" + CertIdHex(2) + "a116" + kTimeHex + "a0030a0101" + kTimeHex + // keyCompromise
        "303a" + CertIdHex(4) + "a111" + kTimeHex + kTimeHex +                // no reason
        "304d" + CertIdHex(3) + "8200" + kTimeHex + "a011" + kZeroTimeHex +   // unknown
        "a10f 300d 300b 06022a03 0101ff 04020500");
    EXPECT_EQ(EncodedWith(entries), HexOf(BlobOf(expected)));

    // Read back, each field is there again, except the empty extension list.
    CBasicResponse decoded;
    decoded.decode(BlobOf(expected));
    auto it = decoded.get_responses().begin();
    EXPECT_TRUE((it++)->get_certStatus().isGood());
    EXPECT_EQ(*it->get_certStatus().get_revocationReason(), kKeyCompromise);
    EXPECT_EQ(*(it++)->get_certStatus().get_revocationTime(), kTime);
    EXPECT_EQ(it->get_singleExtensions(), nullptr);
    EXPECT_EQ((it++)->get_certStatus().get_revocationReason(), nullptr);
    EXPECT_EQ(*it->get_nextUpdate(), next);
    EXPECT_TRUE(it->get_singleExtensions()->front().get_critical());
    EXPECT_EQ(HexOf(decoded.encode()), HexOf(BlobOf(expected)));
}

TEST(CSingleResponse, CopiesOfEntriesAndListsAreIndependent) {
    const CDateTime next(9, 0);
    CSingleResponse entry(CertIdOf(1), CCertStatus(), kTime);
    entry.put_nextUpdate(&next);
    CSingleResponseList list = One(entry);
    list.resize(3);
    const CSingleResponseList copy = list;

    list.front().put_nextUpdate(nullptr);
    list.front() = CSingleResponse(); // a whole entry is replaced by assignment
    EXPECT_EQ(*copy.front().get_nextUpdate(), next);
    EXPECT_EQ(copy.front().get_reqCert().get_certID()->get_serialNumber(),
              Velmor::ASN1::CBigInteger::FromInt64(1));
    EXPECT_NE(copy.back().get_reqCert().get_fullCertType(), nullptr); // grown by default entries
    entry = entry;
    EXPECT_EQ(*entry.get_nextUpdate(), next);
}
