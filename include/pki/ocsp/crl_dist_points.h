// Velmor::ASN1::CDistributionPoint and CCRLDistPointsSyntax: where a CRL can be found.
#ifndef VELMOR_PKI_OCSP_CRL_DIST_POINTS_H
#define VELMOR_PKI_OCSP_CRL_DIST_POINTS_H

#include <optional>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/dll_list.h>
#include <pki/ocsp/general_name.h>

namespace Velmor::ASN1 {

// One DistributionPoint. Every field is optional: its getter returns null when it is absent,
// and its put_ member removes it when given null and stores a deep copy otherwise. The
// distributionPoint is either fullName or nameRelativeToCRLIssuer, so storing one removes the
// other.
class VELMOR_OCSP_API CDistributionPoint {
  public:
    // The named bits of ReasonFlags; bit n of the reasons mask is the flag numbered n.
    enum ReasonFlag : unsigned {
        unused = 0,
        keyCompromise = 1,
        cACompromise = 2,
        affiliationChanged = 3,
        superseded = 4,
        cessationOfOperation = 5,
        certificateHold = 6,
        privilegeWithdrawn = 7,
        aACompromise = 8
    };

    // No fields.
    CDistributionPoint();
    CDistributionPoint(const CDistributionPoint& other);
    CDistributionPoint& operator=(const CDistributionPoint& other);
    ~CDistributionPoint();

    const CGeneralNames* get_fullName() const noexcept;
    void put_fullName(const CGeneralNames* names);
    // The DER of a RelativeDistinguishedName (a SET).
    const CBlob* get_nameRelativeToCRLIssuer() const noexcept;
    void put_nameRelativeToCRLIssuer(const CBlob* rdnDer);
    // A mask of (1u << ReasonFlag) bits.
    const unsigned* get_reasons() const noexcept;
    void put_reasons(const unsigned* reasons);
    const CGeneralNames* get_cRLIssuer() const noexcept;
    void put_cRLIssuer(const CGeneralNames* issuer);

  private:
    friend struct ASN1T_CRLDistPointsSyntax_traits; // the library's decoder fills the names in
                                                    // place

    std::optional<CGeneralNames> m_fullName;
    std::optional<CBlob> m_nameRelativeToCRLIssuer;
    std::optional<unsigned> m_reasons;
    std::optional<CGeneralNames> m_cRLIssuer;
};

} // namespace Velmor::ASN1

namespace Velmor {
extern template class VELMOR_OCSP_API CDllList<ASN1::CDistributionPoint>;
}

namespace Velmor::ASN1 {

// The value of the CRL distribution points extension.
class VELMOR_OCSP_API CCRLDistPointsSyntax : public CDllList<CDistributionPoint> {
  public:
    CCRLDistPointsSyntax();
    CCRLDistPointsSyntax(const CCRLDistPointsSyntax& other);
    CCRLDistPointsSyntax& operator=(const CCRLDistPointsSyntax& other);
    ~CCRLDistPointsSyntax();
};

} // namespace Velmor::ASN1

#endif
