// CDistributionPoint and CCRLDistPointsSyntax.
#include <pki/ocsp/crl_dist_points.h>

#include "foundation/dll_list_impl.h"

// A decoded point has each of its four fields set or reset: spare ones are reused.
template <>
struct Velmor::Detail::RecyclesEntries<Velmor::ASN1::CDistributionPoint> : std::true_type {};

namespace Velmor::ASN1 {

namespace {

template <class T> const T* PointerTo(const std::optional<T>& field) noexcept {
    return field ? &*field : nullptr;
}

// Removes the field for null, else stores a copy; a failed copy leaves the field as it was.
template <class T> void Store(std::optional<T>& field, const T* value) {
    if (value == nullptr) {
        field.reset();
    } else {
        field = *value;
    }
}

// The same for a list, which is copied aside first and then swapped in.
void Store(std::optional<CGeneralNames>& field, const CGeneralNames* value) {
    if (value == nullptr) {
        field.reset();
        return;
    }
    CGeneralNames copy(*value);
    if (!field) {
        field.emplace();
    }
    field->swap(copy);
}

} // namespace

CDistributionPoint::CDistributionPoint() = default;
CDistributionPoint::CDistributionPoint(const CDistributionPoint& other) = default;
CDistributionPoint& CDistributionPoint::operator=(const CDistributionPoint& other) = default;
CDistributionPoint::~CDistributionPoint() = default;

const CGeneralNames* CDistributionPoint::get_fullName() const noexcept {
    return PointerTo(m_fullName);
}

void CDistributionPoint::put_fullName(const CGeneralNames* names) {
    Store(m_fullName, names);
    if (names != nullptr) {
        m_nameRelativeToCRLIssuer.reset();
    }
}

const CBlob* CDistributionPoint::get_nameRelativeToCRLIssuer() const noexcept {
    return PointerTo(m_nameRelativeToCRLIssuer);
}

void CDistributionPoint::put_nameRelativeToCRLIssuer(const CBlob* rdnDer) {
    Store(m_nameRelativeToCRLIssuer, rdnDer);
    if (rdnDer != nullptr) {
        m_fullName.reset();
    }
}

const unsigned* CDistributionPoint::get_reasons() const noexcept { return PointerTo(m_reasons); }

void CDistributionPoint::put_reasons(const unsigned* reasons) { Store(m_reasons, reasons); }

const CGeneralNames* CDistributionPoint::get_cRLIssuer() const noexcept {
    return PointerTo(m_cRLIssuer);
}

void CDistributionPoint::put_cRLIssuer(const CGeneralNames* issuer) { Store(m_cRLIssuer, issuer); }

CCRLDistPointsSyntax::CCRLDistPointsSyntax() = default;
CCRLDistPointsSyntax::CCRLDistPointsSyntax(const CCRLDistPointsSyntax& other) = default;
CCRLDistPointsSyntax& CCRLDistPointsSyntax::operator=(const CCRLDistPointsSyntax& other) = default;
CCRLDistPointsSyntax::~CCRLDistPointsSyntax() = default;

} // namespace Velmor::ASN1

namespace Velmor {
template class CDllList<ASN1::CDistributionPoint>;
}
