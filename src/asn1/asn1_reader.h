// BER reader for decoders: a cursor over one element's contents (or over a whole input).
//
// A decoder reads like its ASN.1 text:
//
//     BerReader seq;
//     r.enter(tag, seq, "AlgorithmIdentifier");   // SEQUENCE {
//     seq.at("algorithm").readOid(v.algorithm);   //   algorithm  OBJECT IDENTIFIER,
//     if (seq.at("parameters").more()) { ... }    //   parameters ANY OPTIONAL
//     r.leave(seq);                               // }
//     return r.status();
//
// at() names the field about to be read. A child reader knows its parent, and a reader over a
// SEQUENCE OF knows the index of the item it reads, so the first failure also records the
// element's path from the outermost value, such as "tbsResponseData.responses[1].certStatus"
// (see describePath). Naming costs one store per field; the path is written only on failure.
//
// Failure is sticky and shared: the status lives in the ASN1CTXT that every reader of one
// decode shares, so once any reader failed, every reader of that decode fails at once and
// has no effect. A decoder can therefore be straight-line code checked once at the end,
// and a failure deep inside a nested type is seen by every enclosing decoder. Loops stop
// by themselves, because more() is false after a failure.
#ifndef VELMOR_SRC_ASN1_ASN1_READER_H
#define VELMOR_SRC_ASN1_ASN1_READER_H

#include "asn1/asn1_base.h"

namespace Velmor::Asn1Rt {

// Deepest element nesting accepted: the outermost element is at depth 1.
constexpr unsigned kMaxDepth = 32;

// Identifier and length of one element, as parsed from its first octets.
struct ElementHeader {
    ASN1TAG tag = 0;
    std::size_t headerLen = 0;  // identifier + length octets
    std::size_t contentLen = 0; // 0 for an indefinite length
    bool indefinite = false;
};

class BerReader {
  public:
    // An unbound reader: every operation fails with RTERR_INVPARAM. enter() binds it.
    BerReader() noexcept = default;
    // A reader over a whole input held in ctxt's decode buffer, from offset origin.
    BerReader(ASN1CTXT* ctxt, const ASN1OCTET* data, std::size_t size,
              std::size_t origin = 0) noexcept;

    ASN1CTXT* ctxt() const noexcept { return ctxt_; }
    bool ok() const noexcept { return ctxt_ != nullptr && ctxt_->status == ASN_OK; }
    // 0, or the decode's first failure.
    int status() const noexcept { return ctxt_ == nullptr ? RTERR_INVPARAM : ctxt_->status; }
    // Input offset of the next unread octet (for diagnostics and extents).
    std::size_t offset() const noexcept { return origin_ + pos_; }
    // Depth of the element whose contents this reader covers (0 for a whole input).
    unsigned depth() const noexcept { return depth_; }
    // The unread octets this reader may look at (none once it failed).
    const ASN1OCTET* unread() const noexcept { return data_ + pos_; }
    std::size_t unreadSize() const noexcept { return live() ? size_ - pos_ : 0; }

    // Names the field of this reader's contents that is read next (a string that outlives
    // the decode); failures until the next at() name it in their path.
    BerReader& at(const char* field) noexcept {
        field_ = field;
        return *this;
    }
    // Marks the item of a SEQUENCE OF or SET OF that is read next (from 0).
    void atItem(std::size_t index) noexcept { item_ = index; }
    // Writes the path of what this reader reads now into out (size octets, NUL-terminated,
    // cut short when it does not fit): its ancestors' fields and items from the outermost
    // reader down, as "responses[1].certStatus". Empty when nothing was named.
    void describePath(char* out, std::size_t size) const noexcept;

