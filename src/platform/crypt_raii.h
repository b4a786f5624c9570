// Scoped owners of CryptoAPI handles and certificate contexts, for code that must release
// them on every path. A failing release is ignored and leaves the last error as it was, so
// that an error being reported is not overwritten on the way out.
#ifndef VELMOR_SRC_PLATFORM_CRYPT_RAII_H
#define VELMOR_SRC_PLATFORM_CRYPT_RAII_H

#include "platform/crypt_api.h"

#include <utility>

namespace Velmor::Win32 {

template <class Traits> class CScopedHandle {
  public:
    using Handle = typename Traits::Handle;

    CScopedHandle() noexcept = default;
    explicit CScopedHandle(Handle handle) noexcept : m_handle(handle) {}
    CScopedHandle(const CScopedHandle&) = delete;
    CScopedHandle& operator=(const CScopedHandle&) = delete;
    ~CScopedHandle() { reset(); }

    Handle get() const noexcept { return m_handle; }
    explicit operator bool() const noexcept { return m_handle != Handle{}; }
    // Releases what is held and gives the slot to an acquiring function.
    Handle* put() noexcept {
        reset();
        return &m_handle;
    }
    // Gives up ownership without releasing.
    Handle detach() noexcept { return std::exchange(m_handle, Handle{}); }
    void reset(Handle handle = Handle{}) noexcept {
        if (m_handle != Handle{}) {
            const DWORD lastError = GetLastError();
            Traits::Close(m_handle);
            SetLastError(lastError);
        }
        m_handle = handle;
    }

  private:
    Handle m_handle{};
};

struct ProviderHandleTraits {
    using Handle = HCRYPTPROV;
    static void Close(Handle handle) noexcept { CryptReleaseContext(handle, 0); }
};
struct HashHandleTraits {
    using Handle = HCRYPTHASH;
    static void Close(Handle handle) noexcept { CryptDestroyHash(handle); }
};
struct KeyHandleTraits {
    using Handle = HCRYPTKEY;
    static void Close(Handle handle) noexcept { CryptDestroyKey(handle); }
};
struct CertContextTraits {
    using Handle = PCCERT_CONTEXT;
    static void Close(Handle context) noexcept { CertFreeCertificateContext(context); }
};

// One provider reference.
using CScopedProvider = CScopedHandle<ProviderHandleTraits>;
using CScopedHash = CScopedHandle<HashHandleTraits>;
using CScopedKey = CScopedHandle<KeyHandleTraits>;
using CScopedCertContext = CScopedHandle<CertContextTraits>;

} // namespace Velmor::Win32

#endif
