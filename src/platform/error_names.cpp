// Symbolic names of the HRESULTs and Win32 errors that the library raises.
#include <pki/ocsp/win32.h>

namespace Velmor::Win32 {

namespace {

struct NamedCode {
    HRESULT code;
    const char* name;
};

constexpr NamedCode kNamedCodes[] = {
    {S_OK, "S_OK"},
    {E_FAIL, "E_FAIL"},
    {E_INVALIDARG, "E_INVALIDARG"},
    {E_OUTOFMEMORY, "E_OUTOFMEMORY"},
    {CRYPT_E_ASN1_INTERNAL, "CRYPT_E_ASN1_INTERNAL"},
    {CRYPT_E_ASN1_EOD, "CRYPT_E_ASN1_EOD"},
    {CRYPT_E_ASN1_MEMORY, "CRYPT_E_ASN1_MEMORY"},
    {CRYPT_E_ASN1_BADTAG, "CRYPT_E_ASN1_BADTAG"},
    {CRYPT_E_NOT_FOUND, "CRYPT_E_NOT_FOUND"},
    {CRYPT_E_BAD_MSG, "CRYPT_E_BAD_MSG"},
    {NTE_BAD_UID, "NTE_BAD_UID"},
    {NTE_BAD_KEY, "NTE_BAD_KEY"},
    {NTE_BAD_SIGNATURE, "NTE_BAD_SIGNATURE"},
    {NTE_BAD_ALGID, "NTE_BAD_ALGID"},
    {NTE_BAD_FLAGS, "NTE_BAD_FLAGS"},
    {NTE_BAD_TYPE, "NTE_BAD_TYPE"},
    {NTE_BAD_HASH_STATE, "NTE_BAD_HASH_STATE"},
    {NTE_NO_KEY, "NTE_NO_KEY"},
    {NTE_NO_MEMORY, "NTE_NO_MEMORY"},
    {NTE_BAD_KEYSET, "NTE_BAD_KEYSET"},
    {NTE_PROV_TYPE_NOT_DEF, "NTE_PROV_TYPE_NOT_DEF"},
    {NTE_KEYSET_NOT_DEF, "NTE_KEYSET_NOT_DEF"},
    {NTE_PROV_TYPE_NO_MATCH, "NTE_PROV_TYPE_NO_MATCH"},
    {NTE_PROV_DLL_NOT_FOUND, "NTE_PROV_DLL_NOT_FOUND"},
    {HResultFromWin32(ERROR_FILE_NOT_FOUND), "HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)"},
    {HResultFromWin32(ERROR_INVALID_DATA), "HRESULT_FROM_WIN32(ERROR_INVALID_DATA)"},
    {HResultFromWin32(ERROR_INSUFFICIENT_BUFFER), "HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER)"},
    {HResultFromWin32(ERROR_MOD_NOT_FOUND), "HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)"},
    {HResultFromWin32(ERROR_MORE_DATA), "HRESULT_FROM_WIN32(ERROR_MORE_DATA)"},
    {HResultFromWin32(ERROR_NO_MORE_ITEMS), "HRESULT_FROM_WIN32(ERROR_NO_MORE_ITEMS)"},
    {HResultFromWin32(ERROR_NO_UNICODE_TRANSLATION),
     "HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION)"},
    {HResultFromWin32(5), "E_ACCESSDENIED"},
};

} // namespace

const char* ErrorName(HRESULT code) noexcept {
    for (const NamedCode& entry : kNamedCodes) {
        if (entry.code == code) {
            return entry.name;
        }
    }
    return nullptr;
}

} // namespace Velmor::Win32
