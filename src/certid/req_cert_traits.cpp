// The ReqCert CHOICE of request and response entries, to and from CReqCert.
#include "certid/cert_id_traits.h"
#include "certid/req_cert_impl.h"
#include "foundation/codec_frame.h"

#include <memory>
#include <pki/ocsp/atl_exception.h>

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;
using namespace Velmor::Win32;

namespace {

using Codec::NewZ;

ASN1T_FullCertificate* FullCertificateIn(ASN1CTXT* ctxt, CReqCert::fullCertificateType type,
                                         const CBlob& der) {
    auto* full = NewZ<ASN1T_FullCertificate>(ctxt);
    if (type == CReqCert::certificate) {
        full->t = T_FullCertificate_certificate;
        full->u.certificate = NewZ<ASN1T_Certificate>(ctxt);
        Codec::DecodeInto(ctxt, der, *full->u.certificate, asn1Copy_Certificate);
        // A valid X.509 certificate is refused here, after it decoded: callers rely on a
        // reference by full certificate being sendable only for attribute certificates.
        ATL::AtlThrow(E_INVALIDARG);
    } else if (type == CReqCert::attributeCertificate) {
        full->t = T_FullCertificate_attributeCertificate;
        full->u.attributeCertificate = NewZ<ASN1T_AttributeCertificate>(ctxt);
        Codec::DecodeInto(ctxt, der, *full->u.attributeCertificate, asn1Copy_AttributeCertificate);
    }
    return full;
}

// The library's DER of a decoded full certificate, with its type.
CReqCert FullCertificateOf(const ASN1T_FullCertificate& full) {
    switch (full.t) {
    case T_FullCertificate_certificate:
        return CReqCert(CReqCert::certificate, Codec::Encode(*full.u.certificate));
    case T_FullCertificate_attributeCertificate:
        return CReqCert(CReqCert::attributeCertificate,
                        Codec::Encode(*full.u.attributeCertificate));
    default:
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
}

} // namespace

void ASN1T_ReqCert_traits::set(ASN1CTXT* ctxt, ASN1T_ReqCert& out, const CReqCert& value) {
    if (const CCertID* certID = value.get_certID()) {
        out.t = T_ReqCert_certID;
        out.u.certID = NewZ<ASN1T_CertID>(ctxt);
        ASN1T_CertID_traits::set(ctxt, *out.u.certID, *certID);
    } else if (const CReqCert::fullCertificateType* type = value.get_fullCertType()) {
        out.t = T_ReqCert_fullCertificate;
        out.u.fullCertificate = FullCertificateIn(ctxt, *type, *value.get_fullCert());
    } else if (const CCertIdWithSignature* withSignature = value.get_certIdWithSignature()) {
        out.t = T_ReqCert_certIdWithSignature;
        out.u.certIdWithSignature = NewZ<ASN1T_CertIdWithSignature>(ctxt);
        ASN1T_CertIdWithSignature_traits::set(ctxt, *out.u.certIdWithSignature, *withSignature);
    }
}

namespace {

// A fresh alternative, converted in place; nothing is kept when the conversion throws.
template <class Alternative, class Traits, class In>
CReqCert::Impl* ConvertedAlternative(const In& in) {
    auto alternative = std::make_unique<Alternative>();
    Traits::get(in, alternative->value());
    return alternative.release();
}

} // namespace

void ASN1T_ReqCert_traits::get(const ASN1T_ReqCert& in, CReqCert& value) {
    // Each alternative is converted completely before the reference changes.
    switch (in.t) {
    case T_ReqCert_certID:
        value = CReqCert(ConvertedAlternative<Impl_CertID, ASN1T_CertID_traits>(*in.u.certID));
        break;
    case T_ReqCert_fullCertificate:
        value = FullCertificateOf(*in.u.fullCertificate);
        break;
    case T_ReqCert_certIdWithSignature:
        value = CReqCert(
            ConvertedAlternative<Impl_CertIdWithSignature, ASN1T_CertIdWithSignature_traits>(
                *in.u.certIdWithSignature));
        break;
    default:
        break;
    }
}

void GetEntryReference(const ASN1T_ReqCert& in, CReqCert& value) {
    // An entry whose conversion fails is dropped by its decoder, so a CertID the entry already
    // holds (one kept from an earlier decode) is overwritten in place, every field of it.
    if (in.t == T_ReqCert_certID) {
        if (const CCertID* held = value.get_certID()) {
            ASN1T_CertID_traits::get(*in.u.certID, const_cast<CCertID&>(*held));
            return;
        }
    }
    ASN1T_ReqCert_traits::get(in, value);
    if (value.get_certID() == nullptr && value.get_fullCertType() == nullptr &&
        value.get_certIdWithSignature() == nullptr) {
        value = CReqCert(CReqCert::certificate, CBlob());
    }
}

} // namespace Velmor::PKI::OCSP
