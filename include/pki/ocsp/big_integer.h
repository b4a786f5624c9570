// Velmor::ASN1::CBigInteger, an ASN.1 INTEGER of any length (serial numbers).
#ifndef VELMOR_PKI_OCSP_BIG_INTEGER_H
#define VELMOR_PKI_OCSP_BIG_INTEGER_H

#include <cstdint>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>
#include <string>
#include <string_view>

namespace Velmor::ASN1 {

// Holds the INTEGER's content octets: two's complement, big-endian, never empty. The values
// this class produces are minimal; decode() keeps whatever it is given.
class VELMOR_OCSP_API CBigInteger {
  public:
    // The value 0 (content 00).
    CBigInteger();
    CBigInteger(const CBigInteger& other);
    CBigInteger& operator=(const CBigInteger& other);
    // A moved-from integer may only be assigned to or destroyed.
    CBigInteger(CBigInteger&& other) noexcept;
    CBigInteger& operator=(CBigInteger&& other) noexcept;
    ~CBigInteger();

    // Takes the content octets exactly as given, minimal or not. An empty blob throws
    // E_INVALIDARG and leaves the value unchanged.
    void decode(const CBlob& contentBytes);
    // The same, taking over the octets instead of copying them.
    void decode(CBlob&& contentBytes);
    // The content octets.
    CBlob encode() const;
    const CBlob& get_content() const noexcept;

    bool is_negative() const noexcept;

    static CBigInteger FromInt64(std::int64_t value);
    // Stores the value and returns true, or returns false when it does not fit.
    bool ToInt64(std::int64_t& value) const noexcept;

    // Reads [-][0x]digits, hex digits in either case. Throws E_INVALIDARG for anything else.
    static CBigInteger FromHex(std::string_view text);
    // The magnitude in upper-case hex without leading zeros, after '-' for a negative value:
    // "0", "7F", "-80".
    std::string ToHex() const;

  private:
    CBlob m_content;
};

// Equality of the content octets, which for minimal encodings is equality of the values.
VELMOR_OCSP_API bool operator==(const CBigInteger& a, const CBigInteger& b) noexcept;
VELMOR_OCSP_API bool operator!=(const CBigInteger& a, const CBigInteger& b) noexcept;

} // namespace Velmor::ASN1

#endif
