// BER reader: identifier and length parsing, entering and leaving elements, skipping and
// capturing whole elements. Every bound is checked by comparing remaining lengths, never by
// forming a pointer past the end.
#include "asn1/asn1_reader.h"
#include "asn1/asn1_detail.h"

#include <cstdio>

namespace Velmor::Asn1Rt {

BerReader::BerReader(ASN1CTXT* ctxt, const ASN1OCTET* data, std::size_t size,
                     std::size_t origin) noexcept
    : ctxt_(ctxt), data_(data), size_(data == nullptr ? 0 : size), origin_(origin) {}

bool BerReader::fail(int status, const char* what) noexcept {
    if (ctxt_ == nullptr || ctxt_->status != ASN_OK || status >= 0) {
        return false; // the first failure is kept
    }
    describePath(ctxt_->errPath, sizeof ctxt_->errPath);
    // An element that is not the one expected: its identifier octet says what came instead.
    const int found = status == RTERR_IDNOTFOU && !atEnd() ? data_[pos_] : kNoTag;
    setError(ctxt_, status, what, name_, offset(), found);
    return false;
}

void BerReader::describePath(char* out, std::size_t size) const noexcept {
    if (size == 0) {
        return;
    }
    // The chain of readers, innermost first; an entered reader is never deeper than
    // kMaxDepth, so the array holds every reader of one decode.
    const BerReader* chain[kMaxDepth + 1];
    std::size_t count = 0;
    for (const BerReader* r = this; r != nullptr && count < kMaxDepth + 1; r = r->parent_) {
        chain[count++] = r;
    }
    std::size_t used = 0;
    out[0] = '\0';
    auto append = [&](const char* format, auto value) {
        if (used < size) {
            const int n = std::snprintf(out + used, size - used, format, value);
            used = n < 0 ? size : used + static_cast<std::size_t>(n);
        }
    };
    while (count-- > 0) {
        const BerReader& r = *chain[count];
        if (r.item_ != kNoItem) {
            append("[%zu]", r.item_);
        }
        if (r.field_ != nullptr) {
            append(used == 0 ? "%s" : ".%s", r.field_);
        }
    }
}

// Fails for an element that runs past this reader's octets: the input was cut short when
// those octets end the input, otherwise a length disagrees with its parent's.
bool BerReader::overrun() noexcept {
    return fail(inputBound_ ? RTERR_ENDOFBUF : RTERR_INVLEN, "element overruns its parent");
}

// Parses identifier octets at 'at', advancing it. High tag numbers must be minimal, at
// least 31 and fit 29 bits.
bool BerReader::parseTag(std::size_t& at, ASN1TAG& tag) noexcept {
    if (at >= size_) {
        return overrun();
    }
    ASN1OCTET first = data_[at++];
    tag = (static_cast<ASN1TAG>(first & 0xC0) << 24) | ((first & 0x20) != 0 ? TM_CONS : 0);
    ASN1TAG number = first & 0x1F;
    if (number == 0x1F) {
        number = 0;
        for (bool leading = true;; leading = false) {
            if (at >= size_) {
                return overrun();
            }
            ASN1OCTET b = data_[at++];
            if ((leading && b == 0x80) || number > (TM_IDCODE_MASK >> 7)) {
                return fail(RTERR_BADTAG, "high tag number");
            }
            number = (number << 7) | (b & 0x7F);
            if ((b & 0x80) == 0) {
                break;
            }
        }
        if (number < 31) {
            return fail(RTERR_BADTAG, "high tag form for a low tag number");
        }
    }
    tag |= number;
    return true;
}

// Parses length octets at 'at', advancing it: short, long (leading zeros allowed, at most
// 8 octets) or indefinite (constructed only).
bool BerReader::parseLength(std::size_t& at, bool constructed, ElementHeader& h) noexcept {
    if (at >= size_) {
        return overrun();
    }
    ASN1OCTET first = data_[at++];
    h.indefinite = false;
    h.contentLen = first;
    if (first < 0x80) {
        return true;
    }
    if (first == 0x80) {
        h.contentLen = 0;
        h.indefinite = true;
        return constructed || fail(RTERR_INVLEN, "indefinite length on a primitive element");
    }
    std::size_t count = first & 0x7F;
    if (first == 0xFF || count > 8) {
        return fail(RTERR_INVLEN, "length octets");
    }
    if (size_ - at < count) {
        return overrun();
    }
    std::size_t len = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (len > (SIZE_MAX >> 8)) {
            return fail(RTERR_INVLEN, "length too large");
        }
        len = (len << 8) | data_[at++];
    }
    h.contentLen = len;
    return true;
}

