// DerCursor: a strict DER reader over a byte range, for the fast decoding paths.
//
// It accepts only the canonical forms: one-octet identifiers (tag numbers below 31) and
// definite lengths in their shortest form, at most four length octets. Anything else, and
// any truncation, makes a read return false without consuming; the caller then hands the
// whole input to the BER runtime, which either decodes it or reports the precise error.
// Reads never allocate and never touch memory outside the range.
//
//     DerCursor seq;
//     if (!in.read(kDerSequence, seq) || !seq.read(kDerOid, oid)) return false;
#ifndef VELMOR_SRC_ASN1_DER_CURSOR_H
#define VELMOR_SRC_ASN1_DER_CURSOR_H

#include <cstddef>
#include <cstdint>

namespace Velmor::Asn1Rt {

// Identifier octets of the elements the fast paths read.
constexpr std::uint8_t kDerBoolean = 0x01;
constexpr std::uint8_t kDerInteger = 0x02;
constexpr std::uint8_t kDerOctetString = 0x04;
constexpr std::uint8_t kDerNull = 0x05;
constexpr std::uint8_t kDerOid = 0x06;
constexpr std::uint8_t kDerSequence = 0x30;

// The identifier of "[n] EXPLICIT", a constructed context-specific tag.
constexpr std::uint8_t DerExplicit(unsigned n) { return static_cast<std::uint8_t>(0xA0 | n); }

class DerCursor {
  public:
    DerCursor() noexcept = default;
    DerCursor(const std::uint8_t* data, std::size_t size) noexcept : data_(data), size_(size) {}

    const std::uint8_t* data() const noexcept { return data_; }
    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }

    // True when the next element has the identifier octet tag.
    bool peek(std::uint8_t tag) const noexcept { return size_ != 0 && data_[0] == tag; }

    // Consumes the next element, which must have identifier tag, and binds contents to its
    // contents octets.
    bool read(std::uint8_t tag, DerCursor& contents) noexcept {
        std::size_t header = 0;
        std::size_t length = 0;
        if (!peek(tag) || !parseLength(header, length)) {
            return false;
        }
        contents = DerCursor(data_ + header, length);
        advance(header + length);
        return true;
    }

    // As read, and binds element to the whole element (identifier and length included).
    bool readElement(std::uint8_t tag, DerCursor& element, DerCursor& contents) noexcept {
        const std::uint8_t* start = data_;
        if (!read(tag, contents)) {
            return false;
        }
        element =
            DerCursor(start, static_cast<std::size_t>(contents.data_ + contents.size_ - start));
        return true;
    }

  private:
    // Parses the length octets after the identifier: header is the size of identifier and
    // length octets, length the contents' size, which must lie within the range.
    bool parseLength(std::size_t& header, std::size_t& length) const noexcept {
        if (size_ < 2) {
            return false;
        }
        const std::uint8_t first = data_[1];
        if (first < 0x80) {
            header = 2;
            length = first;
        } else {
            const std::size_t octets = first & 0x7Fu;
            if (octets == 0 || octets > 4 || size_ < 2 + octets || data_[2] == 0) {
                return false; // indefinite, too long, truncated, or a leading zero octet
            }
            length = 0;
            for (std::size_t i = 0; i < octets; ++i) {
                length = (length << 8) | data_[2 + i];
            }
            if (length < 0x80) {
                return false; // the short form was required
            }
            header = 2 + octets;
        }
        return length <= size_ - header;
    }

    void advance(std::size_t count) noexcept {
        data_ += count;
        size_ -= count;
    }

    const std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
};

} // namespace Velmor::Asn1Rt

#endif
