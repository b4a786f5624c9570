// The size-query protocol and the decoder status mapping.
#include "platform/crypt_support.h"

#include "asn1/asn1_base.h"

#include <cstring>

namespace Velmor::Win32::Detail {

BOOL CopyOut(std::span<const BYTE> bytes, BYTE* out, DWORD* outSize) noexcept {
    if (outSize == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const auto needed = static_cast<DWORD>(bytes.size());
    if (out == nullptr) {
        *outSize = needed;
        return TRUE;
    }
    if (*outSize < needed) {
        *outSize = needed;
        return Fail(ERROR_MORE_DATA);
    }
    if (needed != 0) {
        std::memcpy(out, bytes.data(), needed);
    }
    *outSize = needed;
    return TRUE;
}

BOOL CopyOutDword(DWORD value, BYTE* out, DWORD* outSize) noexcept {
    BYTE bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    return CopyOut(bytes, out, outSize);
}

DWORD DecodeError(int status) noexcept {
    switch (status) {
    case RTERR_ENDOFBUF:
        return static_cast<DWORD>(CRYPT_E_ASN1_EOD);
    case RTERR_NOMEM:
        return static_cast<DWORD>(CRYPT_E_ASN1_MEMORY);
    default:
        return static_cast<DWORD>(CRYPT_E_ASN1_BADTAG);
    }
}

} // namespace Velmor::Win32::Detail
