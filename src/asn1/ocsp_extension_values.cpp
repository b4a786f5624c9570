// The values of the OCSP extensions that have a syntax of their own: CrlID, AcceptableResponses,
// ArchiveCutoff and ServiceLocator (the nonce is a bare OCTET STRING).
#include "asn1/asn1_fields.h"
#include "asn1/ocsp_types.h"

using namespace Velmor::Asn1Rt;

namespace {

// Reads an INTEGER that must be minimal and lie in 0 .. 2^32 - 1.
void readUnsigned(BerReader& r, OSUINT32& value) {
    const std::size_t start = r.offset();
    const ASN1OCTET* p = nullptr;
    std::size_t n = 0;
    if (!r.readPrimitive(ASN1TAG_INTEGER, p, n)) {
        return;
    }
    const bool redundant = n > 1 && p[0] == 0x00 && (p[1] & 0x80) == 0;
    const bool fits = n >= 1 && (n <= 4 || (n == 5 && p[0] == 0x00));
    if (!fits || redundant || (p[0] & 0x80) != 0) {
        r.failElement(start, RTERR_BADVALUE, "INTEGER out of 0 .. 2^32 - 1");
        return;
    }
    OSUINT32 v = 0;
    for (std::size_t i = 0; i < n; ++i) {
        v = (v << 8) | p[i];
    }
    value = v;
}

} // namespace

// ---- CrlID ::= SEQUENCE { crlUrl [0] EXPLICIT IA5String OPTIONAL,
//        crlNum [1] EXPLICIT INTEGER OPTIONAL, crlTime [2] EXPLICIT GeneralizedTime OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_CrlID& v, ASN1TAG tag) {
    return writeSequence(
        b, tag,
        optionalExplicitField(v.m.crlUrlPresent, 0, stringField(v.crlUrl, ASN1TAG_IA5STRING)),
        optionalExplicitField(v.m.crlNumPresent, 1,
                              [&](ASN1BEREncodeBuffer& w) { return w.putUnsigned(v.crlNum); }),
        optionalExplicitField(v.m.crlTimePresent, 2,
                              stringField(v.crlTime, ASN1TAG_GENERALIZEDTIME)));
}

int asn1D(BerReader& r, ASN1T_CrlID& v, ASN1TAG tag) {
    BerReader seq;
    if (!r.enter(tag, seq, "CrlID")) {
        return r.status();
    }
    v.m.crlUrlPresent = readOptionalExplicit(
        seq, 0, "crlUrl", [&](BerReader& in) { in.readString(v.crlUrl, ASN1TAG_IA5STRING); });
    v.m.crlNumPresent =
        readOptionalExplicit(seq, 1, "crlNum", [&](BerReader& in) { readUnsigned(in, v.crlNum); });
    v.m.crlTimePresent = readOptionalExplicit(
        seq, 2, "crlTime", [&](BerReader& in) { in.readTime(v.crlTime, ASN1TAG_GENERALIZEDTIME); });
    r.leave(seq);
    return r.status();
}

int asn1Copy_CrlID(ASN1CTXT* ctxt, const ASN1T_CrlID& from, ASN1T_CrlID& to) {
    to.m = from.m;
    to.crlNum = from.crlNum;
    const int st = rtCopy(ctxt, from.crlUrl, to.crlUrl);
    return st < 0 ? st : rtCopy(ctxt, from.crlTime, to.crlTime);
}

// ---- AcceptableResponses ::= SEQUENCE OF OBJECT IDENTIFIER

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_AcceptableResponses& v, ASN1TAG tag) {
    return writeSeqOf<ASN1OBJID>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T_AcceptableResponses& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "AcceptableResponses")) {
        readList<ASN1OBJID>(seq, v, [](BerReader& in, ASN1OBJID& oid) { return in.readOid(oid); });
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_AcceptableResponses(ASN1CTXT* ctxt, const ASN1T_AcceptableResponses& from,
                                 ASN1T_AcceptableResponses& to) {
    return rtCopyList<ASN1OBJID>(ctxt, from, to, [](ASN1CTXT* c, const ASN1OBJID& f, ASN1OBJID& t) {
        return rtCopy(c, f, t);
    });
}

// ---- ArchiveCutoff ::= GeneralizedTime

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_ArchiveCutoff& v, ASN1TAG tag) {
    return b.putString(v.value, tag);
}

int asn1D(BerReader& r, ASN1T_ArchiveCutoff& v, ASN1TAG tag) {
    r.readTime(v.value, tag);
    return r.status();
}

int asn1Copy_ArchiveCutoff(ASN1CTXT* ctxt, const ASN1T_ArchiveCutoff& from,
                           ASN1T_ArchiveCutoff& to) {
    return rtCopy(ctxt, from.value, to.value);
}

// ---- ServiceLocator ::= SEQUENCE { issuer Name, locator AuthorityInfoAccessSyntax OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_ServiceLocator& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.issuer),
                         optionalField(v.m.locatorPresent, field(v.locator)));
}

int asn1D(BerReader& r, ASN1T_ServiceLocator& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "ServiceLocator")) {
        asn1D(seq.at("issuer"), v.issuer);
        v.m.locatorPresent = seq.at("locator").nextIs(ASN1TAG_SEQUENCE);
        if (v.m.locatorPresent) {
            asn1D(seq, v.locator);
        }
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_ServiceLocator(ASN1CTXT* ctxt, const ASN1T_ServiceLocator& from,
                            ASN1T_ServiceLocator& to) {
    to.m = from.m;
    const int st = asn1Copy_Name(ctxt, from.issuer, to.issuer);
    return st < 0 ? st : asn1Copy_AuthorityInfoAccessSyntax(ctxt, from.locator, to.locator);
}
