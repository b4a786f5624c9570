#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <pki/ocsp/big_integer.h>
#include <string>

#include "support/test_support.h"

namespace {

using Velmor::CBlob;
using Velmor::ASN1::CBigInteger;
using velmor_test::FromHex;
using velmor_test::HexOf;
using namespace Velmor::Win32;

std::string ContentOf(const CBigInteger& value) { return HexOf(value.get_content()); }

CBigInteger Decoded(std::string_view hex) {
    CBigInteger value;
    value.decode(CBlob(FromHex(hex)));
    return value;
}

TEST(CBigInteger, IntegersGiveMinimalContentAndComeBack) {
    const struct {
        std::int64_t value;
        const char* content;
        const char* hex;
    } cases[] = {
        {0, "00", "0"},
        {-1, "ff", "-1"},
        {127, "7f", "7F"},
        {128, "0080", "80"},
        {-128, "80", "-80"},
        {-129, "ff7f", "-81"},
        {256, "0100", "100"},
        {std::numeric_limits<std::int64_t>::max(), "7fffffffffffffff", "7FFFFFFFFFFFFFFF"},
        {std::numeric_limits<std::int64_t>::min(), "8000000000000000", "-8000000000000000"},
    };
    for (const auto& c : cases) {
        const CBigInteger value = CBigInteger::FromInt64(c.value);
        EXPECT_EQ(ContentOf(value), c.content) << c.value;
        EXPECT_EQ(value.ToHex(), c.hex) << c.value;
        EXPECT_EQ(value.is_negative(), c.value < 0) << c.value;
        EXPECT_EQ(CBigInteger::FromHex(c.hex), value) << c.hex;
        std::int64_t back = 0;
        ASSERT_TRUE(value.ToInt64(back)) << c.value;
        EXPECT_EQ(back, c.value);
    }
    EXPECT_EQ(CBigInteger(), CBigInteger::FromInt64(0)) << "the default value is 0, not empty";
}

TEST(CBigInteger, HexTextForms) {
    EXPECT_EQ(ContentOf(CBigInteger::FromHex("0x00FF")), "00ff");
    EXPECT_EQ(ContentOf(CBigInteger::FromHex("-0XfF")), "ff01");
    EXPECT_EQ(ContentOf(CBigInteger::FromHex("-0")), "00");
    EXPECT_EQ(ContentOf(CBigInteger::FromHex("0000")), "00");
    EXPECT_EQ(ContentOf(CBigInteger::FromHex("abc")), "0abc");

    const std::string twenty = "8000000000000000000000000000000000000001";
    const CBigInteger big = CBigInteger::FromHex(twenty);
    EXPECT_EQ(ContentOf(big), "00" + twenty);
    EXPECT_EQ(big.ToHex(), twenty);
    const CBigInteger negative = CBigInteger::FromHex("-" + twenty);
    EXPECT_EQ(ContentOf(negative), "ff7f" + std::string(38, 'f'));
    EXPECT_EQ(negative.ToHex(), "-" + twenty);
    std::int64_t untouched = 42;
    EXPECT_FALSE(big.ToInt64(untouched));
    EXPECT_FALSE(negative.ToInt64(untouched));
    EXPECT_EQ(untouched, 42);

    for (const char* bad : {"", "-", "0x", "12g", " 1", "--1", "0x-1", "+1", "1 "}) {
        EXPECT_HRESULT_THROW(CBigInteger::FromHex(bad), E_INVALIDARG);
    }
}

TEST(CBigInteger, DecodeKeepsBytesAndEqualityIsOnThem) {
    CBigInteger value = Decoded("000080");
    EXPECT_EQ(ContentOf(value), "000080");
    EXPECT_EQ(value.ToHex(), "80");
    std::int64_t number = 0;
    ASSERT_TRUE(value.ToInt64(number));
    EXPECT_EQ(number, 128);
    EXPECT_NE(value, CBigInteger::FromInt64(128));
    EXPECT_EQ(Decoded("0080"), CBigInteger::FromInt64(128));
    ASSERT_TRUE(Decoded("ffffffffffffffffff80").ToInt64(number));
    EXPECT_EQ(number, -128);
    EXPECT_FALSE(Decoded("010000000000000000").ToInt64(number));

    EXPECT_HRESULT_THROW(value.decode(CBlob()), E_INVALIDARG);
    EXPECT_EQ(ContentOf(value), "000080");
    EXPECT_EQ(HexOf(value.encode()), "000080");
}

} // namespace
