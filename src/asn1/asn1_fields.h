// Small helpers that keep the type codecs close to their ASN.1 text: EXPLICIT tagging and
// the two-line pattern of an OPTIONAL or DEFAULT field.
#ifndef VELMOR_SRC_ASN1_ASN1_FIELDS_H
#define VELMOR_SRC_ASN1_ASN1_FIELDS_H

#include "asn1/asn1_runtime.h"

#include <utility>

namespace Velmor::Asn1Rt {

// Reads "[n] EXPLICIT <inner>": enters the context tag and lets readInner read the inner
// value from the child reader. The failure (if any) is in the shared context.
template <class F> void readExplicit(BerReader& r, OSUINT32 n, const char* name, F&& readInner) {
    BerReader inner;
    if (r.enter(asn1CtxtConsTag(n), inner, name)) {
        readInner(inner);
        r.leave(inner);
    }
}

// Reads "[n] EXPLICIT <inner> OPTIONAL": true, after reading it, when the next element has
// the context tag; false, reading nothing, otherwise.
template <class F>
bool readOptionalExplicit(BerReader& r, OSUINT32 n, const char* name, F&& readInner) {
    if (!r.nextIs(asn1CtxtConsTag(n))) {
        return false;
    }
    readExplicit(r, n, name, std::forward<F>(readInner));
    return true;
}

// Writes "[n] EXPLICIT <inner>": writeInner prepends the inner value, which is then wrapped
// in the context tag. The element's length or a negative status.
template <class F> int writeExplicit(ASN1BEREncodeBuffer& b, OSUINT32 n, F&& writeInner) {
    const std::size_t mark = b.getMsgLen();
    writeInner(b);
    return b.wrap(asn1CtxtConsTag(n), mark);
}

// Writes "SEQUENCE OF Elem" (or a SET OF written in list order) under tag.
template <class Elem, class List>
int writeSeqOf(ASN1BEREncodeBuffer& b, const List& v, ASN1TAG tag) {
    const std::size_t mark = b.getMsgLen();
    writeList<Elem>(b, v);
    return b.wrap(tag, mark);
}

// Reads "SEQUENCE OF Elem" under tag into v; with nonEmpty, an empty list is malformed.
template <class Elem, class List>
int readSeqOf(BerReader& r, List& v, ASN1TAG tag, const char* name, bool nonEmpty = false) {
    BerReader seq;
    if (r.enter(tag, seq, name)) {
        readList<Elem>(seq, v);
        if (nonEmpty && seq.ok() && v.count == 0) {
            seq.fail(RTERR_BADVALUE, "empty list");
        }
        r.leave(seq);
    }
    return r.status();
}

// After a successful read that started at input offset start, keeps the octets consumed
// since then (one whole element) in raw, as a view into the input.
inline void keepRaw(BerReader& r, std::size_t start, ASN1OpenType& raw) {
    if (r.ok()) {
        raw.data = r.ctxt()->decData + start;
        raw.numocts = static_cast<OSUINT32>(r.offset() - start);
    }
}

} // namespace Velmor::Asn1Rt

#endif
