// Velmor::PKI::OCSP::CCertID: the RFC 2560 CertID that names a certificate by hashes of its
// issuer's name and key and by its serial number.
#ifndef VELMOR_PKI_OCSP_CERT_ID_H
#define VELMOR_PKI_OCSP_CERT_ID_H

#include <pki/ocsp/algorithm_identifier.h>
#include <pki/ocsp/big_integer.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>

namespace Velmor::ASN1 {
class CAlgorithmIdentifierEx;
}

namespace Velmor::PKI::OCSP {

class VELMOR_OCSP_API CCertID {
  public:
    // Every field empty.
    CCertID();
    CCertID(const ASN1::CAlgorithmIdentifier& hashAlgorithm, const CBlob& issuerNameHash,
            const CBlob& issuerKeyHash, const ASN1::CBigInteger& serialNumber);
    // The same, taking over the four values instead of copying them.
    CCertID(ASN1::CAlgorithmIdentifier&& hashAlgorithm, CBlob&& issuerNameHash,
            CBlob&& issuerKeyHash, ASN1::CBigInteger&& serialNumber) noexcept;
    // The identifier of certificate (DER) issued by issuerCertificate (DER): the issuer name
    // hash and the serial number come from certificate, the key hash from issuerCertificate's
    // public key. The issuer certificate is parsed (and rejected) first. Only the hash
    // algorithm's OID counts; its resolved algorithm number is cached in hashAlgorithm.
    CCertID(const ASN1::CAlgorithmIdentifierEx& hashAlgorithm, const CBlob& certificate,
            const CBlob& issuerCertificate);
    CCertID(const CCertID& other);
    CCertID& operator=(const CCertID& other);
    // A moved-from CertID may only be assigned to or destroyed.
    CCertID(CCertID&& other) noexcept;
    CCertID& operator=(CCertID&& other) noexcept;
    ~CCertID();

    // DER of the CertID.
    CBlob encode() const;
    // Replaces every field from BER; throws CRYPT_E_ASN1_INTERNAL for bytes that are not a
    // CertID, and then changes nothing.
    void decode(const CBlob& encoded);

    const ASN1::CAlgorithmIdentifier& get_hashAlgorithm() const noexcept;
    const CBlob& get_issuerNameHash() const noexcept;
    const CBlob& get_issuerKeyHash() const noexcept;
    const ASN1::CBigInteger& get_serialNumber() const noexcept;
    void put_hashAlgorithm(const ASN1::CAlgorithmIdentifier& hashAlgorithm);
    void put_issuerNameHash(const CBlob& issuerNameHash);
    void put_issuerKeyHash(const CBlob& issuerKeyHash);
    void put_serialNumber(const ASN1::CBigInteger& serialNumber);

  private:
    friend struct ASN1T_CertID_traits; // the library's decoder fills the fields in place

    ASN1::CAlgorithmIdentifier m_hashAlgorithm;
    CBlob m_issuerNameHash;
    CBlob m_issuerKeyHash;
    ASN1::CBigInteger m_serialNumber;
};

// Equal when all four fields are: algorithm, key hash, name hash, serial number.
VELMOR_OCSP_API bool operator==(const CCertID& a, const CCertID& b);
VELMOR_OCSP_API bool operator!=(const CCertID& a, const CCertID& b);

} // namespace Velmor::PKI::OCSP

#endif
