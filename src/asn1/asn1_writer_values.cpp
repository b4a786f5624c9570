// DER encode buffer: primitive values. Each writer prepends the contents, then the
// identifier and length, and returns the element's length or a negative status.
#include "asn1/asn1_buffer.h"
#include "asn1/asn1_detail.h"

#include <cstring>

namespace {

// Minimal two's complement octets of v, right-aligned in out[4]; returns the count.
std::size_t minimalInt(OSINT32 v, ASN1OCTET out[4]) {
    auto u = static_cast<std::uint32_t>(v);
    for (int i = 0; i < 4; ++i) {
        out[i] = static_cast<ASN1OCTET>(u >> (24 - 8 * i));
    }
    std::size_t skip = 0;
    while (skip < 3 && ((out[skip] == 0x00 && (out[skip + 1] & 0x80) == 0) ||
                        (out[skip] == 0xFF && (out[skip + 1] & 0x80) != 0))) {
        ++skip;
    }
    return skip;
}

// Big-endian two's complement of a decimal text (digits only, at least one) into out,
// which has room for size octets (enough for the magnitude plus a sign octet).
void decimalToTwosComplement(const char* digits, std::size_t count, bool negative, ASN1OCTET* out,
                             std::size_t size) {
    std::memset(out, 0, size);
    for (std::size_t d = 0; d < count; ++d) {
        unsigned carry = static_cast<unsigned>(digits[d] - '0');
        for (std::size_t i = size; i > 0; --i) {
            unsigned v = out[i - 1] * 10u + carry;
            out[i - 1] = static_cast<ASN1OCTET>(v);
            carry = v >> 8;
        }
    }
    if (negative) {
        unsigned carry = 1;
        for (std::size_t i = size; i > 0; --i) {
            unsigned v = static_cast<ASN1OCTET>(~out[i - 1]) + carry;
            out[i - 1] = static_cast<ASN1OCTET>(v);
            carry = v >> 8;
        }
    }
}

} // namespace

int ASN1BEREncodeBuffer::putBool(OSBOOL value, ASN1TAG tag) noexcept {
    putByte(value ? 0xFF : 0x00);
    return wrapLast(tag, 1);
}

int ASN1BEREncodeBuffer::putInt(OSINT32 value, ASN1TAG tag) noexcept {
    ASN1OCTET octets[4];
    std::size_t skip = minimalInt(value, octets);
    putBytes(octets + skip, 4 - skip);
    return wrapLast(tag, 4 - skip);
}

int ASN1BEREncodeBuffer::putEnum(OSINT32 value, ASN1TAG tag) noexcept { return putInt(value, tag); }

int ASN1BEREncodeBuffer::putNull(ASN1TAG tag) noexcept { return putTagLen(tag, 0); }

// Hex text (after "0x") written as the octets it spells; an odd digit count gets a
// leading 0 digit. Decoded straight into the buffer, last octet first.
static int putHexOctets(ASN1BEREncodeBuffer& b, const char* hex, std::size_t digits) {
    std::size_t octets = (digits + 1) / 2;
    std::size_t d = digits;
    for (std::size_t i = 0; i < octets; ++i) {
        int lo = Velmor::Asn1Rt::hexDigitValue(hex[--d]);
        int hi = d > 0 ? Velmor::Asn1Rt::hexDigitValue(hex[--d]) : 0;
        if (lo < 0 || hi < 0) {
            return b.fail(RTERR_INVPARAM, "INTEGER text");
        }
        b.putByte(static_cast<ASN1OCTET>(hi << 4 | lo));
    }
    return b.ok() ? static_cast<int>(octets) : b.getStatus();
}

