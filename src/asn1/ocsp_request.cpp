// OCSPRequest with its TBSRequest, Request entries and optional Signature.
#include "asn1/asn1_fields.h"
#include "asn1/ocsp_types.h"

using namespace Velmor::Asn1Rt;

// ---- Request ::= SEQUENCE { reqCert ReqCert,
//                            singleRequestExtensions [0] EXPLICIT Extensions OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Request& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.reqCert),
                         optionalExplicitField(v.m.singleRequestExtensionsPresent, 0,
                                               field(v.singleRequestExtensions)));
}

int asn1D(BerReader& r, ASN1T_Request& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "Request")) {
        asn1D(seq.at("reqCert"), v.reqCert);
        v.m.singleRequestExtensionsPresent =
            readOptionalExplicit(seq, 0, "singleRequestExtensions",
                                 [&](BerReader& in) { asn1D(in, v.singleRequestExtensions); });
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_Request(ASN1CTXT* ctxt, const ASN1T_Request& from, ASN1T_Request& to) {
    to.m = from.m;
    const int st = asn1Copy_ReqCert(ctxt, from.reqCert, to.reqCert);
    return st < 0 ? st
                  : asn1Copy_Extensions(ctxt, from.singleRequestExtensions,
                                        to.singleRequestExtensions);
}

// ---- SEQUENCE OF Request

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T__SeqOfRequest& v, ASN1TAG tag) {
    return writeSeqOf<ASN1T_Request>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T__SeqOfRequest& v, ASN1TAG tag) {
    return readSeqOf<ASN1T_Request>(r, v, tag, "requestList");
}

int asn1Copy__SeqOfRequest(ASN1CTXT* ctxt, const ASN1T__SeqOfRequest& from,
                           ASN1T__SeqOfRequest& to) {
    return rtCopyList<ASN1T_Request>(ctxt, from, to, asn1Copy_Request);
}

// ---- TBSRequest ::= SEQUENCE { version [0] EXPLICIT Version DEFAULT v1,
//        requestorName [1] EXPLICIT GeneralName OPTIONAL, requestList SEQUENCE OF Request,
//        requestExtensions [2] EXPLICIT Extensions OPTIONAL }
// Written back from raw when it holds the octets it was decoded from.

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_TBSRequest& v, ASN1TAG tag) {
    if (v.raw.numocts != 0) {
        return b.putOpenType(v.raw);
    }
    return writeSequence(
        b, tag, optionalExplicitField(v.m.versionPresent && v.version != 0, 0, intField(v.version)),
        optionalExplicitField(v.m.requestorNamePresent, 1, field(v.requestorName)),
        field(v.requestList),
        optionalExplicitField(v.m.requestExtensionsPresent, 2, field(v.requestExtensions)));
}

int asn1D(BerReader& r, ASN1T_TBSRequest& v, ASN1TAG tag) {
    const std::size_t start = r.offset();
    BerReader seq;
    if (!r.enter(tag, seq, "TBSRequest")) {
        return r.status();
    }
    v.m.versionPresent =
        readOptionalExplicit(seq, 0, "version", [&](BerReader& in) { in.readInt(v.version); });
    v.m.requestorNamePresent = readOptionalExplicit(
        seq, 1, "requestorName", [&](BerReader& in) { asn1D(in, v.requestorName); });
    asn1D(seq.at("requestList"), v.requestList);
    v.m.requestExtensionsPresent = readOptionalExplicit(
        seq, 2, "requestExtensions", [&](BerReader& in) { asn1D(in, v.requestExtensions); });
    r.leave(seq);
    keepRaw(r, start, v.raw);
    return r.status();
}

int asn1Copy_TBSRequest(ASN1CTXT* ctxt, const ASN1T_TBSRequest& from, ASN1T_TBSRequest& to) {
    to.m = from.m;
    to.version = from.version;
    int st = asn1Copy_GeneralName(ctxt, from.requestorName, to.requestorName);
    if (st >= 0) {
        st = asn1Copy__SeqOfRequest(ctxt, from.requestList, to.requestList);
    }
    if (st >= 0) {
        st = asn1Copy_Extensions(ctxt, from.requestExtensions, to.requestExtensions);
    }
    return st < 0 ? st : rtCopy(ctxt, from.raw, to.raw);
}

// ---- Signature ::= SEQUENCE { signatureAlgorithm AlgorithmIdentifier, signature BIT STRING,
//                               certs [0] EXPLICIT SEQUENCE OF Certificate OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Signature& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.signatureAlgorithm), field(v.signature),
                         optionalExplicitField(v.m.certsPresent, 0, field(v.certs)));
}

int asn1D(BerReader& r, ASN1T_Signature& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "Signature")) {
        asn1D(seq.at("signatureAlgorithm"), v.signatureAlgorithm);
        seq.at("signature").readBitStr(v.signature);
        v.m.certsPresent =
            readOptionalExplicit(seq, 0, "certs", [&](BerReader& in) { asn1D(in, v.certs); });
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_Signature(ASN1CTXT* ctxt, const ASN1T_Signature& from, ASN1T_Signature& to) {
    to.m = from.m;
    int st = asn1Copy_AlgorithmIdentifier(ctxt, from.signatureAlgorithm, to.signatureAlgorithm);
    if (st >= 0) {
        st = rtCopy(ctxt, from.signature, to.signature);
    }
    return st < 0 ? st : asn1Copy__SeqOfCertificate(ctxt, from.certs, to.certs);
}

// ---- OCSPRequest ::= SEQUENCE { tbsRequest TBSRequest,
//                                optionalSignature [0] EXPLICIT Signature OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_OCSPRequest& v, ASN1TAG tag) {
    return writeSequence(
        b, tag, field(v.tbsRequest),
        optionalExplicitField(v.m.optionalSignaturePresent, 0, field(v.optionalSignature)));
}

int asn1D(BerReader& r, ASN1T_OCSPRequest& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "OCSPRequest")) {
        asn1D(seq.at("tbsRequest"), v.tbsRequest);
        v.m.optionalSignaturePresent = readOptionalExplicit(
            seq, 0, "optionalSignature", [&](BerReader& in) { asn1D(in, v.optionalSignature); });
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_OCSPRequest(ASN1CTXT* ctxt, const ASN1T_OCSPRequest& from, ASN1T_OCSPRequest& to) {
    to.m = from.m;
    const int st = asn1Copy_TBSRequest(ctxt, from.tbsRequest, to.tbsRequest);
    return st < 0 ? st : asn1Copy_Signature(ctxt, from.optionalSignature, to.optionalSignature);
}
