// CExtArchiveCutoff: ArchiveCutoff ::= GeneralizedTime, written bare.
#include <pki/ocsp/ocsp_extensions.h>

#include "asn1/ocsp_types.h"
#include "extensions/typed_extension.h"
#include "foundation/asn1_traits.h"
#include "trace/trace_guard.h"

namespace Velmor::PKI::OCSP {

using Detail::Records;

struct CExtArchiveCutoff::Data : Detail::PooledRecord {
    CDateTime archiveCutoff{0, 0};
};

namespace {

struct ASN1T_ArchiveCutoff_traits {
    using Type = ASN1T_ArchiveCutoff;
    using Record = Records::Record<CExtArchiveCutoff>;

    static void set(ASN1CTXT* ctxt, ASN1T_ArchiveCutoff& out, const Record& value) {
        ASN1::ASN1GeneralizedTime_traits::set(ctxt, out.value, value.archiveCutoff);
    }
    static void get(const ASN1T_ArchiveCutoff& in, Record& value) {
        ASN1::ASN1GeneralizedTime_traits::get(in.value, value.archiveCutoff);
    }
};

using Value = TypedExtension<CExtArchiveCutoff, ASN1T_ArchiveCutoff_traits>;

} // namespace

CExtArchiveCutoff::CExtArchiveCutoff() : CExtValue(ExtensionOid::kArchiveCutoff) {
    Records::Make(*this);
}

CExtArchiveCutoff::CExtArchiveCutoff(const CDateTime& archiveCutoff)
    : CExtValue(ExtensionOid::kArchiveCutoff), m_data(nullptr) {
    Trace::Guard("CExtArchiveCutoff::CExtArchiveCutoff", [&] {
        Value::Install(*this, value(), std::make_unique<Data>(Data{{}, archiveCutoff}));
    });
}

CExtArchiveCutoff::CExtArchiveCutoff(const CBlob& value)
    : CExtValue(ExtensionOid::kArchiveCutoff, value),
      m_data(Trace::Guard("CExtArchiveCutoff::CExtArchiveCutoff",
                          [&] { return Value::Decode(value).release(); })) {}

CExtArchiveCutoff::CExtArchiveCutoff(const CExtArchiveCutoff& other) : CExtValue(other) {
    Records::Make(*this, *other.m_data);
}

CExtArchiveCutoff& CExtArchiveCutoff::operator=(const CExtArchiveCutoff& other) {
    Value::Assign(*this, other);
    return *this;
}

CExtArchiveCutoff::~CExtArchiveCutoff() { Records::Destroy(*this); }

const CDateTime& CExtArchiveCutoff::get_archiveCutoff() const { return m_data->archiveCutoff; }

void CExtArchiveCutoff::put_archiveCutoff(const CDateTime& archiveCutoff) {
    Trace::Guard("CExtArchiveCutoff::put_archiveCutoff", [&] {
        m_data->archiveCutoff = archiveCutoff;
        encode();
    });
}

void CExtArchiveCutoff::encode() { Value::Encode(*this, value()); }

} // namespace Velmor::PKI::OCSP
