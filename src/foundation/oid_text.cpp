#include "foundation/oid_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

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

// Most arcs fit in 64 bits and take these paths; larger ones (UUID arcs under 2.25) fall
// back to decimal strings.
constexpr std::size_t kMaxFastDigits = 19; // any 19-digit decimal number fits 64 bits
constexpr std::size_t kMaxFastGroups = 9;  // 9 base-128 groups are 63 bits

std::size_t WriteSubidentifier(std::uint64_t value, std::uint8_t* out) {
    std::size_t groups = 1;
    for (std::uint64_t rest = value >> 7; rest != 0; rest >>= 7) {
        ++groups;
    }
    for (std::size_t i = 0; i < groups; ++i) {
        const auto group = static_cast<std::uint8_t>((value >> (7 * (groups - 1 - i))) & 0x7F);
        out[i] = static_cast<std::uint8_t>(group | (i + 1 < groups ? 0x80 : 0x00));
    }
    return groups;
}

// Writes the subidentifier of a decimal arc plus addend (the first subidentifier adds
// 40 * the first arc).
std::size_t WriteArc(std::string_view arc, unsigned addend, std::uint8_t* out) {
    if (arc.size() <= kMaxFastDigits) {
        std::uint64_t value = 0;
        std::from_chars(arc.data(), arc.data() + arc.size(), value);
        if (value <= UINT64_MAX - addend) {
            return WriteSubidentifier(value + addend, out);
        }
    }
    Decimal value(arc);
    MulAdd(value, 1, addend);
    return WriteSubidentifier(value, out);
}

// Gathers text in a stack buffer and hands it to a string in few appends: an OID's text is
// built from many short pieces.
class TextSink {
  public:
    explicit TextSink(std::string& out) noexcept : out_(out) {}
    TextSink(const TextSink&) = delete;
    TextSink& operator=(const TextSink&) = delete;

    void put(char c) {
        makeRoom(1);
        buffer_[used_++] = c;
    }
    void putNumber(std::uint64_t value) {
        makeRoom(20); // the digits of 2^64 - 1
        used_ = static_cast<std::size_t>(
            std::to_chars(buffer_ + used_, buffer_ + kSize, value).ptr - buffer_);
    }
    void putText(std::string_view text) {
        flush();
        out_.append(text);
    }
    void flush() {
        out_.append(buffer_, used_);
        used_ = 0;
    }

  private:
    static constexpr std::size_t kSize = 128;
    void makeRoom(std::size_t size) {
        if (kSize - used_ < size) {
            flush();
        }
    }

    std::string& out_;
    char buffer_[kSize];
    std::size_t used_ = 0;
};

// Puts ".arc" for the subidentifier in data[0, size); for the first one, "f.arc" with its
// first arc f split off.
void PutSubidentifier(const std::uint8_t* data, std::size_t size, bool first, TextSink& out) {
    if (size <= kMaxFastGroups) {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            value = (value << 7) | (data[i] & 0x7Fu);
        }
        if (first) {
            // The first subidentifier is 40 * first + second; first 2 takes every value >= 80.
            const unsigned firstArc = value < 40 ? 0 : value < 80 ? 1 : 2;
            out.put(static_cast<char>('0' + firstArc));
            value -= 40 * firstArc;
        }
        out.put('.');
        out.putNumber(value);
        return;
    }
    Decimal value;
    for (std::size_t i = 0; i < size; ++i) {
        MulAdd(value, 128, data[i] & 0x7Fu);
    }
    if (first) {
        out.put('2'); // more than 63 bits: far above 80
        Subtract(value, 80);
    }
    out.put('.');
    out.putText(ToText(value));
}

} // namespace

