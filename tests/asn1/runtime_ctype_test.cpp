// Control classes of the ASN.1 runtime, driven through a real type (OCSPRequest): the
// buffer kinds of Decode() and Encode(), buffer reuse, and the signed-part tag matcher. Round
// trips, deep copies, trailing octets and truncation of whole messages are tested with the
// OCSP types.
#include <gtest/gtest.h>

#include <string>

#include "asn1/ocsp_types.h"
#include "support/test_support.h"

using velmor_test::Bytes;
using velmor_test::FromHex;
using velmor_test::ReadData;
using velmor_test::ToHex;

TEST(RuntimeCType, BufferKindsAndAnEmptyInput) {
    ASN1T_OCSPRequest v{};
    ASN1BEREncodeBuffer e;
    EXPECT_EQ(ASN1C_OCSPRequest(e, v).Decode(), RTERR_INVPARAM);
    ASN1BERDecodeBuffer d;
    EXPECT_EQ(ASN1C_OCSPRequest(d, v).Encode(), RTERR_INVPARAM);
    ASN1BERDecodeBuffer empty;
    EXPECT_EQ(ASN1C_OCSPRequest(empty, v).Decode(), RTERR_ENDOFBUF);
}

TEST(RuntimeCType, BufferReuseWithSetBufferAndInit) {
    Bytes good = ReadData("ocsp/req-plain.der");
    Bytes bad = FromHex("3003020105");
    ASN1BERDecodeBuffer d;
    ASN1T_OCSPRequest v{};
    ASSERT_EQ(d.setBuffer(bad.data(), static_cast<int>(bad.size())), 0);
    EXPECT_EQ(ASN1C_OCSPRequest(d, v).Decode(), RTERR_IDNOTFOU);
    EXPECT_EQ(ASN1C_OCSPRequest(d, v).Decode(), RTERR_IDNOTFOU) << "failure stays until init";
    ASSERT_EQ(d.setBuffer(good.data(), static_cast<int>(good.size())), 0);
    ASN1T_OCSPRequest w{};
    EXPECT_EQ(ASN1C_OCSPRequest(d, w).Decode(), 0);
    EXPECT_EQ(d.getByteIndex(), good.size());
    EXPECT_EQ(d.init(), 0);
    EXPECT_EQ(d.getByteIndex(), 0u);
    ASN1T_OCSPRequest x{};
    EXPECT_EQ(ASN1C_OCSPRequest(d, x).Decode(), 0);
    EXPECT_EQ(d.setBuffer(good.data(), -1), RTERR_INVPARAM);
    EXPECT_EQ(d.getBufLen(), 0u);
}

TEST(RuntimeCType, MatchingTheSignedPart) {
    // Signed ::= SEQUENCE { tbs SEQUENCE { INTEGER }, signature BIT STRING }, once definite
    // (with a long-form length for 9), once indefinite: the extent of the first inner element
    // is its octets as received.
    struct Case {
        const char* hex;
        const char* tbs;
        int outerLen;
        int innerLen;
    };
    const Case cases[] = {
        {"308109 3003020105 03020780", "3003020105", 9, 3},
        {"3080 30800201050000 03020780 0000", "30800201050000", ASN_K_INDEFLEN, ASN_K_INDEFLEN}};
    for (const Case& c : cases) {
        Bytes in = FromHex(c.hex);
        ASN1BERDecodeBuffer d(in.data(), in.size());
        int len = 0;
        ASSERT_EQ(xd_match1(d.getCtxtPtr(), 0x30, &len), 0);
        EXPECT_EQ(len, c.outerLen);
        std::size_t offset = 0;
        std::size_t size = 0;
        ASSERT_EQ(xd_elemExtent(d.getCtxtPtr(), &offset, &size), 0);
        EXPECT_EQ(offset, c.outerLen < 0 ? 2u : 3u);
        EXPECT_EQ(ToHex(in.data() + offset, size), c.tbs);
        EXPECT_EQ(d.getByteIndex(), offset) << "the extent consumes nothing";
        ASSERT_EQ(xd_match1(d.getCtxtPtr(), 0x30, &len), 0);
        EXPECT_EQ(len, c.innerLen);
        EXPECT_EQ(d.getByteIndex(), offset + 2);
    }
}

TEST(RuntimeCType, MatchFailures) {
    const std::pair<const char*, int> cases[] = {
        {"3103020105", RTERR_IDNOTFOU}, {"3005020105", RTERR_ENDOFBUF}, {"", RTERR_ENDOFBUF}};
    for (const auto& [hex, status] : cases) {
        Bytes in = FromHex(hex);
        ASN1BERDecodeBuffer d(in.data(), in.size());
        int len = 12345;
        EXPECT_EQ(xd_match1(d.getCtxtPtr(), 0x30, &len), status) << hex;
        EXPECT_EQ(len, 12345);
        EXPECT_EQ(d.getByteIndex(), 0u);
    }
    ASN1BERDecodeBuffer d;
    int len = 0;
    EXPECT_EQ(xd_match1(d.getCtxtPtr(), 0x1F, &len), RTERR_INVPARAM);
}