// Parses the header of the element at 'at' and checks that a definite length fits.
bool BerReader::parseHeader(std::size_t at, ElementHeader& h) noexcept {
    // Nearly every element of a message has a one-octet identifier below the high tag form,
    // other than universal 0, and a definite length in the short form or in one or two long
    // form octets (every element up to 64 KiB): read that form directly.
    if (size_ - at >= 2) {
        const ASN1OCTET id = data_[at];
        const ASN1OCTET first = data_[at + 1];
        const std::size_t room = size_ - at;
        std::size_t header = 0;
        std::size_t length = 0;
        if (first < 0x80) {
            header = 2;
            length = first;
        } else if (first == 0x81 && room >= 3) {
            header = 3;
            length = data_[at + 2];
        } else if (first == 0x82 && room >= 4) {
            header = 4;
            length = std::size_t{data_[at + 2]} << 8 | data_[at + 3];
        }
        if (header != 0 && (id & 0x1F) != 0x1F && (id & 0xDF) != 0) {
            h.tag = (static_cast<ASN1TAG>(id & 0xC0) << 24) | ((id & 0x20) != 0 ? TM_CONS : 0) |
                    (id & 0x1Fu);
            h.headerLen = header;
            h.contentLen = length;
            h.indefinite = false;
            return length <= room - header || overrun();
        }
    }
    std::size_t p = at;
    if (!parseTag(p, h.tag) || !parseLength(p, (h.tag & TM_CONS) != 0, h)) {
        return false;
    }
    // Universal tag 0 belongs to end-of-contents octets; checked after the length so that
    // a lone 00 at the end of the input counts as truncation.
    if ((h.tag & ~TM_CONS) == 0) {
        return fail(RTERR_BADTAG, "universal tag 0");
    }
    h.headerLen = p - at;
    if (!h.indefinite && h.contentLen > size_ - p) {
        return overrun();
    }
    return true;
}

bool BerReader::peekHeader(ElementHeader& h) noexcept {
    if (!live()) {
        return false;
    }
    if (atEnd()) {
        // Out of octets where the input or an indefinite length should go on: truncation or
        // a bad length. At the end of a definite length or at end-of-contents octets: a
        // mandatory element is missing.
        if (pos_ >= size_ && (inputBound_ || indefinite_)) {
            return overrun();
        }
        return fail(RTERR_IDNOTFOU, "missing element");
    }
    return parseHeader(pos_, h);
}

ASN1TAG BerReader::peekTag() noexcept {
    ElementHeader h;
    return more() && parseHeader(pos_, h) ? h.tag : 0;
}

// Finds the end of an indefinite-length element's contents starting at 'at' (just after
// its header) at nesting depth 'depth'; end is the offset after its end-of-contents octets.
bool BerReader::walkIndefinite(std::size_t at, unsigned depth, std::size_t& end) noexcept {
    if (depth > kMaxDepth) {
        return fail(RTERR_TOODEEP, "nesting");
    }
    std::size_t p = at;
    for (;;) {
        if (size_ - p >= 2 && data_[p] == 0 && data_[p + 1] == 0) {
            end = p + 2;
            return true;
        }
        ElementHeader h;
        if (!parseHeader(p, h)) {
            return false;
        }
        p += h.headerLen;
        if (h.indefinite) {
            if (!walkIndefinite(p, depth + 1, p)) {
                return false;
            }
        } else {
            p += h.contentLen;
        }
    }
}

