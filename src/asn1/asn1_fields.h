// Small helpers that keep the type codecs close to their ASN.1 text.
//
// Reading goes field by field in ASN.1 order, with helpers for EXPLICIT tagging and for an
// OPTIONAL EXPLICIT field.
//
// Writing also lists the fields in ASN.1 order, as "field callables": objects called as
// f(ASN1BEREncodeBuffer&) that prepend one field and return the octets written or a negative
// status. writeSequence calls them last first, which the backwards buffer needs, and wraps
// them; the *Field helpers make the callables for each form of field (a member, a scalar,
// OPTIONAL, [n] EXPLICIT). A DEFAULT field is an OPTIONAL one whose presence says "differs
// from its default". Failure is sticky in the buffer, so the fields' results are not checked
// one by one: wrap reports any of them.
#ifndef VELMOR_SRC_ASN1_ASN1_FIELDS_H
#define VELMOR_SRC_ASN1_ASN1_FIELDS_H

#include "asn1/asn1_runtime.h"

#include <utility>

namespace Velmor::Asn1Rt {

// ---- Reading

// Reads "[n] EXPLICIT <inner>": enters the context tag and lets readInner read the inner
// value from the child reader. The failure (if any) is in the shared context.
template <class F> void readExplicit(BerReader& r, OSUINT32 n, const char* name, F&& readInner) {
    BerReader inner;
    if (r.enter(asn1CtxtConsTag(n), inner, name)) {
        readInner(inner);
        r.leave(inner);
    }
}

// Reads the field name, "[n] EXPLICIT <inner> OPTIONAL": true, after reading it, when the
// next element has the context tag; false, reading nothing, otherwise.
template <class F>
bool readOptionalExplicit(BerReader& r, OSUINT32 n, const char* name, F&& readInner) {
    if (!r.at(name).nextIs(asn1CtxtConsTag(n))) {
        return false;
    }
    readExplicit(r, n, name, std::forward<F>(readInner));
    return true;
}

// Reads a value with the decoder of its type: asn1D for the module's structures, the
// reader's own for the runtime's value types.
template <class T> void readValue(BerReader& r, T& value) { asn1D(r, value); }
inline void readValue(BerReader& r, ASN1TDynOctStr& value) { r.readOctStr(value); }

// Reads "SEQUENCE OF Elem" under tag into v; with nonEmpty, an empty list is malformed.
template <class Elem, class List>
int readSeqOf(BerReader& r, List& v, ASN1TAG tag, const char* name, bool nonEmpty = false) {
    const std::size_t start = r.offset();
    BerReader seq;
    if (r.enter(tag, seq, name)) {
        readList<Elem>(seq, v);
        if (nonEmpty && seq.ok() && v.count == 0) {
            r.failElement(start, RTERR_BADVALUE, "empty list");
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

// ---- Writing

// The writing helpers are forced inline, closures included: an encoder made of them must
// compile to the calls of one written out by hand, and nothing else. Left to its heuristics
// the compiler stops short in a long field list (each field is a few nested calls), and what
// it keeps out of line changes what it inlines elsewhere.
#define VELMOR_ASN1_FORCE_INLINE __attribute__((always_inline))

// Writes a value with the encoder of its type (asn1E for the module's structures, the
// buffer's writer for the runtime's value types), under tag when one is given.
template <class T>
VELMOR_ASN1_FORCE_INLINE inline int writeValue(ASN1BEREncodeBuffer& b, const T& value) {
    return asn1E(b, value);
}
template <class T>
VELMOR_ASN1_FORCE_INLINE inline int writeValue(ASN1BEREncodeBuffer& b, const T& value,
                                               ASN1TAG tag) {
    return asn1E(b, value, tag);
}
VELMOR_ASN1_FORCE_INLINE inline int writeValue(ASN1BEREncodeBuffer& b, const ASN1TDynOctStr& value,
                                               ASN1TAG tag = ASN1TAG_OCTETSTRING) {
    return b.putOctStr(value, tag);
}
VELMOR_ASN1_FORCE_INLINE inline int writeValue(ASN1BEREncodeBuffer& b, const ASN1TDynBitStr& value,
                                               ASN1TAG tag = ASN1TAG_BITSTRING) {
    return b.putBitStr(value, tag);
}
VELMOR_ASN1_FORCE_INLINE inline int writeValue(ASN1BEREncodeBuffer& b, const ASN1OBJID& value,
                                               ASN1TAG tag = ASN1TAG_OBJID) {
    return b.putOid(value, tag);
}
VELMOR_ASN1_FORCE_INLINE inline int writeValue(ASN1BEREncodeBuffer& b, const ASN1OpenType& value) {
    return b.putOpenType(value);
}

namespace detail {

// Calls the fields last first: each write prepends, so the first field is written last.
VELMOR_ASN1_FORCE_INLINE inline void writeFieldsBackwards(ASN1BEREncodeBuffer& /*b*/) {}
template <class First, class... Rest>
VELMOR_ASN1_FORCE_INLINE inline void writeFieldsBackwards(ASN1BEREncodeBuffer& b, First& first,
                                                          Rest&... rest) {
    writeFieldsBackwards(b, rest...);
    first(b);
}

} // namespace detail

// Writes "SEQUENCE { fields }" under tag, the fields given in ASN.1 order; the element's
// length or a negative status.
template <class... Fields>
VELMOR_ASN1_FORCE_INLINE inline int writeSequence(ASN1BEREncodeBuffer& b, ASN1TAG tag,
                                                  Fields&&... fields) {
    const std::size_t mark = b.getMsgLen();
    detail::writeFieldsBackwards(b, fields...);
    return b.wrap(tag, mark);
}

// Writes "[n] EXPLICIT <inner>" now, inner being a field callable; the element's length or a
// negative status.
template <class F>
VELMOR_ASN1_FORCE_INLINE inline int writeExplicit(ASN1BEREncodeBuffer& b, OSUINT32 n, F&& inner) {
    const std::size_t mark = b.getMsgLen();
    inner(b);
    return b.wrap(asn1CtxtConsTag(n), mark);
}

// Writes the chosen alternative of a CHOICE, a field callable; its length or a negative
// status.
template <class F>
VELMOR_ASN1_FORCE_INLINE inline int writeChoice(ASN1BEREncodeBuffer& b, F&& alternative) {
    return alternative(b);
}

// Writes "SEQUENCE OF Elem" under tag, elements in list order.
template <class Elem, class List>
int writeSeqOf(ASN1BEREncodeBuffer& b, const List& v, ASN1TAG tag) {
    const std::size_t mark = b.getMsgLen();
    writeList<Elem>(b, v, [](ASN1BEREncodeBuffer& w, const Elem& e) { return writeValue(w, e); });
    return b.wrap(tag, mark);
}

// Writes "SET OF Elem" under tag in DER order: the element encodings sorted.
template <class Elem, class List>
int writeSetOf(ASN1BEREncodeBuffer& b, const List& v, ASN1TAG tag) {
    const std::size_t mark = b.getMsgLen();
    writeList<Elem>(b, v, [](ASN1BEREncodeBuffer& w, const Elem& e) { return writeValue(w, e); });
    return b.wrapSetOf(tag, mark);
}

// ---- Field callables for writeSequence and writeChoice. They keep references to the values
// they write, which must outlive the call they are passed to (the members of the value
// being encoded do).

// A member written with writeValue: field(v.x), or field(v.x, tag) for [n] IMPLICIT.
template <class T> VELMOR_ASN1_FORCE_INLINE inline auto field(const T& value) {
    return [&value](ASN1BEREncodeBuffer& b)
               VELMOR_ASN1_FORCE_INLINE { return writeValue(b, value); };
}
template <class T> VELMOR_ASN1_FORCE_INLINE inline auto field(const T& value, ASN1TAG tag) {
    return [&value, tag](ASN1BEREncodeBuffer& b)
               VELMOR_ASN1_FORCE_INLINE { return writeValue(b, value, tag); };
}

// An INTEGER from a 32-bit value.
VELMOR_ASN1_FORCE_INLINE inline auto intField(const OSINT32& value, ASN1TAG tag = ASN1TAG_INTEGER) {
    return [&value, tag](ASN1BEREncodeBuffer& b)
               VELMOR_ASN1_FORCE_INLINE { return b.putInt(value, tag); };
}

// An INTEGER of any size (CertificateSerialNumber and the like).
VELMOR_ASN1_FORCE_INLINE inline auto bigIntField(const ASN1TDynBigInt& value,
                                                 ASN1TAG tag = ASN1TAG_INTEGER) {
    return [&value, tag](ASN1BEREncodeBuffer& b)
               VELMOR_ASN1_FORCE_INLINE { return b.putBigInt(value, tag); };
}

// An ENUMERATED.
VELMOR_ASN1_FORCE_INLINE inline auto enumField(const OSINT32& value,
                                               ASN1TAG tag = ASN1TAG_ENUMERATED) {
    return [&value, tag](ASN1BEREncodeBuffer& b)
               VELMOR_ASN1_FORCE_INLINE { return b.putEnum(value, tag); };
}

// A BOOLEAN.
VELMOR_ASN1_FORCE_INLINE inline auto boolField(const OSBOOL& value, ASN1TAG tag = ASN1TAG_BOOLEAN) {
    return [&value, tag](ASN1BEREncodeBuffer& b)
               VELMOR_ASN1_FORCE_INLINE { return b.putBool(value, tag); };
}

// A NULL.
VELMOR_ASN1_FORCE_INLINE inline auto nullField(ASN1TAG tag = ASN1TAG_NULL) {
    return [tag](ASN1BEREncodeBuffer& b) VELMOR_ASN1_FORCE_INLINE { return b.putNull(tag); };
}

// A character string or a time from NUL-terminated text, under tag.
VELMOR_ASN1_FORCE_INLINE inline auto stringField(const char* const& text, ASN1TAG tag) {
    return [&text, tag](ASN1BEREncodeBuffer& b)
               VELMOR_ASN1_FORCE_INLINE { return b.putString(text, tag); };
}

// "[n] EXPLICIT <inner>", inner being a field callable.
template <class F> VELMOR_ASN1_FORCE_INLINE inline auto explicitField(OSUINT32 n, F&& inner) {
    return [n, inner = std::forward<F>(inner)](ASN1BEREncodeBuffer& b)
               VELMOR_ASN1_FORCE_INLINE { return writeExplicit(b, n, inner); };
}

// "<inner> OPTIONAL" (or DEFAULT): written only when present, else nothing (0 octets).
// present is taken when the field is made, before writeSequence writes any field.
template <class F> VELMOR_ASN1_FORCE_INLINE inline auto optionalField(bool present, F&& inner) {
    return [present, inner = std::forward<F>(inner)](ASN1BEREncodeBuffer& b)
               VELMOR_ASN1_FORCE_INLINE { return present ? inner(b) : 0; };
}

// "[n] EXPLICIT <inner> OPTIONAL" (or DEFAULT): written only when present.
template <class F>
VELMOR_ASN1_FORCE_INLINE inline auto optionalExplicitField(bool present, OSUINT32 n, F&& inner) {
    return optionalField(present, explicitField(n, std::forward<F>(inner)));
}

} // namespace Velmor::Asn1Rt

#endif
