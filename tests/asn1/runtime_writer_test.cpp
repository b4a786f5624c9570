// DER writer of the ASN.1 runtime: exact octets of every value writer, lengths, tags,
// wrapping, SET OF order, growth of the encode buffer and sticky failure.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "asn1/asn1_runtime.h"
#include "support/test_support.h"

using velmor_test::Bytes;
using velmor_test::FromHex;
using velmor_test::ToHex;

namespace {

std::string Hex(const ASN1BEREncodeBuffer& b) { return ToHex(b.getMsgPtr(), b.getMsgLen()); }

// Encodes one value with write and returns its hex; the writer's result must be the length.
template <class F> std::string Encoded(F&& write) {
    ASN1BEREncodeBuffer b;
    int len = write(b);
    EXPECT_EQ(len, static_cast<int>(b.getMsgLen()));
    return Hex(b);
}

} // namespace

TEST(RuntimeWriter, SmallIntegersAreMinimalTwosComplement) {
    const std::pair<OSINT32, const char*> cases[] = {{0, "020100"},
                                                     {127, "02017f"},
                                                     {128, "02020080"},
                                                     {-128, "020180"},
                                                     {-129, "0202ff7f"},
                                                     {-1, "0201ff"},
                                                     {INT32_MAX, "02047fffffff"},
                                                     {INT32_MIN, "020480000000"}};
    for (const auto& [value, hex] : cases) {
        EXPECT_EQ(Encoded([&](ASN1BEREncodeBuffer& b) { return b.putInt(value); }), hex) << value;
    }
    EXPECT_EQ(Encoded([](ASN1BEREncodeBuffer& b) { return b.putEnum(3); }), "0a0103");
}

// INTEGER contents are written exactly as given, a redundant leading octet included;
// non-negative 32-bit values get the minimal form, with a 00 octet from 2^31 on.
TEST(RuntimeWriter, BigIntegersAsGivenAndUnsignedMinimal) {
    for (const char* content : {"00ff", "01", "0000", "ff7f"}) {
        const Bytes octets = FromHex(content);
        const ASN1TDynBigInt value{static_cast<OSUINT32>(octets.size()), octets.data()};
        EXPECT_EQ(Encoded([&](ASN1BEREncodeBuffer& b) { return b.putBigInt(value); }),
                  "020" + std::to_string(octets.size()) + content);
    }
    ASN1BEREncodeBuffer b;
    EXPECT_EQ(b.putBigInt(ASN1TDynBigInt{}), RTERR_INVPARAM);

    const std::pair<OSUINT32, const char*> unsigned_[] = {{0, "020100"},
                                                          {127, "02017f"},
                                                          {128, "02020080"},
                                                          {0x7fffffff, "02047fffffff"},
                                                          {0x80000000, "02050080000000"},
                                                          {0xffffffff, "020500ffffffff"}};
    for (const auto& [value, hex] : unsigned_) {
        EXPECT_EQ(Encoded([&](ASN1BEREncodeBuffer& w) { return w.putUnsigned(value); }), hex)
            << value;
    }
}

TEST(RuntimeWriter, BitStringsZeroTheirPaddingBits) {
    const ASN1OCTET dirty[] = {0xFF, 0xFF};
    const std::pair<OSUINT32, const char*> cases[] = {
        {0, "030100"}, {3, "030205e0"}, {8, "030200ff"}, {9, "030307ff80"}, {16, "030300ffff"}};
    for (const auto& [bits, hex] : cases) {
        ASN1TDynBitStr v{bits, dirty};
        EXPECT_EQ(Encoded([&](ASN1BEREncodeBuffer& b) { return b.putBitStr(v); }), hex) << bits;
    }
    ASN1TDynBitStr missing{4, nullptr};
    ASN1BEREncodeBuffer b;
    EXPECT_EQ(b.putBitStr(missing), RTERR_INVPARAM);
}

