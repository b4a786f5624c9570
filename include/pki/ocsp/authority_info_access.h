// Velmor::ASN1::CAccessDescription and CAuthorityInfoAccessSyntax: how to reach services of a
// certificate's issuer.
#ifndef VELMOR_PKI_OCSP_AUTHORITY_INFO_ACCESS_H
#define VELMOR_PKI_OCSP_AUTHORITY_INFO_ACCESS_H

#include <pki/ocsp/config.h>
#include <pki/ocsp/dll_list.h>
#include <pki/ocsp/general_name.h>
#include <pki/ocsp/string_proxy.h>

namespace Velmor::ASN1 {

// One AccessDescription: the access method's OID text and the location. OID text null is
// taken as "".
class VELMOR_OCSP_API CAccessDescription {
  public:
    // No method ("") and a name of no choice.
    CAccessDescription();
    CAccessDescription(const char* accessMethod, const CGeneralName& accessLocation);
    CAccessDescription(const CAccessDescription& other);
    CAccessDescription& operator=(const CAccessDescription& other);
    ~CAccessDescription();

    const char* get_accessMethod() const noexcept;
    void put_accessMethod(const char* oid);
    const CGeneralName& get_accessLocation() const noexcept;
    void put_accessLocation(const CGeneralName& location);

  private:
    CStringProxy m_accessMethod;
    CGeneralName m_accessLocation;
};

// Same method text and same location.
VELMOR_OCSP_API bool operator==(const CAccessDescription& a, const CAccessDescription& b) noexcept;
VELMOR_OCSP_API bool operator!=(const CAccessDescription& a, const CAccessDescription& b) noexcept;

} // namespace Velmor::ASN1

namespace Velmor {
extern template class VELMOR_OCSP_API CDllList<ASN1::CAccessDescription>;
}

namespace Velmor::ASN1 {

// The value of the authority information access extension.
class VELMOR_OCSP_API CAuthorityInfoAccessSyntax : public CDllList<CAccessDescription> {
  public:
    CAuthorityInfoAccessSyntax();
    CAuthorityInfoAccessSyntax(const CAuthorityInfoAccessSyntax& other);
    CAuthorityInfoAccessSyntax& operator=(const CAuthorityInfoAccessSyntax& other);
    ~CAuthorityInfoAccessSyntax();
};

} // namespace Velmor::ASN1

#endif
