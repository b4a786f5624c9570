// Velmor::PKI::OCSP::CCertIdWithSignature: names a certificate exactly, by its issuer's name,
// its serial number, a hash of its to-be-signed part and its own signature.
#ifndef VELMOR_PKI_OCSP_CERT_ID_WITH_SIGNATURE_H
#define VELMOR_PKI_OCSP_CERT_ID_WITH_SIGNATURE_H

#include <pki/ocsp/algorithm_identifier.h>
#include <pki/ocsp/big_integer.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>

namespace Velmor::PKI::OCSP {

class VELMOR_OCSP_API CCertIdWithSignature {
  public:
    // Every field empty (such a value cannot be encoded: its issuer is not a Name).
    CCertIdWithSignature();
    CCertIdWithSignature(const CBlob& issuer, const ASN1::CBigInteger& serialNumber,
                         const CBlob& tbsCertificateHash,
                         const ASN1::CAlgorithmIdentifier& signatureAlgorithm,
                         const CBlob& signatureValue);
    // Every field from one DER certificate. A certificate that cannot be parsed throws the
    // HRESULT of the last Win32 error.
    explicit CCertIdWithSignature(const CBlob& certificate);
    CCertIdWithSignature(const CCertIdWithSignature& other);
    CCertIdWithSignature& operator=(const CCertIdWithSignature& other);
    // A moved-from value may only be assigned to or destroyed.
    CCertIdWithSignature(CCertIdWithSignature&& other) noexcept;
    CCertIdWithSignature& operator=(CCertIdWithSignature&& other) noexcept;
    ~CCertIdWithSignature();

    // DER; throws CRYPT_E_ASN1_INTERNAL when the issuer blob is not a Name.
    CBlob encode() const;
    // Replaces the fields from BER (the issuer is kept as the library's DER of the Name).
    void decode(const CBlob& encoded);

    // The issuer Name's DER.
    const CBlob& get_issuer() const noexcept;
    const ASN1::CBigInteger& get_serialNumber() const noexcept;
    const CBlob& get_tbsCertificateHash() const noexcept;
    const ASN1::CAlgorithmIdentifier& get_signatureAlgorithm() const noexcept;
    // The signature octets in wire order.
    const CBlob& get_signatureValue() const noexcept;
    void put_issuer(const CBlob& issuer);
    void put_serialNumber(const ASN1::CBigInteger& serialNumber);
    void put_tbsCertificateHash(const CBlob& tbsCertificateHash);
    void put_signatureAlgorithm(const ASN1::CAlgorithmIdentifier& signatureAlgorithm);
    void put_signatureValue(const CBlob& signatureValue);

  private:
    CBlob m_issuer;
    ASN1::CBigInteger m_serialNumber;
    CBlob m_tbsCertificateHash;
    ASN1::CAlgorithmIdentifier m_signatureAlgorithm;
    CBlob m_signatureValue;
};

VELMOR_OCSP_API bool operator==(const CCertIdWithSignature& a, const CCertIdWithSignature& b);
VELMOR_OCSP_API bool operator!=(const CCertIdWithSignature& a, const CCertIdWithSignature& b);

} // namespace Velmor::PKI::OCSP

#endif
