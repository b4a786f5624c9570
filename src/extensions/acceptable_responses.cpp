// CAcceptableResponses and CExtAcceptableResponses: AcceptableResponses ::= SEQUENCE OF
// OBJECT IDENTIFIER.
#include <pki/ocsp/ocsp_extensions.h>

#include "asn1/ocsp_types.h"
#include "extensions/typed_extension.h"
#include "foundation/asn1_traits.h"
#include "foundation/entry_recycler.h"
#include "foundation/list_access.h"
#include "trace/trace_guard.h"

#include <list>
#include <stdexcept>

namespace Velmor::PKI::OCSP {

using Detail::Records;

CAcceptableResponses::CAcceptableResponses() = default;
CAcceptableResponses::CAcceptableResponses(const CAcceptableResponses& other) = default;
CAcceptableResponses& CAcceptableResponses::operator=(const CAcceptableResponses& other) = default;
CAcceptableResponses::~CAcceptableResponses() = default;

struct CExtAcceptableResponses::Data : Detail::PooledRecord {
    CAcceptableResponses acceptableResponses;
};

namespace {

// The identifiers in list order, each converted by the object identifier traits.
struct ASN1T_AcceptableResponses_traits {
    using Type = ASN1T_AcceptableResponses;
    using Record = Records::Record<CExtAcceptableResponses>;

    static void set(ASN1CTXT* ctxt, ASN1T_AcceptableResponses& out, const Record& value) {
        rtDListInit(&out);
        for (const CStringProxy& oid : value.acceptableResponses) {
            ASN1::ASN1TObjId_traits::set(ctxt, Codec::AppendNew<ASN1OBJID>(ctxt, out), oid.c_str());
        }
    }

    // Each text is written into a spare element of the thread, or a new one, at the end of
    // the list.
    static void get(const ASN1T_AcceptableResponses& in, Record& value) {
        CAcceptableResponses& list = value.acceptableResponses;
        list.clear();
        std::list<CStringProxy>& items = Detail::UnderlyingList<CStringProxy>(list);
        for (const OSRTDListNode* node = in.head; node != nullptr; node = node->next) {
            if (items.size() == list.max_size()) {
                throw std::length_error("list<T> too long");
            }
            if (!Detail::EntryRecycler<CStringProxy>::TakeOne(items)) {
                items.emplace_back();
            }
            ASN1::ASN1TObjId_traits::get(*static_cast<const ASN1OBJID*>(node->data), items.back());
        }
    }
};

using Value = TypedExtension<CExtAcceptableResponses, ASN1T_AcceptableResponses_traits>;

} // namespace

CExtAcceptableResponses::CExtAcceptableResponses() : CExtValue(ExtensionOid::kAcceptableResponses) {
    Records::Make(*this);
}

CExtAcceptableResponses::CExtAcceptableResponses(const CAcceptableResponses& acceptableResponses)
    : CExtValue(ExtensionOid::kAcceptableResponses), m_data(nullptr) {
    Trace::Guard("CExtAcceptableResponses::CExtAcceptableResponses", [&] {
        Value::Install(*this, value(), std::make_unique<Data>(Data{{}, acceptableResponses}));
    });
}

CExtAcceptableResponses::CExtAcceptableResponses(const CBlob& value)
    : CExtValue(ExtensionOid::kAcceptableResponses, value),
      m_data(Trace::Guard("CExtAcceptableResponses::CExtAcceptableResponses",
                          [&] { return Value::Decode(value).release(); })) {}

CExtAcceptableResponses::CExtAcceptableResponses(const CExtAcceptableResponses& other)
    : CExtValue(other) {
    Records::Make(*this, *other.m_data);
}

CExtAcceptableResponses& CExtAcceptableResponses::operator=(const CExtAcceptableResponses& other) {
    Value::Assign(*this, other);
    return *this;
}

CExtAcceptableResponses::~CExtAcceptableResponses() { Records::Destroy(*this); }

const CAcceptableResponses& CExtAcceptableResponses::get_acceptableResponses() const {
    return m_data->acceptableResponses;
}

void CExtAcceptableResponses::put_acceptableResponses(
    const CAcceptableResponses& acceptableResponses) {
    Trace::Guard("CExtAcceptableResponses::put_acceptableResponses", [&] {
        if (&acceptableResponses != &m_data->acceptableResponses) {
            m_data->acceptableResponses = acceptableResponses;
        }
        encode();
    });
}

void CExtAcceptableResponses::encode() { Value::Encode(*this, value()); }

} // namespace Velmor::PKI::OCSP
