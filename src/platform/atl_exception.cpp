// CAtlException and the helpers that throw it.
#include <cstdio>
#include <pki/ocsp/atl_exception.h>

using Velmor::Win32::HRESULT;

namespace ATL {

namespace {

// Formats "NAME (0xXXXXXXXX)" or "HRESULT 0xXXXXXXXX" into a per-thread buffer, which
// stays valid until the same thread describes another code.
const char* DescribeCode(HRESULT hr) noexcept {
    thread_local char text[96];
    const char* name = Velmor::Win32::ErrorName(hr);
    const auto bits = static_cast<unsigned>(hr);
    if (name != nullptr) {
        std::snprintf(text, sizeof text, "%s (0x%08X)", name, bits);
    } else {
        std::snprintf(text, sizeof text, "HRESULT 0x%08X", bits);
    }
    return text;
}

} // namespace

CAtlException::CAtlException() noexcept : m_hr(Velmor::Win32::E_FAIL) {}

CAtlException::CAtlException(HRESULT hr) noexcept : m_hr(hr) {}

const char* CAtlException::what() const noexcept { return DescribeCode(m_hr); }

void AtlThrow(HRESULT hr) { throw CAtlException(hr); }

HRESULT AtlHresultFromLastError() noexcept {
    return Velmor::Win32::HResultFromWin32(Velmor::Win32::GetLastError());
}

void AtlThrowLastWin32() { AtlThrow(AtlHresultFromLastError()); }

} // namespace ATL
