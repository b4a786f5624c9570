// CResponseMessage: the outer OCSP response, carried through the OCSPResponse structure.
#include <pki/ocsp/response_message.h>

#include "asn1/ocsp_types.h"
#include "foundation/codec_frame.h"
#include "foundation/oid_text.h"
#include "foundation/value_record.h"
#include "trace/trace_guard.h"

#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/string_proxy.h>
#include <string>
#include <string_view>

using namespace Velmor::Win32;

namespace Velmor::PKI::OCSP {

using Detail::Records;

// The body and its type are held by value, so that decoding into an object that already
// holds a body reuses that storage.
struct VELMOR_OCSP_LOCAL CResponseMessage::Data : Detail::PooledRecord {
    ResponseStatus responseStatus = internalError;
    bool hasBody = false;
    CStringProxy responseType; // the OID text (inline for every common one); when hasBody
    std::string typeContents;  // its DER contents octets; empty when the text is not an OID
    CBlob response;            // meaningful when hasBody

    static std::string OidContents(std::string_view text);
};

CResponseMessage::CResponseMessage() { Records::Make(*this); }

CResponseMessage::CResponseMessage(const CResponseMessage& other) {
    Records::Make(*this, *other.m_data);
}

CResponseMessage& CResponseMessage::operator=(const CResponseMessage& other) {
    Records::Assign(*this, other);
    return *this;
}

CResponseMessage::~CResponseMessage() { Records::Destroy(*this); }

ResponseStatus CResponseMessage::get_responseStatus() const { return m_data->responseStatus; }

void CResponseMessage::put_responseStatus(ResponseStatus status) {
    m_data->responseStatus = status;
}

const char* CResponseMessage::get_responseType() const {
    return m_data->hasBody ? m_data->responseType.c_str() : nullptr;
}

const CBlob* CResponseMessage::get_response() const {
    return m_data->hasBody ? &m_data->response : nullptr;
}

void CResponseMessage::put_response(const char* responseType, const CBlob* response) {
    if ((responseType == nullptr) != (response == nullptr)) {
        Trace::ThrowFrom("CResponseMessage::put_response", E_INVALIDARG);
    }
    if (responseType == nullptr) {
        m_data->hasBody = false;
        m_data->responseType = CStringProxy();
        m_data->response = CBlob();
        return;
    }
    CStringProxy type(responseType);
    std::string contents = Data::OidContents(type);
    CBlob body(*response);
    m_data->responseType = std::move(type);
    m_data->typeContents.swap(contents);
    m_data->response = std::move(body);
    m_data->hasBody = true;
}

// The contents octets of an OID given as text, or "" when the text is not an OID (which
// encode then reports).
std::string CResponseMessage::Data::OidContents(std::string_view text) {
    std::string contents(text.size(), '\0');
    contents.resize(
        Codec::OidTextToContents(text, reinterpret_cast<std::uint8_t*>(contents.data())));
    return contents;
}

// The outer response's fields to and from its structure. get changes value only once every
// step that can fail is done, and reuses the storage value already holds.
struct ASN1T_OCSPResponse_traits {
    using Type = ASN1T_OCSPResponse;
    using Record = Detail::Records::Record<CResponseMessage>;
    static void set(ASN1CTXT* ctxt, ASN1T_OCSPResponse& out, const Record& value);
    static void get(const ASN1T_OCSPResponse& in, Record& value);
};

void ASN1T_OCSPResponse_traits::set(ASN1CTXT* /*ctxt*/, ASN1T_OCSPResponse& out,
                                    const Record& value) {
    out.responseStatus = value.responseStatus;
    if (!value.hasBody) {
        return;
    }
    if (value.typeContents.empty()) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL); // the type text given was not an OID
    }
    out.m.responseBytesPresent = 1;
    // Views of the record's own storage, which outlives the encoding.
    out.responseBytes.responseType.numocts = static_cast<OSUINT32>(value.typeContents.size());
    out.responseBytes.responseType.data =
        reinterpret_cast<const ASN1OCTET*>(value.typeContents.data());
    out.responseBytes.response.data = value.response.pbData();
    out.responseBytes.response.numocts = static_cast<OSUINT32>(value.response.cbData());
}

void ASN1T_OCSPResponse_traits::get(const ASN1T_OCSPResponse& in, Record& value) {
    if (!in.m.responseBytesPresent) {
        value.responseStatus = static_cast<ResponseStatus>(in.responseStatus);
        value.hasBody = false;
        return;
    }
    // The type text is made in scratch storage and copied into a proxy of its own (inline
    // for every common OID), and the contents reserve room (a reserve keeps the value); the
    // body is assigned next (it allocates, if it must, before it changes anything); the rest
    // cannot fail.
    thread_local std::string typeText;
    typeText.clear();
    const ASN1OBJID& type = in.responseBytes.responseType;
    if (!Codec::OidContentsToText(type.data, type.numocts, typeText)) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
    CStringProxy typeName(typeText.c_str());
    value.typeContents.reserve(type.numocts);
    const ASN1TDynOctStr& body = in.responseBytes.response;
    value.response.assign(body.data, body.numocts);
    value.responseType = std::move(typeName);
    value.typeContents.assign(reinterpret_cast<const char*>(type.data), type.numocts);
    value.responseStatus = static_cast<ResponseStatus>(in.responseStatus);
    value.hasBody = true;
}

CBlob CResponseMessage::encode() const {
    return Trace::Guard("CResponseMessage::encode",
                        [&] { return Codec::EncodeWith<ASN1T_OCSPResponse_traits>(*m_data); });
}

void CResponseMessage::decode(const CBlob& encoded) {
    Trace::Guard("CResponseMessage::decode", [&] {
        Codec::DecodeWith<ASN1T_OCSPResponse_traits>(encoded, *m_data,
                                                     Codec::OnEmpty::InvalidArgument);
    });
}

} // namespace Velmor::PKI::OCSP
