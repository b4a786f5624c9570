// CStringProxy.
#include <cstring>
#include <pki/ocsp/string_proxy.h>
#include <utility>

#include "foundation/dll_list_impl.h"

// Decoded lists of texts (the acceptable response types) overwrite each element they take:
// spare ones are reused.
template <> struct Velmor::Detail::RecyclesEntries<Velmor::CStringProxy> : std::true_type {};

namespace Velmor {

CStringProxy::CStringProxy() : m_text(m_inline), m_length(0) { m_inline[0] = '\0'; }

// A short text (every common OID) is copied inline with its NUL in one step.
CStringProxy::CStringProxy(const char* text) : CStringProxy() {
    if (text == nullptr) {
        return;
    }
    const std::size_t length = std::strlen(text);
    if (length < kInline) {
        std::memcpy(m_inline, text, length + 1);
        m_length = length;
        return;
    }
    assign(text, length);
}

CStringProxy::CStringProxy(const CStringProxy& other) : CStringProxy() {
    assign(other.m_text, other.m_length);
}

CStringProxy::CStringProxy(CStringProxy&& other) noexcept : CStringProxy() {
    *this = std::move(other);
}

CStringProxy& CStringProxy::operator=(const CStringProxy& other) {
    if (&other != this) {
        assign(other.m_text, other.m_length);
    }
    return *this;
}

CStringProxy& CStringProxy::operator=(CStringProxy&& other) noexcept {
    if (&other == this) {
        return *this;
    }
    release();
    if (other.m_text == other.m_inline) {
        std::memcpy(m_inline, other.m_inline, other.m_length + 1);
    } else {
        m_text = other.m_text; // the heap text changes hands
    }
    m_length = other.m_length;
    other.m_text = other.m_inline;
    other.m_inline[0] = '\0';
    other.m_length = 0;
    return *this;
}

CStringProxy::~CStringProxy() { release(); }

// Replaces the text; the new storage is ready before the old is released, so a failed
// allocation leaves the text as it was.
void CStringProxy::assign(const char* text, std::size_t length) {
    if (length < kInline) {
        release();
        if (length != 0) { // an empty text may come without storage (a null data pointer)
            std::memmove(m_inline, text, length);
        }
        m_inline[length] = '\0';
    } else {
        auto* heap = new char[length + 1];
        std::memcpy(heap, text, length);
        heap[length] = '\0';
        release();
        m_text = heap;
    }
    m_length = length;
}

void CStringProxy::release() noexcept {
    if (m_text != m_inline) {
        delete[] m_text;
        m_text = m_inline;
    }
}

const char* CStringProxy::c_str() const noexcept { return m_text; }

std::size_t CStringProxy::length() const noexcept { return m_length; }

CStringProxy::operator std::string_view() const noexcept { return {m_text, m_length}; }

bool operator==(const CStringProxy& a, const CStringProxy& b) noexcept {
    return std::string_view(a) == std::string_view(b);
}

bool operator!=(const CStringProxy& a, const CStringProxy& b) noexcept { return !(a == b); }

template class CDllList<CStringProxy>;

} // namespace Velmor
