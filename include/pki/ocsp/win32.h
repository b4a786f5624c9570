// The Windows types, error codes and last-error slot that the library's interfaces use,
// provided for Linux. They live in namespace Velmor::Win32 so that they never collide with
// another library's definitions of the same names.
#ifndef VELMOR_PKI_OCSP_WIN32_H
#define VELMOR_PKI_OCSP_WIN32_H

#include <cstdint>
#include <pki/ocsp/config.h>

namespace Velmor::Win32 {

using HRESULT = std::int32_t;
using DWORD = std::uint32_t;
using ALG_ID = std::uint32_t;
using BOOL = int;
using BYTE = std::uint8_t;
using HCRYPTPROV = std::uintptr_t;
using HCRYPTHASH = std::uintptr_t;
using HCRYPTKEY = std::uintptr_t;

inline constexpr BOOL TRUE = 1;
inline constexpr BOOL FALSE = 0;

// HRESULT values, with their Windows numbers.
inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT CRYPT_E_ASN1_INTERNAL = static_cast<HRESULT>(0x80093101u);
inline constexpr HRESULT CRYPT_E_ASN1_EOD = static_cast<HRESULT>(0x80093102u);
inline constexpr HRESULT CRYPT_E_ASN1_MEMORY = static_cast<HRESULT>(0x80093106u);
inline constexpr HRESULT CRYPT_E_ASN1_BADTAG = static_cast<HRESULT>(0x8009310Bu);
inline constexpr HRESULT CRYPT_E_NOT_FOUND = static_cast<HRESULT>(0x80092004u);
inline constexpr HRESULT CRYPT_E_BAD_MSG = static_cast<HRESULT>(0x8009200Du);
inline constexpr HRESULT NTE_BAD_UID = static_cast<HRESULT>(0x80090001u);
inline constexpr HRESULT NTE_BAD_KEY = static_cast<HRESULT>(0x80090003u);
inline constexpr HRESULT NTE_BAD_SIGNATURE = static_cast<HRESULT>(0x80090006u);
inline constexpr HRESULT NTE_BAD_ALGID = static_cast<HRESULT>(0x80090008u);
inline constexpr HRESULT NTE_BAD_FLAGS = static_cast<HRESULT>(0x80090009u);
inline constexpr HRESULT NTE_BAD_TYPE = static_cast<HRESULT>(0x8009000Au);
inline constexpr HRESULT NTE_BAD_HASH_STATE = static_cast<HRESULT>(0x8009000Cu);
inline constexpr HRESULT NTE_NO_KEY = static_cast<HRESULT>(0x8009000Du);
inline constexpr HRESULT NTE_NO_MEMORY = static_cast<HRESULT>(0x8009000Eu);
inline constexpr HRESULT NTE_BAD_KEYSET = static_cast<HRESULT>(0x80090016u);
inline constexpr HRESULT NTE_PROV_TYPE_NOT_DEF = static_cast<HRESULT>(0x80090017u);
inline constexpr HRESULT NTE_KEYSET_NOT_DEF = static_cast<HRESULT>(0x80090019u);
inline constexpr HRESULT NTE_PROV_TYPE_NO_MATCH = static_cast<HRESULT>(0x8009001Bu);
inline constexpr HRESULT NTE_PROV_DLL_NOT_FOUND = static_cast<HRESULT>(0x8009001Eu);

// Win32 error codes, as GetLastError reports them.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;

// HRESULT_FROM_WIN32: a positive error becomes 0x8007xxxx with its low 16 bits; zero and
// negative values (already HRESULTs) pass unchanged.
constexpr HRESULT HResultFromWin32(DWORD error) noexcept {
    const auto asSigned = static_cast<HRESULT>(error);
    if (asSigned <= 0) {
        return asSigned;
    }
    return static_cast<HRESULT>((error & 0x0000FFFFu) | 0x80070000u);
}

// The calling thread's last-error value, set by every platform function that fails.
VELMOR_OCSP_API DWORD GetLastError() noexcept;
VELMOR_OCSP_API void SetLastError(DWORD error) noexcept;

// The symbolic name of a known HRESULT or Win32 error ("E_INVALIDARG"), or null.
VELMOR_OCSP_API const char* ErrorName(HRESULT code) noexcept;

} // namespace Velmor::Win32

#endif
