// Context of the ASN.1 runtime: the arena and its cap, allocation and copy helpers, lists
// and their control class, and status names.
#include <gtest/gtest.h>
#include <type_traits>

#include <cstdint>
#include <cstring>
#include <string>

#include "asn1/asn1_runtime.h"
#include "support/test_support.h"

using Velmor::Asn1Rt::BerReader;
using velmor_test::Bytes;
using velmor_test::FromHex;

namespace {

struct TwoPointers {
    const void* a = nullptr;
    const void* b = nullptr;
};

// Decodes SEQUENCE { NULL x count } into a list of TwoPointers: 48 arena octets (element
// and node) for every 2 input octets, against a cap of 64 KiB + 32 per element.
int DecodeNulls(std::size_t count, std::size_t* handedOut) {
    Bytes in = FromHex("3083");
    std::size_t len = 2 * count;
    in.push_back(static_cast<std::uint8_t>(len >> 16));
    in.push_back(static_cast<std::uint8_t>(len >> 8));
    in.push_back(static_cast<std::uint8_t>(len));
    for (std::size_t i = 0; i < count; ++i) {
        in.push_back(0x05);
        in.push_back(0x00);
    }
    ASN1BERDecodeBuffer d(in.data(), in.size());
    BerReader r(d.getCtxtPtr(), in.data(), in.size());
    BerReader seq;
    OSRTDList list;
    r.enter(ASN1TAG_SEQUENCE, seq);
    Velmor::Asn1Rt::readList<TwoPointers>(seq, list,
                                          [](BerReader& e, TwoPointers&) { return e.readNull(); });
    r.leave(seq);
    *handedOut = d.getCtxtPtr()->arena.handedOut();
    EXPECT_LE(*handedOut, ASN1BERDecodeBuffer::arenaCapFor(in.size()));
    return r.status();
}

} // namespace

TEST(RuntimeArena, DecodeStopsAtItsCap) {
    std::size_t used = 0;
    EXPECT_EQ(DecodeNulls(1000, &used), ASN_OK);
    EXPECT_GE(used, 48u * 1000);
    EXPECT_EQ(DecodeNulls(10000, &used), RTERR_NOMEM);
}

TEST(RuntimeArena, CapOfAnEmptyDecodeBuffer) {
    ASN1BERDecodeBuffer d;
    ASN1CTXT* ctxt = d.getCtxtPtr();
    EXPECT_EQ(ASN1BERDecodeBuffer::arenaCapFor(0), 65536u);
    EXPECT_EQ(ASN1BERDecodeBuffer::arenaCapFor(100), 65536u + 1600u);
    EXPECT_EQ(ASN1BERDecodeBuffer::arenaCapFor(SIZE_MAX / 8), SIZE_MAX);
    EXPECT_NE(rtMemHeapAlloc(ctxt, 65536 - 32), nullptr);
    EXPECT_NE(rtMemHeapAlloc(ctxt, 32), nullptr);
    EXPECT_EQ(rtMemHeapAlloc(ctxt, 1), nullptr);
    EXPECT_EQ(d.getStatus(), RTERR_NOMEM);
    EXPECT_EQ(rtMemHeapAlloc(ctxt, SIZE_MAX), nullptr);
    d.init();
    EXPECT_EQ(d.getStatus(), ASN_OK);
    EXPECT_EQ(ctxt->arena.heapBlocks(), 0u);
    EXPECT_NE(rtMemHeapAlloc(ctxt, 1), nullptr);
}

TEST(RuntimeArena, AllocationsAreAlignedAndZeroedOnRequest) {
    ASN1BEREncodeBuffer e;
    ASN1CTXT* ctxt = e.getCtxtPtr();
    // After the small ones, one that no longer fits the inline block, then a very large one.
    constexpr std::size_t kInline = std::remove_reference_t<decltype(ctxt->arena)>::kInlineSize;
    for (std::size_t size : {std::size_t{1}, std::size_t{3}, std::size_t{17}, std::size_t{100},
                             kInline, std::size_t{70000}, std::size_t{5}}) {
        auto* p = static_cast<unsigned char*>(rtMemHeapAllocZ(ctxt, size));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u) << size;
        for (std::size_t i = 0; i < size; ++i) {
            ASSERT_EQ(p[i], 0) << size;
        }
        std::memset(p, 0xAB, size); // must not overlap another allocation (ASan)
    }
    EXPECT_GE(ctxt->arena.heapBlocks(), 2u);
    EXPECT_NE(rtMemHeapAlloc(ctxt, 0), nullptr);
    EXPECT_EQ(rtMemHeapAlloc(nullptr, 8), nullptr);
}

