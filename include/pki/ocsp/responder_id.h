// Velmor::PKI::OCSP::CResponderID: who signed a basic response, by the subject Name of its
// certificate or by the SHA-1 hash of its public key.
#ifndef VELMOR_PKI_OCSP_RESPONDER_ID_H
#define VELMOR_PKI_OCSP_RESPONDER_ID_H

#include <cstdint>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>

namespace Velmor::PKI::OCSP {

// A type and a value: for byName the DER of a Name, for byKey the key hash itself (20 octets
// when made by fromCert). The value is not checked against the type until it is encoded.
class VELMOR_OCSP_API CResponderID {
  public:
    enum Type : std::int32_t {
        byName = 0,
        byKey = 1,
    };

    // byName with an empty value.
    CResponderID();
    // Any type value is accepted; encode() refuses one that is neither byName nor byKey.
    CResponderID(Type type, const CBlob& value);
    // The same, taking value's storage.
    CResponderID(Type type, CBlob&& value) noexcept;
    CResponderID(const CResponderID& other);
    CResponderID& operator=(const CResponderID& other);
    CResponderID(CResponderID&& other) noexcept;
    CResponderID& operator=(CResponderID&& other) noexcept;
    ~CResponderID();

    Type get_type() const;
    const CBlob& get_value() const;
    // Replaces both; any type value is accepted.
    void put_value(Type type, const CBlob& value);

    // DER of the ResponderID CHOICE: byName as [1] { Name }, byKey as [2] { OCTET STRING }.
    // Throws E_INVALIDARG for any other type and for an empty byName value, and
    // CRYPT_E_ASN1_INTERNAL for a byName value that is not a Name.
    CBlob encode() const;
    // Replaces type and value from BER; the Name of byName is kept as its DER. Throws
    // CRYPT_E_ASN1_INTERNAL for bytes that are not a ResponderID, and then changes nothing.
    void decode(const CBlob& encoded);

    // The identifier of the responder whose DER X.509 certificate is given: byName takes the
    // subject Name's bytes exactly as they stand in the certificate, byKey the SHA-1 hash of
    // the subject public key's bits (without the BIT STRING's tag, length and unused-bits
    // octet). A certificate that cannot be parsed throws its parse error (before the type is
    // looked at); a type other than byName and byKey throws E_INVALIDARG.
    static CResponderID fromCert(Type type, const CBlob& certificate);

  private:
    Type m_type;
    CBlob m_value;
};

// Different types are never equal. Two byKey values are compared byte for byte; two byName
// values are compared as names (case-insensitive and whitespace-folded directory strings, as
// CertCompareCertificateName does), so that the same Name in another string type or spacing
// is equal. A byName value that is not a Name equals nothing.
VELMOR_OCSP_API bool operator==(const CResponderID& a, const CResponderID& b);
VELMOR_OCSP_API bool operator!=(const CResponderID& a, const CResponderID& b);

} // namespace Velmor::PKI::OCSP

#endif
