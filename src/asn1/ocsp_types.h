// The OCSP structures of the library's module (docs/asn1/ocsp.asn1), with their DER
// encoders, BER decoders and deep copiers.
#ifndef VELMOR_SRC_ASN1_OCSP_TYPES_H
#define VELMOR_SRC_ASN1_OCSP_TYPES_H

#include "asn1/pkix_types.h"

// ResponseBytes ::= SEQUENCE { responseType OBJECT IDENTIFIER, response OCTET STRING }
struct ASN1T_ResponseBytes {
    ASN1OBJID responseType;
    ASN1TDynOctStr response;
};

// OCSPResponse ::= SEQUENCE { responseStatus OCSPResponseStatus,
//                             responseBytes [0] EXPLICIT ResponseBytes OPTIONAL }
struct ASN1T_OCSPResponse {
    struct {
        unsigned responseBytesPresent : 1;
    } m{};
    OSINT32 responseStatus = 0; // ENUMERATED
    ASN1T_ResponseBytes responseBytes;
};

VELMOR_ASN1_DECLARE_TYPE(ResponseBytes, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(OCSPResponse, ASN1TAG_SEQUENCE);

#endif
