// CResponseMessage: the outer OCSP response, carried through the OCSPResponse structure.
#include <pki/ocsp/response_message.h>

#include "asn1/ocsp_types.h"
#include "foundation/asn1_traits.h"
#include "foundation/codec_frame.h"

#include <cstring>
#include <memory>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/string_proxy.h>

using namespace Velmor::Win32;
using Velmor::ASN1::ASN1TObjId_traits;

namespace Velmor::PKI::OCSP {

using ASN1C_OCSPResponseCodec = ASN1::CCodeClassT<ASN1T_OCSPResponse, ASN1C_OCSPResponse>;

struct CResponseMessage::Data {
    ResponseStatus responseStatus = internalError;
    std::unique_ptr<CStringProxy> responseType; // null when there is no body
    std::unique_ptr<CBlob> response;            // present exactly when responseType is

    std::unique_ptr<Data> Clone() const {
        auto copy = std::make_unique<Data>();
        copy->responseStatus = responseStatus;
        if (responseType) {
            copy->responseType = std::make_unique<CStringProxy>(*responseType);
            copy->response = std::make_unique<CBlob>(*response);
        }
        return copy;
    }
};

CResponseMessage::CResponseMessage() : m_data(new Data()) {}

CResponseMessage::CResponseMessage(const CResponseMessage& other)
    : m_data(other.m_data->Clone().release()) {}

// The copy is made before the old data is freed, so a failed copy leaves the object whole.
CResponseMessage& CResponseMessage::operator=(const CResponseMessage& other) {
    if (this != &other) {
        Data* copy = other.m_data->Clone().release();
        delete m_data;
        m_data = copy;
    }
    return *this;
}

CResponseMessage::~CResponseMessage() { delete m_data; }

ResponseStatus CResponseMessage::get_responseStatus() const { return m_data->responseStatus; }

void CResponseMessage::put_responseStatus(ResponseStatus status) {
    m_data->responseStatus = status;
}

const char* CResponseMessage::get_responseType() const {
    return m_data->responseType ? m_data->responseType->c_str() : nullptr;
}

const CBlob* CResponseMessage::get_response() const { return m_data->response.get(); }

void CResponseMessage::put_response(const char* responseType, const CBlob* response) {
    if ((responseType == nullptr) != (response == nullptr)) {
        ATL::AtlThrow(E_INVALIDARG);
    }
    if (responseType == nullptr) {
        m_data->responseType.reset();
        m_data->response.reset();
        return;
    }
    auto type = std::make_unique<CStringProxy>(responseType);
    auto body = std::make_unique<CBlob>(*response);
    m_data->responseType = std::move(type);
    m_data->response = std::move(body);
}

CBlob CResponseMessage::encode() const {
    ASN1BEREncodeBuffer buffer;
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    ASN1T_OCSPResponse message;
    message.responseStatus = m_data->responseStatus;
    if (m_data->responseType) {
        message.m.responseBytesPresent = 1;
        ASN1TObjId_traits::set(ctxt, message.responseBytes.responseType,
                               m_data->responseType->c_str());
        message.responseBytes.response.data =
            Codec::CopyBytes(ctxt, m_data->response->pbData(), m_data->response->cbData());
        message.responseBytes.response.numocts = static_cast<OSUINT32>(m_data->response->cbData());
    }
    return Codec::TakeEncoding(buffer, ASN1C_OCSPResponseCodec::encode(buffer, message));
}

void CResponseMessage::decode(const CBlob& encoded) {
    Codec::RequireNonEmpty(encoded);
    ASN1BERDecodeBuffer buffer(encoded.pbData(), encoded.cbData());
    ASN1T_OCSPResponse message;
    Codec::ThrowIfFailed(ASN1C_OCSPResponseCodec::decode(buffer, message));

    // Everything that can fail is built aside; the object changes only at the end.
    Data decoded;
    decoded.responseStatus = static_cast<ResponseStatus>(message.responseStatus);
    if (message.m.responseBytesPresent) {
        decoded.responseType = std::make_unique<CStringProxy>();
        ASN1TObjId_traits::get(message.responseBytes.responseType, *decoded.responseType);
        const ASN1TDynOctStr& body = message.responseBytes.response;
        decoded.response = body.numocts == 0 ? std::make_unique<CBlob>()
                                             : std::make_unique<CBlob>(body.data, body.numocts);
    }
    m_data->responseStatus = decoded.responseStatus;
    m_data->responseType = std::move(decoded.responseType);
    m_data->response = std::move(decoded.response);
}

} // namespace Velmor::PKI::OCSP
