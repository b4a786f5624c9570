// The outer OCSP response: a status and, optionally, a typed response body.
#ifndef VELMOR_PKI_OCSP_RESPONSE_MESSAGE_H
#define VELMOR_PKI_OCSP_RESPONSE_MESSAGE_H

#include <cstdint>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>

namespace Velmor::PKI::OCSP {

// OCSPResponseStatus. 4 is not used on the wire; the library stores and sends any value.
enum ResponseStatus : std::int32_t {
    successful = 0,
    malformedRequest = 1,
    internalError = 2,
    tryLater = 3,
    sigRequired = 5,
    unauthorized = 6,
};

// OCSPResponse. The body is carried opaque, as its type's object identifier text and its
// DER bytes; a basic response body is read and written with CBasicResponse. A new message
// reports internalError with no body, so that a message nobody filled in is a failure.
class VELMOR_OCSP_API CResponseMessage {
  public:
    CResponseMessage();
    CResponseMessage(const CResponseMessage& other);
    CResponseMessage& operator=(const CResponseMessage& other);
    ~CResponseMessage();

    ResponseStatus get_responseStatus() const;
    void put_responseStatus(ResponseStatus status);

    // The body's type as dotted OID text, or null when there is no body.
    const char* get_responseType() const;
    // The body's DER (the OCTET STRING's contents), or null when there is no body.
    const CBlob* get_response() const;
    // Both null removes the body; both non-null replaces it with copies. Exactly one null
    // throws E_INVALIDARG and changes nothing.
    void put_response(const char* responseType, const CBlob* response);

    // DER of the OCSPResponse. Throws CRYPT_E_ASN1_INTERNAL when the type text is not a
    // valid object identifier.
    CBlob encode() const;
    // Replaces status and body from a BER or DER OCSPResponse. An empty blob throws
    // E_INVALIDARG; bytes that are not an OCSPResponse throw CRYPT_E_ASN1_INTERNAL. Either
    // way the message is left as it was.
    void decode(const CBlob& encoded);

  private:
    friend struct Detail::Records;
    struct Data;
    Data* m_data;
};

} // namespace Velmor::PKI::OCSP

#endif
