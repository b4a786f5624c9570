// Wide (UTF-32 wchar_t) text to UTF-8, for the wide names CryptoAPI functions take. The
// other direction is MultiByteToWideChar (crypt_api.h).
#ifndef VELMOR_SRC_PLATFORM_WIDE_TEXT_H
#define VELMOR_SRC_PLATFORM_WIDE_TEXT_H

#include <string>

namespace Velmor::Win32::Detail {

// Replaces out with the UTF-8 form of the NUL-terminated text; false (out unspecified) when
// the text holds a value that is not a Unicode scalar value (a surrogate, or above
// U+10FFFF).
bool WideToUtf8(const wchar_t* text, std::string& out);

} // namespace Velmor::Win32::Detail

#endif
