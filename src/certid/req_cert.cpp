// CReqCert: an owning pointer to one of the private alternatives of req_cert_impl.h.
#include "certid/req_cert_impl.h"

namespace Velmor::PKI::OCSP {

CReqCert::CReqCert() : m_impl(new Impl_CertID(CCertID())) {}

CReqCert::CReqCert(const CCertID& certID) : m_impl(new Impl_CertID(certID)) {}

CReqCert::CReqCert(fullCertificateType type, const CBlob& certificate)
    : m_impl(new Impl_FullCertificate(certificate, type)) {}

CReqCert::CReqCert(const CCertIdWithSignature& certIdWithSignature)
    : m_impl(new Impl_CertIdWithSignature(certIdWithSignature)) {}

// A reference left without an alternative by a failed copy (see operator=) answers null
// from every getter and copies as such, rather than crashing.
namespace {
CReqCert::Impl* CloneOf(const CReqCert::Impl* impl) { return impl ? impl->clone() : nullptr; }
} // namespace

CReqCert::CReqCert(const CReqCert& other) : m_impl(CloneOf(other.m_impl)) {}

// The old alternative goes first: if the copy then fails, the reference is left without
// one (m_impl null) and the exception propagates.
CReqCert& CReqCert::operator=(const CReqCert& other) {
    if (m_impl == other.m_impl) {
        return *this;
    }
    clear();
    m_impl = CloneOf(other.m_impl);
    return *this;
}

CReqCert::CReqCert(CReqCert&& other) noexcept : m_impl(other.m_impl) { other.m_impl = nullptr; }

CReqCert& CReqCert::operator=(CReqCert&& other) noexcept {
    if (this != &other) {
        clear();
        m_impl = other.m_impl;
        other.m_impl = nullptr;
    }
    return *this;
}

CReqCert::CReqCert(Impl* adopted) noexcept : m_impl(adopted) {}

CReqCert::~CReqCert() { clear(); }

void CReqCert::clear() {
    delete m_impl;
    m_impl = nullptr;
}

const CCertID* CReqCert::get_certID() const { return m_impl ? m_impl->get_certID() : nullptr; }

const CBlob* CReqCert::get_fullCert() const { return m_impl ? m_impl->get_fullCert() : nullptr; }

const CReqCert::fullCertificateType* CReqCert::get_fullCertType() const {
    return m_impl ? m_impl->get_fullCertType() : nullptr;
}

const CCertIdWithSignature* CReqCert::get_certIdWithSignature() const {
    return m_impl ? m_impl->get_certIdWithSignature() : nullptr;
}

void CReqCert::put_certID(const CCertID& certID) {
    clear();
    m_impl = new Impl_CertID(certID);
}

void CReqCert::put_fullCert(fullCertificateType type, const CBlob& certificate) {
    clear();
    m_impl = new Impl_FullCertificate(certificate, type);
}

void CReqCert::put_certIdWithSignature(const CCertIdWithSignature& certIdWithSignature) {
    clear();
    m_impl = new Impl_CertIdWithSignature(certIdWithSignature);
}

} // namespace Velmor::PKI::OCSP
