// Eight ASCII digits at a time, for the fixed-width times that every OCSP message carries.
#ifndef VELMOR_SRC_ASN1_ASN1_DIGITS_H
#define VELMOR_SRC_ASN1_ASN1_DIGITS_H

#include <cstdint>
#include <cstring>

namespace Velmor::Asn1Rt {

// Whether the eight octets at text are all '0'..'9'.
inline bool EightDigits(const unsigned char* text) noexcept {
    std::uint64_t x = 0;
    std::memcpy(&x, text, sizeof x);
    constexpr std::uint64_t kHighNibbles = 0xF0F0F0F0F0F0F0F0u;
    constexpr std::uint64_t kZeros = 0x3030303030303030u;
    constexpr std::uint64_t kSixes = 0x0606060606060606u;
    // The high nibble of each octet is 3, and adding 6 to its low nibble does not carry.
    return (x & kHighNibbles) == kZeros && ((x + kSixes) & kHighNibbles) == kZeros;
}

// Whether the size octets at text are YYYYMMDDHHMMSSZ as to its characters (not its ranges):
// fourteen digits and a Z, the form DER gives every GeneralizedTime without fraction.
inline bool IsDerTimeForm(const unsigned char* text, std::size_t size) noexcept {
    return size == 15 && text[14] == 'Z' && EightDigits(text) && EightDigits(text + 6);
}

} // namespace Velmor::Asn1Rt

#endif
