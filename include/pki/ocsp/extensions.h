// Velmor::ASN1::CExtValue, CExtension and CExtensions: X.509 extensions as OID text, critical
// flag and the extnValue octets.
#ifndef VELMOR_PKI_OCSP_EXTENSIONS_H
#define VELMOR_PKI_OCSP_EXTENSIONS_H

#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/dll_list.h>
#include <pki/ocsp/string_proxy.h>

namespace Velmor::ASN1 {

// The base of typed extension classes: a fixed OID and the encoded value that the derived
// class maintains through value(). OID text null is taken as "" here and below.
class VELMOR_OCSP_API CExtValue {
  public:
    explicit CExtValue(const char* oid);
    CExtValue(const char* oid, const CBlob& value);
    CExtValue(const CExtValue& other);
    CExtValue& operator=(const CExtValue& other);
    virtual ~CExtValue();

    const char* get_oid() const noexcept;
    // The encoded value: the contents of the extension's extnValue OCTET STRING.
    const CBlob& get_value() const noexcept;

  protected:
    CBlob& value() noexcept;

  private:
    CStringProxy m_oid;
    CBlob m_value;
};

// One extension: extnID, critical (false by default) and the extnValue octets.
class VELMOR_OCSP_API CExtension {
  public:
    CExtension();
    CExtension(const char* oid, bool critical, const CBlob& value);
    CExtension(const CExtValue& value, bool critical);
    CExtension(const CExtension& other);
    CExtension& operator=(const CExtension& other);
    ~CExtension();

    const char* get_extnID() const noexcept;
    void put_extnID(const char* oid);
    bool get_critical() const noexcept;
    void put_critical(bool critical) noexcept;
    const CBlob& get_extnValue() const noexcept;
    void put_extnValue(const CBlob& value);

  private:
    CStringProxy m_extnID;
    bool m_critical;
    CBlob m_extnValue;
};

// Same OID text, flag and value octets.
VELMOR_OCSP_API bool operator==(const CExtension& a, const CExtension& b) noexcept;
VELMOR_OCSP_API bool operator!=(const CExtension& a, const CExtension& b) noexcept;

} // namespace Velmor::ASN1

namespace Velmor {
extern template class VELMOR_OCSP_API CDllList<ASN1::CExtension>;
}

namespace Velmor::ASN1 {

// The extensions of a request, single request or response, in order.
class VELMOR_OCSP_API CExtensions : public CDllList<CExtension> {
  public:
    CExtensions();
    CExtensions(const CExtensions& other);
    CExtensions& operator=(const CExtensions& other);
    ~CExtensions();

    // The first extension whose OID text equals oid, or null (also for a null oid).
    const CExtension* find(const char* oid) const;
    CExtension* find(const char* oid);
};

} // namespace Velmor::ASN1

#endif
