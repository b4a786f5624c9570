// CAccessDescription and CAuthorityInfoAccessSyntax.
#include <cstring>
#include <pki/ocsp/authority_info_access.h>

#include "foundation/dll_list_impl.h"

namespace Velmor::ASN1 {

CAccessDescription::CAccessDescription() = default;

CAccessDescription::CAccessDescription(const char* accessMethod, const CGeneralName& accessLocation)
    : m_accessMethod(accessMethod), m_accessLocation(accessLocation) {}

CAccessDescription::CAccessDescription(const CAccessDescription& other) = default;
CAccessDescription& CAccessDescription::operator=(const CAccessDescription& other) = default;
CAccessDescription::~CAccessDescription() = default;

const char* CAccessDescription::get_accessMethod() const noexcept { return m_accessMethod.c_str(); }

void CAccessDescription::put_accessMethod(const char* oid) { m_accessMethod = oid; }

const CGeneralName& CAccessDescription::get_accessLocation() const noexcept {
    return m_accessLocation;
}

void CAccessDescription::put_accessLocation(const CGeneralName& location) {
    m_accessLocation = location;
}

bool operator==(const CAccessDescription& a, const CAccessDescription& b) noexcept {
    return std::strcmp(a.get_accessMethod(), b.get_accessMethod()) == 0 &&
           a.get_accessLocation() == b.get_accessLocation();
}

bool operator!=(const CAccessDescription& a, const CAccessDescription& b) noexcept {
    return !(a == b);
}

CAuthorityInfoAccessSyntax::CAuthorityInfoAccessSyntax() = default;
CAuthorityInfoAccessSyntax::CAuthorityInfoAccessSyntax(const CAuthorityInfoAccessSyntax& other) =
    default;
CAuthorityInfoAccessSyntax&
CAuthorityInfoAccessSyntax::operator=(const CAuthorityInfoAccessSyntax& other) = default;
CAuthorityInfoAccessSyntax::~CAuthorityInfoAccessSyntax() = default;

} // namespace Velmor::ASN1

namespace Velmor {
template class CDllList<ASN1::CAccessDescription>;
}
