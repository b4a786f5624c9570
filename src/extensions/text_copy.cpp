#include "extensions/text_copy.h"

#include <cstring>
#include <pki/ocsp/atl_exception.h>

namespace Velmor::PKI::OCSP::TextCopy {

int Copy(char* dest, std::size_t size, const char* src, std::size_t count) noexcept {
    if (dest == nullptr || size == 0) {
        return kInvalid;
    }
    if (src == nullptr) {
        dest[0] = '\0';
        return kInvalid;
    }
    const std::size_t length = ::strnlen(src, count == kTruncate ? size : count);
    if (length >= size) {
        if (count != kTruncate) {
            dest[0] = '\0';
            return kRange;
        }
        std::memcpy(dest, src, size - 1);
        dest[size - 1] = '\0';
        return kTruncated;
    }
    std::memcpy(dest, src, length);
    dest[length] = '\0';
    return kOk;
}

void ThrowIfFailed(int code) {
    switch (code) {
    case kOk:
    case kTruncated:
        return;
    case kNoMemory:
        ATL::AtlThrow(Win32::E_OUTOFMEMORY);
    case kInvalid:
    case kRange:
        ATL::AtlThrow(Win32::E_INVALIDARG);
    default:
        ATL::AtlThrow(Win32::E_FAIL);
    }
}

} // namespace Velmor::PKI::OCSP::TextCopy