namespace {

struct KnownOid {
    std::string_view contents;
    std::string_view text;
};

// The OIDs that OCSP messages carry, whose text is looked up rather than computed: the OCSP
// arc (the access method, response types and extensions), the CRL entry extensions, the usual
// hashes, and the signature and key algorithms.
constexpr KnownOid kKnownOids[] = {
    {"\x2b\x06\x01\x05\x05\x07\x30\x01\x01", "1.3.6.1.5.5.7.48.1.1"},
    {"\x2b\x06\x01\x05\x05\x07\x30\x01\x02", "1.3.6.1.5.5.7.48.1.2"},
    {"\x2b\x0e\x03\x02\x1a", "1.3.14.3.2.26"},
    {"\x60\x86\x48\x01\x65\x03\x04\x02\x01", "2.16.840.1.101.3.4.2.1"},
    {"\x2a\x86\x48\x86\xf7\x0d\x01\x01\x0b", "1.2.840.113549.1.1.11"},
    {"\x2a\x86\x48\xce\x3d\x04\x03\x02", "1.2.840.10045.4.3.2"},
    {"\x2a\x86\x48\x86\xf7\x0d\x01\x01\x01", "1.2.840.113549.1.1.1"},
    {"\x2a\x86\x48\xce\x3d\x02\x01", "1.2.840.10045.2.1"},
    {"\x2b\x06\x01\x05\x05\x07\x30\x01", "1.3.6.1.5.5.7.48.1"},
    {"\x2b\x06\x01\x05\x05\x07\x30\x01\x03", "1.3.6.1.5.5.7.48.1.3"},
    {"\x2b\x06\x01\x05\x05\x07\x30\x01\x04", "1.3.6.1.5.5.7.48.1.4"},
    {"\x2b\x06\x01\x05\x05\x07\x30\x01\x05", "1.3.6.1.5.5.7.48.1.5"},
    {"\x2b\x06\x01\x05\x05\x07\x30\x01\x06", "1.3.6.1.5.5.7.48.1.6"},
    {"\x2b\x06\x01\x05\x05\x07\x30\x01\x07", "1.3.6.1.5.5.7.48.1.7"},
    {"\x2b\x06\x01\x05\x05\x07\x30\x01\x08", "1.3.6.1.5.5.7.48.1.8"},
    {"\x2b\x06\x01\x05\x05\x07\x30\x01\x09", "1.3.6.1.5.5.7.48.1.9"},
    {"\x2b\x06\x01\x05\x05\x07\x30\x02", "1.3.6.1.5.5.7.48.2"},
    {"\x55\x1d\x15", "2.5.29.21"},
    {"\x55\x1d\x18", "2.5.29.24"},
    {"\x55\x1d\x1d", "2.5.29.29"},
    {"\x60\x86\x48\x01\x65\x03\x04\x02\x02", "2.16.840.1.101.3.4.2.2"},
    {"\x60\x86\x48\x01\x65\x03\x04\x02\x03", "2.16.840.1.101.3.4.2.3"},
    {"\x2a\x86\x48\x86\xf7\x0d\x01\x01\x05", "1.2.840.113549.1.1.5"},
    {"\x2a\x86\x48\x86\xf7\x0d\x01\x01\x0a", "1.2.840.113549.1.1.10"},
    {"\x2a\x86\x48\x86\xf7\x0d\x01\x01\x0c", "1.2.840.113549.1.1.12"},
    {"\x2a\x86\x48\x86\xf7\x0d\x01\x01\x0d", "1.2.840.113549.1.1.13"},
    {"\x2a\x86\x48\xce\x3d\x03\x01\x07", "1.2.840.10045.3.1.7"},
    {"\x2a\x86\x48\xce\x3d\x04\x03\x03", "1.2.840.10045.4.3.3"},
    {"\x2a\x86\x48\xce\x3d\x04\x03\x04", "1.2.840.10045.4.3.4"},
    {"\x2b\x65\x70", "1.3.101.112"},
};

// Whether a and b hold the same size octets. Eight or four are compared at a time, the last
// group overlapping the one before, so that an OID takes a few loads and no call.
bool SameOctets(const char* a, const char* b, std::size_t size) noexcept {
    const auto load = [](const char* at, auto word) {
        std::memcpy(&word, at, sizeof word);
        return word;
    };
    if (size >= 8) {
        for (std::size_t i = 0; i + 8 < size; i += 8) {
            if (load(a + i, std::uint64_t{}) != load(b + i, std::uint64_t{})) {
                return false;
            }
        }
        return load(a + size - 8, std::uint64_t{}) == load(b + size - 8, std::uint64_t{});
    }
    if (size >= 4) {
        return load(a, std::uint32_t{}) == load(b, std::uint32_t{}) &&
               load(a + size - 4, std::uint32_t{}) == load(b + size - 4, std::uint32_t{});
    }
    bool same = true;
    for (std::size_t i = 0; i < size; ++i) {
        same &= a[i] == b[i];
    }
    return same;
}

// The table is found through an open-addressed index of row numbers, hashed from a key's size,
// last octet and middle octet (weights chosen so that no two rows of today's table share a
// slot): a lookup reads one or two slots, whatever the row's place.
constexpr std::size_t kIndexSlots = 128;

constexpr std::size_t IndexSlot(std::string_view key) {
    const auto octet = [&](std::size_t at) { return static_cast<unsigned char>(key[at]); };
    return (key.size() + 9 * octet(key.size() - 1) + 23 * octet(key.size() / 2)) % kIndexSlots;
}

template <std::string_view KnownOid::*Key> struct KnownIndex {
    std::array<std::uint8_t, kIndexSlots> rows{}; // row number + 1; 0 ends a probe
    std::size_t longestProbe = 0;

    constexpr KnownIndex() {
        static_assert(std::size(kKnownOids) < 255 && std::size(kKnownOids) < kIndexSlots / 2);
        for (std::size_t row = 0; row < std::size(kKnownOids); ++row) {
            std::size_t slot = IndexSlot(kKnownOids[row].*Key);
            std::size_t probe = 1;
            for (; rows[slot] != 0; slot = (slot + 1) % kIndexSlots) {
                ++probe;
            }
            rows[slot] = static_cast<std::uint8_t>(row + 1);
            longestProbe = probe > longestProbe ? probe : longestProbe;
        }
    }
};

template <std::string_view KnownOid::*Key> constexpr KnownIndex<Key> kKnownIndex{};
static_assert(kKnownIndex<&KnownOid::contents>.longestProbe <= 2, "choose other weights");
static_assert(kKnownIndex<&KnownOid::text>.longestProbe <= 2, "choose other weights");

// The row whose Key equals key, or null.
template <std::string_view KnownOid::*Key>
const KnownOid* FindKnown(std::string_view key) noexcept {
    if (key.empty()) {
        return nullptr;
    }
    for (std::size_t slot = IndexSlot(key);; slot = (slot + 1) % kIndexSlots) {
        const std::uint8_t row = kKnownIndex<Key>.rows[slot];
        if (row == 0) {
            return nullptr;
        }
        const std::string_view candidate = kKnownOids[row - 1].*Key;
        if (candidate.size() == key.size() &&
            SameOctets(candidate.data(), key.data(), key.size())) {
            return &kKnownOids[row - 1];
        }
    }
}

} // namespace

