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

int ASN1BEREncodeBuffer::putBigInt(const ASN1TDynBigInt& value, ASN1TAG tag) noexcept {
    if (value.numocts == 0 || value.data == nullptr) {
        return fail(RTERR_INVPARAM, "empty INTEGER");
    }
    putBytes(value.data, value.numocts);
    return wrapLast(tag, value.numocts);
}

int ASN1BEREncodeBuffer::putUnsigned(OSUINT32 value, ASN1TAG tag) noexcept {
    ASN1OCTET octets[5] = {0, static_cast<ASN1OCTET>(value >> 24),
                           static_cast<ASN1OCTET>(value >> 16), static_cast<ASN1OCTET>(value >> 8),
                           static_cast<ASN1OCTET>(value)};
    std::size_t skip = 0;
    while (skip < 4 && octets[skip] == 0 && (octets[skip + 1] & 0x80) == 0) {
        ++skip;
    }
    putBytes(octets + skip, 5 - skip);
    return wrapLast(tag, 5 - skip);
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
