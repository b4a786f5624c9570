#include "foundation/oid_text.h"

#include <algorithm>

namespace Velmor::Codec {

namespace {

// An unsigned decimal number of any size as its digits, most significant first, without
// leading zeros ("" is zero). Arcs are short, so these fit the string's inline storage.
using Decimal = std::string;

void TrimLeadingZeros(Decimal& number) {
    const auto firstNonZero = number.find_first_not_of('0');
    number.erase(0, firstNonZero == Decimal::npos ? number.size() : firstNonZero);
}

// number := number * factor + addend, for small factor and addend.
void MulAdd(Decimal& number, unsigned factor, unsigned addend) {
    unsigned carry = addend;
    for (auto it = number.rbegin(); it != number.rend(); ++it) {
        const unsigned value = static_cast<unsigned>(*it - '0') * factor + carry;
        *it = static_cast<char>('0' + value % 10);
        carry = value / 10;
    }
    for (; carry != 0; carry /= 10) {
        number.insert(number.begin(), static_cast<char>('0' + carry % 10));
    }
    TrimLeadingZeros(number);
}

// number := number / divisor; returns the remainder.
unsigned DivMod(Decimal& number, unsigned divisor) {
    unsigned remainder = 0;
    for (char& digit : number) {
        const unsigned value = remainder * 10 + static_cast<unsigned>(digit - '0');
        digit = static_cast<char>('0' + value / divisor);
        remainder = value % divisor;
    }
    TrimLeadingZeros(number);
    return remainder;
}

// number := number - subtrahend, for number >= subtrahend.
void Subtract(Decimal& number, unsigned subtrahend) {
    unsigned borrow = subtrahend;
    for (auto it = number.rbegin(); it != number.rend() && borrow != 0; ++it) {
        const unsigned digit = static_cast<unsigned>(*it - '0');
        const unsigned take = borrow % 10;
        borrow /= 10;
        if (digit < take) {
            *it = static_cast<char>('0' + digit + 10 - take);
            ++borrow;
        } else {
            *it = static_cast<char>('0' + digit - take);
        }
    }
    TrimLeadingZeros(number);
}

// True when number < limit, for a small limit.
bool LessThan(const Decimal& number, unsigned limit) {
    return number.size() < 10 && (number.empty() ? 0u : std::stoul(number)) < limit;
}

Decimal ToText(const Decimal& number) { return number.empty() ? Decimal("0") : number; }

bool IsDecimalArc(std::string_view arc) {
    if (arc.empty() || (arc.size() > 1 && arc[0] == '0')) {
        return false;
    }
    return std::all_of(arc.begin(), arc.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Writes one subidentifier in base 128 at out; returns the octets written.
std::size_t WriteSubidentifier(Decimal value, std::uint8_t* out) {
    std::string groups; // base-128 digits, least significant first
    do {
        groups.push_back(static_cast<char>(DivMod(value, 128)));
    } while (!value.empty());
    for (std::size_t i = 0; i < groups.size(); ++i) {
        const auto group = static_cast<std::uint8_t>(groups[groups.size() - 1 - i]);
        out[i] = static_cast<std::uint8_t>(group | (i + 1 < groups.size() ? 0x80 : 0x00));
    }
    return groups.size();
}

// Splits dotted text into its arcs; false when an arc is not a plain decimal number.
bool SplitArcs(std::string_view text, std::string_view* arcs, std::size_t capacity,
               std::size_t& count) {
    count = 0;
    for (std::size_t start = 0;;) {
        const std::size_t dot = text.find('.', start);
        const std::string_view arc = text.substr(start, dot == text.npos ? dot : dot - start);
        if (count == capacity || !IsDecimalArc(arc)) {
            return false;
        }
        arcs[count++] = arc;
        if (dot == text.npos) {
            return true;
        }
        start = dot + 1;
    }
}

} // namespace

std::size_t OidTextToContents(std::string_view text, std::uint8_t* out) {
    std::string_view arcs[128];
    std::size_t count = 0;
    if (!SplitArcs(text, arcs, std::size(arcs), count) || count < 2) {
        return 0;
    }
    const unsigned first = static_cast<unsigned>(arcs[0][0] - '0');
    Decimal second(arcs[1]);
    TrimLeadingZeros(second);
    if (arcs[0].size() != 1 || first > 2 || (first < 2 && !LessThan(second, 40))) {
        return 0;
    }
    MulAdd(second, 1, 40 * first);
    std::size_t written = WriteSubidentifier(second, out);
    for (std::size_t i = 2; i < count; ++i) {
        Decimal arc(arcs[i]);
        TrimLeadingZeros(arc);
        written += WriteSubidentifier(arc, out + written);
    }
    return written;
}

bool OidContentsToText(const std::uint8_t* data, std::size_t size, std::string& out) {
    if (size == 0 || (data[size - 1] & 0x80) != 0) {
        return false;
    }
    Decimal value;
    bool atStart = true;
    bool firstArc = true;
    for (std::size_t i = 0; i < size; ++i) {
        if (atStart && data[i] == 0x80) {
            return false; // a subidentifier must not start with a zero group
        }
        MulAdd(value, 128, data[i] & 0x7Fu);
        atStart = (data[i] & 0x80) == 0;
        if (!atStart) {
            continue;
        }
        if (firstArc) {
            // The first subidentifier is 40 * first + second; first 2 takes every value >= 80.
            const unsigned firstValue = LessThan(value, 40) ? 0 : LessThan(value, 80) ? 1 : 2;
            Subtract(value, 40 * firstValue);
            out += static_cast<char>('0' + firstValue);
            firstArc = false;
        }
        out += '.';
        out += ToText(value);
        value.clear();
    }
    return true;
}

} // namespace Velmor::Codec
