// CRequestMessage: fields, copies and the DER codec. Signing and verification are in
// request_signing.cpp.
#include <pki/ocsp/request_message.h>

#include "request/request_message_data.h"

#include "foundation/list_access.h"

#include <list>
#include <pki/ocsp/atl_exception.h>
#include <stdexcept>

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;
using namespace Velmor::Win32;

namespace {

// Appends one Certificate structure per blob to certs, each decoded from its blob and copied
// into ctxt.
void SetCertificates(ASN1CTXT* ctxt, ASN1T__SeqOfCertificate& certs, const CBlobList& blobs) {
    for (const CBlob& blob : blobs) {
        Codec::DecodeInto(ctxt, blob, Codec::AppendNew<ASN1T_Certificate>(ctxt, certs),
                          asn1Copy_Certificate);
    }
}

// Moves the entries of from to the end of to, the list's length limit checked first.
void AppendEntries(CSingleRequestList& to, std::list<CSingleRequest>& from) {
    if (from.size() > to.max_size() - to.size()) {
        throw std::length_error("list<T> too long");
    }
    std::list<CSingleRequest>& target = Detail::UnderlyingList(to);
    target.splice(target.end(), from);
}

} // namespace

CRequestMessage::Data::Data(const Data& other)
    : version(other.version), requestList(other.requestList),
      requestorName(CopyOf(other.requestorName.get())),
      requestExtensions(CopyOf(other.requestExtensions.get())),
      signatureAlgorithm(CopyOf(other.signatureAlgorithm.get())),
      signature(CopyOf(other.signature.get())), certs(CopyOf(other.certs.get())) {
    // signedBytes stays empty: a copy is verified over a fresh encoding of its tbsRequest.
}

void CRequestMessage::Data::FillTbsRequest(ASN1CTXT* ctxt, ASN1T_OCSPRequest& out) const {
    ASN1T_TBSRequest& tbs = out.tbsRequest;
    if (version != v1) {
        tbs.m.versionPresent = 1;
        tbs.version = version;
    }
    for (const CSingleRequest& request : requestList) {
        ASN1T_Request_set(ctxt, Codec::AppendNew<ASN1T_Request>(ctxt, tbs.requestList), request);
    }
    if (requestorName) {
        CGeneralName name;
        name.put_directoryName(*requestorName);
        ASN1T_GeneralName_traits::set(ctxt, tbs.requestorName, name);
        tbs.m.requestorNamePresent = 1;
    }
    if (requestExtensions && !requestExtensions->empty()) {
        tbs.m.requestExtensionsPresent = 1;
        ASN1T_Extensions_traits::set(ctxt, tbs.requestExtensions, *requestExtensions);
    }
    if (!signature || signature->cbData() == 0) {
        return; // no signature, and so no certificates either
    }
    if (!signatureAlgorithm) {
        ATL::AtlThrow(CRYPT_E_BAD_MSG);
    }
    out.m.optionalSignaturePresent = 1;
    ASN1T_Signature& sig = out.optionalSignature;
    ASN1TDynBitStr_traits::set(ctxt, sig.signature, *signature);
    sig.signatureAlgorithm = ASN1T_AlgorithmIdentifier_set(
        ctxt, signatureAlgorithm->get_algorithm(), &signatureAlgorithm->get_parameters());
    if (certs && !certs->empty()) {
        sig.m.certsPresent = 1;
        SetCertificates(ctxt, sig.certs, *certs);
    }
}

CBlob CRequestMessage::Data::EncodeTbsRequest() const {
    ASN1BEREncodeBuffer buffer;
    ASN1T_OCSPRequest message;
    FillTbsRequest(buffer.getCtxtPtr(), message);
    ASN1C_TBSRequest control(buffer, message.tbsRequest);
    return Codec::TakeEncoding(buffer, control.Encode());
}

CRequestMessage::CRequestMessage() : m_data(new Data()) {}

CRequestMessage::CRequestMessage(const CRequestMessage& other) : m_data(new Data(*other.m_data)) {}

CRequestMessage& CRequestMessage::operator=(const CRequestMessage& other) {
    if (this != &other) {
        Data* copy = new Data(*other.m_data);
        clear();
        m_data = copy;
    }
    return *this;
}

CRequestMessage::~CRequestMessage() { clear(); }

void CRequestMessage::clear() {
    delete m_data;
    m_data = nullptr;
}

Version CRequestMessage::get_version() const { return m_data->version; }

const CSingleRequestList& CRequestMessage::get_requestList() const { return m_data->requestList; }

void CRequestMessage::put_requestList(const CSingleRequestList& requestList) {
    bool onlyCertIds = true;
    for (const CSingleRequest& request : requestList) {
        onlyCertIds = onlyCertIds && request.get_reqCert().get_certID() != nullptr;
    }
    m_data->version = onlyCertIds ? v1 : v2;
    if (&requestList != &m_data->requestList) {
        m_data->requestList = requestList;
    }
}

const CBlob* CRequestMessage::get_requestorName() const { return m_data->requestorName.get(); }

void CRequestMessage::put_requestorName(const CBlob* requestorName) {
    m_data->requestorName = CopyOf(requestorName);
}

const CExtensions* CRequestMessage::get_requestExtensions() const {
    return m_data->requestExtensions.get();
}

void CRequestMessage::put_requestExtensions(const CExtensions* requestExtensions) {
    m_data->requestExtensions = CopyOf(requestExtensions);
}

const CBlob* CRequestMessage::get_signature() const { return m_data->signature.get(); }

const CAlgorithmIdentifierEx* CRequestMessage::get_signatureAlgorithm() const {
    return m_data->signatureAlgorithm.get();
}

const CBlobList* CRequestMessage::get_signatureCerts() const { return m_data->certs.get(); }

CBlob CRequestMessage::encode() const {
    ASN1BEREncodeBuffer buffer;
    ASN1T_OCSPRequest message;
    m_data->FillTbsRequest(buffer.getCtxtPtr(), message);
    ASN1C_OCSPRequest control(buffer, message);
    return Codec::TakeEncoding(buffer, control.Encode());
}

void CRequestMessage::Data::Adopt(DecodedRequest& decoded) {
    AppendEntries(requestList, decoded.entries);
    version = decoded.version;
    requestorName = std::move(decoded.requestorName);
    requestExtensions = std::move(decoded.requestExtensions);
    signatureAlgorithm = std::move(decoded.signatureAlgorithm);
    signature = std::move(decoded.signature);
    certs = std::move(decoded.certs);
    signedBytes = std::move(decoded.signedBytes);
}

void CRequestMessage::decode(const CBlob& encoded) {
    Codec::RequireNonEmpty(encoded);
    // Everything is converted aside; the object changes only once nothing can fail but
    // the append of the decoded entries, which leaves the list as it was when it throws.
    DecodedRequest decoded;
    if (!ReadDerRequest(encoded, decoded)) {
        decoded = DecodedRequest();
        ReadBerRequest(encoded, decoded);
    }
    m_data->Adopt(decoded);
}

} // namespace Velmor::PKI::OCSP
