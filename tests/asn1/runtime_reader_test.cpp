// BER reader of the ASN.1 runtime: every accepted length and string form, and the exact
// status of every rejected input.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "asn1/asn1_runtime.h"
#include "support/asn1_test_support.h"

using Velmor::Asn1Rt::BerReader;
using Velmor::Asn1Rt::ElementHeader;
using velmor_test::Bytes;
using velmor_test::FromHex;
using velmor_test::Hex;
using velmor_test::ToHex;

namespace {

// Input bytes in a vector of their exact size (so that an over-read is an ASan error), a
// decode buffer over them and a reader over the whole input.
struct Dec {
    explicit Dec(const std::string& hex)
        : bytes(FromHex(hex)), buf(bytes.data(), bytes.size()),
          r(buf.getCtxtPtr(), bytes.data(), bytes.size()) {}
    Bytes bytes;
    ASN1BERDecodeBuffer buf;
    BerReader r;
};

void WalkAll(BerReader& r);

// Reads one element whatever it is: constructed ones are entered and walked, primitive
// ones read as raw string contents.
void WalkOne(BerReader& r) {
    ElementHeader h;
    if (!r.peekHeader(h)) {
        return;
    }
    if ((h.tag & TM_CONS) != 0) {
        BerReader inner;
        if (r.enter(h.tag, inner)) {
            WalkAll(inner);
            r.leave(inner);
        }
    } else {
        ASN1TDynOctStr s;
        r.readString(s, h.tag);
    }
}

void WalkAll(BerReader& r) {
    while (r.more()) {
        WalkOne(r);
    }
}

// Status of walking one element of hex, also requiring it to end the input.
int WalkStatus(const std::string& hex) {
    Dec d(hex);
    WalkOne(d.r);
    if (d.r.ok() && d.r.more()) {
        d.r.fail(RTERR_TRAILING);
    }
    return d.r.status();
}

std::string Str(const ASN1TDynOctStr& s) { return ToHex(s.data, s.numocts); }

// depth nested SEQUENCEs around NULL, definite or indefinite.
std::string Nested(int depth, bool indefinite) {
    std::string hex = "0500";
    for (int i = 0; i < depth; ++i) {
        char len[3];
        std::snprintf(len, sizeof len, "%02x", static_cast<unsigned>(hex.size() / 2));
        hex = indefinite ? "3080" + hex + "0000" : "30" + std::string(len) + hex;
    }
    return hex;
}

} // namespace

TEST(RuntimeReader, AcceptsEveryDefiniteLengthForm) {
    for (const char* hex : {"0405aabbccddee", "048105aabbccddee", "04820005aabbccddee",
                            "04880000000000000005aabbccddee"}) {
        Dec d(hex);
        ASN1TDynOctStr s;
        ASSERT_TRUE(d.r.readOctStr(s)) << hex << " " << d.buf.getErrorText();
        EXPECT_EQ(Str(s), "aabbccddee");
        EXPECT_EQ(s.data, d.bytes.data() + d.bytes.size() - 5) << "a view, not a copy";
        EXPECT_FALSE(d.r.more());
    }
}

TEST(RuntimeReader, RejectsBadLengths) {
    const std::pair<const char*, int> cases[] = {
        {"0489000000000000000005aabbccddee", RTERR_INVLEN}, // nine length octets
        {"04ff", RTERR_INVLEN},                             // reserved length octet
        {"0480aa0000", RTERR_INVLEN},                       // indefinite on a primitive
        {"30030405aa", RTERR_INVLEN},                       // overruns its definite parent
        {"30800405aa", RTERR_ENDOFBUF},                     // runs past the input
        {"0406aabbccddee", RTERR_ENDOFBUF},
        {"0484ffffffff", RTERR_ENDOFBUF},
        {"0488ffffffffffffffff", RTERR_ENDOFBUF},
        {"0482", RTERR_ENDOFBUF}};
    for (const auto& [hex, status] : cases) {
        EXPECT_EQ(WalkStatus(hex), status) << hex;
    }
}