TEST(RuntimeWriter, OtherPrimitives) {
    const Bytes oid = FromHex("2a864886f70d0101");
    ASN1OBJID o{static_cast<OSUINT32>(oid.size()), oid.data()};
    ASN1OpenType any{2, oid.data()}; // any two octets are written verbatim
    EXPECT_EQ(Encoded([](ASN1BEREncodeBuffer& b) { return b.putBool(true); }), "0101ff");
    EXPECT_EQ(Encoded([](ASN1BEREncodeBuffer& b) { return b.putBool(false); }), "010100");
    EXPECT_EQ(Encoded([](ASN1BEREncodeBuffer& b) { return b.putNull(); }), "0500");
    EXPECT_EQ(Encoded([&](ASN1BEREncodeBuffer& b) { return b.putOid(o); }), "06082a864886f70d0101");
    EXPECT_EQ(Encoded([&](ASN1BEREncodeBuffer& b) { return b.putOpenType(any); }), "2a86");
    EXPECT_EQ(Encoded([](ASN1BEREncodeBuffer& b) { return b.putString("ab", ASN1TAG_IA5STRING); }),
              "16026162");
    EXPECT_EQ(Encoded([](ASN1BEREncodeBuffer& b) {
                  return b.putString("20240131120000Z", ASN1TAG_GENERALIZEDTIME);
              }),
              "180f32303234303133313132303030305a");
    // [n] IMPLICIT replaces the tag; [n] EXPLICIT wraps.
    EXPECT_EQ(Encoded([](ASN1BEREncodeBuffer& b) { return b.putInt(5, asn1CtxtTag(0)); }),
              "800105");
    EXPECT_EQ(Encoded([](ASN1BEREncodeBuffer& b) {
                  std::size_t mark = b.getMsgLen();
                  b.putInt(5);
                  return b.wrap(asn1CtxtConsTag(2), mark);
              }),
              "a203020105");
}

TEST(RuntimeWriter, InvalidObjectIdentifiersAreRefused) {
    for (const char* hex : {"", "80", "2a80", "2a8001", "2a81"}) {
        Bytes contents = FromHex(hex);
        ASN1OBJID o{static_cast<OSUINT32>(contents.size()), contents.data()};
        ASN1BEREncodeBuffer b;
        EXPECT_EQ(b.putOid(o), RTERR_BADVALUE) << hex;
    }
}

TEST(RuntimeWriter, DefiniteLengthForms) {
    const std::pair<std::size_t, const char*> cases[] = {
        {0, "0400"},       {127, "047f"},       {128, "048180"},      {255, "0481ff"},
        {256, "04820100"}, {65535, "0482ffff"}, {65536, "0483010000"}};
    for (const auto& [size, header] : cases) {
        Bytes contents(size, 0x5A);
        ASN1BEREncodeBuffer b;
        ASSERT_EQ(b.putOctStr(contents.data(), contents.size()),
                  static_cast<int>(size + std::string(header).size() / 2));
        EXPECT_EQ(ToHex(b.getMsgPtr(), std::string(header).size() / 2), header) << size;
        EXPECT_EQ(
            Bytes(b.getMsgPtr() + std::string(header).size() / 2, b.getMsgPtr() + b.getMsgLen()),
            contents);
    }
}

TEST(RuntimeWriter, TagForms) {
    const std::pair<ASN1TAG, const char*> cases[] = {
        {asn1CtxtTag(30), "9e00"},       {asn1CtxtTag(31), "9f1f00"},
        {asn1CtxtTag(200), "9f814800"},  {asn1CtxtConsTag(0), "a000"},
        {TM_APPL | TM_CONS | 5, "6500"}, {TM_PRIV | TM_CONS | TM_IDCODE_MASK, "ff81ffffff7f00"}};
    for (const auto& [tag, hex] : cases) {
        EXPECT_EQ(Encoded([&](ASN1BEREncodeBuffer& b) { return b.putTagLen(tag, 0); }), hex) << hex;
    }
}

