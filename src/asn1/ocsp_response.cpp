// OCSPResponse and ResponseBytes: the outer envelope of every OCSP answer.
#include "asn1/asn1_fields.h"
#include "asn1/ocsp_types.h"

using namespace Velmor::Asn1Rt;

// ---- ResponseBytes ::= SEQUENCE { responseType OBJECT IDENTIFIER, response OCTET STRING }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_ResponseBytes& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.responseType), field(v.response));
}

int asn1D(BerReader& r, ASN1T_ResponseBytes& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "ResponseBytes")) {
        seq.at("responseType").readOid(v.responseType);
        seq.at("response").readOctStr(v.response);
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_ResponseBytes(ASN1CTXT* ctxt, const ASN1T_ResponseBytes& from,
                           ASN1T_ResponseBytes& to) {
    const int st = rtCopy(ctxt, from.responseType, to.responseType);
    return st < 0 ? st : rtCopy(ctxt, from.response, to.response);
}

// ---- OCSPResponse ::= SEQUENCE { responseStatus OCSPResponseStatus,
//                                 responseBytes [0] EXPLICIT ResponseBytes OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_OCSPResponse& v, ASN1TAG tag) {
    return writeSequence(
        b, tag, enumField(v.responseStatus),
        optionalExplicitField(v.m.responseBytesPresent, 0, field(v.responseBytes)));
}

int asn1D(BerReader& r, ASN1T_OCSPResponse& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "OCSPResponse")) {
        seq.at("responseStatus").readEnum(v.responseStatus);
        v.m.responseBytesPresent = readOptionalExplicit(
            seq, 0, "responseBytes", [&](BerReader& in) { asn1D(in, v.responseBytes); });
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_OCSPResponse(ASN1CTXT* ctxt, const ASN1T_OCSPResponse& from, ASN1T_OCSPResponse& to) {
    to.m = from.m;
    to.responseStatus = from.responseStatus;
    return asn1Copy_ResponseBytes(ctxt, from.responseBytes, to.responseBytes);
}