    // True when another element follows before this reader's end (the end of its octets,
    // or the end-of-contents octets of an indefinite length). False after a failure.
    bool more() noexcept { return live() && pos_ < size_ && !atEoc(); }
    // Tag of the next element, or 0 at the end or after a failure. A malformed identifier
    // fails the decode.
    ASN1TAG peekTag() noexcept;
    // True when the next element carries tag (for OPTIONAL fields and CHOICEs).
    bool nextIs(ASN1TAG tag) noexcept {
        if (pos_ >= size_) {
            return false; // the common case of an absent last field
        }
        std::size_t len = 0;
        const ASN1OCTET id = shortIdentifier(tag);
        if (nextIsShort(id, len)) {
            return true;
        }
        // Another one-octet identifier is another tag, whatever follows it: the element is
        // parsed, and any fault in it found, when the field it belongs to reads it.
        if (id != 0 && live() && pos_ < size_) {
            const ASN1OCTET next = data_[pos_];
            if (next != id && next != 0 && (next & 0x1F) != 0x1F) {
                return false;
            }
        }
        return more() && peekTag() == tag;
    }
    // As nextIs, with either value of the constructed bit (strings may come in BER's
    // constructed form, so an OPTIONAL [n] IMPLICIT OCTET STRING is tested with this).
    bool nextIsAnyForm(ASN1TAG tag) noexcept {
        return more() && (peekTag() & ~TM_CONS) == (tag & ~TM_CONS);
    }
    // Parses identifier and length of the next element without consuming it.
    bool peekHeader(ElementHeader& header) noexcept;
    // Size of the whole next element (identifier, length, contents and end-of-contents
    // octets), without consuming it; indefinite lengths are walked.
    bool peekExtent(std::size_t& size) noexcept;

    // Consumes the next element, which must carry tag, and binds child to its contents;
    // name labels failures inside it. Constructed tags only may have indefinite lengths.
    bool enter(ASN1TAG tag, BerReader& child, const char* name = nullptr) noexcept {
        std::size_t len = 0;
        if (depth_ < kMaxDepth && nextIsShort(shortIdentifier(tag), len)) {
            child.bindDefinite(*this, pos_ + 2, len, name);
            pos_ += 2 + len;
            return true;
        }
        return enterGeneral(tag, child, name);
    }
    // Closes child: a definite one must be fully read (else RTERR_TRAILING); an indefinite
    // one must stand at its end-of-contents octets, which are consumed.
    bool leave(BerReader& child) noexcept {
        const bool fullyRead = !child.indefinite_ && child.pos_ == child.size_;
        if (fullyRead && live() && child.ctxt_ == ctxt_ && child.depth_ == depth_ + 1 &&
            child.origin_ + child.size_ == offset()) {
            return true;
        }
        return leaveGeneral(child);
    }
    // Consumes the next element whatever it is (indefinite ones are walked to their end).
    bool skip() noexcept;
    // Consumes the next element and keeps all its octets, verbatim, as an open type.
    bool readOpenType(ASN1OpenType& value) noexcept;
    // Contents of the next element, which must be primitive and carry tag.
    bool readPrimitive(ASN1TAG tag, const ASN1OCTET*& data, std::size_t& size) noexcept;

    // ---- Values. tag replaces the universal tag for [n] IMPLICIT fields.
    // BOOLEAN: one octet, any non-zero value is true.
    bool readBool(OSBOOL& value, ASN1TAG tag = ASN1TAG_BOOLEAN) noexcept;
    // INTEGER that must fit 32 bits, minimally encoded.
    bool readInt(OSINT32& value, ASN1TAG tag = ASN1TAG_INTEGER) noexcept;
    // INTEGER of any size: its contents octets as received, a view into the input.
    bool readBigInt(ASN1TDynBigInt& value, ASN1TAG tag = ASN1TAG_INTEGER) noexcept;
    bool readEnum(OSINT32& value, ASN1TAG tag = ASN1TAG_ENUMERATED) noexcept;
    bool readNull(ASN1TAG tag = ASN1TAG_NULL) noexcept;
    bool readOid(ASN1OBJID& value, ASN1TAG tag = ASN1TAG_OBJID) noexcept;
    // Primitive form gives a view into the input; constructed form is concatenated into
    // the arena. For these and the strings, tag matches with or without the constructed bit.
    bool readOctStr(ASN1TDynOctStr& value, ASN1TAG tag = ASN1TAG_OCTETSTRING) noexcept;
    bool readBitStr(ASN1TDynBitStr& value, ASN1TAG tag = ASN1TAG_BITSTRING) noexcept;
    // Character string as NUL-terminated text in the arena; embedded NUL is RTERR_BADVALUE
    // (read BMPString and UniversalString as raw contents instead).
    bool readString(const char*& value, ASN1TAG tag) noexcept;
    // Character string as raw contents.
    bool readString(ASN1TDynOctStr& value, ASN1TAG tag) noexcept;
    // UTCTime or GeneralizedTime as text; only 0-9 . , + - Z are accepted here.
    bool readTime(const char*& value, ASN1TAG tag) noexcept;

