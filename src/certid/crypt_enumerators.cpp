// The provider enumerators, their name-buffer growth rule and the wide-name adapters.
#include "certid/crypt_enumerators.h"

#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <pki/ocsp/atl_exception.h>

namespace ATL2 {

using namespace Velmor::Win32;

namespace {

// Names needing at most this many bytes as wide text are widened in a stack buffer.
constexpr std::size_t kStackNameBytes = 1024;

// Widens the NUL-terminated ANSI name that lies at the start of name's storage over that
// storage, which holds nameBytes bytes.
BOOL WidenInPlace(wchar_t* name, DWORD nameBytes) {
    const auto* ansi = reinterpret_cast<const char*>(name);
    const std::size_t capacity = nameBytes / sizeof(wchar_t);
    std::array<wchar_t, kStackNameBytes / sizeof(wchar_t)> onStack;
    std::unique_ptr<wchar_t[]> onHeap;
    wchar_t* wide = onStack.data();
    if (capacity > onStack.size()) {
        onHeap = std::make_unique<wchar_t[]>(capacity);
        wide = onHeap.get();
    }
    const int count = MultiByteToWideChar(CP_ACP, 0, ansi, -1, wide, static_cast<int>(capacity));
    if (count == 0) {
        return FALSE;
    }
    std::memcpy(name, wide, static_cast<std::size_t>(count) * sizeof(wchar_t));
    return TRUE;
}

// Runs ansiCall(char* name, DWORD* size) over the storage of a wide name buffer, with the
// size converted from and back to bytes of wide characters.
template <class AnsiCall> BOOL WithWideName(AnsiCall ansiCall, wchar_t* name, DWORD* nameSize) {
    if (nameSize == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    DWORD ansiSize = *nameSize / sizeof(wchar_t);
    const BOOL fetched = ansiCall(reinterpret_cast<char*>(name), &ansiSize);
    *nameSize = ansiSize * sizeof(wchar_t);
    if (!fetched || name == nullptr) {
        return fetched;
    }
    return WidenInPlace(name, *nameSize);
}

} // namespace

BOOL CryptEnumProviderTypesT(DWORD index, DWORD* providerType, wchar_t* name, DWORD* nameSize) {
    return WithWideName(
        [&](char* ansiName, DWORD* ansiSize) {
            return CryptEnumProviderTypesA(index, nullptr, 0, providerType, ansiName, ansiSize);
        },
        name, nameSize);
}

BOOL CryptEnumProvidersT(DWORD index, DWORD* providerType, wchar_t* name, DWORD* nameSize) {
    return WithWideName(
        [&](char* ansiName, DWORD* ansiSize) {
            return CryptEnumProvidersA(index, nullptr, 0, providerType, ansiName, ansiSize);
        },
        name, nameSize);
}

// ---- Name buffer ----------------------------------------------------------------------------

template <class TChar, std::size_t InlineBytes>
CCryptNameBufferT<TChar, InlineBytes>::CCryptNameBufferT(ATL::IAtlMemMgr* memMgr) noexcept
    : m_pszName(m_szName), m_szName{},
      m_pMemMgr(memMgr != nullptr ? memMgr : &ATL::DefaultCrtHeap()) {}

template <class TChar, std::size_t InlineBytes>
CCryptNameBufferT<TChar, InlineBytes>::~CCryptNameBufferT() {
    UseInline();
}

template <class TChar, std::size_t InlineBytes>
void CCryptNameBufferT<TChar, InlineBytes>::UseInline() noexcept {
    if (m_pszName != m_szName) {
        m_pMemMgr->Free(m_pszName);
        m_pszName = m_szName;
    }
}

template <class TChar, std::size_t InlineBytes>
void CCryptNameBufferT<TChar, InlineBytes>::UseHeap(std::size_t bytes) {
    void* block = m_pszName == m_szName ? m_pMemMgr->Allocate(bytes)
                                        : m_pMemMgr->Reallocate(m_pszName, bytes);
    if (block == nullptr) {
        ATL::AtlThrow(E_OUTOFMEMORY);
    }
    m_pszName = static_cast<TChar*>(block);
}

// The growth rule. The size passed to fetch is in and out: fetch reports the size of the
// name it gave, or, with ERROR_MORE_DATA, the size it needs. A name that does not fit is
// fetched again, once, into a buffer of twice the size reported: a heap buffer when that is
// more than the inline buffer holds, the inline buffer otherwise. The size carries over to
// the next index, so a longer name after a short one is fetched a second time as well.
template <class TChar, std::size_t InlineBytes>
template <class Fetch, class Visit>
HRESULT CCryptNameBufferT<TChar, InlineBytes>::EnumerateNames(Fetch fetch, Visit visit) {
    UseInline();
    DWORD size = InlineBytes;
    bool grown = false;
    for (DWORD index = 0;;) {
        m_pszName[0] = TChar{};
        DWORD type = 0;
        const DWORD sizeBefore = size;
        if (fetch(index, &type, m_pszName, &size)) {
            if (!visit(type, m_pszName)) {
                return S_OK;
            }
            ++index;
            grown = false;
            continue;
        }
        const DWORD error = GetLastError();
        if (error == ERROR_NO_MORE_ITEMS) {
            return S_OK;
        }
        if (error != ERROR_MORE_DATA || grown) {
            return HResultFromWin32(error);
        }
        if (size <= sizeBefore || size > std::numeric_limits<DWORD>::max() / 2) {
            return HResultFromWin32(ERROR_MORE_DATA);
        }
        size *= 2;
        if (size > InlineBytes) {
            UseHeap(size);
        } else {
            UseInline();
        }
        grown = true;
    }
}

// ---- Enumerators ----------------------------------------------------------------------------

template <class TChar>
CCryptProviderTypesEnumT<TChar>::CCryptProviderTypesEnumT(ATL::IAtlMemMgr* memMgr) noexcept
    : CCryptNameBufferT<TChar, 256>(memMgr) {}

template <class TChar> CCryptProviderTypesEnumT<TChar>::~CCryptProviderTypesEnumT() = default;

template <class TChar> HRESULT CCryptProviderTypesEnumT<TChar>::Enumerate() {
    return this->EnumerateNames(CryptEnumProviderTypesT, [this](DWORD type, const TChar* name) {
        return OnProviderType(type, name);
    });
}

template <class TChar>
CCryptProvidersEnumT<TChar>::CCryptProvidersEnumT(ATL::IAtlMemMgr* memMgr) noexcept
    : CCryptNameBufferT<TChar, 512>(memMgr) {}

template <class TChar> CCryptProvidersEnumT<TChar>::~CCryptProvidersEnumT() = default;

template <class TChar> HRESULT CCryptProvidersEnumT<TChar>::Enumerate() {
    return this->EnumerateNames(CryptEnumProvidersT, [this](DWORD type, const TChar* name) {
        return OnProvider(name, type);
    });
}

template class CCryptNameBufferT<wchar_t, 256>;
template class CCryptNameBufferT<wchar_t, 512>;
template class CCryptProviderTypesEnumT<wchar_t>;
template class CCryptProvidersEnumT<wchar_t>;

} // namespace ATL2
