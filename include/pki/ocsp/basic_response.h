// Velmor::PKI::OCSP::CBasicResponse: the signed body of an OCSP response, built and signed
// by a responder or decoded and verified by a client.
#ifndef VELMOR_PKI_OCSP_BASIC_RESPONSE_H
#define VELMOR_PKI_OCSP_BASIC_RESPONSE_H

#include <cstdint>
#include <pki/ocsp/algorithm_identifier_ex.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/datetime.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/responder_id.h>
#include <pki/ocsp/single_response.h>
#include <pki/ocsp/version.h>

namespace Velmor::PKI::OCSP {

// BasicOCSPResponse: who answers, when, one entry per certificate asked about, optional
// response extensions, the signature and optional certificates that help to check it.
// producedAt and the responder are fixed at construction (or by decode()); the signature
// fields are set only by signing and by decode(). The setters leave an earlier signature in
// place: a response changed after signing must be signed again.
class VELMOR_OCSP_API CBasicResponse {
  public:
    // Version v1, a zero producedAt, a byName responder with an empty Name, no entries, no
    // signature and no optional field.
    CBasicResponse();
    CBasicResponse(const CDateTime& producedAt, const CResponderID& responderID);
    // Copies every field but the tbsResponseData octets kept by decode(): a copy is checked
    // against a fresh encoding of its tbsResponseData.
    CBasicResponse(const CBasicResponse& other);
    CBasicResponse& operator=(const CBasicResponse& other);
    ~CBasicResponse();

    Version get_version() const;
    const CDateTime& get_producedAt() const;
    const CResponderID& get_responderID() const;
    const CSingleResponseList& get_responses() const;
    // Null until signed or decoded. The signature is in wire order.
    const ASN1::CAlgorithmIdentifierEx* get_signatureAlgorithm() const;
    const CBlob* get_signature() const;
    // Null when absent.
    const CBlobList* get_certs() const;
    const ASN1::CExtensions* get_responseExtensions() const;

    // The version becomes v2 when an entry names its certificate other than by CertID, v1
    // otherwise (an empty list included); then the entries are replaced with a copy. Given
    // the object's own list, only the version is worked out again.
    void put_responses(const CSingleResponseList& responses);
    // Null removes the field; otherwise a copy replaces it. An empty list is kept but not
    // written. Certificates are checked when the response is encoded.
    void put_certs(const CBlobList* certs);
    void put_responseExtensions(const ASN1::CExtensions* responseExtensions);

    // DER of the BasicOCSPResponse, tbsResponseData written from the fields. Throws E_FAIL
    // for a response that was never signed or decoded, E_INVALIDARG for a responder of
    // unknown type or an entry naming an X.509 certificate in full, and
    // CRYPT_E_ASN1_INTERNAL for a value that cannot be written (a certificate that is not
    // one, a responder Name that is not a Name).
    CBlob encode() const;
    // Replaces every field from BER and keeps tbsResponseData exactly as received, for
    // checking the signature. Throws E_INVALIDARG for an empty blob and
    // CRYPT_E_ASN1_INTERNAL for bytes that are not a BasicOCSPResponse; either way the
    // object is left as it was. A value that decodes but cannot be converted (a time field
    // whose text is no time) throws CRYPT_E_ASN1_INTERNAL too, but only after the signature,
    // certificates, extensions and entries were dropped: such an object is to be discarded.
    void decode(const CBlob& encoded);

    // Signs the DER of tbsResponseData, encoded now, with the key keySpec (AT_SIGNATURE or
    // AT_KEYEXCHANGE) of provider and stores a copy of algorithm and the signature; the
    // certificates are left as they are. The hash is algorithm's ALG_ID, looked up from its
    // OID and cached in algorithm when it held none; an OID without one fails at hash
    // creation, as does provider 0. The provider is borrowed: the caller's reference is
    // left as it was. Throws the HRESULT of CryptoAPI's last error; a failure leaves the
    // earlier signature in place.
    void sign(std::uint64_t provider, unsigned long keySpec,
              const ASN1::CAlgorithmIdentifierEx& algorithm);
    // True when the signature verifies with the public key of responderCertificate (DER),
    // false when it does not match. A decoded response is checked over tbsResponseData as
    // received, any other over a fresh encoding. Only the signature is checked: not the
    // certificate's validity, trust or relation to the responder ID. Throws E_FAIL for a
    // response without signature, the HRESULT of the last Win32 error for a certificate
    // or key that cannot be used. Fills the ALG_ID cache of the stored algorithm.
    bool verify(const CBlob& responderCertificate) const;

  private:
    friend struct Detail::Records;
    struct Data;
    Data* m_data;
};

} // namespace Velmor::PKI::OCSP

#endif