TEST(RuntimeArena, EncodeSizeLimit) {
    ASN1BEREncodeBuffer e;
    const char byte = 'x';
    // The size is refused before anything is read or allocated. It is read through a
    // volatile, so that the compiler does not judge the copy it would make for a size that fits.
    const volatile std::size_t tooLarge = ASN1BEREncodeBuffer::kMaxSize + 1;
    EXPECT_EQ(e.putBytes(&byte, tooLarge), RTERR_NOMEM);
    EXPECT_EQ(e.getMsgLen(), 0u);
}

// Deep copies of every kind of view are tested with the OCSP and PKIX types, whose copies
// must outlive their overwritten input.
TEST(RuntimeCopies, EmptyViewsStayEmptyAndAFullArenaFails) {
    ASN1BERDecodeBuffer d;
    ASN1CTXT* ctxt = d.getCtxtPtr();
    const Bytes src = FromHex("2a86");
    ASN1TDynOctStr empty, emptied{2, src.data()};
    EXPECT_EQ(rtCopy(ctxt, empty, emptied), 0);
    EXPECT_EQ(emptied.numocts, 0u);
    EXPECT_EQ(emptied.data, nullptr);
    const char* text = "kept";
    EXPECT_EQ(rtCopy(ctxt, static_cast<const char*>(nullptr), text), 0);
    EXPECT_EQ(text, nullptr);

    ASSERT_NE(rtMemHeapAlloc(ctxt, 65536), nullptr);
    EXPECT_EQ(rtCopy(ctxt, "abc", text), RTERR_NOMEM);
    OSRTDList list;
    EXPECT_EQ(rtDListAppend(ctxt, &list, nullptr), RTERR_NOMEM);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.head, nullptr);
}

TEST(RuntimeLists, AppendIterateAndCopy) {
    ASN1BEREncodeBuffer e;
    ASN1TSeqOfList list;
    int values[3] = {10, 20, 30};
    ASN1CSeqOfList control(e, list);
    for (int& v : values) {
        control.append(&v);
    }
    EXPECT_EQ(control.size(), 3u);
    EXPECT_EQ(list.head->prev, nullptr);
    EXPECT_EQ(list.tail->next, nullptr);
    EXPECT_EQ(list.tail->prev->prev, list.head);
    for (int pass = 0; pass < 2; ++pass) { // iterator() rewinds
        ASN1CSeqOfListIterator* it = control.iterator();
        for (int& v : values) {
            EXPECT_TRUE(it->hasNext());
            EXPECT_EQ(it->next(), &v);
        }
        EXPECT_EQ(it->next(), nullptr);
        EXPECT_EQ(it->next(), nullptr);
    }

    ASN1BEREncodeBuffer other;
    OSRTDList copy;
    int calls = 0;
    ASSERT_EQ(rtCopyList<int>(other.getCtxtPtr(), list, copy,
                              [&](ASN1CTXT*, const int& from, int& to) {
                                  ++calls;
                                  to = from + 1;
                              }),
              0);
    EXPECT_EQ(calls, 3);
    ASSERT_EQ(copy.count, 3u);
    EXPECT_EQ(*static_cast<int*>(copy.head->data), 11);
    EXPECT_EQ(*static_cast<int*>(copy.tail->data), 31);
    EXPECT_EQ(rtCopyList<int>(other.getCtxtPtr(), list, copy,
                              [](ASN1CTXT*, const int&, int&) { return RTERR_BADVALUE; }),
              RTERR_BADVALUE);

    ASN1TSeqOfList none;
    ASN1CSeqOfList empty(e, none);
    EXPECT_EQ(empty.iterator()->next(), nullptr);
}

TEST(RuntimeStatus, TheFirstFailureIsKeptAndDescribed) {
    ASN1BERDecodeBuffer d;
    EXPECT_STREQ(d.getErrorText(), "");
    EXPECT_EQ(rtErrSet(d.getCtxtPtr(), RTERR_INVLEN, "CertID", 7), RTERR_INVLEN);
    EXPECT_EQ(rtErrSet(d.getCtxtPtr(), RTERR_BADVALUE, "later", 9), RTERR_BADVALUE);
    EXPECT_STREQ(rtErrDetail(d.getCtxtPtr()), "RTERR_INVLEN: CertID at offset 7");
    EXPECT_EQ(d.getStatus(), RTERR_INVLEN);
    EXPECT_STREQ(rtErrText(-1000), "RTERR_UNKNOWN");
}
