// CStringProxy.
#include <pki/ocsp/string_proxy.h>
#include <utility>

#include "foundation/dll_list_impl.h"

namespace Velmor {

CStringProxy::CStringProxy() = default;

CStringProxy::CStringProxy(const char* text) : m_text(text != nullptr ? text : "") {}

CStringProxy::CStringProxy(const CStringProxy& other) = default;

CStringProxy::CStringProxy(CStringProxy&& other) noexcept : m_text(std::move(other.m_text)) {
    other.m_text.clear();
}

CStringProxy& CStringProxy::operator=(const CStringProxy& other) = default;

CStringProxy& CStringProxy::operator=(CStringProxy&& other) noexcept {
    if (&other != this) {
        m_text = std::move(other.m_text);
        other.m_text.clear();
    }
    return *this;
}

CStringProxy::~CStringProxy() = default;

const char* CStringProxy::c_str() const noexcept { return m_text.c_str(); }

std::size_t CStringProxy::length() const noexcept { return m_text.length(); }

CStringProxy::operator std::string_view() const noexcept { return m_text; }

bool operator==(const CStringProxy& a, const CStringProxy& b) noexcept {
    return std::string_view(a) == std::string_view(b);
}

bool operator!=(const CStringProxy& a, const CStringProxy& b) noexcept { return !(a == b); }

template class CDllList<CStringProxy>;

} // namespace Velmor
