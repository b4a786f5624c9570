// Velmor::PKI::OCSP::CRequestMessage: a whole OCSP request, built and signed by a client or
// decoded and verified by a responder.
#ifndef VELMOR_PKI_OCSP_REQUEST_MESSAGE_H
#define VELMOR_PKI_OCSP_REQUEST_MESSAGE_H

#include <cstdint>
#include <pki/ocsp/algorithm_identifier_ex.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/single_request.h>
#include <pki/ocsp/version.h>

namespace Velmor::PKI::OCSP {

class VELMOR_OCSP_API CRequestMessage {
  public:
    // Version v1, no entries, no optional field.
    CRequestMessage();
    // Copies every field but the signed octets kept by decode(): a copy verifies against a
    // fresh encoding of its tbsRequest.
    CRequestMessage(const CRequestMessage& other);
    CRequestMessage& operator=(const CRequestMessage& other);
    ~CRequestMessage();

    Version get_version() const;
    const CSingleRequestList& get_requestList() const;
    // Replaces the entries with a copy; the version becomes v2 when an entry names its
    // certificate other than by CertID, v1 otherwise.
    void put_requestList(const CSingleRequestList& requestList);
    // The requestor's Name (DER), sent as a directoryName; null when absent.
    const CBlob* get_requestorName() const;
    void put_requestorName(const CBlob* requestorName);
    const ASN1::CExtensions* get_requestExtensions() const;
    void put_requestExtensions(const ASN1::CExtensions* requestExtensions);
    // The signature fields: set only by sign() and decode(). The signature is in wire order.
    const CBlob* get_signature() const;
    const ASN1::CAlgorithmIdentifierEx* get_signatureAlgorithm() const;
    const CBlobList* get_signatureCerts() const;

    // DER of the whole OCSPRequest. Throws CRYPT_E_BAD_MSG for a non-empty signature
    // without an algorithm.
    CBlob encode() const;
    // Reads every field from BER. The decoded entries are appended to the entries this
    // object already holds; a caller that wants only the decoded ones decodes into a new
    // object. Throws E_INVALIDARG for an empty blob and CRYPT_E_ASN1_INTERNAL for bytes that
    // are not a request, then changes nothing.
    void decode(const CBlob& encoded);

    // Signs the DER of tbsRequest with the key of provider (keySpec AT_SIGNATURE or
    // AT_KEYEXCHANGE) and stores algorithm, signature and, when certs is not null, a copy of
    // certs (null keeps the certificates stored before).
    void sign(std::uint64_t provider, unsigned long keySpec,
              const ASN1::CAlgorithmIdentifierEx& algorithm, const CBlobList* certs);
    // True when the signature verifies with the public key of signerCertificate (DER), false
    // when it does not. A decoded request is checked over its tbsRequest exactly as it was
    // received. Throws E_INVALIDARG for a request without signature.
    bool verify(const CBlob& signerCertificate) const;

  private:
    friend struct Detail::Records;
    struct Data;
    void clear();

    Data* m_data;
};

} // namespace Velmor::PKI::OCSP

#endif