bool BerReader::peekExtent(std::size_t& size) noexcept {
    ElementHeader h;
    if (!peekHeader(h)) {
        return false;
    }
    std::size_t end = pos_ + h.headerLen + h.contentLen;
    if (h.indefinite && !walkIndefinite(pos_ + h.headerLen, depth_ + 1, end)) {
        return false;
    }
    size = end - pos_;
    return true;
}

bool BerReader::skip() noexcept {
    std::size_t size = 0;
    if (!peekExtent(size)) {
        return false;
    }
    pos_ += size;
    return true;
}

bool BerReader::readOpenType(ASN1OpenType& value) noexcept {
    std::size_t size = 0;
    if (!peekExtent(size)) {
        return false;
    }
    if (size > UINT32_MAX) {
        return fail(RTERR_INVLEN, "open type too large");
    }
    value.numocts = static_cast<OSUINT32>(size);
    value.data = data_ + pos_;
    pos_ += size;
    return true;
}

// Parses the next element's header and checks its tag: exactly, or (anyForm) with either
// value of the constructed bit. what names the expected element in diagnostics.
bool BerReader::nextElement(ASN1TAG tag, bool anyForm, ElementHeader& h,
                            const char* what) noexcept {
    if (!peekHeader(h)) {
        return false;
    }
    ASN1TAG mask = anyForm ? ~TM_CONS : ~ASN1TAG{0};
    if ((h.tag & mask) != (tag & mask)) {
        return fail(RTERR_IDNOTFOU, what);
    }
    return true;
}

bool BerReader::enterGeneral(ASN1TAG tag, BerReader& child, const char* name) noexcept {
    child = BerReader();
    child.ctxt_ = ctxt_;
    child.name_ = name != nullptr ? name : name_;
    child.parent_ = this;
    ElementHeader h;
    if (!nextElement(tag, false, h, name != nullptr ? name : "constructed element")) {
        return false;
    }
    if (depth_ >= kMaxDepth) {
        return fail(RTERR_TOODEEP, "nesting");
    }
    std::size_t start = pos_ + h.headerLen;
    child.data_ = data_ + start;
    child.origin_ = origin_ + start;
    child.depth_ = depth_ + 1;
    child.indefinite_ = h.indefinite;
    if (h.indefinite) {
        // The child may look at everything this reader may; leave() moves past it.
        child.size_ = size_ - start;
        child.inputBound_ = inputBound_;
        pos_ = start;
    } else {
        child.size_ = h.contentLen;
        child.inputBound_ = false;
        pos_ = start + h.contentLen;
    }
    return true;
}

bool BerReader::leaveGeneral(BerReader& child) noexcept {
    if (!live()) {
        return false;
    }
    if (child.ctxt_ != ctxt_ || child.depth_ != depth_ + 1) {
        return fail(RTERR_INVPARAM, "leave without enter");
    }
    // What is wrong now is the child's element as a whole, not the field it read last.
    child.field_ = nullptr;
    child.item_ = kNoItem;
    if (!child.indefinite_) {
        if (child.origin_ + child.size_ != offset()) {
            return fail(RTERR_INVPARAM, "reader used while a child was open");
        }
        return child.pos_ == child.size_ || child.fail(RTERR_TRAILING, "unread contents");
    }
    if (child.origin_ != offset()) {
        return fail(RTERR_INVPARAM, "reader used while a child was open");
    }
    if (!child.atEoc()) {
        // Fewer than two octets left: the end-of-contents octets were cut off.
        if (child.size_ - child.pos_ < 2) {
            return child.overrun();
        }
        return child.fail(RTERR_TRAILING, "unread contents");
    }
    pos_ += child.pos_ + 2;
    child.pos_ = child.size_; // a second leave() fails the position check
    return true;
}

} // namespace Velmor::Asn1Rt
