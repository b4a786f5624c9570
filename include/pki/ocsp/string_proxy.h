// Velmor::CStringProxy, an owned narrow string (object identifier texts and the like).
#ifndef VELMOR_PKI_OCSP_STRING_PROXY_H
#define VELMOR_PKI_OCSP_STRING_PROXY_H

#include <cstddef>
#include <pki/ocsp/config.h>
#include <pki/ocsp/dll_list.h>
#include <string>
#include <string_view>

namespace Velmor {

namespace Detail {
struct StringProxyAccess;
}

class VELMOR_OCSP_API CStringProxy {
  public:
    // The empty string.
    CStringProxy();
    // A copy of text; null gives the empty string.
    CStringProxy(const char* text);
    CStringProxy(const CStringProxy& other);
    // Takes other's text; other is left empty.
    CStringProxy(CStringProxy&& other) noexcept;
    CStringProxy& operator=(const CStringProxy& other);
    CStringProxy& operator=(CStringProxy&& other) noexcept;
    ~CStringProxy();

    // The text, NUL-terminated; valid until the object changes.
    const char* c_str() const noexcept;
    std::size_t length() const noexcept;
    operator std::string_view() const noexcept;

  private:
    friend struct Detail::StringProxyAccess; // the library's converters set texts of known length

    // Texts up to kInline - 1 characters (every common OID) are kept inline, without a heap
    // allocation; longer ones on the heap.
    static constexpr std::size_t kInline = 32;
    void assign(const char* text, std::size_t length);
    void release() noexcept;

    char* m_text;
    std::size_t m_length;
    char m_inline[kInline];
};

// Same text.
VELMOR_OCSP_API bool operator==(const CStringProxy& a, const CStringProxy& b) noexcept;
VELMOR_OCSP_API bool operator!=(const CStringProxy& a, const CStringProxy& b) noexcept;

extern template class VELMOR_OCSP_API CDllList<CStringProxy>;

} // namespace Velmor

#endif
