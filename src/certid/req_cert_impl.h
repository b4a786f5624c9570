// The private alternatives of CReqCert: one class per alternative, told apart by which
// getter returns non-null.
#ifndef VELMOR_SRC_CERTID_REQ_CERT_IMPL_H
#define VELMOR_SRC_CERTID_REQ_CERT_IMPL_H

#include "foundation/record_pool.h"

#include <pki/ocsp/req_cert.h>
#include <utility>

namespace Velmor::PKI::OCSP {

class CReqCert::Impl : public Detail::PooledRecord {
  public:
    virtual ~Impl() = default;
    virtual const CCertID* get_certID() const { return nullptr; }
    virtual const CBlob* get_fullCert() const { return nullptr; }
    virtual const CReqCert::fullCertificateType* get_fullCertType() const { return nullptr; }
    virtual const CCertIdWithSignature* get_certIdWithSignature() const { return nullptr; }
    virtual Impl* clone() const = 0;

  protected:
    Impl() = default;
    Impl(const Impl&) = default;
    Impl& operator=(const Impl&) = default;
};

class Impl_CertID final : public CReqCert::Impl {
  public:
    Impl_CertID() = default;
    explicit Impl_CertID(const CCertID& certID) : m_certID(certID) {}
    explicit Impl_CertID(CCertID&& certID) noexcept : m_certID(std::move(certID)) {}
    const CCertID* get_certID() const override { return &m_certID; }
    // The CertID, for a converter that fills a fresh alternative in place.
    CCertID& value() noexcept { return m_certID; }
    Impl* clone() const override { return new Impl_CertID(*this); }

  private:
    CCertID m_certID;
};

class Impl_FullCertificate final : public CReqCert::Impl {
  public:
    Impl_FullCertificate(const CBlob& certificate, CReqCert::fullCertificateType type)
        : m_certificate(certificate), m_type(type) {}
    const CBlob* get_fullCert() const override { return &m_certificate; }
    const CReqCert::fullCertificateType* get_fullCertType() const override { return &m_type; }
    Impl* clone() const override { return new Impl_FullCertificate(*this); }

  private:
    CBlob m_certificate;
    CReqCert::fullCertificateType m_type;
};

class Impl_CertIdWithSignature final : public CReqCert::Impl {
  public:
    Impl_CertIdWithSignature() = default;
    explicit Impl_CertIdWithSignature(const CCertIdWithSignature& value) : m_value(value) {}
    explicit Impl_CertIdWithSignature(CCertIdWithSignature&& value) noexcept
        : m_value(std::move(value)) {}
    const CCertIdWithSignature* get_certIdWithSignature() const override { return &m_value; }
    CCertIdWithSignature& value() noexcept { return m_value; }
    Impl* clone() const override { return new Impl_CertIdWithSignature(*this); }

  private:
    CCertIdWithSignature m_value;
};

} // namespace Velmor::PKI::OCSP

#endif
