// The one exception type the library throws on its own account, and the helpers that
// raise it.
#ifndef VELMOR_PKI_OCSP_ATL_EXCEPTION_H
#define VELMOR_PKI_OCSP_ATL_EXCEPTION_H

#include <exception>
#include <pki/ocsp/config.h>
#include <pki/ocsp/win32.h>

namespace ATL {

// Carries one HRESULT. what() names it, for example
// "CRYPT_E_ASN1_INTERNAL (0x80093101)", or "HRESULT 0x12345678" for an unnamed code. The
// text of an unnamed code lives in a per-thread buffer that the next such call reuses.
class VELMOR_OCSP_API CAtlException : public std::exception {
  public:
    CAtlException() noexcept;
    explicit CAtlException(Velmor::Win32::HRESULT hr) noexcept;

    operator Velmor::Win32::HRESULT() const noexcept { return m_hr; }
    const char* what() const noexcept override;

    Velmor::Win32::HRESULT m_hr;
};

// Throws CAtlException(hr). Never returns.
[[noreturn]] VELMOR_OCSP_API void AtlThrow(Velmor::Win32::HRESULT hr);

// Throws the calling thread's last Win32 error, mapped as HResultFromWin32 maps it. A last
// error of 0 is thrown as an exception holding 0.
[[noreturn]] VELMOR_OCSP_API void AtlThrowLastWin32();

// The calling thread's last Win32 error, mapped to an HRESULT; for callers that report a
// failure without throwing.
VELMOR_OCSP_API Velmor::Win32::HRESULT AtlHresultFromLastError() noexcept;

} // namespace ATL

#endif
