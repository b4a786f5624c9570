// CRequestMessage: fields, copies and the DER codec. Signing and verification are in
// request_signing.cpp.
#include <pki/ocsp/request_message.h>

#include "foundation/codec_frame.h"
#include "foundation/list_access.h"
#include "message/entry_version.h"
#include "request/request_traits.h"
#include "trace/trace_guard.h"

#include <memory>
#include <utility>

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;
using Detail::OwnedCopyOf;
using Detail::Records;

CRequestMessage::Data::Data(const Data& other)
    : version(other.version), requestList(other.requestList),
      requestorName(OwnedCopyOf(other.requestorName.get())),
      requestExtensions(OwnedCopyOf(other.requestExtensions.get())), signedPart(other.signedPart),
      certs(other.certs) {}

void CRequestMessage::Data::swap(Data& other) noexcept {
    std::swap(version, other.version);
    requestList.swap(other.requestList);
    requestorName.swap(other.requestorName);
    requestExtensions.swap(other.requestExtensions);
    signedPart.swap(other.signedPart);
    certs.swap(other.certs);
}

bool CRequestMessage::Data::holdsNothing() const noexcept {
    return version == v1 && requestList.empty() && !requestorName && !requestExtensions &&
           !signedPart.algorithm && !signedPart.signature && signedPart.received.empty() &&
           certs.get() == nullptr;
}

void CRequestMessage::Data::dropAll() noexcept {
    version = v1;
    requestList.clear();
    requestorName.reset();
    requestExtensions.reset();
    signedPart.algorithm.reset();
    signedPart.signature.reset();
    signedPart.received = CBlob();
    certs.reset();
}

CBlob CRequestMessage::Data::EncodeTbsRequest() const {
    ASN1BEREncodeBuffer buffer;
    ASN1T_TBSRequest tbs;
    ASN1T_TBSRequest_traits::set(buffer.getCtxtPtr(), tbs, *this);
    return Codec::Encode(buffer, tbs);
}

CRequestMessage::CRequestMessage() { Records::Make(*this); }

CRequestMessage::CRequestMessage(const CRequestMessage& other) {
    Records::Make(*this, *other.m_data);
}

CRequestMessage& CRequestMessage::operator=(const CRequestMessage& other) {
    Records::Assign(*this, other);
    return *this;
}

CRequestMessage::~CRequestMessage() { clear(); }

void CRequestMessage::clear() { Records::Destroy(*this); }

Version CRequestMessage::get_version() const { return m_data->version; }

const CSingleRequestList& CRequestMessage::get_requestList() const { return m_data->requestList; }

void CRequestMessage::put_requestList(const CSingleRequestList& requestList) {
    m_data->version = VersionFor(requestList);
    if (&requestList != &m_data->requestList) {
        m_data->requestList = requestList;
    }
}

const CBlob* CRequestMessage::get_requestorName() const { return m_data->requestorName.get(); }

void CRequestMessage::put_requestorName(const CBlob* requestorName) {
    m_data->requestorName = OwnedCopyOf(requestorName);
}

const CExtensions* CRequestMessage::get_requestExtensions() const {
    return m_data->requestExtensions.get();
}

void CRequestMessage::put_requestExtensions(const CExtensions* requestExtensions) {
    m_data->requestExtensions = OwnedCopyOf(requestExtensions);
}

const CBlob* CRequestMessage::get_signature() const { return m_data->signedPart.signature.get(); }

const CAlgorithmIdentifierEx* CRequestMessage::get_signatureAlgorithm() const {
    return m_data->signedPart.algorithm.get();
}

const CBlobList* CRequestMessage::get_signatureCerts() const { return m_data->certs.get(); }

CBlob CRequestMessage::encode() const {
    return Trace::Guard("CRequestMessage::encode",
                        [&] { return Codec::EncodeWith<ASN1T_OCSPRequest_traits>(*m_data); });
}

void CRequestMessage::decode(const CBlob& encoded) {
    Trace::Guard("CRequestMessage::decode", [&] {
        if (m_data->holdsNothing()) {
            // An empty object is filled in place and emptied again if the decode fails,
            // which leaves it as it was without a second record.
            try {
                Codec::DecodeWith<ASN1T_OCSPRequest_traits>(encoded, *m_data,
                                                            Codec::OnEmpty::InvalidArgument);
            } catch (...) {
                m_data->dropAll();
                throw;
            }
            return;
        }
        // The fields go into a fresh record, which then takes the entries held so far in
        // front of the decoded ones: the object changes only once everything converted.
        Data decoded;
        Codec::DecodeWith<ASN1T_OCSPRequest_traits>(encoded, decoded,
                                                    Codec::OnEmpty::InvalidArgument);
        Detail::MoveToFront(decoded.requestList, m_data->requestList);
        m_data->swap(decoded);
    });
}

} // namespace Velmor::PKI::OCSP
