// Velmor::ASN1::CAlgorithmIdentifier: an algorithm's object identifier and its parameters.
#ifndef VELMOR_PKI_OCSP_ALGORITHM_IDENTIFIER_H
#define VELMOR_PKI_OCSP_ALGORITHM_IDENTIFIER_H

#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/string_proxy.h>

namespace Velmor::ASN1 {

// The OID is kept as dotted text without checking its syntax; the parameters as the DER of
// the parameters element, empty when they are absent. Derived classes may refine
// put_algorithm and are destroyed through a base pointer.
class VELMOR_OCSP_API CAlgorithmIdentifier {
  public:
    // No algorithm ("") and no parameters.
    CAlgorithmIdentifier();
    // oid null is taken as ""; parameters null means absent.
    explicit CAlgorithmIdentifier(const char* oid, const CBlob* parameters = nullptr);
    CAlgorithmIdentifier(const CAlgorithmIdentifier& other);
    CAlgorithmIdentifier& operator=(const CAlgorithmIdentifier& other);
    // A moved-from identifier has no algorithm and no parameters.
    CAlgorithmIdentifier(CAlgorithmIdentifier&& other) noexcept;
    CAlgorithmIdentifier& operator=(CAlgorithmIdentifier&& other) noexcept;
    virtual ~CAlgorithmIdentifier();

    // The OID text; "" when unset.
    const char* get_algorithm() const noexcept;
    // Replaces the OID text; null is taken as "".
    virtual void put_algorithm(const char* oid);
    const CBlob& get_parameters() const noexcept;
    void put_parameters(const CBlob& parameters);

  private:
    CStringProxy m_algorithm;
    CBlob m_parameters;
};

// Same OID text and same parameter bytes.
VELMOR_OCSP_API bool operator==(const CAlgorithmIdentifier& a,
                                const CAlgorithmIdentifier& b) noexcept;
VELMOR_OCSP_API bool operator!=(const CAlgorithmIdentifier& a,
                                const CAlgorithmIdentifier& b) noexcept;

} // namespace Velmor::ASN1

#endif
