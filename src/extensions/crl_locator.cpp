// CExtCRLLocator: the CRL distribution points syntax under the CRL locator's identifier.
#include <pki/ocsp/ocsp_extensions.h>

#include "asn1/pkix_types.h"
#include "extensions/typed_extension.h"
#include "foundation/asn1_traits.h"
#include "trace/trace_guard.h"

namespace Velmor::PKI::OCSP {

using ASN1::CCRLDistPointsSyntax;
using Detail::Records;

struct CExtCRLLocator::Data : Detail::PooledRecord {
    CCRLDistPointsSyntax distributionPoints;
};

namespace {

struct CRLLocator_traits {
    using Type = ASN1T_CRLDistPointsSyntax;
    using Record = Records::Record<CExtCRLLocator>;

    static void set(ASN1CTXT* ctxt, ASN1T_CRLDistPointsSyntax& out, const Record& value) {
        ASN1::ASN1T_CRLDistPointsSyntax_traits::set(ctxt, out, value.distributionPoints);
    }
    static void get(const ASN1T_CRLDistPointsSyntax& in, Record& value) {
        ASN1::ASN1T_CRLDistPointsSyntax_traits::get(in, value.distributionPoints);
    }
};

using Value = TypedExtension<CExtCRLLocator, CRLLocator_traits>;

} // namespace

CExtCRLLocator::CExtCRLLocator() : CExtValue(ExtensionOid::kCRLLocator) { Records::Make(*this); }

CExtCRLLocator::CExtCRLLocator(const CCRLDistPointsSyntax& distributionPoints)
    : CExtValue(ExtensionOid::kCRLLocator), m_data(nullptr) {
    Trace::Guard("CExtCRLLocator::CExtCRLLocator", [&] {
        Value::Install(*this, value(), std::make_unique<Data>(Data{{}, distributionPoints}));
    });
}

// The value blob keeps the bytes given.
CExtCRLLocator::CExtCRLLocator(const CBlob& value)
    : CExtValue(ExtensionOid::kCRLLocator, value),
      m_data(Trace::Guard("CExtCRLLocator::CExtCRLLocator",
                          [&] { return Value::Decode(value).release(); })) {}

CExtCRLLocator::CExtCRLLocator(const CExtCRLLocator& other) : CExtValue(other) {
    Records::Make(*this, *other.m_data);
}

CExtCRLLocator& CExtCRLLocator::operator=(const CExtCRLLocator& other) {
    Value::Assign(*this, other);
    return *this;
}

CExtCRLLocator::~CExtCRLLocator() { Records::Destroy(*this); }

const CCRLDistPointsSyntax& CExtCRLLocator::get_distributionPoints() const {
    return m_data->distributionPoints;
}

void CExtCRLLocator::put_distributionPoints(const CCRLDistPointsSyntax& distributionPoints) {
    Trace::Guard("CExtCRLLocator::put_distributionPoints", [&] {
        m_data->distributionPoints = distributionPoints;
        encode();
    });
}

void CExtCRLLocator::encode() { Value::Encode(*this, value()); }

} // namespace Velmor::PKI::OCSP