TEST(RuntimeReader, TagForms) {
    const std::pair<const char*, int> cases[] = {
        {"1f8fffffff7f00", RTERR_BADTAG}, // more than 29 bits
        {"1f800100", RTERR_BADTAG},       // leading 0x80 octet
        {"1f0500", RTERR_BADTAG},         // high form for a number below 31
        {"0000", RTERR_BADTAG},           // end-of-contents where an element should be
        {"1f", RTERR_ENDOFBUF},
        {"1f81", RTERR_ENDOFBUF},
        {"9f1f00", ASN_OK},
        {"9f814800", ASN_OK},
        {"ff81ffffff7f00", ASN_OK}};
    for (const auto& [hex, status] : cases) {
        EXPECT_EQ(WalkStatus(hex), status) << hex;
    }
    EXPECT_EQ(Dec("9f814800").r.peekTag(), asn1CtxtTag(200));
    EXPECT_EQ(Dec("ff81ffffff7f00").r.peekTag(), TM_PRIV | TM_CONS | TM_IDCODE_MASK);
}

TEST(RuntimeReader, IndefiniteLengthsNestAndAreCapturedVerbatim) {
    const std::string hex = "3080308002010500000401aa0000";
    Dec d(hex);
    BerReader outer, inner;
    OSINT32 v = 0;
    ASN1TDynOctStr s;
    EXPECT_TRUE(d.r.enter(ASN1TAG_SEQUENCE, outer));
    EXPECT_TRUE(outer.enter(ASN1TAG_SEQUENCE, inner));
    EXPECT_TRUE(inner.readInt(v));
    EXPECT_FALSE(inner.more());
    EXPECT_TRUE(outer.leave(inner));
    EXPECT_TRUE(outer.readOctStr(s));
    EXPECT_TRUE(d.r.leave(outer));
    EXPECT_EQ(v, 5);
    EXPECT_EQ(Str(s), "aa");
    EXPECT_FALSE(d.r.more());
    EXPECT_EQ(d.r.offset(), d.bytes.size());

    Dec c(hex + "0500");
    ASN1OpenType any;
    ASSERT_TRUE(c.r.readOpenType(any));
    EXPECT_EQ(ToHex(any.data, any.numocts), hex);
    EXPECT_TRUE(c.r.skip());
    EXPECT_FALSE(c.r.more());
}

TEST(RuntimeReader, ConstructedStringsAreConcatenated) {
    Dec oct("2480 0402aabb 2406 0401cc 0401dd 0000");
    ASN1TDynOctStr s;
    ASSERT_TRUE(oct.r.readOctStr(s));
    EXPECT_EQ(Str(s), "aabbccdd");

    Dec implicit("a108 0402aabb 0402ccdd");
    ASSERT_TRUE(implicit.r.readOctStr(s, asn1CtxtTag(1)));
    EXPECT_EQ(Str(s), "aabbccdd");

    Dec bits("2380 030200aa 2304 030204b0 0000");
    ASN1TDynBitStr b;
    ASSERT_TRUE(bits.r.readBitStr(b));
    EXPECT_EQ(b.numbits, 12u);
    EXPECT_EQ(ToHex(b.data, 2), "aab0");

    Dec utf8("2c80 04026162 0c0163 0000");
    const char* text = nullptr;
    ASSERT_TRUE(utf8.r.readString(text, ASN1TAG_UTF8STRING));
    EXPECT_STREQ(text, "abc");

    Dec empty("2300");
    ASSERT_TRUE(empty.r.readBitStr(b));
    EXPECT_EQ(b.numbits, 0u);
}

TEST(RuntimeReader, RejectsBadBitStrings) {
    const std::pair<const char*, int> cases[] = {
        {"2308030204a0030200bb", RTERR_BADVALUE}, // unused bits in a segment before the last
        {"03020800", RTERR_BADVALUE},             // more than 7 unused bits
        {"030103", RTERR_BADVALUE},               // unused bits in an empty string
        {"0300", RTERR_BADVALUE},                 // no unused-bits octet
        {"23020300", RTERR_BADVALUE},             // empty segment
        {"2303020100", RTERR_IDNOTFOU}};          // segment that is not a BIT STRING
    for (const auto& [hex, status] : cases) {
        Dec d(hex);
        ASN1TDynBitStr b;
        EXPECT_FALSE(d.r.readBitStr(b)) << hex;
        EXPECT_EQ(d.r.status(), status) << hex;
    }
    Dec prim("030205e0");
    ASN1TDynBitStr b;
    ASSERT_TRUE(prim.r.readBitStr(b));
    EXPECT_EQ(b.numbits, 3u);
}

