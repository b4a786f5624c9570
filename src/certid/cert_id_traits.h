// Conversions between the certificate identifiers and their ASN.1 structures. A request or
// response entry fills and reads its ReqCert with exactly the steps that the identifiers'
// own encode and decode use.
#ifndef VELMOR_SRC_CERTID_CERT_ID_TRAITS_H
#define VELMOR_SRC_CERTID_CERT_ID_TRAITS_H

#include "asn1/der_cursor.h"
#include "asn1/ocsp_types.h"

#include <pki/ocsp/cert_id.h>
#include <pki/ocsp/cert_id_with_signature.h>
#include <pki/ocsp/req_cert.h>

namespace Velmor::PKI::OCSP {

// Fills out in ctxt memory (CRYPT_E_ASN1_MEMORY when it runs out).
void ASN1T_CertID_set(ASN1CTXT* ctxt, ASN1T_CertID& out, const CCertID& value);
// The value of a decoded CertID.
CCertID ASN1T_CertID_get(const ASN1T_CertID& in);
// The same for a CertID whose serial number is given as its INTEGER's contents octets (as
// the DER fast path reads it) instead of the structure's text.
CCertID ASN1T_CertID_get(const ASN1T_CertID& in, const ASN1OCTET* serial, std::size_t serialSize);

// Also throws CRYPT_E_ASN1_INTERNAL when the issuer blob is not a Name.
void ASN1T_CertIdWithSignature_set(ASN1CTXT* ctxt, ASN1T_CertIdWithSignature& out,
                                   const CCertIdWithSignature& value);
// The issuer becomes the library's DER of the decoded Name.
CCertIdWithSignature ASN1T_CertIdWithSignature_get(const ASN1T_CertIdWithSignature& in);

// The ReqCert CHOICE of a request or response entry.
void ASN1T_ReqCert_set(ASN1CTXT* ctxt, ASN1T_ReqCert& out, const CReqCert& value);
// Replaces value's alternative with the decoded one; an unknown selector keeps it.
void ASN1T_ReqCert_get(const ASN1T_ReqCert& in, CReqCert& value);
// Reads a ReqCert from strict DER into value. Only the CertID alternative is taken; false,
// value unchanged, for anything the DER fast path leaves to the BER decoder.
bool ReadDerReqCert(Asn1Rt::DerCursor& in, CReqCert& value);

} // namespace Velmor::PKI::OCSP

#endif
