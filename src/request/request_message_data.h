// The private record of CRequestMessage, shared by its codec and its signing code.
#ifndef VELMOR_SRC_REQUEST_REQUEST_MESSAGE_DATA_H
#define VELMOR_SRC_REQUEST_REQUEST_MESSAGE_DATA_H

#include "request/request_traits.h"

#include <memory>
#include <pki/ocsp/request_message.h>

namespace Velmor::PKI::OCSP {

struct CRequestMessage::Data {
    Version version = v1;
    CSingleRequestList requestList;
    std::unique_ptr<CBlob> requestorName;
    std::unique_ptr<ASN1::CExtensions> requestExtensions;
    std::unique_ptr<ASN1::CAlgorithmIdentifierEx> signatureAlgorithm;
    std::unique_ptr<CBlob> signature; // wire order
    std::unique_ptr<CBlobList> certs;
    // The tbsRequest exactly as decode() received it; empty for a request built here or
    // copied. Only decode() writes it.
    CBlob signedBytes;

    Data() = default;
    Data(const Data& other);

    // Fills the tbsRequest of out and, when there is a signature, its optionalSignature.
    void FillTbsRequest(ASN1CTXT* ctxt, ASN1T_OCSPRequest& out) const;
    // The DER of tbsRequest alone: the octets that are signed.
    CBlob EncodeTbsRequest() const;
};

} // namespace Velmor::PKI::OCSP

#endif
