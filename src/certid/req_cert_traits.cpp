// The ReqCert CHOICE of request and response entries, to and from CReqCert.
#include "asn1/der_structures.h"
#include "certid/cert_id_traits.h"
#include "certid/req_cert_impl.h"
#include "foundation/codec_frame.h"

#include <cerrno>
#include <cstring>
#include <pki/ocsp/atl_exception.h>

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;
using namespace Velmor::Win32;

namespace {

using Codec::NewZ;

// A bounded copy with the checks of the C library's strncpy_s: 0, EINVAL for a missing
// buffer, or ERANGE when count characters and the terminator do not fit in size.
int BoundedCopy(char* destination, std::size_t size, const char* source, std::size_t count) {
    if (destination == nullptr || size == 0 || source == nullptr) {
        return EINVAL;
    }
    const std::size_t length = ::strnlen(source, count);
    if (length >= size) {
        destination[0] = '\0';
        return ERANGE;
    }
    std::memcpy(destination, source, length);
    destination[length] = '\0';
    return 0;
}

// What the C library's bounded copies return for a truncation that was asked for.
constexpr int kTruncated = 80;

HRESULT HresultOfCopyError(int error) {
    switch (error) {
    case 0:
    case kTruncated:
        return S_OK;
    case ENOMEM:
        return E_OUTOFMEMORY;
    case EINVAL:
    case ERANGE:
        return E_INVALIDARG;
    default:
        return E_FAIL;
    }
}

// The serial-number text of a copied certificate is copied once more into a buffer of
// exactly the text's length. That leaves no room for the terminator, so the copy always
// fails and an X.509 certificate can never be sent as a full certificate; only attribute
// certificates can. Peers rely on this refusal (E_INVALIDARG), so it stays.
void CopySerialText(ASN1CTXT* ctxt, ASN1T_Certificate& certificate) {
    const char* text = certificate.tbsCertificate.serialNumber;
    const std::size_t length = text == nullptr ? 0 : std::strlen(text);
    char* buffer = static_cast<char*>(rtMemHeapAlloc(ctxt, length));
    if (buffer == nullptr && length != 0) {
        ATL::AtlThrow(CRYPT_E_ASN1_MEMORY);
    }
    const HRESULT hr = HresultOfCopyError(BoundedCopy(buffer, length, text, length));
    if (hr < 0) {
        ATL::AtlThrow(hr);
    }
    certificate.tbsCertificate.serialNumber = buffer;
}

ASN1T_FullCertificate* FullCertificateIn(ASN1CTXT* ctxt, CReqCert::fullCertificateType type,
                                         const CBlob& der) {
    auto* full = NewZ<ASN1T_FullCertificate>(ctxt);
    if (type == CReqCert::certificate) {
        full->t = T_FullCertificate_certificate;
        full->u.certificate = NewZ<ASN1T_Certificate>(ctxt);
        Codec::DecodeInto(ctxt, der, *full->u.certificate, asn1Copy_Certificate);
        CopySerialText(ctxt, *full->u.certificate);
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
        return CReqCert(CReqCert::certificate, Codec::EncodeToBlob(*full.u.certificate));
    case T_FullCertificate_attributeCertificate:
        return CReqCert(CReqCert::attributeCertificate,
                        Codec::EncodeToBlob(*full.u.attributeCertificate));
    default:
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
}

} // namespace

void ASN1T_ReqCert_set(ASN1CTXT* ctxt, ASN1T_ReqCert& out, const CReqCert& value) {
    if (const CCertID* certID = value.get_certID()) {
        out.t = T_ReqCert_certID;
        out.u.certID = NewZ<ASN1T_CertID>(ctxt);
        ASN1T_CertID_set(ctxt, *out.u.certID, *certID);
    } else if (const CReqCert::fullCertificateType* type = value.get_fullCertType()) {
        out.t = T_ReqCert_fullCertificate;
        out.u.fullCertificate = FullCertificateIn(ctxt, *type, *value.get_fullCert());
    } else if (const CCertIdWithSignature* withSignature = value.get_certIdWithSignature()) {
        out.t = T_ReqCert_certIdWithSignature;
        out.u.certIdWithSignature = NewZ<ASN1T_CertIdWithSignature>(ctxt);
        ASN1T_CertIdWithSignature_set(ctxt, *out.u.certIdWithSignature, *withSignature);
    }
}

void ASN1T_ReqCert_get(const ASN1T_ReqCert& in, CReqCert& value) {
    // Each alternative is converted completely before the reference changes.
    switch (in.t) {
    case T_ReqCert_certID:
        value = CReqCert(new Impl_CertID(ASN1T_CertID_get(*in.u.certID)));
        break;
    case T_ReqCert_fullCertificate:
        value = FullCertificateOf(*in.u.fullCertificate);
        break;
    case T_ReqCert_certIdWithSignature:
        value = CReqCert(
            new Impl_CertIdWithSignature(ASN1T_CertIdWithSignature_get(*in.u.certIdWithSignature)));
        break;
    default:
        break;
    }
}

bool ReadDerReqCert(Asn1Rt::DerCursor& in, CReqCert& value) {
    ASN1T_CertID certID;
    Asn1Rt::DerCursor serial;
    if (!Asn1Rt::ReadDer(in, certID, serial)) {
        return false;
    }
    value = CReqCert(new Impl_CertID(ASN1T_CertID_get(certID, serial.data(), serial.size())));
    return true;
}

} // namespace Velmor::PKI::OCSP
