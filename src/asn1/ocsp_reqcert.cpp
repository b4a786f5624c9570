// How a request or response entry names a certificate: the ReqCert CHOICE and its three
// alternatives (CertID, a full certificate, a certificate ID with signature).
#include "asn1/asn1_fields.h"
#include "asn1/ocsp_types.h"

using namespace Velmor::Asn1Rt;

// ---- CertID ::= SEQUENCE { hashAlgorithm AlgorithmIdentifier, issuerNameHash OCTET STRING,
//                            issuerKeyHash OCTET STRING, serialNumber CertificateSerialNumber }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_CertID& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.hashAlgorithm), field(v.issuerNameHash),
                         field(v.issuerKeyHash), bigIntField(v.serialNumber));
}

int asn1D(BerReader& r, ASN1T_CertID& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "CertID")) {
        asn1D(seq.at("hashAlgorithm"), v.hashAlgorithm);
        seq.at("issuerNameHash").readOctStr(v.issuerNameHash);
        seq.at("issuerKeyHash").readOctStr(v.issuerKeyHash);
        seq.at("serialNumber").readBigInt(v.serialNumber);
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_CertID(ASN1CTXT* ctxt, const ASN1T_CertID& from, ASN1T_CertID& to) {
    int st = asn1Copy_AlgorithmIdentifier(ctxt, from.hashAlgorithm, to.hashAlgorithm);
    if (st >= 0) {
        st = rtCopy(ctxt, from.issuerNameHash, to.issuerNameHash);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.issuerKeyHash, to.issuerKeyHash);
    }
    return st < 0 ? st : rtCopy(ctxt, from.serialNumber, to.serialNumber);
}

// ---- CertIdWithSignature ::= SEQUENCE { issuer Name, serialNumber CertificateSerialNumber,
//        tbsCertificateHash BIT STRING, signatureAlgorithm AlgorithmIdentifier,
//        signatureValue BIT STRING }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_CertIdWithSignature& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.issuer), bigIntField(v.serialNumber),
                         field(v.tbsCertificateHash), field(v.signatureAlgorithm),
                         field(v.signatureValue));
}

int asn1D(BerReader& r, ASN1T_CertIdWithSignature& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "CertIdWithSignature")) {
        asn1D(seq.at("issuer"), v.issuer);
        seq.at("serialNumber").readBigInt(v.serialNumber);
        seq.at("tbsCertificateHash").readBitStr(v.tbsCertificateHash);
        asn1D(seq.at("signatureAlgorithm"), v.signatureAlgorithm);
        seq.at("signatureValue").readBitStr(v.signatureValue);
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_CertIdWithSignature(ASN1CTXT* ctxt, const ASN1T_CertIdWithSignature& from,
                                 ASN1T_CertIdWithSignature& to) {
    int st = asn1Copy_Name(ctxt, from.issuer, to.issuer);
    if (st >= 0) {
        st = rtCopy(ctxt, from.serialNumber, to.serialNumber);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.tbsCertificateHash, to.tbsCertificateHash);
    }
    if (st >= 0) {
        st = asn1Copy_AlgorithmIdentifier(ctxt, from.signatureAlgorithm, to.signatureAlgorithm);
    }
    return st < 0 ? st : rtCopy(ctxt, from.signatureValue, to.signatureValue);
}

// ---- FullCertificate ::= CHOICE { certificate [0] EXPLICIT Certificate,
//                                  attributeCertificate [1] EXPLICIT AttributeCertificate }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_FullCertificate& v, ASN1TAG /*tag*/) {
    switch (v.t) {
    case T_FullCertificate_certificate:
        return writeChoice(
            b, explicitField(0, alternativeField(v.u.certificate,
                                                 "FullCertificate without its certificate")));
    case T_FullCertificate_attributeCertificate:
        return writeChoice(
            b, explicitField(
                   1, alternativeField(v.u.attributeCertificate,
                                       "FullCertificate without its attribute certificate")));
    default:
        return b.fail(RTERR_INVPARAM, "FullCertificate: unknown choice");
    }
}

