// Finding a provider that implements an algorithm, and hashing with it. The library never
// asks its caller which provider to use: the default provider of the first provider type
// that implements the algorithm is taken (with the kept quirks described at
// AcquireContextForAlgId).
#ifndef VELMOR_SRC_CERTID_ALGORITHM_LOOKUP_H
#define VELMOR_SRC_CERTID_ALGORITHM_LOOKUP_H

#include "certid/crypt_enumerators.h"
#include "platform/crypt_api.h"

#include <pki/ocsp/blob.h>

namespace Velmor {

// The search state: the wanted ALG_ID and the provider handle last opened (0 when none).
class CFindAlgIdIn {
  public:
    explicit CFindAlgIdIn(Win32::ALG_ID algId) noexcept : m_algId(algId), m_hProv(0) {}
    // Releases a held handle; a failure is ignored.
    ~CFindAlgIdIn();
    CFindAlgIdIn(const CFindAlgIdIn&) = delete;
    CFindAlgIdIn& operator=(const CFindAlgIdIn&) = delete;

    // Opens the provider (by name, or the default provider of the type when providerName is
    // null) as a verification context and walks its algorithms. True when it implements the
    // wanted ALG_ID. The handle stays held either way, until the next Find or destruction.
    // Throws the last Win32 error when the held handle cannot be released, the provider
    // cannot be opened, or its algorithm list ends with an error.
    bool Find(Win32::DWORD providerType, const wchar_t* providerName);

    Win32::ALG_ID AlgId() const noexcept { return m_algId; }
    Win32::HCRYPTPROV Provider() const noexcept { return m_hProv; }

  protected:
    void ReleaseHeld() noexcept;

  private:
    Win32::ALG_ID m_algId;
    Win32::HCRYPTPROV m_hProv;
};

// Visits the default provider of every provider type and stops at the first that
// implements the ALG_ID.
class CFindAlgIdInDefaultProviders : public CFindAlgIdIn,
                                     public ATL2::CCryptProviderTypesEnumT<wchar_t> {
  public:
    explicit CFindAlgIdInDefaultProviders(Win32::ALG_ID algId,
                                          ATL::IAtlMemMgr* memMgr = nullptr) noexcept;
    // Releases the held handle, then the name buffer.
    ~CFindAlgIdInDefaultProviders() override;
    bool OnProviderType(unsigned long providerType, const wchar_t* typeName) override;
};

// Visits every installed provider by name and stops at the first that implements the
// ALG_ID.
class CFindAlgIdInProviders : public CFindAlgIdIn, public ATL2::CCryptProvidersEnumT<wchar_t> {
  public:
    explicit CFindAlgIdInProviders(Win32::ALG_ID algId, ATL::IAtlMemMgr* memMgr = nullptr) noexcept;
    ~CFindAlgIdInProviders() override;
    bool OnProvider(const wchar_t* providerName, unsigned long providerType) override;
};

// A verification context for an algorithm, which the caller owns and releases; 0 when no
// provider type and no provider could be visited (the last error then says why, normally
// ERROR_NO_MORE_ITEMS).
//
// ALG_ID 0 gives a PROV_RSA_FULL verification context. Otherwise the default providers of
// the provider types are searched in order, and the first that implements the algorithm
// is returned. When none does, the default provider of the last provider type is returned
// anyway, and the caller's next call with the algorithm fails (CryptCreateHash with
// NTE_BAD_ALGID): the result is the handle the search holds, not a found flag. Only when
// there are no provider types at all are the providers searched by name, with the same
// rule. A provider that cannot be opened ends the search with its error (thrown).
Win32::HCRYPTPROV AcquireContextForAlgId(Win32::ALG_ID algId);

// The hash of data with algId, through a provider found by AcquireContextForAlgId; bytes
// as CryptoAPI returns them. Every failure throws the last Win32 error as an HRESULT.
CBlob HashBlob(Win32::ALG_ID algId, const CBlob& data);

} // namespace Velmor

#endif