TEST(RuntimeReader, SmallIntegers) {
    const std::pair<const char*, OSINT32> good[] = {
        {"020100", 0},      {"02020080", 128},           {"020180", -128},
        {"0202ff7f", -129}, {"02047fffffff", INT32_MAX}, {"020480000000", INT32_MIN}};
    for (const auto& [hex, value] : good) {
        Dec d(hex);
        OSINT32 v = 12345;
        EXPECT_TRUE(d.r.readInt(v)) << hex;
        EXPECT_EQ(v, value) << hex;
    }
    for (const char* bad : {"02020005", "0202ff80", "0200", "02050100000000"}) {
        Dec d(bad);
        OSINT32 v = 0;
        EXPECT_FALSE(d.r.readInt(v));
        EXPECT_EQ(d.r.status(), RTERR_BADVALUE) << bad;
    }
    OSINT32 e = 0;
    EXPECT_TRUE(Dec("0a0102").r.readEnum(e));
    EXPECT_EQ(e, 2);
    Dec implicit("800105");
    EXPECT_TRUE(implicit.r.readInt(e, asn1CtxtTag(0)));
    EXPECT_EQ(e, 5);
}

TEST(RuntimeReader, BigIntegersKeepTheirOctets) {
    const std::pair<const char*, const char*> cases[] = {
        {"020100", "00"}, {"02020005", "0005"}, {"0203ff0000", "ff0000"}, {"0201ab", "ab"}};
    for (const auto& [hex, content] : cases) {
        Dec d(hex);
        ASN1TDynBigInt v;
        ASSERT_TRUE(d.r.readBigInt(v)) << hex;
        EXPECT_EQ(Hex(v), content);
    }
    Dec empty("0200");
    ASN1TDynBigInt v;
    EXPECT_FALSE(empty.r.readBigInt(v));
    EXPECT_EQ(empty.r.status(), RTERR_BADVALUE);
}

TEST(RuntimeReader, BooleansNullsAndObjectIdentifiers) {
    OSBOOL flag = false;
    EXPECT_TRUE(Dec("0101ff").r.readBool(flag) && flag);
    EXPECT_TRUE(Dec("010105").r.readBool(flag) && flag);
    EXPECT_TRUE(Dec("010100").r.readBool(flag) && !flag);
    EXPECT_TRUE(Dec("0500").r.readNull());
    ASN1OBJID oid;
    EXPECT_TRUE(Dec("06032a8648").r.readOid(oid) && oid.numocts == 3);

    auto status = [](const char* hex, auto read) {
        Dec d(hex);
        read(d.r);
        return d.r.status();
    };
    auto readBool = [&](BerReader& r) { return r.readBool(flag); };
    auto readOid = [&](BerReader& r) { return r.readOid(oid); };
    EXPECT_EQ(status("01020000", readBool), RTERR_BADVALUE);
    EXPECT_EQ(status("0100", readBool), RTERR_BADVALUE);
    EXPECT_EQ(status("050100", [](BerReader& r) { return r.readNull(); }), RTERR_BADVALUE);
    for (const char* bad : {"0600", "06028001", "060181", "06032a8001"}) {
        EXPECT_EQ(status(bad, readOid), RTERR_BADVALUE) << bad;
    }
}

TEST(RuntimeReader, TimesAndCharacterStrings) {
    const char* text = nullptr;
    Dec utc("170d3234303133313132303030305a");
    ASSERT_TRUE(utc.r.readTime(text, ASN1TAG_UTCTIME));
    EXPECT_STREQ(text, "240131120000Z");
    Dec letters("1803414243");
    EXPECT_FALSE(letters.r.readTime(text, ASN1TAG_GENERALIZEDTIME));
    EXPECT_EQ(letters.r.status(), RTERR_BADVALUE);
    Dec nul("0c03610062");
    EXPECT_FALSE(nul.r.readString(text, ASN1TAG_UTF8STRING));
    EXPECT_EQ(nul.r.status(), RTERR_BADVALUE);
    ASN1TDynOctStr raw;
    Dec bmp("1e0400610062");
    ASSERT_TRUE(bmp.r.readString(raw, ASN1TAG_BMPSTRING));
    EXPECT_EQ(Str(raw), "00610062");
}