    // Records a failure (first one wins) labelled with this reader's name; returns false.
    bool fail(int status, const char* what = nullptr) noexcept;
    // The same for a value whose element, read from start (offset() before it was read), is
    // wrong as a whole: the failure is recorded where that element begins.
    bool failElement(std::size_t start, int status, const char* what) noexcept {
        pos_ = start - origin_; // nothing reads on after a failure
        return fail(status, what);
    }

  private:
    struct Gather;

    // The one-octet identifier of tag, or 0 when tag needs the high tag form. Tag number 0
    // has one too in every class but the universal one ([0] is 0x80 or 0xA0); the universal
    // primitive 0 gives 0, the first octet of end-of-contents, which is never a field's.
    static constexpr ASN1OCTET shortIdentifier(ASN1TAG tag) noexcept {
        const ASN1TAG number = tag & TM_IDCODE_MASK;
        return number >= 31 ? 0 : static_cast<ASN1OCTET>(((tag >> 24) & 0xE0) | number);
    }
    // The common form of an element, read without the general parser: when the reader is
    // live and the next element has identifier id (not 0) and a one-octet definite length
    // that fits, sets len to that length and returns true. Otherwise returns false and
    // changes nothing; the general path then decides, as it would have for this element.
    bool nextIsShort(ASN1OCTET id, std::size_t& len) const noexcept {
        if (id == 0 || !live() || size_ - pos_ < 2 || data_[pos_] != id) {
            return false;
        }
        len = data_[pos_ + 1];
        return len < 0x80 && len <= size_ - pos_ - 2;
    }
    // Binds this reader to the definite-length contents of len octets at parent's start.
    void bindDefinite(const BerReader& parent, std::size_t start, std::size_t len,
                      const char* name) noexcept {
        ctxt_ = parent.ctxt_;
        data_ = parent.data_ + start;
        size_ = len;
        pos_ = 0;
        origin_ = parent.origin_ + start;
        name_ = name != nullptr ? name : parent.name_;
        parent_ = &parent;
        field_ = nullptr;
        item_ = kNoItem;
        depth_ = parent.depth_ + 1;
        indefinite_ = false;
        inputBound_ = false;
    }
    // The general paths of enter, leave and takePrimitive stay out of line, so that the
    // common paths inline at every call.
    [[gnu::noinline]] bool enterGeneral(ASN1TAG tag, BerReader& child, const char* name) noexcept;
    [[gnu::noinline]] bool leaveGeneral(BerReader& child) noexcept;

