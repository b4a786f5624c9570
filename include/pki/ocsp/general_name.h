// Velmor::ASN1::CGeneralName and CGeneralNames: the GeneralName choice of X.509.
#ifndef VELMOR_PKI_OCSP_GENERAL_NAME_H
#define VELMOR_PKI_OCSP_GENERAL_NAME_H

#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/dll_list.h>
#include <pki/ocsp/string_proxy.h>

namespace Velmor::ASN1 {

// One GeneralName. Each put_ member switches the name to its choice and replaces the value;
// each get_ member returns null when the name holds another choice. Text given as null is
// taken as "".
class VELMOR_OCSP_API CGeneralName {
  public:
    // The choices, numbered by their context tags.
    enum Choice : int {
        none = -1, // a default-constructed name
        otherName = 0,
        rfc822Name = 1,
        dNSName = 2,
        x400Address = 3,
        directoryName = 4,
        ediPartyName = 5,
        uniformResourceIdentifier = 6,
        iPAddress = 7,
        registeredID = 8
    };

    CGeneralName();
    CGeneralName(const CGeneralName& other);
    CGeneralName& operator=(const CGeneralName& other);
    ~CGeneralName();

    Choice get_choice() const noexcept;

    // The DER of a Name.
    const CBlob* get_directoryName() const noexcept;
    void put_directoryName(const CBlob& nameDer);
    const char* get_rfc822Name() const noexcept;
    void put_rfc822Name(const char* text);
    const char* get_dNSName() const noexcept;
    void put_dNSName(const char* text);
    const char* get_uniformResourceIdentifier() const noexcept;
    void put_uniformResourceIdentifier(const char* text);
    // The address octets, of any length (4 or 16, or 8 or 32 with a mask).
    const CBlob* get_iPAddress() const noexcept;
    void put_iPAddress(const CBlob& address);
    // Dotted OID text.
    const char* get_registeredID() const noexcept;
    void put_registeredID(const char* oid);
    // otherName, x400Address and ediPartyName, kept as the whole DER element. Any other
    // choice throws E_INVALIDARG and leaves the name unchanged.
    const CBlob* get_other() const noexcept;
    void put_other(Choice choice, const CBlob& der);

  private:
    const char* TextOf(Choice choice) const noexcept;
    const CBlob* OctetsOf(Choice choice) const noexcept;
    void SetText(Choice choice, const char* text);
    void SetOctets(Choice choice, const CBlob& octets);

    friend bool operator==(const CGeneralName& a, const CGeneralName& b) noexcept;

    Choice m_choice;
    CStringProxy m_text; // the text choices
    CBlob m_octets;      // the other choices
};

// Same choice and same value.
VELMOR_OCSP_API bool operator==(const CGeneralName& a, const CGeneralName& b) noexcept;
VELMOR_OCSP_API bool operator!=(const CGeneralName& a, const CGeneralName& b) noexcept;

} // namespace Velmor::ASN1

namespace Velmor {
extern template class VELMOR_OCSP_API CDllList<ASN1::CGeneralName>;
}

namespace Velmor::ASN1 {

class VELMOR_OCSP_API CGeneralNames : public CDllList<CGeneralName> {
  public:
    CGeneralNames();
    CGeneralNames(const CGeneralNames& other);
    CGeneralNames& operator=(const CGeneralNames& other);
    ~CGeneralNames();
};

} // namespace Velmor::ASN1

#endif
