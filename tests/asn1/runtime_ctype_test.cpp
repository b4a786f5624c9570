// Control classes of the ASN.1 runtime, exercised through a small type written the way the
// type layer writes its types: DER and BER round trips, deep copies, the outermost-value
// rules of Decode(), heap use of a small message, and the signed-part tag matcher.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

#include "asn1/asn1_runtime.h"
#include "support/test_support.h"

using Velmor::Asn1Rt::BerReader;
using velmor_test::Bytes;
using velmor_test::FromHex;
using velmor_test::ToHex;

// ---- Counting of heap allocations, active only while g_counting is set ------------------
// The runtime takes its heap memory through operator new, so replacing it here sees all.

namespace {
std::atomic<bool> g_counting{false};
std::atomic<long> g_allocations{0};

void* CountedAlloc(std::size_t size) noexcept {
    if (g_counting.load(std::memory_order_relaxed)) {
        g_allocations.fetch_add(1, std::memory_order_relaxed);
    }
    return std::malloc(size == 0 ? 1 : size);
}

// Out of line, so that the compiler does not pair an inlined std::free with operator new
// and report a mismatch that this replacement makes correct.
[[gnu::noinline]] void CountedFree(void* p) noexcept { std::free(p); }
} // namespace

void* operator new(std::size_t size) {
    if (void* p = CountedAlloc(size)) {
        return p;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return CountedAlloc(size); }
void operator delete(void* p) noexcept { CountedFree(p); }
void operator delete(void* p, std::size_t) noexcept { CountedFree(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { CountedFree(p); }

namespace {

// Heap allocations made while it lives.
class AllocationCounter {
  public:
    AllocationCounter() {
        g_allocations = 0;
        g_counting = true;
    }
    ~AllocationCounter() { g_counting = false; }
    long count() const { return g_allocations.load(); }
};

// ---- A type written against the runtime ----------------------------------------------------
// Sample ::= SEQUENCE {
//     version    [0] EXPLICIT INTEGER DEFAULT 0,
//     serial     INTEGER,
//     algorithm  OBJECT IDENTIFIER,
//     critical   BOOLEAN DEFAULT FALSE,
//     value      OCTET STRING,
//     bits       [1] IMPLICIT BIT STRING OPTIONAL,
//     names      SEQUENCE OF UTF8String,
//     when       GeneralizedTime }

struct ASN1T_Sample {
    struct {
        unsigned bitsPresent : 1;
    } m{};
    OSINT32 version = 0;
    ASN1TDynBigInt serial = nullptr;
    ASN1OBJID algorithm;
    OSBOOL critical = false;
    ASN1TDynOctStr value;
    ASN1TDynBitStr bits;
    OSRTDList names;
    const char* when = nullptr;
};

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Sample& v, ASN1TAG tag = ASN1TAG_SEQUENCE) {
    const std::size_t mark = b.getMsgLen();
    b.putString(v.when, ASN1TAG_GENERALIZEDTIME);
    const std::size_t names = b.getMsgLen();
    Velmor::Asn1Rt::writeList<const char*>(b, v.names,
                                           [](ASN1BEREncodeBuffer& w, const char* const& s) {
                                               return w.putString(s, ASN1TAG_UTF8STRING);
                                           });
    b.wrap(ASN1TAG_SEQUENCE, names);
    if (v.m.bitsPresent) {
        b.putBitStr(v.bits, asn1CtxtTag(1));
    }
    b.putOctStr(v.value);
    if (v.critical) {
        b.putBool(true);
    }
    b.putOid(v.algorithm);
    b.putBigInt(v.serial);
    if (v.version != 0) {
        const std::size_t version = b.getMsgLen();
        b.putInt(v.version);
        b.wrap(asn1CtxtConsTag(0), version);
    }
    return b.wrap(tag, mark);
}

int asn1D(BerReader& r, ASN1T_Sample& v, ASN1TAG tag = ASN1TAG_SEQUENCE) {
    BerReader seq, inner;
    r.enter(tag, seq, "Sample");
    if (seq.nextIs(asn1CtxtConsTag(0))) {
        seq.enter(asn1CtxtConsTag(0), inner, "version");
        inner.readInt(v.version);
        seq.leave(inner);
    }
    seq.readBigInt(v.serial);
    seq.readOid(v.algorithm);
    if (seq.nextIs(ASN1TAG_BOOLEAN)) {
        seq.readBool(v.critical);
    }
    seq.readOctStr(v.value);
    v.m.bitsPresent = seq.nextIsAnyForm(asn1CtxtTag(1));
    if (v.m.bitsPresent) {
        seq.readBitStr(v.bits, asn1CtxtTag(1));
    }
    seq.enter(ASN1TAG_SEQUENCE, inner, "names");
    Velmor::Asn1Rt::readList<const char*>(inner, v.names, [](BerReader& e, const char*& s) {
        return e.readString(s, ASN1TAG_UTF8STRING);
    });
    seq.leave(inner);
    seq.readTime(v.when, ASN1TAG_GENERALIZEDTIME);
    r.leave(seq);
    return r.status();
}

int asn1Copy_Sample(ASN1CTXT* ctxt, const ASN1T_Sample& from, ASN1T_Sample& to) {
    to.m = from.m;
    to.version = from.version;
    to.critical = from.critical;
    int st = rtCopy(ctxt, from.serial, to.serial);
    st = st < 0 ? st : rtCopy(ctxt, from.algorithm, to.algorithm);
    st = st < 0 ? st : rtCopy(ctxt, from.value, to.value);
    st = st < 0 ? st : rtCopy(ctxt, from.bits, to.bits);
    st = st < 0 ? st : rtCopy(ctxt, from.when, to.when);
    return st < 0 ? st
                  : rtCopyList<const char*>(ctxt, from.names, to.names,
                                            [](ASN1CTXT* c, const char* const& f, const char*& t) {
                                                return rtCopy(c, f, t);
                                            });
}

using ASN1C_Sample = ASN1CTypeT<ASN1T_Sample>;

const char* const kSampleDer = "3035"
                               "a003020102" // version 2
                               "020200ff"   // serial
                               "06032a8648" // algorithm
                               "0101ff"     // critical
                               "0402aabb"   // value
                               "810304abc0" // bits: 12
                               "30080c01610c03626364"
                               "180f32303234303133313132303030305a";

// The same value in BER: indefinite lengths, a long-form length for 3, constructed strings.
const char* const kSampleBer = "3080"
                               "a08103020102"
                               "020200ff"
                               "06032a8648"
                               "010105"
                               "24800401aa0401bb0000"
                               "a180030200ab030204cf0000"
                               "30800c01612c800401620402636400000000"
                               "180f32303234303133313132303030305a"
                               "0000";

// Decodes hex as one outermost Sample and encodes it again; the status of the first step
// that failed, or the re-encoding's hex.
std::string Reencode(const std::string& hex, int* status) {
    Bytes in = FromHex(hex);
    ASN1BERDecodeBuffer d(in.data(), in.size());
    ASN1T_Sample v;
    *status = ASN1C_Sample(d, v).Decode();
    if (*status != 0) {
        return "";
    }
    ASN1BEREncodeBuffer e;
    *status = ASN1C_Sample(e, v).Encode();
    return *status < 0 ? "" : ToHex(e.getMsgPtr(), e.getMsgLen());
}

} // namespace

TEST(RuntimeCType, DerAndBerDecodeToTheSameDer) {
    int status = 0;
    EXPECT_EQ(Reencode(kSampleDer, &status), kSampleDer);
    EXPECT_EQ(status, 55);
    EXPECT_EQ(Reencode(kSampleBer, &status), kSampleDer);
    EXPECT_EQ(status, 55);
}

TEST(RuntimeCType, DecodedFieldsPointIntoTheInput) {
    Bytes in = FromHex(kSampleDer);
    ASN1BERDecodeBuffer d(in.data(), in.size());
    ASN1T_Sample v;
    ASSERT_EQ(ASN1C_Sample(d, v).Decode(), 0) << d.getErrorText();
    EXPECT_EQ(v.version, 2);
    EXPECT_STREQ(v.serial, "0x00ff");
    EXPECT_TRUE(v.critical);
    EXPECT_EQ(v.value.data, in.data() + 21);
    EXPECT_EQ(v.bits.numbits, 12u);
    ASSERT_EQ(v.names.count, 2u);
    // List nodes point at elements; here an element is a const char*.
    EXPECT_STREQ(*static_cast<const char* const*>(v.names.head->data), "a");
    EXPECT_STREQ(*static_cast<const char* const*>(v.names.tail->data), "bcd");
    EXPECT_STREQ(v.when, "20240131120000Z");
    EXPECT_EQ(d.getByteIndex(), in.size());
}

TEST(RuntimeCType, OutermostValueRules) {
    int status = 0;
    EXPECT_EQ(Reencode(std::string(kSampleDer) + "00", &status), "");
    EXPECT_EQ(status, RTERR_TRAILING);

    // Wrong buffer kinds.
    ASN1T_Sample v;
    ASN1BEREncodeBuffer e;
    EXPECT_EQ(ASN1C_Sample(e, v).Decode(), RTERR_INVPARAM);
    ASN1BERDecodeBuffer d;
    EXPECT_EQ(ASN1C_Sample(d, v).Encode(), RTERR_INVPARAM);

    // An empty decode buffer has nothing to decode.
    ASN1BERDecodeBuffer empty;
    EXPECT_EQ(ASN1C_Sample(empty, v).Decode(), RTERR_ENDOFBUF);

    // A missing mandatory field on the way out.
    ASN1BEREncodeBuffer missing;
    ASN1T_Sample blank;
    EXPECT_EQ(ASN1C_Sample(missing, blank).Encode(), RTERR_INVPARAM);
}

TEST(RuntimeCType, TruncationAtEveryOctetIsEndOfBuffer) {
    for (const std::string whole : {kSampleDer, kSampleBer}) {
        for (std::size_t k = 0; k < whole.size(); k += 2) {
            int status = 0;
            Reencode(whole.substr(0, k), &status);
            EXPECT_EQ(status, RTERR_ENDOFBUF) << k / 2;
        }
    }
}

TEST(RuntimeCType, BufferReuseWithSetBufferAndInit) {
    Bytes good = FromHex(kSampleDer);
    Bytes bad = FromHex("3003020105");
    ASN1BERDecodeBuffer d;
    ASN1T_Sample v;
    ASSERT_EQ(d.setBuffer(bad.data(), static_cast<int>(bad.size())), 0);
    EXPECT_EQ(ASN1C_Sample(d, v).Decode(), RTERR_IDNOTFOU);
    EXPECT_EQ(ASN1C_Sample(d, v).Decode(), RTERR_IDNOTFOU) << "failure stays until init";
    ASSERT_EQ(d.setBuffer(good.data(), static_cast<int>(good.size())), 0);
    ASN1T_Sample w;
    EXPECT_EQ(ASN1C_Sample(d, w).Decode(), 0);
    EXPECT_EQ(d.init(), 0);
    EXPECT_EQ(d.getByteIndex(), 0u);
    ASN1T_Sample x;
    EXPECT_EQ(ASN1C_Sample(d, x).Decode(), 0);
    EXPECT_EQ(d.setBuffer(good.data(), -1), RTERR_INVPARAM);
    EXPECT_EQ(d.getBufLen(), 0u);
}

TEST(RuntimeCType, DeepCopyOutlivesTheDecodeBuffer) {
    ASN1BEREncodeBuffer e;
    ASN1T_Sample copy;
    {
        Bytes in = FromHex(kSampleBer);
        ASN1BERDecodeBuffer d(in.data(), in.size());
        ASN1T_Sample v;
        ASSERT_EQ(ASN1C_Sample(d, v).Decode(), 0);
        ASSERT_EQ(asn1Copy_Sample(e.getCtxtPtr(), v, copy), 0);
        std::fill(in.begin(), in.end(), 0xEE); // the copy must not point here
    }
    EXPECT_EQ(ASN1C_Sample(e, copy).Encode(), 55);
    EXPECT_EQ(ToHex(e.getMsgPtr(), e.getMsgLen()), kSampleDer);
}

TEST(RuntimeCType, SmallMessagesNeedNoHeap) {
    Bytes in = FromHex(kSampleBer);
    long decodeAllocations = 0;
    long encodeAllocations = 0;
    int encoded = 0;
    {
        AllocationCounter counter;
        ASN1BERDecodeBuffer d(in.data(), in.size());
        ASN1T_Sample v;
        int decoded = ASN1C_Sample(d, v).Decode();
        decodeAllocations = counter.count();
        ASN1BEREncodeBuffer e;
        encoded = decoded < 0 ? decoded : ASN1C_Sample(e, v).Encode();
        encodeAllocations = counter.count() - decodeAllocations;
    }
    EXPECT_EQ(encoded, 55);
    EXPECT_EQ(decodeAllocations, 0);
    EXPECT_EQ(encodeAllocations, 0);

    // The counter does see the runtime's heap use once the inline blocks are exceeded.
    Bytes large(5000, 0x11);
    AllocationCounter counter;
    ASN1BEREncodeBuffer big;
    big.putOctStr(large.data(), large.size());
    rtMemHeapAlloc(big.getCtxtPtr(), 4000);
    EXPECT_EQ(counter.count(), 2);
}

TEST(RuntimeCType, MatchingTheSignedPart) {
    // Signed ::= SEQUENCE { tbs Sample, signature BIT STRING }, once definite (with a
    // long-form length for 59), once indefinite: the extent of the first inner element is
    // the Sample's octets as received.
    struct Case {
        std::string hex;
        std::string tbs;
        int outerLen;
        int innerLen;
    };
    const Case cases[] = {{"30813b" + std::string(kSampleDer) + "03020780", kSampleDer, 59, 53},
                          {"3080" + std::string(kSampleBer) + "030207800000", kSampleBer,
                           ASN_K_INDEFLEN, ASN_K_INDEFLEN}};
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