TEST(RuntimeReader, StructuralRejections) {
    auto run = [](const char* hex, int reads) {
        Dec d(hex);
        BerReader seq;
        OSINT32 v = 0;
        d.r.enter(ASN1TAG_SEQUENCE, seq, "Pair");
        for (int i = 0; i < reads; ++i) {
            seq.readInt(v);
        }
        d.r.leave(seq);
        return d.r.status();
    };
    EXPECT_EQ(run("3006020105020106", 2), ASN_OK);
    EXPECT_EQ(run("3006020105020106", 1), RTERR_TRAILING);      // unread, definite
    EXPECT_EQ(run("3080020105020106 0000", 1), RTERR_TRAILING); // unread, indefinite
    EXPECT_EQ(run("3080020105", 1), RTERR_ENDOFBUF);            // no end-of-contents
    EXPECT_EQ(run("308002010500", 1), RTERR_ENDOFBUF);          // half of them
    EXPECT_EQ(run("3003020105", 2), RTERR_IDNOTFOU);            // mandatory one missing
    EXPECT_EQ(run("0403020105", 1), RTERR_IDNOTFOU);            // not a SEQUENCE
}

TEST(RuntimeReader, DepthIsLimited) {
    EXPECT_EQ(WalkStatus(Nested(32, false)), ASN_OK);
    EXPECT_EQ(WalkStatus(Nested(33, false)), RTERR_TOODEEP);
    EXPECT_EQ(WalkStatus(Nested(32, true)), ASN_OK);
    EXPECT_EQ(WalkStatus(Nested(33, true)), RTERR_TOODEEP);
    // Capturing an indefinite element walks it, under the same limit.
    Dec ok(Nested(32, true));
    EXPECT_TRUE(ok.r.skip());
    Dec deep(Nested(33, true));
    ASN1OpenType any;
    EXPECT_FALSE(deep.r.readOpenType(any));
    EXPECT_EQ(deep.r.status(), RTERR_TOODEEP);
}

TEST(RuntimeReader, TruncationAtEveryOctetIsEndOfBuffer) {
    // The long sample is appended piecewise: GCC 12 warns falsely (-Wstringop-overflow) about
    // operator+ on a temporary string when link-time optimisation inlines it here.
    std::string longSample = "308189 020100 048180";
    longSample.append(256, 'e').append("0101ff");
    const std::string samples[] = {
        "3080 3080020105 0000 2480 0402aabb 2404 0402ccdd 0000 a0808001ff0000 0c03616263 0000",
        longSample};
    for (const std::string& sample : samples) {
        const std::string whole = ToHex(FromHex(sample));
        ASSERT_EQ(WalkStatus(whole), ASN_OK);
        for (std::size_t k = 0; k < whole.size(); k += 2) {
            EXPECT_EQ(WalkStatus(whole.substr(0, k)), RTERR_ENDOFBUF) << k / 2;
        }
    }
}

TEST(RuntimeReader, FailureIsStickyAndDescribed) {
    Dec d("3008 0401aa 020105 0500");
    BerReader seq;
    OSINT32 v = 0;
    ASN1TDynOctStr s;
    d.r.enter(ASN1TAG_SEQUENCE, seq, "Sample");
    EXPECT_FALSE(seq.readInt(v));
    EXPECT_FALSE(seq.more());
    EXPECT_FALSE(seq.readOctStr(s)) << "the right tag no longer helps";
    EXPECT_FALSE(d.r.leave(seq));
    EXPECT_EQ(d.r.status(), RTERR_IDNOTFOU);
    EXPECT_EQ(d.buf.getStatus(), RTERR_IDNOTFOU);
    EXPECT_STREQ(d.buf.getErrorText(),
                 "RTERR_IDNOTFOU: INTEGER in Sample, unexpected tag 0x04 at offset 2");
    EXPECT_EQ(d.buf.getCtxtPtr()->errOffset, 2u);
}

TEST(RuntimeReader, MisusedChildrenAreRefused) {
    Dec d("3003020105");
    BerReader stranger;
    EXPECT_FALSE(stranger.more());
    EXPECT_EQ(stranger.status(), RTERR_INVPARAM);
    EXPECT_FALSE(d.r.leave(stranger));
    EXPECT_EQ(d.r.status(), RTERR_INVPARAM);

    Dec open("30800201050000020106");
    BerReader seq;
    OSINT32 v = 0;
    ASSERT_TRUE(open.r.enter(ASN1TAG_SEQUENCE, seq));
    EXPECT_TRUE(seq.readInt(v));
    open.r.skip(); // the parent moves while its child is open
    EXPECT_FALSE(open.r.leave(seq));
    EXPECT_EQ(open.r.status(), RTERR_INVPARAM);

    // An element decoder that reads nothing would loop for ever.
    Dec list("0500");
    OSRTDList out;
    EXPECT_EQ(Velmor::Asn1Rt::readList<int>(list.r, out, [](BerReader&, int&) { return 0; }),
              RTERR_INVPARAM);
    EXPECT_EQ(out.count, 0u);
}
