// Velmor::PKI::OCSP::CReqCert: how a request or response entry names its certificate, as a
// CertID, as the whole certificate, or as a certificate ID with signature.
#ifndef VELMOR_PKI_OCSP_REQ_CERT_H
#define VELMOR_PKI_OCSP_REQ_CERT_H

#include <cstdint>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/cert_id.h>
#include <pki/ocsp/cert_id_with_signature.h>
#include <pki/ocsp/config.h>

namespace Velmor::PKI::OCSP {

// Always holds exactly one alternative; the getter of the held one returns non-null and the
// others null. The pointers stay valid until the reference is changed or destroyed.
class VELMOR_OCSP_API CReqCert {
  public:
    enum fullCertificateType : std::uint32_t {
        certificate = 0,          // an X.509 Certificate
        attributeCertificate = 1, // an RFC 3281 AttributeCertificate
    };

    // A CertID with every field empty.
    CReqCert();
    CReqCert(const CCertID& certID);
    // The certificate blob is not checked here; a blob that is not of the declared type
    // fails when a message holding it is encoded.
    CReqCert(fullCertificateType type, const CBlob& certificate);
    CReqCert(const CCertIdWithSignature& certIdWithSignature);
    CReqCert(const CReqCert& other);
    CReqCert& operator=(const CReqCert& other);
    // Takes other's alternative; other is left without one (every getter answers null) and
    // may be assigned to or destroyed.
    CReqCert(CReqCert&& other) noexcept;
    CReqCert& operator=(CReqCert&& other) noexcept;
    ~CReqCert();

    const CCertID* get_certID() const;
    const CBlob* get_fullCert() const;
    const fullCertificateType* get_fullCertType() const;
    const CCertIdWithSignature* get_certIdWithSignature() const;

    // Each releases the held alternative before copying its argument, so the argument must
    // not point into this object.
    void put_certID(const CCertID& certID);
    void put_fullCert(fullCertificateType type, const CBlob& certificate);
    void put_certIdWithSignature(const CCertIdWithSignature& certIdWithSignature);

    class Impl;
    // Takes ownership of an alternative made by the library's own decoders.
    explicit CReqCert(Impl* adopted) noexcept;

  private:
    void clear();

    Impl* m_impl;
};

} // namespace Velmor::PKI::OCSP

#endif
