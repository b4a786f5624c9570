// The per-thread last-error slot of the Win32 layer.
#include <pki/ocsp/win32.h>

namespace Velmor::Win32 {

namespace {
thread_local DWORD t_lastError = ERROR_SUCCESS;
}

DWORD GetLastError() noexcept { return t_lastError; }

void SetLastError(DWORD error) noexcept { t_lastError = error; }

} // namespace Velmor::Win32
