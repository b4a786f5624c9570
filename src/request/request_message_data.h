// The private record of CRequestMessage, shared by its codec and its signing code.
#ifndef VELMOR_SRC_REQUEST_REQUEST_MESSAGE_DATA_H
#define VELMOR_SRC_REQUEST_REQUEST_MESSAGE_DATA_H

#include "request/request_traits.h"

#include <list>
#include <memory>
#include <pki/ocsp/request_message.h>

namespace Velmor::PKI::OCSP {

// The fields of a decoded request, converted aside before the message takes them.
struct DecodedRequest {
    Version version = v1;
    std::list<CSingleRequest> entries;
    std::unique_ptr<CBlob> requestorName;
    std::unique_ptr<ASN1::CExtensions> requestExtensions;
    std::unique_ptr<ASN1::CAlgorithmIdentifierEx> signatureAlgorithm;
    std::unique_ptr<CBlob> signature; // wire order
    std::unique_ptr<CBlobList> certs;
    CBlob signedBytes; // the tbsRequest element as received
};

// Reads the usual request shape from strict DER without the BER runtime: version 1, no
// requestor name, entries naming CertIDs, optional extensions, no signature. False, with
// decoded unspecified, for anything else; the BER reader then decides.
bool ReadDerRequest(const CBlob& encoded, DecodedRequest& decoded);
// Reads any request through the BER runtime; throws the decoding error.
void ReadBerRequest(const CBlob& encoded, DecodedRequest& decoded);

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
    // Takes the fields of decoded, its entries appended to the list. Only the append can
    // fail (std::length_error), and then nothing changes.
    void Adopt(DecodedRequest& decoded);
};

} // namespace Velmor::PKI::OCSP

#endif
