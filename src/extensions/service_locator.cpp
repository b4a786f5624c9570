// CExtServiceLocator: ServiceLocator ::= SEQUENCE { issuer Name, locator
// AuthorityInfoAccessSyntax OPTIONAL }.
#include <pki/ocsp/ocsp_extensions.h>

#include "asn1/ocsp_types.h"
#include "extensions/typed_extension.h"
#include "foundation/asn1_traits.h"
#include "trace/trace_guard.h"

#include <pki/ocsp/atl_exception.h>

namespace Velmor::PKI::OCSP {

using ASN1::CAuthorityInfoAccessSyntax;
using Detail::Records;

struct CExtServiceLocator::Data : Detail::PooledRecord {
    CBlob issuer; // DER of a Name; empty until set
    std::unique_ptr<CAuthorityInfoAccessSyntax> locator;

    Data() = default;
    Data(const Data& other) : issuer(other.issuer), locator(Detail::CopyOf(other.locator.get())) {}
};

namespace {

// A locator that is held but empty is left out.
struct ASN1T_ServiceLocator_traits {
    using Type = ASN1T_ServiceLocator;
    using Record = Records::Record<CExtServiceLocator>;

    static void set(ASN1CTXT* ctxt, ASN1T_ServiceLocator& out, const Record& value) {
        SetIssuer(ctxt, out.issuer, value.issuer);
        if (value.locator != nullptr && !value.locator->empty()) {
            out.m.locatorPresent = 1;
            ASN1::ASN1T_AuthorityInfoAccessSyntax_traits::set(ctxt, out.locator, *value.locator);
        }
    }

    // The issuer is read into ctxt as views of the record's blob, which outlives the
    // encoding: unlike the Name converter, which must copy, nothing is copied. E_INVALIDARG
    // for an empty blob, CRYPT_E_ASN1_INTERNAL for one that is not exactly one Name.
    static void SetIssuer(ASN1CTXT* ctxt, ASN1T_Name& out, const CBlob& issuer) {
        if (issuer.cbData() == 0) {
            ATL::AtlThrow(Win32::E_INVALIDARG);
        }
        Asn1Rt::BerReader reader(ctxt, issuer.pbData(), issuer.cbData());
        if (asn1D(reader, out) != ASN_OK || reader.more()) {
            ATL::AtlThrow(Win32::CRYPT_E_ASN1_INTERNAL);
        }
    }

    static void get(const ASN1T_ServiceLocator& in, Record& value) {
        ASN1::ASN1T_Name_traits::get(in.issuer, value.issuer);
        value.locator.reset();
        if (in.m.locatorPresent) {
            value.locator = std::make_unique<CAuthorityInfoAccessSyntax>();
            ASN1::ASN1T_AuthorityInfoAccessSyntax_traits::get(in.locator, *value.locator);
        }
    }
};

using Value = TypedExtension<CExtServiceLocator, ASN1T_ServiceLocator_traits>;

} // namespace

CExtServiceLocator::CExtServiceLocator() : CExtValue(ExtensionOid::kServiceLocator) {
    Records::Make(*this);
}

// The value blob becomes the encoding of what was decoded, as if each field had been set in
// turn: an empty locator received is dropped from it.
CExtServiceLocator::CExtServiceLocator(const CBlob& received)
    : CExtValue(ExtensionOid::kServiceLocator, received), m_data(nullptr) {
    Trace::Guard("CExtServiceLocator::CExtServiceLocator",
                 [&] { Value::Install(*this, value(), Value::Decode(received)); });
}

CExtServiceLocator::CExtServiceLocator(const CExtServiceLocator& other) : CExtValue(other) {
    Records::Make(*this, *other.m_data);
}

CExtServiceLocator& CExtServiceLocator::operator=(const CExtServiceLocator& other) {
    Value::Assign(*this, other);
    return *this;
}

CExtServiceLocator::~CExtServiceLocator() { Records::Destroy(*this); }

const CBlob& CExtServiceLocator::get_issuer() const { return m_data->issuer; }

const CAuthorityInfoAccessSyntax* CExtServiceLocator::get_locator() const {
    return m_data->locator.get();
}

void CExtServiceLocator::put_issuer(const CBlob& issuer) {
    Trace::Guard("CExtServiceLocator::put_issuer", [&] {
        m_data->issuer = issuer;
        encode();
    });
}

void CExtServiceLocator::put_locator(const CAuthorityInfoAccessSyntax* locator) {
    Trace::Guard("CExtServiceLocator::put_locator", [&] {
        m_data->locator = Detail::CopyOf(locator);
        if (m_data->issuer.cbData() != 0) {
            encode();
        }
    });
}

void CExtServiceLocator::encode() { Value::Encode(*this, value()); }

} // namespace Velmor::PKI::OCSP
