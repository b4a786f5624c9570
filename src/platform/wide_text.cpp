// UTF-8 <-> wchar_t conversions: MultiByteToWideChar and its converse for wide names.
#include "platform/wide_text.h"

#include "platform/crypt_support.h"

#include <cstring>

namespace Velmor::Win32 {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsScalarValue(char32_t c) noexcept { return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF); }

bool IsContinuation(unsigned char c) noexcept { return (c & 0xC0) == 0x80; }

// The lead byte of a multi-byte sequence: its marker bits, the sequence length and the
// smallest value that needs that length (anything smaller is an overlong form).
struct LeadByte {
    unsigned char mask;
    unsigned char marker;
    std::size_t length;
    char32_t minimum;
};
constexpr LeadByte kLeadBytes[] = {
    {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};

const LeadByte* FindLead(unsigned char lead) noexcept {
    for (const LeadByte& form : kLeadBytes) {
        if ((lead & form.mask) == form.marker) {
            return &form;
        }
    }
    return nullptr;
}

// Decodes one UTF-8 sequence at p (before end) into c and advances p past it. A malformed
// sequence (bad lead byte, missing continuation, overlong form, surrogate, beyond U+10FFFF)
// advances p by one byte and returns false.
bool DecodeUtf8(const unsigned char*& p, const unsigned char* end, char32_t& c) noexcept {
    if (*p < 0x80) {
        c = *p++;
        return true;
    }
    const LeadByte* form = FindLead(*p);
    if (form == nullptr || static_cast<std::size_t>(end - p) < form->length) {
        ++p;
        return false;
    }
    c = *p & static_cast<unsigned char>(~form->mask);
    for (std::size_t i = 1; i < form->length; ++i) {
        if (!IsContinuation(p[i])) {
            ++p;
            return false;
        }
        c = (c << 6) | (p[i] & 0x3F);
    }
    if (c < form->minimum || !IsScalarValue(c)) {
        ++p;
        return false;
    }
    p += form->length;
    return true;
}

bool ValidArguments(UINT codePage, DWORD flags, const char* source, int sourceSize,
                    const wchar_t* destination, int destinationCount) noexcept {
    return (codePage == CP_ACP || codePage == CP_UTF8) && (flags & ~MB_ERR_INVALID_CHARS) == 0 &&
           source != nullptr && sourceSize != 0 && sourceSize >= -1 && destinationCount >= 0 &&
           (destinationCount == 0 || destination != nullptr);
}

} // namespace

int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceSize,
                        wchar_t* destination, int destinationCount) {
    if (!ValidArguments(codePage, flags, source, sourceSize, destination, destinationCount)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::size_t length =
        sourceSize == -1 ? std::strlen(source) + 1 : static_cast<std::size_t>(sourceSize);
    const auto* p = reinterpret_cast<const unsigned char*>(source);
    const unsigned char* end = p + length;
    int count = 0;
    while (p < end) {
        char32_t c = 0;
        if (!DecodeUtf8(p, end, c)) {
            if ((flags & MB_ERR_INVALID_CHARS) != 0) {
                SetLastError(ERROR_NO_UNICODE_TRANSLATION);
                return 0;
            }
            c = kReplacement;
        }
        if (destinationCount != 0) {
            if (count == destinationCount) {
                SetLastError(ERROR_INSUFFICIENT_BUFFER);
                return 0;
            }
            destination[count] = static_cast<wchar_t>(c);
        }
        ++count;
    }
    return count;
}

namespace Detail {

bool WideToUtf8(const wchar_t* text, std::string& out) {
    out.clear();
    for (; *text != L'\0'; ++text) {
        const auto c = static_cast<char32_t>(*text);
        if (!IsScalarValue(c)) {
            return false;
        }
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (c >> 12)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (c >> 18)));
            out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return true;
}

} // namespace Detail

} // namespace Velmor::Win32
