// The provider search for an algorithm and the hashing built on it.
#include "certid/algorithm_lookup.h"

#include "certid/crypt_calls.h"
#include "platform/crypt_raii.h"

#include <pki/ocsp/atl_exception.h>

namespace Velmor {

using namespace Win32;

// ---- CFindAlgIdIn -----------------------------------------------------------------------

CFindAlgIdIn::~CFindAlgIdIn() { ReleaseHeld(); }

void CFindAlgIdIn::ReleaseHeld() noexcept {
    if (m_hProv != 0) {
        CryptReleaseContext(m_hProv, 0);
        m_hProv = 0;
    }
}

bool CFindAlgIdIn::Find(DWORD providerType, const wchar_t* providerName) {
    if (m_hProv != 0) {
        const HCRYPTPROV held = m_hProv;
        m_hProv = 0;
        if (!CryptReleaseContext(held, 0)) {
            ATL::AtlThrowLastWin32();
        }
    }
    if (!CryptAcquireContextW(&m_hProv, nullptr, providerName, providerType, CRYPT_VERIFYCONTEXT)) {
        m_hProv = 0;
        ATL::AtlThrowLastWin32();
    }
    PROV_ENUMALGS_EX algorithm{};
    for (DWORD flags = CRYPT_FIRST;; flags = 0) {
        DWORD size = sizeof algorithm;
        if (!CryptGetProvParam(m_hProv, PP_ENUMALGS_EX, reinterpret_cast<BYTE*>(&algorithm), &size,
                               flags)) {
            break;
        }
        if (algorithm.aiAlgid == m_algId) {
            return true;
        }
    }
    if (GetLastError() != ERROR_NO_MORE_ITEMS) {
        ATL::AtlThrowLastWin32();
    }
    return false;
}

// ---- The two searchers --------------------------------------------------------------------

CFindAlgIdInDefaultProviders::CFindAlgIdInDefaultProviders(ALG_ID algId,
                                                           ATL::IAtlMemMgr* memMgr) noexcept
    : CFindAlgIdIn(algId), ATL2::CCryptProviderTypesEnumT<wchar_t>(memMgr) {}

CFindAlgIdInDefaultProviders::~CFindAlgIdInDefaultProviders() { ReleaseHeld(); }

bool CFindAlgIdInDefaultProviders::OnProviderType(unsigned long providerType,
                                                  const wchar_t* /*typeName*/) {
    return !Find(static_cast<DWORD>(providerType), nullptr);
}

CFindAlgIdInProviders::CFindAlgIdInProviders(ALG_ID algId, ATL::IAtlMemMgr* memMgr) noexcept
    : CFindAlgIdIn(algId), ATL2::CCryptProvidersEnumT<wchar_t>(memMgr) {}

CFindAlgIdInProviders::~CFindAlgIdInProviders() { ReleaseHeld(); }

bool CFindAlgIdInProviders::OnProvider(const wchar_t* providerName, unsigned long providerType) {
    return !Find(static_cast<DWORD>(providerType), providerName);
}

// ---- Acquisition and hashing ----------------------------------------------------------------

namespace {

// A reference of the caller's own to the handle a searcher holds (0 when it holds none);
// the searcher's reference goes with the searcher.
template <class Searcher> HCRYPTPROV SearchWith(ALG_ID algId) {
    Searcher searcher(algId);
    static_cast<void>(searcher.Enumerate()); // only an exception from Find ends it early
    const HCRYPTPROV held = searcher.Provider();
    if (held != 0) {
        static_cast<void>(CryptContextAddRef(held, nullptr, 0));
    }
    return held;
}

} // namespace

HCRYPTPROV AcquireContextForAlgId(ALG_ID algId) {
    if (algId == 0) {
        HCRYPTPROV provider = 0;
        if (!CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL,
                                  CRYPT_VERIFYCONTEXT)) {
            ATL::AtlThrowLastWin32();
        }
        return provider;
    }
    const HCRYPTPROV fromDefaults = SearchWith<CFindAlgIdInDefaultProviders>(algId);
    if (fromDefaults != 0) {
        return fromDefaults;
    }
    return SearchWith<CFindAlgIdInProviders>(algId);
}

CBlob HashBlob(ALG_ID algId, const CBlob& data) {
    const CScopedProvider provider(AcquireContextForAlgId(algId));
    CheckWin32(static_cast<bool>(provider));
    CScopedHash hash;
    CheckWin32(CryptCreateHash(provider.get(), algId, 0, 0, hash.put()));
    CheckWin32(CryptHashData(hash.get(), data.pbData(), static_cast<DWORD>(data.cbData()), 0));
    DWORD size = 0;
    DWORD sizeLength = sizeof size;
    CheckWin32(
        CryptGetHashParam(hash.get(), HP_HASHSIZE, reinterpret_cast<BYTE*>(&size), &sizeLength, 0));
    CBlob value(size);
    DWORD valueLength = size;
    CheckWin32(CryptGetHashParam(hash.get(), HP_HASHVAL, value.pbData(), &valueLength, 0));
    return value;
}

} // namespace Velmor
