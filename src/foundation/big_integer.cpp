// CBigInteger: content octets and their integral and hex forms.

#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/big_integer.h>
#include <utility>
#include <vector>

#include "trace/trace_guard.h"

namespace Velmor::ASN1 {

namespace {

using Octets = std::vector<std::uint8_t>;

// Drops leading octets that only repeat the sign of the octet after them.
void Minimize(Octets& octets) {
    std::size_t skip = 0;
    while (skip + 1 < octets.size()) {
        const bool nextNegative = (octets[skip + 1] & 0x80) != 0;
        const bool redundant =
            (octets[skip] == 0x00 && !nextNegative) || (octets[skip] == 0xFF && nextNegative);
        if (!redundant) {
            break;
        }
        ++skip;
    }
    octets.erase(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(skip));
}

// Two's complement negation at the same width.
void Negate(Octets& octets) {
    unsigned carry = 1;
    for (auto it = octets.rbegin(); it != octets.rend(); ++it) {
        const unsigned sum = static_cast<std::uint8_t>(~*it) + carry;
        *it = static_cast<std::uint8_t>(sum);
        carry = sum >> 8;
    }
}

// The value of a hexadecimal digit of either case; E_INVALIDARG for any other character.
int HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    ATL::AtlThrow(Win32::E_INVALIDARG);
}

// The unsigned big-endian value of hex digits, after a 00 octet that leaves room for a sign.
Octets ReadMagnitude(std::string_view digits) {
    if (digits.empty()) {
        ATL::AtlThrow(Win32::E_INVALIDARG);
    }
    Octets octets(1, 0x00);
    std::size_t i = 0;
    if (digits.size() % 2 != 0) {
        octets.push_back(static_cast<std::uint8_t>(HexValue(digits[i++])));
    }
    for (; i < digits.size(); i += 2) {
        octets.push_back(
            static_cast<std::uint8_t>(HexValue(digits[i]) * 16 + HexValue(digits[i + 1])));
    }
    return octets;
}

CBigInteger FromOctets(Octets octets) {
    Minimize(octets);
    CBigInteger result;
    result.decode(CBlob(octets));
    return result;
}

} // namespace

CBigInteger::CBigInteger() : m_content(CBlob(std::string_view("\0", 1))) {}

CBigInteger::CBigInteger(const CBigInteger& other) = default;
CBigInteger& CBigInteger::operator=(const CBigInteger& other) = default;
CBigInteger::CBigInteger(CBigInteger&& other) noexcept = default;
CBigInteger& CBigInteger::operator=(CBigInteger&& other) noexcept = default;
CBigInteger::~CBigInteger() = default;

void CBigInteger::decode(const CBlob& contentBytes) {
    if (contentBytes.empty()) {
        Trace::ThrowFrom("CBigInteger::decode", Win32::E_INVALIDARG);
    }
    m_content = contentBytes;
}

void CBigInteger::decode(CBlob&& contentBytes) {
    if (contentBytes.empty()) {
        Trace::ThrowFrom("CBigInteger::decode", Win32::E_INVALIDARG);
    }
    m_content = std::move(contentBytes);
}

CBlob CBigInteger::encode() const { return m_content; }

const CBlob& CBigInteger::get_content() const noexcept { return m_content; }

bool CBigInteger::is_negative() const noexcept { return (m_content.pbData()[0] & 0x80) != 0; }

CBigInteger CBigInteger::FromInt64(std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    Octets octets(8);
    for (std::size_t i = 0; i < 8; ++i) {
        octets[7 - i] = static_cast<std::uint8_t>(bits >> (8 * i));
    }
    return FromOctets(std::move(octets));
}

bool CBigInteger::ToInt64(std::int64_t& value) const noexcept {
    // Skip the octets that only repeat the sign; at most eight may remain.
    const unsigned char* octets = m_content.pbData();
    std::size_t size = m_content.cbData();
    while (size > 1 && (octets[0] == 0x00 || octets[0] == 0xFF) &&
           ((octets[0] & 0x80) == (octets[1] & 0x80))) {
        ++octets;
        --size;
    }
    if (size > 8) {
        return false;
    }
    std::uint64_t bits = is_negative() ? ~std::uint64_t{0} : 0;
    for (std::size_t i = 0; i < size; ++i) {
        bits = (bits << 8) | octets[i];
    }
    value = static_cast<std::int64_t>(bits);
    return true;
}

CBigInteger CBigInteger::FromHex(std::string_view text) {
    return Trace::Guard("CBigInteger::FromHex", [&] {
        const bool negative = !text.empty() && text.front() == '-';
        if (negative) {
            text.remove_prefix(1);
        }
        if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
            text.remove_prefix(2);
        }
        Octets octets = ReadMagnitude(text);
        if (negative) {
            Negate(octets);
        }
        return FromOctets(std::move(octets));
    });
}

std::string CBigInteger::ToHex() const {
    Octets magnitude = m_content.to_vector();
    if (is_negative()) {
        Negate(magnitude);
    }
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string digits;
    for (std::uint8_t octet : magnitude) {
        digits += kDigits[octet >> 4];
        digits += kDigits[octet & 0x0F];
    }
    const std::size_t first = digits.find_first_not_of('0');
    digits.erase(0, first == std::string::npos ? digits.size() - 1 : first);
    return is_negative() ? "-" + digits : digits;
}

bool operator==(const CBigInteger& a, const CBigInteger& b) noexcept {
    return a.get_content() == b.get_content();
}

bool operator!=(const CBigInteger& a, const CBigInteger& b) noexcept { return !(a == b); }

} // namespace Velmor::ASN1
