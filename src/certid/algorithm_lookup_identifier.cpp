// CAlgorithmIdentifierEx: the algorithm identifier with its cached ALG_ID.
#include "platform/crypt_api.h"

#include <pki/ocsp/algorithm_identifier_ex.h>
#include <string_view>

namespace Velmor::ASN1 {

CAlgorithmIdentifierEx::CAlgorithmIdentifierEx() : m_algId(0) {}

CAlgorithmIdentifierEx::CAlgorithmIdentifierEx(const char* oid, const CBlob* parameters)
    : CAlgorithmIdentifier(oid, parameters), m_algId(0) {}

CAlgorithmIdentifierEx::CAlgorithmIdentifierEx(const CAlgorithmIdentifier& identifier)
    : CAlgorithmIdentifier(identifier), m_algId(0) {}

CAlgorithmIdentifierEx::CAlgorithmIdentifierEx(const CAlgorithmIdentifierEx& other) = default;
CAlgorithmIdentifierEx&
CAlgorithmIdentifierEx::operator=(const CAlgorithmIdentifierEx& other) = default;
CAlgorithmIdentifierEx::~CAlgorithmIdentifierEx() = default;

void CAlgorithmIdentifierEx::put_algorithm(const char* oid) {
    if (std::string_view(get_algorithm()) == std::string_view(oid != nullptr ? oid : "")) {
        return;
    }
    m_algId = 0;
    CAlgorithmIdentifier::put_algorithm(oid);
}

Win32::ALG_ID CAlgorithmIdentifierEx::resolveAlgId() const {
    m_algId = Win32::CertOIDToAlgId(get_algorithm());
    return m_algId;
}

} // namespace Velmor::ASN1
