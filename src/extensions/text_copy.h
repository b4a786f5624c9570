// The bounded text copy of the CrlID encoder, with the C run-time's error codes, and the
// HRESULT each code becomes.
#ifndef VELMOR_SRC_EXTENSIONS_TEXT_COPY_H
#define VELMOR_SRC_EXTENSIONS_TEXT_COPY_H

#include <cstddef>

namespace Velmor::PKI::OCSP::TextCopy {

// The codes of the bounded copy.
inline constexpr int kOk = 0;
inline constexpr int kNoMemory = 12;                                   // ENOMEM
inline constexpr int kInvalid = 22;                                    // EINVAL
inline constexpr int kRange = 34;                                      // ERANGE
inline constexpr int kTruncated = 80;                                  // STRUNCATE
inline constexpr std::size_t kTruncate = static_cast<std::size_t>(-1); // count: cut to fit

// Copies at most count characters of the NUL-terminated src into dest, which has room for
// size characters, and terminates the copy. Returns kOk; kInvalid for a null dest, a size of
// 0 or a null src (dest, if any, is then made empty); kRange when the characters to copy
// and the terminator do not fit (dest made empty); kTruncated when count is kTruncate and
// src was cut to size - 1 characters.
int Copy(char* dest, std::size_t size, const char* src, std::size_t count) noexcept;

// Throws the HRESULT of a failed copy: E_OUTOFMEMORY for kNoMemory, E_INVALIDARG for
// kInvalid and kRange, E_FAIL for any other code but kOk and kTruncated, which succeed.
void ThrowIfFailed(int code);

} // namespace Velmor::PKI::OCSP::TextCopy

#endif
