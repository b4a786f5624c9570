#include <gtest/gtest.h>
#include <pki/ocsp/blob.h>
#include <string>
#include <utility>

#include "support/test_support.h"

namespace {

using Velmor::CBlob;
using velmor_test::BlobOf;
using velmor_test::Bytes;
using velmor_test::FromHex;
using velmor_test::HexOf;
using namespace Velmor::Win32;

TEST(CBlob, ConstructionCopiesTheSource) {
    EXPECT_EQ(CBlob().pbData(), nullptr);
    EXPECT_EQ(HexOf(CBlob(3ul)), "000000");
    unsigned char source[] = {1, 2, 3};
    const CBlob copied(source, sizeof source);
    source[0] = 9;
    EXPECT_EQ(HexOf(copied), "010203");
    EXPECT_TRUE(CBlob(nullptr, 0).empty());
    EXPECT_HRESULT_THROW(CBlob(nullptr, 2), E_INVALIDARG);

    const CBlob fromText(std::string_view("a\0b", 3));
    EXPECT_EQ(HexOf(fromText), "610062");
    EXPECT_EQ(fromText.to_string_view(), std::string_view("a\0b", 3));
    EXPECT_EQ(CBlob(FromHex("00ff10")).to_vector(), FromHex("00ff10"));
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

} // namespace

TEST(CBlob, InlineAndHeapStorageBehaveAlike) {
    // Content up to the inline capacity lives in the object, longer content on the heap;
    // growing across the boundary, copying and moving either way keep the bytes.
    for (unsigned long size : {CBlob::kInlineCapacity, CBlob::kInlineCapacity + 1}) {
        SCOPED_TRACE(size);
        Bytes bytes(size);
        for (unsigned long i = 0; i < size; ++i) {
            bytes[i] = static_cast<std::uint8_t>(i + 1);
        }
        const CBlob source(bytes);
        CBlob grown = BlobOf("01");
        grown.resize_to(size);
        EXPECT_EQ(grown.pbData()[0], 1);
        EXPECT_EQ(grown.pbData()[size - 1], 0);

        CBlob copy(source);
        CBlob moved(std::move(copy));
        EXPECT_EQ(moved, source);
        CBlob target = BlobOf(std::string(4 * CBlob::kInlineCapacity, 'a'));
        target = std::move(moved);
        EXPECT_EQ(target, source);
        EXPECT_TRUE(moved.empty());
        moved = target; // a moved-from blob is reusable
        EXPECT_EQ(moved, source);
        target.assign(target.pbData() + 1, size - 1); // from itself, either storage
        EXPECT_EQ(target.to_vector(), Bytes(bytes.begin() + 1, bytes.end()));
    }
}
