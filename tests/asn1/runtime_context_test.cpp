// Context of the ASN.1 runtime: the arena and its cap, allocation and copy helpers, lists
// and their control class, and status names.
#include <gtest/gtest.h>

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
    for (std::size_t size : {1u, 3u, 17u, 100u, 3000u, 70000u, 5u}) {
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
    // The size is refused before anything is read or allocated.
    EXPECT_EQ(e.putBytes(&byte, ASN1BEREncodeBuffer::kMaxSize + 1), RTERR_NOMEM);
    EXPECT_EQ(e.getMsgLen(), 0u);
}

TEST(RuntimeCopies, DeepCopiesOfEveryView) {
    Bytes src = FromHex("2a864886f70d");
    ASN1BEREncodeBuffer e;
    ASN1CTXT* ctxt = e.getCtxtPtr();
    ASN1OpenType open{6, src.data()}, open2;
    ASN1TDynOctStr oct{6, src.data()}, oct2;
    ASN1TDynBitStr bits{41, src.data()}, bits2;
    ASN1OBJID oid{6, src.data()}, oid2;
    const char* text = "0x00ff";
    const char* text2 = nullptr;
    EXPECT_EQ(rtCopy(ctxt, open, open2), 0);
    EXPECT_EQ(rtCopy(ctxt, oct, oct2), 0);
    EXPECT_EQ(rtCopy(ctxt, bits, bits2), 0);
    EXPECT_EQ(rtCopy(ctxt, oid, oid2), 0);
    EXPECT_EQ(rtCopy(ctxt, text, text2), 0);
    std::memset(src.data(), 0, src.size());
    const Bytes expect = FromHex("2a864886f70d");
    EXPECT_EQ(Bytes(open2.data, open2.data + open2.numocts), expect);
    EXPECT_EQ(Bytes(oct2.data, oct2.data + oct2.numocts), expect);
    EXPECT_EQ(bits2.numbits, 41u);
    EXPECT_EQ(Bytes(bits2.data, bits2.data + 6), expect);
    EXPECT_EQ(Bytes(oid2.data, oid2.data + oid2.numocts), expect);
    EXPECT_STREQ(text2, "0x00ff");
    EXPECT_NE(text2, text);

    ASN1TDynOctStr empty, empty2{3, src.data()};
    EXPECT_EQ(rtCopy(ctxt, empty, empty2), 0);
    EXPECT_EQ(empty2.numocts, 0u);
    EXPECT_EQ(empty2.data, nullptr);
    EXPECT_EQ(rtCopy(ctxt, static_cast<const char*>(nullptr), text2), 0);
    EXPECT_EQ(text2, nullptr);
}

TEST(RuntimeCopies, CopyFailsWhenTheArenaIsFull) {
    ASN1BERDecodeBuffer d;
    ASN1CTXT* ctxt = d.getCtxtPtr();
    ASSERT_NE(rtMemHeapAlloc(ctxt, 65536), nullptr);
    const char* to = nullptr;
    EXPECT_EQ(rtCopy(ctxt, "abc", to), RTERR_NOMEM);
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

TEST(RuntimeLists, ListsAreWrittenInOrder) {
    ASN1BEREncodeBuffer e;
    OSRTDList list;
    OSINT32 values[3] = {1, 2, 3};
    for (OSINT32& v : values) {
        ASSERT_EQ(rtDListAppend(e.getCtxtPtr(), &list, &v), 0);
    }
    const std::size_t mark = e.getMsgLen();
    EXPECT_EQ(Velmor::Asn1Rt::writeList<OSINT32>(
                  e, list, [](ASN1BEREncodeBuffer& b, const OSINT32& v) { return b.putInt(v); }),
              9);
    e.wrap(ASN1TAG_SEQUENCE, mark);
    EXPECT_EQ(velmor_test::ToHex(e.getMsgPtr(), e.getMsgLen()), "3009020101020102020103");
}

TEST(RuntimeStatus, NamesAndDetails) {
    const std::pair<int, const char*> names[] = {{ASN_OK, "ASN_OK"},
                                                 {RTERR_ENDOFBUF, "RTERR_ENDOFBUF"},
                                                 {RTERR_IDNOTFOU, "RTERR_IDNOTFOU"},
                                                 {RTERR_BADTAG, "RTERR_BADTAG"},
                                                 {RTERR_INVLEN, "RTERR_INVLEN"},
                                                 {RTERR_BADVALUE, "RTERR_BADVALUE"},
                                                 {RTERR_INVPARAM, "RTERR_INVPARAM"},
                                                 {RTERR_NOMEM, "RTERR_NOMEM"},
                                                 {RTERR_TOODEEP, "RTERR_TOODEEP"},
                                                 {RTERR_TRAILING, "RTERR_TRAILING"},
                                                 {-1000, "RTERR_UNKNOWN"}};
    for (const auto& [status, name] : names) {
        EXPECT_STREQ(rtErrText(status), name);
    }
    ASN1BERDecodeBuffer d;
    EXPECT_STREQ(d.getErrorText(), "");
    EXPECT_EQ(rtErrSet(d.getCtxtPtr(), RTERR_INVLEN, "CertID", 7), RTERR_INVLEN);
    EXPECT_EQ(rtErrSet(d.getCtxtPtr(), RTERR_BADVALUE, "later", 9), RTERR_BADVALUE);
    EXPECT_STREQ(rtErrDetail(d.getCtxtPtr()), "RTERR_INVLEN: CertID at offset 7");
    EXPECT_EQ(d.getStatus(), RTERR_INVLEN) << "the first failure is kept";
}