std::size_t OidTextToContents(std::string_view text, std::uint8_t* out) {
    if (const KnownOid* known = FindKnown<&KnownOid::text>(text)) {
        std::memcpy(out, known->contents.data(), known->contents.size());
        return known->contents.size();
    }
    constexpr std::size_t kMaxArcs = 128;
    std::size_t count = 0;
    std::size_t written = 0;
    unsigned first = 0;
    for (std::size_t start = 0;;) {
        const std::size_t dot = text.find('.', start);
        const std::string_view arc = text.substr(start, dot == text.npos ? dot : dot - start);
        if (count == kMaxArcs || !IsDecimalArc(arc)) {
            return 0;
        }
        if (count == 0) {
            if (arc.size() != 1 || arc[0] > '2') {
                return 0;
            }
            first = static_cast<unsigned>(arc[0] - '0');
        } else if (count == 1) {
            // Below the arc 2, the second arc is less than 40.
            if (first < 2 && (arc.size() > 2 || (arc.size() == 2 && arc[0] >= '4'))) {
                return 0;
            }
            written = WriteArc(arc, 40 * first, out);
        } else {
            written += WriteArc(arc, 0, out + written);
        }
        ++count;
        if (dot == text.npos) {
            return count >= 2 ? written : 0;
        }
        start = dot + 1;
    }
}

std::string_view KnownOidText(const std::uint8_t* data, std::size_t size) noexcept {
    const KnownOid* known =
        FindKnown<&KnownOid::contents>(std::string_view(reinterpret_cast<const char*>(data), size));
    return known != nullptr ? known->text : std::string_view();
}

bool OidContentsToText(const std::uint8_t* data, std::size_t size, std::string& out) {
    if (const std::string_view known = KnownOidText(data, size); !known.empty()) {
        out += known;
        return true;
    }
    return ComputeOidText(data, size, out);
}

bool ComputeOidText(const std::uint8_t* data, std::size_t size, std::string& out) {
    if (size == 0 || (data[size - 1] & 0x80) != 0) {
        return false;
    }
    TextSink sink(out);
    for (std::size_t start = 0; start < size;) {
        if (data[start] == 0x80) {
            return false; // a subidentifier must not start with a zero group
        }
        std::size_t end = start;
        while (data[end] & 0x80) {
            ++end;
        }
        PutSubidentifier(data + start, end + 1 - start, start == 0, sink);
        start = end + 1;
    }
    sink.flush();
    return true;
}

std::vector<std::string_view> KnownOidTexts() {
    std::vector<std::string_view> texts;
    for (const KnownOid& known : kKnownOids) {
        texts.push_back(known.text);
    }
    return texts;
}

} // namespace Velmor::Codec
