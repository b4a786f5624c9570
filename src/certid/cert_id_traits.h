// Converters between the certificate identifiers and their ASN.1 structures. A request or
// response entry fills and reads its ReqCert with exactly the steps that the identifiers'
// own encode and decode use.
#ifndef VELMOR_SRC_CERTID_CERT_ID_TRAITS_H
#define VELMOR_SRC_CERTID_CERT_ID_TRAITS_H

#include "asn1/ocsp_types.h"

#include <pki/ocsp/cert_id.h>
#include <pki/ocsp/cert_id_with_signature.h>
#include <pki/ocsp/req_cert.h>

namespace Velmor::PKI::OCSP {

struct ASN1T_CertID_traits {
    using Type = ASN1T_CertID;
    static void set(ASN1CTXT* ctxt, ASN1T_CertID& out, const CCertID& value);
    static void get(const ASN1T_CertID& in, CCertID& value);
};

// set also throws CRYPT_E_ASN1_INTERNAL when the issuer blob is not a Name; get makes the
// issuer the library's DER of the decoded Name.
struct ASN1T_CertIdWithSignature_traits {
    using Type = ASN1T_CertIdWithSignature;
    static void set(ASN1CTXT* ctxt, ASN1T_CertIdWithSignature& out,
                    const CCertIdWithSignature& value);
    static void get(const ASN1T_CertIdWithSignature& in, CCertIdWithSignature& value);
};

// The ReqCert CHOICE of a request or response entry. set refuses an X.509 full certificate
// with E_INVALIDARG; get replaces value's alternative with the decoded one (an unknown
// selector keeps it), converting it completely first.
struct ASN1T_ReqCert_traits {
    using Type = ASN1T_ReqCert;
    static void set(ASN1CTXT* ctxt, ASN1T_ReqCert& out, const CReqCert& value);
    static void get(const ASN1T_ReqCert& in, CReqCert& value);
};

// The reference of a request or response entry: as ASN1T_ReqCert_traits::get, and a choice
// that the decoder did not fill gives the reference of a default entry, a full certificate
// of type certificate with an empty certificate. A CertID value already holds is overwritten
// in place: callers drop the entry when this throws.
void GetEntryReference(const ASN1T_ReqCert& in, CReqCert& value);

} // namespace Velmor::PKI::OCSP

#endif