int asn1D(BerReader& r, ASN1T_FullCertificate& v, ASN1TAG /*tag*/) {
    const ASN1TAG next = r.peekTag();
    if (next == asn1CtxtConsTag(0)) {
        v.t = T_FullCertificate_certificate;
        readExplicitAlternative(r, 0, "certificate", v.u.certificate);
    } else if (next == asn1CtxtConsTag(1)) {
        v.t = T_FullCertificate_attributeCertificate;
        readExplicitAlternative(r, 1, "attributeCertificate", v.u.attributeCertificate);
    } else {
        failChoice(r, "FullCertificate: unknown choice");
    }
    return r.status();
}

int asn1Copy_FullCertificate(ASN1CTXT* ctxt, const ASN1T_FullCertificate& from,
                             ASN1T_FullCertificate& to) {
    to.t = from.t;
    switch (from.t) {
    case T_FullCertificate_certificate:
        return copyAlternative(ctxt, from.u.certificate, to.u.certificate, asn1Copy_Certificate);
    case T_FullCertificate_attributeCertificate:
        return copyAlternative(ctxt, from.u.attributeCertificate, to.u.attributeCertificate,
                               asn1Copy_AttributeCertificate);
    default:
        to.u.certificate = nullptr;
        return ASN_OK;
    }
}

// ---- ReqCert ::= CHOICE { certID CertID, fullCertificate [0] EXPLICIT FullCertificate,
//                          certIdWithSignature [1] EXPLICIT CertIdWithSignature }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_ReqCert& v, ASN1TAG /*tag*/) {
    switch (v.t) {
    case T_ReqCert_certID:
        return writeChoice(b, alternativeField(v.u.certID, "ReqCert without its CertID"));
    case T_ReqCert_fullCertificate:
        return writeChoice(
            b, explicitField(0, alternativeField(v.u.fullCertificate,
                                                 "ReqCert without its FullCertificate")));
    case T_ReqCert_certIdWithSignature:
        return writeChoice(
            b, explicitField(1, alternativeField(v.u.certIdWithSignature,
                                                 "ReqCert without its CertIdWithSignature")));
    default:
        return b.fail(RTERR_INVPARAM, "ReqCert: unknown choice");
    }
}

int asn1D(BerReader& r, ASN1T_ReqCert& v, ASN1TAG /*tag*/) {
    const ASN1TAG next = r.peekTag();
    if (next == ASN1TAG_SEQUENCE) {
        v.t = T_ReqCert_certID;
        readAlternative(r, v.u.certID, [](BerReader& rr, ASN1T_CertID& id) { asn1D(rr, id); });
    } else if (next == asn1CtxtConsTag(0)) {
        v.t = T_ReqCert_fullCertificate;
        readExplicitAlternative(r, 0, "fullCertificate", v.u.fullCertificate);
    } else if (next == asn1CtxtConsTag(1)) {
        v.t = T_ReqCert_certIdWithSignature;
        readExplicitAlternative(r, 1, "certIdWithSignature", v.u.certIdWithSignature);
    } else {
        failChoice(r, "ReqCert: unknown choice");
    }
    return r.status();
}

int asn1Copy_ReqCert(ASN1CTXT* ctxt, const ASN1T_ReqCert& from, ASN1T_ReqCert& to) {
    to.t = from.t;
    switch (from.t) {
    case T_ReqCert_certID:
        return copyAlternative(ctxt, from.u.certID, to.u.certID, asn1Copy_CertID);
    case T_ReqCert_fullCertificate:
        return copyAlternative(ctxt, from.u.fullCertificate, to.u.fullCertificate,
                               asn1Copy_FullCertificate);
    case T_ReqCert_certIdWithSignature:
        return copyAlternative(ctxt, from.u.certIdWithSignature, to.u.certIdWithSignature,
                               asn1Copy_CertIdWithSignature);
    default:
        to.u.certID = nullptr;
        return ASN_OK;
    }
}