TEST(RuntimeWriter, SequenceIsWrittenBackwards) {
    ASN1BEREncodeBuffer b;
    std::size_t mark = b.getMsgLen();
    b.putNull();
    b.putInt(1);
    EXPECT_EQ(b.wrap(ASN1TAG_SEQUENCE, mark), 7);
    EXPECT_EQ(Hex(b), "30050201010500");
    EXPECT_EQ(b.wrapLast(ASN1TAG_SEQUENCE, 7), 9);
    EXPECT_EQ(Hex(b), "300730050201010500");
    EXPECT_EQ(b.wrap(ASN1TAG_SEQUENCE, b.getMsgLen() + 1), RTERR_INVPARAM);
}

TEST(RuntimeWriter, SetOfIsSortedByEncoding) {
    ASN1BEREncodeBuffer b;
    std::size_t mark = b.getMsgLen();
    // Written in this order, they stand in the buffer reversed: 0402aa00 0401ff 020105 0401aa
    b.putOctStr(FromHex("aa").data(), 1);
    b.putInt(5);
    b.putOctStr(FromHex("ff").data(), 1);
    b.putOctStr(FromHex("aa00").data(), 2);
    EXPECT_EQ(b.wrapSetOf(ASN1TAG_SET, mark), 2 + 3 + 3 + 3 + 4);
    EXPECT_EQ(Hex(b), "310d0201050401aa0401ff0402aa00");

    // One element and no element need no sorting.
    ASN1BEREncodeBuffer one;
    one.putInt(7);
    EXPECT_EQ(one.wrapSetOf(ASN1TAG_SET, 0), 5);
    EXPECT_EQ(Hex(one), "3103020107");
    ASN1BEREncodeBuffer none;
    EXPECT_EQ(none.wrapSetOf(ASN1TAG_SET, 0), 2);
    EXPECT_EQ(Hex(none), "3100");
}

TEST(RuntimeWriter, GrowsPastTheInlineBlock) {
    Bytes big(100000);
    for (std::size_t i = 0; i < big.size(); ++i) {
        big[i] = static_cast<std::uint8_t>(i * 7 + 3);
    }
    ASN1BEREncodeBuffer b;
    b.putInt(1);
    std::size_t mark = b.getMsgLen();
    ASSERT_EQ(b.putOctStr(big.data(), big.size()), 100005);
    b.putBool(true); // written after growth, in front of the big element
    ASSERT_EQ(b.wrap(ASN1TAG_SEQUENCE, mark - 3), 100016);
    const ASN1OCTET* p = b.getMsgPtr();
    EXPECT_EQ(ToHex(p, 13), "30830186ab0101ff04830186a0");
    EXPECT_EQ(Bytes(p + 13, p + 13 + big.size()), big);
    EXPECT_EQ(ToHex(p + 13 + big.size(), 3), "020101");
    EXPECT_EQ(b.getMsgLen(), 100016u);
}

TEST(RuntimeWriter, FailureIsStickyUntilReset) {
    ASN1BEREncodeBuffer b;
    b.putInt(1);
    const Bytes badOid = FromHex("80");
    ASN1OBJID bad{1, badOid.data()};
    EXPECT_EQ(b.putOid(bad), RTERR_BADVALUE);
    EXPECT_FALSE(b.ok());
    EXPECT_EQ(b.putInt(2), RTERR_BADVALUE);
    EXPECT_EQ(b.putBytes("x", 1), RTERR_BADVALUE);
    EXPECT_EQ(b.wrap(ASN1TAG_SEQUENCE, 0), RTERR_BADVALUE);
    EXPECT_EQ(b.getMsgLen(), 3u);
    EXPECT_NE(std::string(b.getErrorText()).find("RTERR_BADVALUE"), std::string::npos);
    b.reset();
    EXPECT_TRUE(b.ok());
    EXPECT_EQ(b.getMsgLen(), 0u);
    EXPECT_EQ(b.putInt(2), 3);
    EXPECT_EQ(Hex(b), "020102");
}