    bool live() const noexcept { return ok(); }
    bool overrun() noexcept;
    // True when the next two octets are end-of-contents octets of an indefinite length.
    bool atEoc() const noexcept {
        return indefinite_ && size_ - pos_ >= 2 && data_[pos_] == 0 && data_[pos_ + 1] == 0;
    }
    // True when no element follows before this reader's end.
    bool atEnd() const noexcept { return pos_ >= size_ || atEoc(); }
    bool parseHeader(std::size_t at, ElementHeader& header) noexcept;
    bool parseTag(std::size_t& at, ASN1TAG& tag) noexcept;
    bool parseLength(std::size_t& at, bool constructed, ElementHeader& header) noexcept;
    bool walkIndefinite(std::size_t at, unsigned depth, std::size_t& end) noexcept;
    bool nextElement(ASN1TAG tag, bool anyForm, ElementHeader& header, const char* what) noexcept;
    bool gather(Gather& g) noexcept;
    bool readConstructed(Gather& g, ASN1TAG tag) noexcept;
    bool readStringBytes(ASN1TAG tag, ASN1TDynOctStr& value) noexcept;
    bool readSmallInt(OSINT32& value, ASN1TAG tag, const char* what) noexcept;
    bool takePrimitive(ASN1TAG tag, const char* what, const ASN1OCTET*& data,
                       std::size_t& size) noexcept {
        std::size_t len = 0;
        if ((tag & TM_CONS) == 0 && nextIsShort(shortIdentifier(tag), len)) {
            data = data_ + pos_ + 2;
            size = len;
            pos_ += 2 + len;
            return true;
        }
        return takePrimitiveGeneral(tag, what, data, size);
    }
    [[gnu::noinline]] bool takePrimitiveGeneral(ASN1TAG tag, const char* what,
                                                const ASN1OCTET*& data, std::size_t& size) noexcept;
    // The common form of a string element: primitive, with a one-octet length, under tag
    // with or without its constructed bit. Read in place as a view into the input; false,
    // changing nothing, for any other form, which the general path then reads.
    bool takeShortString(ASN1TAG tag, ASN1TDynOctStr& value) noexcept {
        std::size_t len = 0;
        if (!nextIsShort(shortIdentifier(tag & ~TM_CONS), len)) {
            return false;
        }
        value.data = data_ + pos_ + 2;
        value.numocts = static_cast<OSUINT32>(len);
        pos_ += 2 + len;
        return true;
    }

    static constexpr std::size_t kNoItem = SIZE_MAX;

    ASN1CTXT* ctxt_ = nullptr;
    const ASN1OCTET* data_ = nullptr;
    std::size_t size_ = 0;   // octets this reader may look at
    std::size_t pos_ = 0;    // next unread octet, relative to data_
    std::size_t origin_ = 0; // input offset of data_[0]
    const char* name_ = nullptr;
    const BerReader* parent_ = nullptr; // the reader this one was entered from
    const char* field_ = nullptr;       // the field read now (at())
    std::size_t item_ = kNoItem;        // the SEQUENCE OF item read now (atItem())
    unsigned depth_ = 0;
    bool indefinite_ = false; // contents end at end-of-contents octets, not at size_
    bool inputBound_ = true;  // size_ is the end of the input (overrun = truncation)
};

// Decodes every remaining element of r (the contents of a SEQUENCE OF / SET OF) into a
// fresh T in the arena, appended to list. decodeElem(BerReader&, T&) returns int or bool.
// Stops at the first failure; returns r.status().
template <class T, class F> int readList(BerReader& r, OSRTDList& list, F&& decodeElem) {
    for (std::size_t index = 0; r.more(); ++index) {
        r.atItem(index);
        OSRTDListNode* node = rtDListNewNode<T>(r.ctxt());
        if (node == nullptr) {
            return r.fail(RTERR_NOMEM, "SEQUENCE OF element"), r.status();
        }
        const std::size_t before = r.offset();
        decodeElem(r, *static_cast<T*>(node->data));
        if (r.ok() && r.offset() == before) {
            r.fail(RTERR_INVPARAM, "element decoder consumed nothing"); // would loop forever
        }
        if (r.ok() && !rtDListLink(list, *node)) {
            r.fail(RTERR_NOMEM, "SEQUENCE OF node");
        }
    }
    return r.status();
}

// As above with the element decoder found by argument-dependent lookup: asn1D(r, elem).
template <class T> int readList(BerReader& r, OSRTDList& list) {
    return readList<T>(r, list, [](BerReader& rr, T& e) { return asn1D(rr, e); });
}

} // namespace Velmor::Asn1Rt

#endif
