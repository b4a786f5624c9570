// Velmor::CDateTime, a point in time with nanosecond resolution, and its GeneralizedTime
// text form.
#ifndef VELMOR_PKI_OCSP_DATETIME_H
#define VELMOR_PKI_OCSP_DATETIME_H

#include <chrono>
#include <cstdint>
#include <pki/ocsp/config.h>
#include <string>

namespace Velmor {

// Seconds since 1970-01-01T00:00:00Z (negative before it) plus the nanoseconds within that
// second. CDateTime(0, 0), also the default, is the zero date that stands for an unset time.
class VELMOR_OCSP_API CDateTime {
  public:
    CDateTime() noexcept;
    // Throws E_INVALIDARG when nanoseconds is 1'000'000'000 or more.
    CDateTime(std::int64_t seconds, unsigned int nanoseconds);
    // Parses YYYYMMDDHHMM[SS][(.|,)fraction] followed by Z or +hhmm/-hhmm (converted to UTC).
    // The fraction has at least one digit, follows the seconds only, and any digits past the
    // ninth are dropped. Anything else, null included, throws CRYPT_E_ASN1_INTERNAL, which is
    // what a decoder reports for a malformed time.
    explicit CDateTime(const char* generalizedTime);
    CDateTime(const CDateTime& other) noexcept;
    CDateTime& operator=(const CDateTime& other) noexcept;
    ~CDateTime();

    // The same parse as the text constructor: stores the time in result and returns true, or
    // returns false and leaves result unchanged.
    static bool TryParseGeneralizedTime(const char* text, CDateTime& result) noexcept;

    // With utc: YYYYMMDDHHMMSS[.f]Z. Without: the local time of the process's time zone (TZ)
    // followed by its offset as +hhmm/-hhmm, the offset truncated to whole minutes. The
    // fraction appears only when nanoseconds() is not 0, without trailing zeros. Throws
    // E_INVALIDARG when the year written would fall outside 0000..9999.
    std::string ToGeneralizedTime(bool utc) const;

    std::int64_t seconds() const noexcept;
    unsigned int nanoseconds() const noexcept;

    // Throws E_INVALIDARG when the time lies outside the clock's range.
    std::chrono::system_clock::time_point ToTimePoint() const;
    static CDateTime FromTimePoint(std::chrono::system_clock::time_point time) noexcept;

  private:
    std::int64_t m_seconds;
    unsigned int m_nanoseconds;
};

// Chronological comparisons.
VELMOR_OCSP_API bool operator==(const CDateTime& a, const CDateTime& b) noexcept;
VELMOR_OCSP_API bool operator!=(const CDateTime& a, const CDateTime& b) noexcept;
VELMOR_OCSP_API bool operator<(const CDateTime& a, const CDateTime& b) noexcept;
VELMOR_OCSP_API bool operator<=(const CDateTime& a, const CDateTime& b) noexcept;
VELMOR_OCSP_API bool operator>(const CDateTime& a, const CDateTime& b) noexcept;
VELMOR_OCSP_API bool operator>=(const CDateTime& a, const CDateTime& b) noexcept;

} // namespace Velmor

#endif