// Decimal text with an optional '-' written as minimal two's complement.
static int putDecimal(ASN1BEREncodeBuffer& b, const char* text) {
    bool negative = text[0] == '-';
    const char* digits = text + (negative ? 1 : 0);
    std::size_t count = std::strlen(digits);
    if (count == 0 || std::strspn(digits, "0123456789") != count) {
        return b.fail(RTERR_INVPARAM, "INTEGER text");
    }
    // 2 decimal digits never need more than one octet; one more octet holds the sign.
    std::size_t size = count / 2 + 2;
    ASN1OCTET local[128];
    ASN1OCTET* out = local;
    if (size > sizeof local) {
        out = static_cast<ASN1OCTET*>(rtMemHeapAlloc(b.getCtxtPtr(), size));
        if (out == nullptr) {
            return b.fail(RTERR_NOMEM, "INTEGER");
        }
    }
    decimalToTwosComplement(digits, count, negative, out, size);
    std::size_t skip = 0;
    while (skip + 1 < size && ((out[skip] == 0x00 && (out[skip + 1] & 0x80) == 0) ||
                               (out[skip] == 0xFF && (out[skip + 1] & 0x80) != 0))) {
        ++skip;
    }
    return b.putBytes(out + skip, size - skip);
}

int ASN1BEREncodeBuffer::putBigInt(ASN1TDynBigInt value, ASN1TAG tag) noexcept {
    if (!ok()) {
        return ctxt_.status;
    }
    if (value == nullptr) {
        return fail(RTERR_INVPARAM, "null INTEGER text");
    }
    std::size_t mark = used_;
    if (value[0] == '0' && (value[1] == 'x' || value[1] == 'X')) {
        std::size_t digits = std::strlen(value + 2);
        if (digits == 0) {
            return fail(RTERR_INVPARAM, "INTEGER text without digits");
        }
        putHexOctets(*this, value + 2, digits);
    } else {
        putDecimal(*this, value);
    }
    return wrap(tag, mark);
}

int ASN1BEREncodeBuffer::putOid(const ASN1OBJID& value, ASN1TAG tag) noexcept {
    if (!ok()) {
        return ctxt_.status;
    }
    if (!Velmor::Asn1Rt::oidContentsValid(value.data, value.numocts)) {
        return fail(RTERR_BADVALUE, "OBJECT IDENTIFIER");
    }
    putBytes(value.data, value.numocts);
    return wrapLast(tag, value.numocts);
}

int ASN1BEREncodeBuffer::putOctStr(const ASN1OCTET* data, std::size_t size, ASN1TAG tag) noexcept {
    putBytes(data, size);
    return wrapLast(tag, size);
}

int ASN1BEREncodeBuffer::putOctStr(const ASN1TDynOctStr& value, ASN1TAG tag) noexcept {
    return putOctStr(value.data, value.numocts, tag);
}

int ASN1BEREncodeBuffer::putBitStr(const ASN1TDynBitStr& value, ASN1TAG tag) noexcept {
    if (!ok()) {
        return ctxt_.status;
    }
    std::size_t octets = (std::size_t{value.numbits} + 7) / 8;
    auto unused = static_cast<unsigned>((8 - value.numbits % 8) % 8);
    if (octets != 0) {
        if (value.data == nullptr) {
            return fail(RTERR_INVPARAM, "null BIT STRING data");
        }
        // DER: the padding bits of the last octet are zero, whatever the source holds.
        putByte(static_cast<ASN1OCTET>(value.data[octets - 1] & (0xFFu << unused)));
        putBytes(value.data, octets - 1);
    }
    putByte(static_cast<ASN1OCTET>(unused));
    return wrapLast(tag, octets + 1);
}

int ASN1BEREncodeBuffer::putString(const char* text, ASN1TAG tag) noexcept {
    if (text == nullptr) {
        return fail(RTERR_INVPARAM, "null string");
    }
    return putOctStr(reinterpret_cast<const ASN1OCTET*>(text), std::strlen(text), tag);
}

int ASN1BEREncodeBuffer::putString(const ASN1TDynOctStr& value, ASN1TAG tag) noexcept {
    return putOctStr(value.data, value.numocts, tag);
}

int ASN1BEREncodeBuffer::putOpenType(const ASN1OpenType& value) noexcept {
    return putBytes(value.data, value.numocts);
}
