// BER reader: primitive values, and strings in primitive or constructed form.
#include "asn1/asn1_detail.h"
#include "asn1/asn1_digits.h"
#include "asn1/asn1_reader.h"

#include <array>
#include <cstring>

namespace Velmor::Asn1Rt {

namespace {

// True when a two's complement INTEGER's first octet is redundant (DER minimality).
bool redundantLeadingOctet(const ASN1OCTET* p, std::size_t size) {
    return size > 1 &&
           ((p[0] == 0x00 && (p[1] & 0x80) == 0) || (p[0] == 0xFF && (p[1] & 0x80) != 0));
}

} // namespace

// Collects the segments of a constructed string: first measuring (out == nullptr), then
// copying into out. For BIT STRING only the last segment may have unused bits.
struct BerReader::Gather {
    ASN1TAG segTag;
    ASN1TAG altSegTag;
    bool bits;
    ASN1OCTET* out = nullptr;
    std::size_t cap = 0;
    std::size_t len = 0;
    int lastUnused = -1; // unused-bit count of the latest BIT STRING segment; -1 for none
};

bool BerReader::takePrimitiveGeneral(ASN1TAG tag, const char* what, const ASN1OCTET*& data,
                                     std::size_t& size) noexcept {
    ElementHeader h;
    if (!nextElement(tag, false, h, what)) {
        return false;
    }
    if ((h.tag & TM_CONS) != 0) {
        return fail(RTERR_BADVALUE, "constructed form of a primitive type");
    }
    data = data_ + pos_ + h.headerLen;
    size = h.contentLen;
    pos_ += h.headerLen + h.contentLen;
    return true;
}

bool BerReader::readPrimitive(ASN1TAG tag, const ASN1OCTET*& data, std::size_t& size) noexcept {
    return takePrimitive(tag, "primitive element", data, size);
}

bool BerReader::readBool(OSBOOL& value, ASN1TAG tag) noexcept {
    const std::size_t start = offset();
    const ASN1OCTET* p = nullptr;
    std::size_t n = 0;
    if (!takePrimitive(tag, "BOOLEAN", p, n)) {
        return false;
    }
    if (n != 1) {
        return failElement(start, RTERR_BADVALUE, "BOOLEAN length");
    }
    value = p[0] != 0;
    return true;
}

// INTEGER or ENUMERATED contents into 32 bits: non-empty, minimal, at most 4 octets.
bool BerReader::readSmallInt(OSINT32& value, ASN1TAG tag, const char* what) noexcept {
    const std::size_t start = offset();
    const ASN1OCTET* p = nullptr;
    std::size_t n = 0;
    if (!takePrimitive(tag, what, p, n)) {
        return false;
    }
    if (n == 0 || n > 4 || redundantLeadingOctet(p, n)) {
        return failElement(start, RTERR_BADVALUE, what);
    }
    std::uint32_t v = (p[0] & 0x80) != 0 ? 0xFFFFFFFFu : 0u;
    for (std::size_t i = 0; i < n; ++i) {
        v = (v << 8) | p[i];
    }
    value = static_cast<OSINT32>(v);
    return true;
}

bool BerReader::readInt(OSINT32& value, ASN1TAG tag) noexcept {
    return readSmallInt(value, tag, "INTEGER");
}

bool BerReader::readEnum(OSINT32& value, ASN1TAG tag) noexcept {
    return readSmallInt(value, tag, "ENUMERATED");
}

bool BerReader::readBigInt(ASN1TDynBigInt& value, ASN1TAG tag) noexcept {
    const std::size_t start = offset();
    const ASN1OCTET* p = nullptr;
    std::size_t n = 0;
    if (!takePrimitive(tag, "INTEGER", p, n)) {
        return false;
    }
    if (n == 0) {
        return failElement(start, RTERR_BADVALUE, "empty INTEGER");
    }
    if (n > UINT32_MAX) {
        return failElement(start, RTERR_INVLEN, "INTEGER too large");
    }
    value.numocts = static_cast<OSUINT32>(n);
    value.data = p;
    return true;
}

bool BerReader::readNull(ASN1TAG tag) noexcept {
    const std::size_t start = offset();
    const ASN1OCTET* p = nullptr;
    std::size_t n = 0;
    if (!takePrimitive(tag, "NULL", p, n)) {
        return false;
    }
    return n == 0 || failElement(start, RTERR_BADVALUE, "NULL length");
}

bool BerReader::readOid(ASN1OBJID& value, ASN1TAG tag) noexcept {
    const std::size_t start = offset();
    const ASN1OCTET* p = nullptr;
    std::size_t n = 0;
    if (!takePrimitive(tag, "OBJECT IDENTIFIER", p, n)) {
        return false;
    }
    if (!oidContentsValid(p, n)) {
        return failElement(start, RTERR_BADVALUE, "OBJECT IDENTIFIER");
    }
    if (n > UINT32_MAX) {
        return failElement(start, RTERR_INVLEN, "OBJECT IDENTIFIER");
    }
    value.numocts = static_cast<OSUINT32>(n);
    value.data = p;
    return true;
}

// Walks the segments inside this (entered) reader into g; nested constructed segments are
// entered, so their depth is limited like any element's.
bool BerReader::gather(Gather& g) noexcept {
    while (more()) {
        ElementHeader h;
        if (!peekHeader(h)) {
            return false;
        }
        ASN1TAG form = h.tag & ~TM_CONS;
        if (form != g.segTag && form != g.altSegTag) {
            return fail(RTERR_IDNOTFOU, "string segment");
        }
        if ((h.tag & TM_CONS) != 0) {
            BerReader inner;
            if (!enter(h.tag, inner) || !inner.gather(g) || !leave(inner)) {
                return false;
            }
            continue;
        }
        const std::size_t start = offset();
        const ASN1OCTET* p = nullptr;
        std::size_t n = 0;
        if (!takePrimitive(h.tag, "string segment", p, n)) {
            return false;
        }
        if (g.bits) {
            if (n == 0 || p[0] > 7 || (n == 1 && p[0] != 0)) {
                return failElement(start, RTERR_BADVALUE, "BIT STRING segment");
            }
            if (g.lastUnused > 0) {
                return failElement(start, RTERR_BADVALUE,
                                   "unused bits in a BIT STRING segment before the last");
            }
            g.lastUnused = p[0];
            ++p;
            --n;
        }
        if (g.out != nullptr && n != 0) {
            if (n > g.cap - g.len) {
                return fail(RTERR_INVPARAM, "string segments changed between passes");
            }
            std::memcpy(g.out + g.len, p, n);
        }
        g.len += n; // cannot overflow: the segments lie inside the input
    }
    return ok();
}

// Reads the constructed string element with tag into g.out (arena): one pass measures,
// the second, over the same octets, copies.
bool BerReader::readConstructed(Gather& g, ASN1TAG tag) noexcept {
    BerReader saved = *this;
    BerReader inner;
    if (!enter(tag, inner, "constructed string") || !inner.gather(g) || !leave(inner)) {
        return false;
    }
    if (g.len > UINT32_MAX) {
        return failElement(saved.offset(), RTERR_INVLEN, "string too long");
    }
    g.out = static_cast<ASN1OCTET*>(rtMemHeapAlloc(ctxt_, g.len));
    if (g.out == nullptr) {
        return failElement(saved.offset(), RTERR_NOMEM, "constructed string");
    }
    g.cap = g.len;
    g.len = 0;
    g.lastUnused = -1;
    *this = saved;
    return enter(tag, inner, "constructed string") && inner.gather(g) && leave(inner);
}

bool BerReader::readOctStr(ASN1TDynOctStr& value, ASN1TAG tag) noexcept {
    if (takeShortString(tag, value)) {
        return true;
    }
    ElementHeader h;
    if (!nextElement(tag, true, h, "OCTET STRING")) {
        return false;
    }
    if ((h.tag & TM_CONS) != 0) {
        Gather g{ASN1TAG_OCTETSTRING, ASN1TAG_OCTETSTRING, false};
        if (!readConstructed(g, h.tag)) {
            return false;
        }
        value.numocts = static_cast<OSUINT32>(g.len);
        value.data = g.out;
        return true;
    }
    if (h.contentLen > UINT32_MAX) {
        return fail(RTERR_INVLEN, "OCTET STRING too long");
    }
    value.numocts = static_cast<OSUINT32>(h.contentLen);
    value.data = data_ + pos_ + h.headerLen;
    pos_ += h.headerLen + h.contentLen;
    return true;
}

bool BerReader::readBitStr(ASN1TDynBitStr& value, ASN1TAG tag) noexcept {
    const std::size_t start = offset();
    ElementHeader h;
    if (!nextElement(tag, true, h, "BIT STRING")) {
        return false;
    }
    Gather g{ASN1TAG_BITSTRING, ASN1TAG_BITSTRING, true};
    const ASN1OCTET* bytes = nullptr;
    if ((h.tag & TM_CONS) != 0) {
        if (!readConstructed(g, h.tag)) {
            return false;
        }
        bytes = g.out;
    } else {
        const ASN1OCTET* p = nullptr;
        std::size_t n = 0;
        if (!takePrimitive(h.tag, "BIT STRING", p, n)) {
            return false;
        }
        if (n == 0 || p[0] > 7 || (n == 1 && p[0] != 0)) {
            return failElement(start, RTERR_BADVALUE, "BIT STRING unused bits");
        }
        g.lastUnused = p[0];
        g.len = n - 1;
        bytes = n > 1 ? p + 1 : nullptr;
    }
    if (g.len > (UINT32_MAX >> 3)) {
        return failElement(start, RTERR_INVLEN, "BIT STRING too long");
    }
    value.numbits = static_cast<OSUINT32>(g.len * 8 - (g.lastUnused > 0 ? g.lastUnused : 0));
    value.data = g.len == 0 ? nullptr : bytes;
    return true;
}

// Contents of a character string or time, primitive (a view) or constructed (concatenated
// OCTET STRING segments, or segments carrying the string's own universal tag).
bool BerReader::readStringBytes(ASN1TAG tag, ASN1TDynOctStr& value) noexcept {
    if (takeShortString(tag, value)) {
        return true;
    }
    ElementHeader h;
    if (!nextElement(tag, true, h, "character string")) {
        return false;
    }
    if ((h.tag & TM_CONS) == 0) {
        return readOctStr(value, h.tag);
    }
    ASN1TAG own = (tag & TM_CLASS_MASK) == TM_UNIV ? (tag & ~TM_CONS) : ASN1TAG_OCTETSTRING;
    Gather g{ASN1TAG_OCTETSTRING, own, false};
    if (!readConstructed(g, h.tag)) {
        return false;
    }
    value.numocts = static_cast<OSUINT32>(g.len);
    value.data = g.out;
    return true;
}

bool BerReader::readString(ASN1TDynOctStr& value, ASN1TAG tag) noexcept {
    return readStringBytes(tag, value);
}

bool BerReader::readString(const char*& value, ASN1TAG tag) noexcept {
    const std::size_t start = offset();
    ASN1TDynOctStr raw;
    if (!readStringBytes(tag, raw)) {
        return false;
    }
    if (raw.numocts != 0 && std::memchr(raw.data, 0, raw.numocts) != nullptr) {
        return failElement(start, RTERR_BADVALUE, "NUL in character string");
    }
    char* text = rtMemStrNDup(ctxt_, raw.data, raw.numocts);
    if (text == nullptr) {
        return failElement(start, RTERR_NOMEM, "character string");
    }
    value = text;
    return true;
}

namespace {

// Whether every octet is one a time may be written with: 0-9 . , + - Z (so no NUL either).
bool IsTimeText(const ASN1OCTET* text, std::size_t size) noexcept {
    if (IsDerTimeForm(text, size)) {
        return true;
    }
    static constexpr auto kAllowed = [] {
        std::array<bool, 256> allowed{};
        for (char c : {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', '.', ',', '+', '-', 'Z'}) {
            allowed[static_cast<unsigned char>(c)] = true;
        }
        return allowed;
    }();
    unsigned char valid = 1;
    for (std::size_t i = 0; i < size; ++i) {
        valid &= static_cast<unsigned char>(kAllowed[text[i]]);
    }
    return valid != 0;
}

} // namespace

bool BerReader::readTime(const char*& value, ASN1TAG tag) noexcept {
    const std::size_t start = offset();
    ASN1TDynOctStr raw;
    if (!takeShortString(tag, raw) && !readStringBytes(tag, raw)) {
        return false;
    }
    if (!IsTimeText(raw.data, raw.numocts)) {
        return failElement(start, RTERR_BADVALUE, "character in a time");
    }
    // The DER form's fifteen characters and NUL are copied with fixed sizes.
    char* text = raw.numocts == 15 ? static_cast<char*>(rtMemHeapAlloc(ctxt_, 16))
                                   : rtMemStrNDup(ctxt_, raw.data, raw.numocts);
    if (text == nullptr) {
        return failElement(start, RTERR_NOMEM, "time");
    }
    if (raw.numocts == 15) {
        std::memcpy(text, raw.data, 15);
        text[15] = '\0';
    }
    value = text;
    return true;
}

// ---- Shared validation

bool oidContentsValid(const ASN1OCTET* data, std::size_t size) noexcept {
    if (size == 0 || data == nullptr || (data[size - 1] & 0x80) != 0) {
        return false;
    }
    // A subidentifier may not start with 0x80: without any such octet there is nothing to
    // look at more closely.
    if (std::memchr(data, 0x80, size) == nullptr) {
        return true;
    }
    bool subidStart = true;
    for (std::size_t i = 0; i < size; ++i) {
        if (subidStart && data[i] == 0x80) {
            return false;
        }
        subidStart = (data[i] & 0x80) == 0;
    }
    return true;
}

} // namespace Velmor::Asn1Rt
