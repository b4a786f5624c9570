// CExtCrlID and CExtHistoricalRequest: the extensions whose value is a CrlID.
#include <pki/ocsp/ocsp_extensions.h>

#include "asn1/ocsp_types.h"
#include "extensions/text_copy.h"
#include "extensions/typed_extension.h"
#include "foundation/asn1_traits.h"
#include "trace/trace_guard.h"

#include <cstdint>
#include <optional>
#include <pki/ocsp/atl_exception.h>

namespace Velmor::PKI::OCSP {

using Detail::Records;

struct CExtCrlReference::Data : Detail::PooledRecord {
    std::optional<CStringProxy> crlUrl;  // common URLs fit its inline storage
    std::optional<unsigned long> crlNum; // at most 0xFFFFFFFF
    std::optional<CDateTime> crlTime;
};

namespace {

// CrlID <-> the record: each field present exactly when its presence bit is set.
struct ASN1T_CrlID_traits {
    using Type = ASN1T_CrlID;
    using Record = Records::Record<CExtCrlReference>;

    static void set(ASN1CTXT* ctxt, ASN1T_CrlID& out, const Record& value) {
        if (value.crlUrl) {
            out.m.crlUrlPresent = 1;
            out.crlUrl = CopyUrl(ctxt, *value.crlUrl);
        }
        if (value.crlNum) {
            out.m.crlNumPresent = 1;
            out.crlNum = static_cast<OSUINT32>(*value.crlNum);
        }
        if (value.crlTime) {
            out.m.crlTimePresent = 1;
            ASN1::ASN1GeneralizedTime_traits::set(ctxt, out.crlTime, *value.crlTime);
        }
    }

    static void get(const ASN1T_CrlID& in, Record& value) {
        value = Record();
        if (in.m.crlUrlPresent) {
            value.crlUrl.emplace(in.crlUrl);
        }
        if (in.m.crlNumPresent) {
            value.crlNum = in.crlNum;
        }
        if (in.m.crlTimePresent) {
            value.crlTime.emplace(in.crlTime);
        }
    }

    // The URL with its terminator in context memory.
    static const char* CopyUrl(ASN1CTXT* ctxt, const CStringProxy& url) {
        const std::size_t size = url.length() + 1;
        auto* copy = static_cast<char*>(Codec::AllocZ(ctxt, size));
        TextCopy::ThrowIfFailed(TextCopy::Copy(copy, size, url.c_str(), url.length()));
        return copy;
    }
};

using Value = TypedExtension<CExtCrlReference, ASN1T_CrlID_traits>;

// The record decoded from value for the constructor of the class whose identifier is oid,
// which the failure line names: the class the caller made. Kept out of the constructor, so
// that the constructor stays small enough to be inlined with its constant identifier.
[[gnu::noinline]] Records::Record<CExtCrlReference>* DecodeFor(const char* oid,
                                                               const CBlob& value) {
    const char* member = "CExtCrlReference::CExtCrlReference";
    if (oid == ExtensionOid::kCrlID) {
        member = "CExtCrlID::CExtCrlID";
    } else if (oid == ExtensionOid::kHistoricalRequest) {
        member = "CExtHistoricalRequest::CExtHistoricalRequest";
    }
    return Trace::Guard(member, [&] { return Value::Decode(value).release(); });
}

} // namespace

CExtCrlReference::CExtCrlReference(const char* oid) : CExtValue(oid) { Records::Make(*this); }

CExtCrlReference::CExtCrlReference(const char* oid, const CBlob& value)
    : CExtValue(oid, value), m_data(DecodeFor(oid, value)) {}

CExtCrlReference::CExtCrlReference(const CExtCrlReference& other) : CExtValue(other) {
    Records::Make(*this, *other.m_data);
}

CExtCrlReference& CExtCrlReference::operator=(const CExtCrlReference& other) {
    Value::Assign(*this, other);
    return *this;
}

CExtCrlReference::~CExtCrlReference() { clear(); }

void CExtCrlReference::clear() { Records::Destroy(*this); }

const char* CExtCrlReference::get_crlUrl() const {
    return m_data->crlUrl ? m_data->crlUrl->c_str() : nullptr;
}

const unsigned long* CExtCrlReference::get_crlNum() const {
    return m_data->crlNum ? &*m_data->crlNum : nullptr;
}

const CDateTime* CExtCrlReference::get_crlTime() const {
    return m_data->crlTime ? &*m_data->crlTime : nullptr;
}

void CExtCrlReference::put_crlUrl(const char* crlUrl) {
    Trace::Guard("CExtCrlReference::put_crlUrl", [&] {
        // The copy is made before the old text goes: crlUrl may be this object's own.
        m_data->crlUrl = crlUrl != nullptr ? std::optional<CStringProxy>(crlUrl) : std::nullopt;
        encode();
    });
}

void CExtCrlReference::put_crlNum(const unsigned long* crlNum) {
    Trace::Guard("CExtCrlReference::put_crlNum", [&] {
        if (crlNum != nullptr && *crlNum > UINT32_MAX) {
            ATL::AtlThrow(Win32::E_INVALIDARG);
        }
        m_data->crlNum = crlNum != nullptr ? std::optional<unsigned long>(*crlNum) : std::nullopt;
        encode();
    });
}

void CExtCrlReference::put_crlTime(const CDateTime* crlTime) {
    Trace::Guard("CExtCrlReference::put_crlTime", [&] {
        m_data->crlTime = crlTime != nullptr ? std::optional<CDateTime>(*crlTime) : std::nullopt;
        encode();
    });
}

void CExtCrlReference::encode() { Value::Encode(*this, value()); }

CExtCrlID::CExtCrlID() : CExtCrlReference(ExtensionOid::kCrlID) {}
CExtCrlID::CExtCrlID(const CBlob& value) : CExtCrlReference(ExtensionOid::kCrlID, value) {}
CExtCrlID::CExtCrlID(const CExtCrlID& other) = default;
CExtCrlID& CExtCrlID::operator=(const CExtCrlID& other) = default;
CExtCrlID::~CExtCrlID() = default;

CExtHistoricalRequest::CExtHistoricalRequest()
    : CExtCrlReference(ExtensionOid::kHistoricalRequest) {}
CExtHistoricalRequest::CExtHistoricalRequest(const CBlob& value)
    : CExtCrlReference(ExtensionOid::kHistoricalRequest, value) {}
CExtHistoricalRequest::CExtHistoricalRequest(const CExtHistoricalRequest& other) = default;
CExtHistoricalRequest&
CExtHistoricalRequest::operator=(const CExtHistoricalRequest& other) = default;
CExtHistoricalRequest::~CExtHistoricalRequest() = default;

} // namespace Velmor::PKI::OCSP
