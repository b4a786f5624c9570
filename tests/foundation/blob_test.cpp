#include <gtest/gtest.h>
#include <pki/ocsp/blob.h>
#include <string>
#include <utility>

#include "support/test_support.h"

namespace {

using Velmor::CBlob;
using velmor_test::Bytes;
using velmor_test::FromHex;
using velmor_test::ToHex;
using namespace Velmor::Win32;

std::string HexOf(const CBlob& blob) { return ToHex(blob.pbData(), blob.cbData()); }

CBlob BlobOf(std::string_view hex) { return CBlob(FromHex(hex)); }

TEST(CBlob, ConstructionCopiesAndSizes) {
    const CBlob empty;
    EXPECT_EQ(empty.pbData(), nullptr);
    EXPECT_EQ(empty.cbData(), 0u);
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(HexOf(CBlob(3ul)), "000000");

    unsigned char source[] = {1, 2, 3};
    const CBlob copied(source, sizeof source);
    source[0] = 9;
    EXPECT_EQ(HexOf(copied), "010203");
    EXPECT_NE(copied.pbData(), source);
    EXPECT_TRUE(CBlob(nullptr, 0).empty());
    EXPECT_HRESULT_THROW(CBlob(nullptr, 2), E_INVALIDARG);
}

TEST(CBlob, CopiesAndMovesAreIndependent) {
    const CBlob source = BlobOf("0a0b0c");
    CBlob copy(source);
    copy.pbData()[0] = 0xff;
    CBlob assigned;
    assigned = source;
    assigned.resize_to(1);
    EXPECT_EQ(HexOf(source), "0a0b0c");
    EXPECT_EQ(HexOf(copy), "ff0b0c");
    EXPECT_EQ(HexOf(assigned), "0a");

    CBlob& alias = copy;
    copy = alias;
    EXPECT_EQ(HexOf(copy), "ff0b0c");

    CBlob moved(std::move(copy));
    EXPECT_TRUE(copy.empty());
    EXPECT_EQ(copy.pbData(), nullptr);
    assigned = std::move(moved);
    EXPECT_TRUE(moved.empty());
    EXPECT_EQ(HexOf(assigned), "ff0b0c");
}

TEST(CBlob, AssignReplacesContentEvenFromItself) {
    CBlob blob = BlobOf("01020304");
    blob.assign(blob.pbData() + 1, 2);
    EXPECT_EQ(HexOf(blob), "0203");
    const Bytes longer = FromHex("0102030405060708");
    blob.assign(longer.data(), static_cast<unsigned long>(longer.size()));
    EXPECT_EQ(HexOf(blob), "0102030405060708");
    EXPECT_HRESULT_THROW(blob.assign(nullptr, 1), E_INVALIDARG);
    EXPECT_EQ(HexOf(blob), "0102030405060708");
    blob.assign(nullptr, 0);
    EXPECT_EQ(blob.pbData(), nullptr);
}

TEST(CBlob, ResizeKeepsPrefixAndZeroFillsGrowth) {
    CBlob blob = BlobOf("aabbcc");
    unsigned char* storage = blob.pbData();
    blob.resize_to(1);
    EXPECT_EQ(blob.pbData(), storage); // shrinking keeps the storage
    EXPECT_EQ(HexOf(blob), "aa");
    blob.resize_to(3); // the bytes dropped before do not come back
    EXPECT_EQ(HexOf(blob), "aa0000");
    blob.resize_to(5);
    EXPECT_EQ(HexOf(blob), "aa00000000");
    blob.resize_to(0);
    EXPECT_EQ(blob.pbData(), nullptr);
}

TEST(CBlob, ReverseAndEquality) {
    CBlob blob = BlobOf("010203");
    blob.reverse();
    EXPECT_EQ(HexOf(blob), "030201");
    CBlob empty;
    empty.reverse();
    EXPECT_TRUE(empty.empty());

    EXPECT_TRUE(BlobOf("0102") == BlobOf("0102"));
    EXPECT_TRUE(CBlob() == CBlob(nullptr, 0));
    EXPECT_TRUE(BlobOf("0102") != BlobOf("010203"));
    EXPECT_TRUE(BlobOf("0102") != BlobOf("0103"));
    EXPECT_TRUE(CBlob() != BlobOf("00"));
}

TEST(CBlob, ConvertsToAndFromStandardTypes) {
    const Bytes bytes = FromHex("00ff10");
    const CBlob fromVector(bytes);
    EXPECT_EQ(fromVector.to_vector(), bytes);
    const CBlob fromText(std::string_view("a\0b", 3));
    EXPECT_EQ(HexOf(fromText), "610062");
    EXPECT_EQ(fromText.to_string_view(), std::string_view("a\0b", 3));
    EXPECT_EQ(std::string(fromVector.begin(), fromVector.end()), std::string("\x00\xff\x10", 3));
    EXPECT_EQ(fromVector.data(), fromVector.pbData());
    EXPECT_EQ(fromVector.size(), 3u);
    EXPECT_TRUE(CBlob().to_vector().empty());
#if defined(__cpp_lib_span)
    const CBlob fromSpan(std::span<const std::uint8_t>(bytes.data() + 1, 2));
    EXPECT_EQ(HexOf(fromSpan), "ff10");
    EXPECT_EQ(fromSpan.span().data(), fromSpan.pbData());
    EXPECT_EQ(fromSpan.span().size(), 2u);
#endif
}

} // namespace
