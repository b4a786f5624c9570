// CDateTime: construction, GeneralizedTime parsing and formatting, chrono conversion.
#include "foundation/datetime_text.h"

#include "asn1/asn1_digits.h"
#include "trace/trace_guard.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/datetime.h>
#include <tuple>

namespace Velmor {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr unsigned kNanosPerSecond = 1000000000u;
// 0000-01-01T00:00:00Z and 9999-12-31T23:59:59Z, the range a four-digit year can write.
constexpr std::int64_t kFirstWritable = -62167219200;
constexpr std::int64_t kLastWritable = 253402300799;

struct CivilDate {
    std::int64_t year;
    unsigned month; // 1..12
    unsigned day;   // 1..31
};

// Days from 1970-01-01 to the given proleptic Gregorian date of a four-digit year. The year
// is shifted to start in March, so that the leap day ends it, and by one 400-year era of
// 146097 days, so that the arithmetic stays unsigned; it is then split into such eras.
std::int64_t DaysFromCivil(unsigned year, unsigned month, unsigned day) noexcept {
    const unsigned shiftedYear = year + 400 - (month <= 2 ? 1 : 0);
    const unsigned era = shiftedYear / 400;
    const unsigned yearOfEra = shiftedYear - era * 400;
    const unsigned shiftedMonth = month > 2 ? month - 3 : month + 9;
    const unsigned dayOfYear = (153 * shiftedMonth + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return static_cast<std::int64_t>(era) * 146097 + dayOfEra - 719468 - 146097;
}

// The inverse of DaysFromCivil.
CivilDate CivilFromDays(std::int64_t days) noexcept {
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned shiftedMonth = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
    const unsigned month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
    const std::int64_t year = static_cast<std::int64_t>(yearOfEra) + era * 400;
    return {year + (month <= 2 ? 1 : 0), month, day};
}

bool IsLeapYear(unsigned year) noexcept {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

unsigned DaysInMonth(unsigned year, unsigned month) noexcept {
    static constexpr unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

bool IsDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// Reads exactly `count` decimal digits at p into value and advances p past them.
bool ReadNumber(const char*& p, int count, unsigned& value) noexcept {
    value = 0;
    for (int i = 0; i < count; ++i, ++p) {
        if (!IsDigit(*p)) {
            return false;
        }
        value = value * 10 + static_cast<unsigned>(*p - '0');
    }
    return true;
}

// Reads one or more digits of a decimal fraction as nanoseconds; digits past the ninth are
// dropped.
bool ReadFraction(const char*& p, unsigned& nanoseconds) noexcept {
    nanoseconds = 0;
    unsigned scale = kNanosPerSecond;
    const char* start = p;
    for (; IsDigit(*p); ++p) {
        if (scale > 1) {
            scale /= 10;
            nanoseconds += static_cast<unsigned>(*p - '0') * scale;
        }
    }
    return p != start;
}

// Reads Z or +hhmm/-hhmm at p: the offset of the written time from UTC, in seconds.
bool ReadZone(const char*& p, std::int64_t& offsetSeconds) noexcept {
    offsetSeconds = 0;
    if (*p == 'Z') {
        ++p;
        return true;
    }
    if (*p != '+' && *p != '-') {
        return false;
    }
    const std::int64_t sign = *p++ == '-' ? -1 : 1;
    unsigned hours = 0;
    unsigned minutes = 0;
    if (!ReadNumber(p, 2, hours) || !ReadNumber(p, 2, minutes) || hours > 23 || minutes > 59) {
        return false;
    }
    offsetSeconds = sign * (hours * 3600 + minutes * 60);
    return true;
}

struct Fields {
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, nanos = 0;
    std::int64_t offset = 0;
};

// Splits the text into its fields; checks their form, not their ranges. Kept out of line:
// it is the rare path, after ReadDerFields.
[[gnu::noinline]] bool ReadFields(const char* p, Fields& f) noexcept {
    if (!ReadNumber(p, 4, f.year) || !ReadNumber(p, 2, f.month) || !ReadNumber(p, 2, f.day) ||
        !ReadNumber(p, 2, f.hour) || !ReadNumber(p, 2, f.minute)) {
        return false;
    }
    if (IsDigit(*p)) {
        if (!ReadNumber(p, 2, f.second)) {
            return false;
        }
        if (*p == '.' || *p == ',') {
            ++p;
            if (!ReadFraction(p, f.nanos)) {
                return false;
            }
        }
    }
    return ReadZone(p, f.offset) && *p == '\0';
}

// The four two-digit numbers of eight digits, in octets 0, 2, 4 and 6 of the result.
std::uint64_t DigitPairs(std::uint64_t x) noexcept {
    x -= 0x3030303030303030u;
    return (x * 10 + (x >> 8)) & 0x00FF00FF00FF00FFu;
}

unsigned OctetOf(std::uint64_t x, int index) noexcept {
    return static_cast<unsigned>((x >> (8 * index)) & 0xFF);
}

// Whether text is YYYYMMDDHHMMSSZ and nothing more, as to its characters: the form DER
// writes, which ReadDerFields reads. The length is found first, so nothing past the
// terminating NUL is read. False on a big-endian machine, where ReadFields reads every form.
bool IsDerTimeText(const char* text) noexcept {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return Asn1Rt::IsDerTimeForm(reinterpret_cast<const unsigned char*>(text), strnlen(text, 16));
#else
    static_cast<void>(text);
    return false;
#endif
}

// The fields of a text in the DER form (IsDerTimeText), read eight digits at a time.
void ReadDerFields(const char* p, Fields& f) noexcept {
    std::uint64_t date = 0;  // YYYYMMDD
    std::uint64_t clock = 0; // DDHHMMSS: the day again, then the time
    std::memcpy(&date, p, 8);
    std::memcpy(&clock, p + 6, 8);
    date = DigitPairs(date);
    clock = DigitPairs(clock);
    f.year = OctetOf(date, 0) * 100 + OctetOf(date, 2);
    f.month = OctetOf(date, 4);
    f.day = OctetOf(date, 6);
    f.hour = OctetOf(clock, 2);
    f.minute = OctetOf(clock, 4);
    f.second = OctetOf(clock, 6);
    f.nanos = 0;
    f.offset = 0;
}

// The DER times (YYYYMMDDHHMMSSZ) this thread read or wrote last, with their seconds. A
// response repeats its times in every entry, and a responder writes the same ones into answer
// after answer, so reading and writing look here before doing the arithmetic. Trivially
// destructible, so that it stays usable while the thread's other thread-local objects are
// destroyed.
struct RecentTimes {
    struct Entry {
        std::uint64_t head;   // characters 0..7
        std::uint64_t tail;   // characters 7..14, the Z last
        std::int64_t seconds; // since the epoch, whole
    };
    static constexpr std::size_t kEntries = 4;
    Entry entries[kEntries];
    std::size_t filled; // entries in use
    std::size_t next;   // the entry replaced next
};

thread_local RecentTimes t_recentTimes{};

// The entry of the 15 characters at text, or null.
const RecentTimes::Entry* RecentText(const char* text) noexcept {
    std::uint64_t head = 0;
    std::uint64_t tail = 0;
    std::memcpy(&head, text, 8);
    std::memcpy(&tail, text + 7, 8);
    const RecentTimes& recent = t_recentTimes;
    for (std::size_t i = 0; i < recent.filled; ++i) {
        if (recent.entries[i].head == head && recent.entries[i].tail == tail) {
            return &recent.entries[i];
        }
    }
    return nullptr;
}

// The entry of a whole number of seconds, or null.
const RecentTimes::Entry* RecentSeconds(std::int64_t seconds) noexcept {
    const RecentTimes& recent = t_recentTimes;
    for (std::size_t i = 0; i < recent.filled; ++i) {
        if (recent.entries[i].seconds == seconds) {
            return &recent.entries[i];
        }
    }
    return nullptr;
}

// Keeps the 15 characters at text, a valid DER time, with their seconds, in place of the
// oldest entry.
void RememberTime(const char* text, std::int64_t seconds) noexcept {
    RecentTimes& recent = t_recentTimes;
    RecentTimes::Entry& entry = recent.entries[recent.next];
    std::memcpy(&entry.head, text, 8);
    std::memcpy(&entry.tail, text + 7, 8);
    entry.seconds = seconds;
    recent.next = (recent.next + 1) % RecentTimes::kEntries;
    if (recent.filled < RecentTimes::kEntries) {
        ++recent.filled;
    }
}

bool FieldsInRange(const Fields& f) noexcept {
    return f.month >= 1 && f.month <= 12 && f.day >= 1 && f.day <= DaysInMonth(f.year, f.month) &&
           f.hour <= 23 && f.minute <= 59 && f.second <= 59;
}

// value's last width decimal digits, zero-padded, at out; returns the position after them.
char* PutDigits(char* out, std::uint64_t value, int width) noexcept {
    for (int i = width - 1; i >= 0; --i) {
        out[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    return out + width;
}

// The two digits of value, below 100, at out; returns the position after them.
char* PutPair(char* out, unsigned value) noexcept {
    const unsigned tens = value * 205 >> 11; // value / 10 for any value below 1024
    out[0] = static_cast<char>('0' + tens);
    out[1] = static_cast<char>('0' + (value - tens * 10));
    return out + 2;
}

// YYYYMMDDHHMMSS[.f] of a UTC time at out (at least 25 characters of room); returns the
// length. A time is formatted for every time field of every message encoded: one of the
// thread's recent times is copied, any other written two digits at a time.
std::size_t WriteClock(std::int64_t seconds, unsigned nanoseconds, char* out) {
    if (nanoseconds == 0) {
        if (const RecentTimes::Entry* recent = RecentSeconds(seconds)) {
            std::memcpy(out, &recent->head, 8);
            std::memcpy(out + 7, &recent->tail, 8);
            return 14;
        }
    }
    std::int64_t days = seconds / kSecondsPerDay;
    std::int64_t secondOfDay = seconds % kSecondsPerDay;
    if (secondOfDay < 0) {
        secondOfDay += kSecondsPerDay;
        --days;
    }
    const CivilDate date = CivilFromDays(days);
    if (date.year < 0 || date.year > 9999) {
        ATL::AtlThrow(Win32::E_INVALIDARG);
    }
    const auto year = static_cast<unsigned>(date.year);
    const auto second = static_cast<unsigned>(secondOfDay);
    char* p = PutPair(out, year / 100);
    p = PutPair(p, year % 100);
    p = PutPair(p, date.month);
    p = PutPair(p, date.day);
    p = PutPair(p, second / 3600);
    p = PutPair(p, second / 60 % 60);
    p = PutPair(p, second % 60);
    if (nanoseconds == 0) {
        *p = 'Z'; // within the room, after the length returned
        RememberTime(out, seconds);
    } else {
        *p++ = '.';
        p = PutDigits(p, nanoseconds, 9);
        while (p[-1] == '0') {
            --p;
        }
    }
    return static_cast<std::size_t>(p - out);
}

std::string FormatClock(std::int64_t seconds, unsigned nanoseconds) {
    char text[Detail::kUtcGeneralizedTimeMax];
    return std::string(text, WriteClock(seconds, nanoseconds, text));
}

// Times a day or more outside the writable range fail before an offset is added.
void CheckWritable(std::int64_t seconds) {
    if (seconds < kFirstWritable - kSecondsPerDay || seconds > kLastWritable + kSecondsPerDay) {
        ATL::AtlThrow(Win32::E_INVALIDARG);
    }
}

// The offset of the process's local time from UTC at the given time, in whole minutes.
std::int64_t LocalOffsetMinutes(std::int64_t seconds) {
    tzset();
    const auto clock = static_cast<std::time_t>(seconds);
    std::tm local{};
    if (localtime_r(&clock, &local) == nullptr) {
        ATL::AtlThrow(Win32::E_INVALIDARG);
    }
    return static_cast<std::int64_t>(local.tm_gmtoff) / 60;
}

// "+hhmm" or "-hhmm".
std::string FormatOffset(std::int64_t minutes) {
    const char sign = minutes < 0 ? '-' : '+';
    const std::int64_t magnitude = minutes < 0 ? -minutes : minutes;
    char text[16];
    std::snprintf(text, sizeof text, "%c%02d%02d", sign, static_cast<int>(magnitude / 60),
                  static_cast<int>(magnitude % 60));
    return text;
}

} // namespace

std::size_t Detail::WriteUtcGeneralizedTime(const CDateTime& time, char* out) {
    CheckWritable(time.seconds());
    const std::size_t length = WriteClock(time.seconds(), time.nanoseconds(), out);
    out[length] = 'Z';
    return length + 1;
}

CDateTime::CDateTime() noexcept : m_seconds(0), m_nanoseconds(0) {}

CDateTime::CDateTime(std::int64_t seconds, unsigned int nanoseconds)
    : m_seconds(seconds), m_nanoseconds(nanoseconds) {
    if (nanoseconds >= kNanosPerSecond) {
        Trace::ThrowFrom("CDateTime::CDateTime", Win32::E_INVALIDARG);
    }
}

CDateTime::CDateTime(const char* generalizedTime) : CDateTime() {
    if (!TryParseGeneralizedTime(generalizedTime, *this)) {
        Trace::ThrowFrom("CDateTime::CDateTime", Win32::CRYPT_E_ASN1_INTERNAL);
    }
}

CDateTime::CDateTime(const CDateTime& other) noexcept = default;
CDateTime& CDateTime::operator=(const CDateTime& other) noexcept = default;
CDateTime::~CDateTime() = default;

bool CDateTime::TryParseGeneralizedTime(const char* text, CDateTime& result) noexcept {
    if (text == nullptr) {
        return false;
    }
    const bool derForm = IsDerTimeText(text);
    if (derForm) {
        if (const RecentTimes::Entry* recent = RecentText(text)) {
            result.m_seconds = recent->seconds;
            result.m_nanoseconds = 0;
            return true;
        }
    }
    Fields f;
    if (derForm) {
        ReadDerFields(text, f);
    } else if (!ReadFields(text, f)) {
        return false;
    }
    if (!FieldsInRange(f)) {
        return false;
    }
    const std::int64_t days = DaysFromCivil(f.year, f.month, f.day);
    result.m_seconds = days * kSecondsPerDay + f.hour * 3600 + f.minute * 60 + f.second - f.offset;
    result.m_nanoseconds = f.nanos;
    if (derForm) {
        RememberTime(text, result.m_seconds);
    }
    return true;
}

std::string CDateTime::ToGeneralizedTime(bool utc) const {
    return Trace::Guard("CDateTime::ToGeneralizedTime", [&] {
        if (utc) {
            char text[Detail::kUtcGeneralizedTimeMax];
            return std::string(text, Detail::WriteUtcGeneralizedTime(*this, text));
        }
        CheckWritable(m_seconds);
        const std::int64_t offset = LocalOffsetMinutes(m_seconds);
        return FormatClock(m_seconds + offset * 60, m_nanoseconds) + FormatOffset(offset);
    });
}

std::int64_t CDateTime::seconds() const noexcept { return m_seconds; }

unsigned int CDateTime::nanoseconds() const noexcept { return m_nanoseconds; }

std::chrono::system_clock::time_point CDateTime::ToTimePoint() const {
    using Duration = std::chrono::system_clock::duration;
    using std::chrono::duration_cast;
    // One second of margin on each side leaves room for the nanoseconds.
    const auto limit = duration_cast<std::chrono::seconds>(Duration::max()).count() - 1;
    if (m_seconds > limit || m_seconds < -limit) {
        Trace::ThrowFrom("CDateTime::ToTimePoint", Win32::E_INVALIDARG);
    }
    const auto sinceEpoch = duration_cast<Duration>(std::chrono::seconds(m_seconds)) +
                            duration_cast<Duration>(std::chrono::nanoseconds(m_nanoseconds));
    return std::chrono::system_clock::time_point(sinceEpoch);
}

CDateTime CDateTime::FromTimePoint(std::chrono::system_clock::time_point time) noexcept {
    const auto sinceEpoch = time.time_since_epoch();
    const auto whole = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    CDateTime result;
    result.m_seconds = whole.count();
    result.m_nanoseconds = static_cast<unsigned>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch - whole).count());
    return result;
}

namespace {
std::tuple<std::int64_t, unsigned> Key(const CDateTime& t) noexcept {
    return {t.seconds(), t.nanoseconds()};
}
} // namespace

bool operator==(const CDateTime& a, const CDateTime& b) noexcept { return Key(a) == Key(b); }
bool operator!=(const CDateTime& a, const CDateTime& b) noexcept { return Key(a) != Key(b); }
bool operator<(const CDateTime& a, const CDateTime& b) noexcept { return Key(a) < Key(b); }
bool operator<=(const CDateTime& a, const CDateTime& b) noexcept { return Key(a) <= Key(b); }
bool operator>(const CDateTime& a, const CDateTime& b) noexcept { return Key(a) > Key(b); }
bool operator>=(const CDateTime& a, const CDateTime& b) noexcept { return Key(a) >= Key(b); }

} // namespace Velmor
