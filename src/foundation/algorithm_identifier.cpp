// CAlgorithmIdentifier.
#include <cstring>
#include <pki/ocsp/algorithm_identifier.h>

namespace Velmor::ASN1 {

CAlgorithmIdentifier::CAlgorithmIdentifier() = default;

CAlgorithmIdentifier::CAlgorithmIdentifier(const char* oid, const CBlob* parameters)
    : m_algorithm(oid), m_parameters(parameters != nullptr ? *parameters : CBlob()) {}

CAlgorithmIdentifier::CAlgorithmIdentifier(const CAlgorithmIdentifier& other) = default;
CAlgorithmIdentifier& CAlgorithmIdentifier::operator=(const CAlgorithmIdentifier& other) = default;
CAlgorithmIdentifier::CAlgorithmIdentifier(CAlgorithmIdentifier&& other) noexcept = default;
CAlgorithmIdentifier&
CAlgorithmIdentifier::operator=(CAlgorithmIdentifier&& other) noexcept = default;
CAlgorithmIdentifier::~CAlgorithmIdentifier() = default;

const char* CAlgorithmIdentifier::get_algorithm() const noexcept { return m_algorithm.c_str(); }

void CAlgorithmIdentifier::put_algorithm(const char* oid) { m_algorithm = oid; }

const CBlob& CAlgorithmIdentifier::get_parameters() const noexcept { return m_parameters; }

void CAlgorithmIdentifier::put_parameters(const CBlob& parameters) { m_parameters = parameters; }

bool operator==(const CAlgorithmIdentifier& a, const CAlgorithmIdentifier& b) noexcept {
    return std::strcmp(a.get_algorithm(), b.get_algorithm()) == 0 &&
           a.get_parameters() == b.get_parameters();
}

bool operator!=(const CAlgorithmIdentifier& a, const CAlgorithmIdentifier& b) noexcept {
    return !(a == b);
}

} // namespace Velmor::ASN1
