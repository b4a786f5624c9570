// CBasicResponse: fields, copies and the DER codec.
#include <pki/ocsp/basic_response.h>

#include "foundation/codec_frame.h"
#include "message/entry_version.h"
#include "response/response_traits.h"
#include "trace/trace_guard.h"

#include <memory>

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;
using Detail::OwnedCopyOf;
using Detail::Records;

CBasicResponse::Data::Data(const Data& other)
    : version(other.version), producedAt(other.producedAt), responderID(other.responderID),
      signedPart(other.signedPart), responses(other.responses), certs(other.certs),
      responseExtensions(OwnedCopyOf(other.responseExtensions.get())) {}

CBlob CBasicResponse::Data::EncodeTbsResponseData() const {
    ASN1BEREncodeBuffer buffer;
    ASN1T_ResponseData tbs{};
    ASN1T_ResponseData_traits::set(buffer.getCtxtPtr(), tbs, *this);
    return Codec::Encode(buffer, tbs);
}

CBasicResponse::CBasicResponse() { Records::Make(*this); }

CBasicResponse::CBasicResponse(const CDateTime& producedAt, const CResponderID& responderID) {
    Records::Make(*this, producedAt, responderID);
}

CBasicResponse::CBasicResponse(const CBasicResponse& other) { Records::Make(*this, *other.m_data); }

CBasicResponse& CBasicResponse::operator=(const CBasicResponse& other) {
    Records::Assign(*this, other);
    return *this;
}

CBasicResponse::~CBasicResponse() { Records::Destroy(*this); }

Version CBasicResponse::get_version() const { return m_data->version; }

const CDateTime& CBasicResponse::get_producedAt() const { return m_data->producedAt; }

const CResponderID& CBasicResponse::get_responderID() const { return m_data->responderID; }

const CSingleResponseList& CBasicResponse::get_responses() const { return m_data->responses; }

const CAlgorithmIdentifierEx* CBasicResponse::get_signatureAlgorithm() const {
    return m_data->signedPart.algorithm.get();
}

const CBlob* CBasicResponse::get_signature() const { return m_data->signedPart.signature.get(); }

const CBlobList* CBasicResponse::get_certs() const { return m_data->certs.get(); }

const CExtensions* CBasicResponse::get_responseExtensions() const {
    return m_data->responseExtensions.get();
}

void CBasicResponse::put_responses(const CSingleResponseList& responses) {
    m_data->version = VersionFor(responses);
    if (&responses != &m_data->responses) {
        m_data->responses = responses;
    }
}

void CBasicResponse::put_certs(const CBlobList* certs) { m_data->certs.put(certs); }

void CBasicResponse::put_responseExtensions(const CExtensions* responseExtensions) {
    m_data->responseExtensions = OwnedCopyOf(responseExtensions);
}

CBlob CBasicResponse::encode() const {
    return Trace::Guard("CBasicResponse::encode",
                        [&] { return Codec::EncodeWith<ASN1T_BasicOCSPResponse_traits>(*m_data); });
}

void CBasicResponse::decode(const CBlob& encoded) {
    Trace::Guard("CBasicResponse::decode", [&] {
        // Bytes that are not a BasicOCSPResponse fail before the object changes; the
        // conversion then works on the object itself (see ASN1T_BasicOCSPResponse_traits::get).
        Codec::DecodeWith<ASN1T_BasicOCSPResponse_traits>(encoded, *m_data,
                                                          Codec::OnEmpty::InvalidArgument);
    });
}

} // namespace Velmor::PKI::OCSP
