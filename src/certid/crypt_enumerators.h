// Enumerators over the installed provider types and providers, which hand each name to a
// virtual callback. Names are fetched into an inline buffer and, when one does not fit,
// into a buffer from an ATL memory manager.
#ifndef VELMOR_SRC_CERTID_CRYPT_ENUMERATORS_H
#define VELMOR_SRC_CERTID_CRYPT_ENUMERATORS_H

#include "platform/atl_memory.h"
#include "platform/crypt_api.h"

#include <cstddef>

namespace ATL2 {

using Velmor::Win32::BOOL;
using Velmor::Win32::DWORD;
using Velmor::Win32::HRESULT;

// Wide-name adapters over CryptEnumProviderTypesA and CryptEnumProvidersA. nameSize is in
// bytes of wide characters, in and out: the ANSI function gets nameSize / sizeof(wchar_t)
// bytes of name's storage, its name is widened (MultiByteToWideChar, CP_ACP) over name, and
// the size it reports is multiplied by sizeof(wchar_t) again. A failed conversion fails
// with MultiByteToWideChar's last error; the ANSI function's own failure passes through.
BOOL CryptEnumProviderTypesT(DWORD index, DWORD* providerType, wchar_t* name, DWORD* nameSize);
BOOL CryptEnumProvidersT(DWORD index, DWORD* providerType, wchar_t* name, DWORD* nameSize);

// The name buffer of an enumerator: the current buffer, the inline one (InlineBytes bytes)
// and the memory manager for names that do not fit it. Enumerate() of each enumerator runs
// the growth rule, see crypt_enumerators.cpp.
template <class TChar, std::size_t InlineBytes> class CCryptNameBufferT {
  protected:
    explicit CCryptNameBufferT(ATL::IAtlMemMgr* memMgr) noexcept;
    // Frees a heap buffer through the memory manager.
    ~CCryptNameBufferT();
    CCryptNameBufferT(const CCryptNameBufferT&) = delete;
    CCryptNameBufferT& operator=(const CCryptNameBufferT&) = delete;

    // Calls fetch(index, &type, buffer, &size) for index 0, 1, ... and visit(type, name)
    // after each success, until visit returns false or the names run out.
    template <class Fetch, class Visit> HRESULT EnumerateNames(Fetch fetch, Visit visit);

    TChar* m_pszName;
    TChar m_szName[InlineBytes / sizeof(TChar)];
    ATL::IAtlMemMgr* m_pMemMgr;

  private:
    void UseInline() noexcept;
    void UseHeap(std::size_t bytes);
};

// Visits the installed provider types in CryptoAPI's order.
template <class TChar> class CCryptProviderTypesEnumT : private CCryptNameBufferT<TChar, 256> {
  public:
    // memMgr null: the C run-time heap.
    explicit CCryptProviderTypesEnumT(ATL::IAtlMemMgr* memMgr = nullptr) noexcept;

    // Called for every provider type; true continues, false stops the enumeration.
    virtual bool OnProviderType(unsigned long providerType, const TChar* typeName) = 0;
    virtual ~CCryptProviderTypesEnumT();

    // S_OK when the types ran out or the callback stopped; the enumeration function's error
    // as an HRESULT otherwise. A name buffer that cannot be allocated throws E_OUTOFMEMORY.
    HRESULT Enumerate();
};

// Visits the installed providers in CryptoAPI's order.
template <class TChar> class CCryptProvidersEnumT : private CCryptNameBufferT<TChar, 512> {
  public:
    explicit CCryptProvidersEnumT(ATL::IAtlMemMgr* memMgr = nullptr) noexcept;

    virtual bool OnProvider(const TChar* providerName, unsigned long providerType) = 0;
    virtual ~CCryptProvidersEnumT();

    HRESULT Enumerate();
};

extern template class CCryptNameBufferT<wchar_t, 256>;
extern template class CCryptNameBufferT<wchar_t, 512>;
extern template class CCryptProviderTypesEnumT<wchar_t>;
extern template class CCryptProvidersEnumT<wchar_t>;

} // namespace ATL2

#endif
