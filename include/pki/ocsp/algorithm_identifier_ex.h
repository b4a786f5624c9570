// Velmor::ASN1::CAlgorithmIdentifierEx: an algorithm identifier that also caches the
// CryptoAPI ALG_ID of its OID. Callers make one to name the hash of a CertID or the
// signature algorithm of sign().
#ifndef VELMOR_PKI_OCSP_ALGORITHM_IDENTIFIER_EX_H
#define VELMOR_PKI_OCSP_ALGORITHM_IDENTIFIER_EX_H

#include <pki/ocsp/algorithm_identifier.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/win32.h>

namespace Velmor::ASN1 {

// The ALG_ID is looked up from the OID on first use and kept, also when the object is used
// through a const reference: one object must therefore not be resolved from two threads at
// once. The parameters play no part in it. Copies carry the cached value as it stands.
class VELMOR_OCSP_API CAlgorithmIdentifierEx : public CAlgorithmIdentifier {
  public:
    // No algorithm, nothing cached.
    CAlgorithmIdentifierEx();
    // oid null is taken as ""; parameters null means absent. Nothing cached.
    explicit CAlgorithmIdentifierEx(const char* oid, const CBlob* parameters = nullptr);
    // The OID and parameters of an identifier; nothing cached.
    explicit CAlgorithmIdentifierEx(const CAlgorithmIdentifier& identifier);
    CAlgorithmIdentifierEx(const CAlgorithmIdentifierEx& other);
    CAlgorithmIdentifierEx& operator=(const CAlgorithmIdentifierEx& other);
    ~CAlgorithmIdentifierEx() override;

    // Setting the OID the object already has (the same bytes) changes nothing and keeps the
    // cached ALG_ID; another OID clears the cache and replaces the OID.
    void put_algorithm(const char* oid) override;

    // The ALG_ID of the OID (a signature algorithm's is its hash's), resolved and cached on
    // first use; 0 for an OID CryptoAPI does not know, which is looked up again next time.
    Velmor::Win32::ALG_ID get_algId() const { return m_algId != 0 ? m_algId : resolveAlgId(); }
    // The cached value without a lookup; 0 when nothing is cached.
    Velmor::Win32::ALG_ID get_cachedAlgId() const noexcept { return m_algId; }

  private:
    Velmor::Win32::ALG_ID resolveAlgId() const;

    mutable Velmor::Win32::ALG_ID m_algId;
};

} // namespace Velmor::ASN1

#endif
