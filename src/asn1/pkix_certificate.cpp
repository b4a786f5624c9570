// Certificate (RFC 5280 section 4.1) with its whole TBSCertificate.
#include "asn1/asn1_fields.h"
#include "asn1/pkix_types.h"

using namespace Velmor::Asn1Rt;

// ---- Time ::= CHOICE { utcTime UTCTime, generalTime GeneralizedTime }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Time& v, ASN1TAG /*tag*/) {
    switch (v.t) {
    case T_Time_utcTime:
        return writeChoice(b, stringField(v.value, ASN1TAG_UTCTIME));
    case T_Time_generalTime:
        return writeChoice(b, stringField(v.value, ASN1TAG_GENERALIZEDTIME));
    default:
        return b.fail(RTERR_INVPARAM, "Time: unknown choice");
    }
}

int asn1D(BerReader& r, ASN1T_Time& v, ASN1TAG /*tag*/) {
    if (r.nextIs(ASN1TAG_UTCTIME) || r.nextIs(ASN1TAG_UTCTIME | TM_CONS)) {
        v.t = T_Time_utcTime;
        r.readTime(v.value, ASN1TAG_UTCTIME);
    } else {
        v.t = T_Time_generalTime;
        r.readTime(v.value, ASN1TAG_GENERALIZEDTIME);
    }
    return r.status();
}

int asn1Copy_Time(ASN1CTXT* ctxt, const ASN1T_Time& from, ASN1T_Time& to) {
    to.t = from.t;
    return rtCopy(ctxt, from.value, to.value);
}

// ---- Validity ::= SEQUENCE { notBefore Time, notAfter Time }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Validity& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.notBefore), field(v.notAfter));
}

int asn1D(BerReader& r, ASN1T_Validity& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "Validity")) {
        asn1D(seq.at("notBefore"), v.notBefore);
        asn1D(seq.at("notAfter"), v.notAfter);
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_Validity(ASN1CTXT* ctxt, const ASN1T_Validity& from, ASN1T_Validity& to) {
    const int st = asn1Copy_Time(ctxt, from.notBefore, to.notBefore);
    return st < 0 ? st : asn1Copy_Time(ctxt, from.notAfter, to.notAfter);
}

// ---- SubjectPublicKeyInfo ::= SEQUENCE { algorithm AlgorithmIdentifier,
//                                          subjectPublicKey BIT STRING }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_SubjectPublicKeyInfo& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.algorithm), field(v.subjectPublicKey));
}

int asn1D(BerReader& r, ASN1T_SubjectPublicKeyInfo& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "SubjectPublicKeyInfo")) {
        asn1D(seq.at("algorithm"), v.algorithm);
        seq.at("subjectPublicKey").readBitStr(v.subjectPublicKey);
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_SubjectPublicKeyInfo(ASN1CTXT* ctxt, const ASN1T_SubjectPublicKeyInfo& from,
                                  ASN1T_SubjectPublicKeyInfo& to) {
    const int st = asn1Copy_AlgorithmIdentifier(ctxt, from.algorithm, to.algorithm);
    return st < 0 ? st : rtCopy(ctxt, from.subjectPublicKey, to.subjectPublicKey);
}

// ---- TBSCertificate ::= SEQUENCE {
//        version [0] EXPLICIT Version DEFAULT v1, serialNumber CertificateSerialNumber,
//        signature AlgorithmIdentifier, issuer Name, validity Validity, subject Name,
//        subjectPublicKeyInfo SubjectPublicKeyInfo,
//        issuerUniqueID [1] IMPLICIT UniqueIdentifier OPTIONAL,
//        subjectUniqueID [2] IMPLICIT UniqueIdentifier OPTIONAL,
//        extensions [3] EXPLICIT Extensions OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_TBSCertificate& v, ASN1TAG tag) {
    return writeSequence(
        b, tag, optionalExplicitField(v.m.versionPresent && v.version != 0, 0, intField(v.version)),
        bigIntField(v.serialNumber), field(v.signature), field(v.issuer), field(v.validity),
        field(v.subject), field(v.subjectPublicKeyInfo),
        optionalField(v.m.issuerUniqueIDPresent, field(v.issuerUniqueID, asn1CtxtTag(1))),
        optionalField(v.m.subjectUniqueIDPresent, field(v.subjectUniqueID, asn1CtxtTag(2))),
        optionalExplicitField(v.m.extensionsPresent, 3, field(v.extensions)));
}

int asn1D(BerReader& r, ASN1T_TBSCertificate& v, ASN1TAG tag) {
    BerReader seq;
    if (!r.enter(tag, seq, "TBSCertificate")) {
        return r.status();
    }
    v.m.versionPresent =
        readOptionalExplicit(seq, 0, "version", [&](BerReader& in) { in.readInt(v.version); });
    seq.at("serialNumber").readBigInt(v.serialNumber);
    asn1D(seq.at("signature"), v.signature);
    asn1D(seq.at("issuer"), v.issuer);
    asn1D(seq.at("validity"), v.validity);
    asn1D(seq.at("subject"), v.subject);
    asn1D(seq.at("subjectPublicKeyInfo"), v.subjectPublicKeyInfo);
    v.m.issuerUniqueIDPresent =
        seq.at("issuerUniqueID").nextIs(asn1CtxtTag(1)) || seq.nextIs(asn1CtxtConsTag(1));
    if (v.m.issuerUniqueIDPresent) {
        seq.readBitStr(v.issuerUniqueID, asn1CtxtTag(1));
    }
    v.m.subjectUniqueIDPresent =
        seq.at("subjectUniqueID").nextIs(asn1CtxtTag(2)) || seq.nextIs(asn1CtxtConsTag(2));
    if (v.m.subjectUniqueIDPresent) {
        seq.readBitStr(v.subjectUniqueID, asn1CtxtTag(2));
    }
    v.m.extensionsPresent =
        readOptionalExplicit(seq, 3, "extensions", [&](BerReader& in) { asn1D(in, v.extensions); });
    r.leave(seq);
    return r.status();
}

int asn1Copy_TBSCertificate(ASN1CTXT* ctxt, const ASN1T_TBSCertificate& from,
                            ASN1T_TBSCertificate& to) {
    to.m = from.m;
    to.version = from.version;
    int st = rtCopy(ctxt, from.serialNumber, to.serialNumber);
    if (st >= 0) {
        st = asn1Copy_AlgorithmIdentifier(ctxt, from.signature, to.signature);
    }
    if (st >= 0) {
        st = asn1Copy_Name(ctxt, from.issuer, to.issuer);
    }
    if (st >= 0) {
        st = asn1Copy_Validity(ctxt, from.validity, to.validity);
    }
    if (st >= 0) {
        st = asn1Copy_Name(ctxt, from.subject, to.subject);
    }
    if (st >= 0) {
        st =
            asn1Copy_SubjectPublicKeyInfo(ctxt, from.subjectPublicKeyInfo, to.subjectPublicKeyInfo);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.issuerUniqueID, to.issuerUniqueID);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.subjectUniqueID, to.subjectUniqueID);
    }
    return st < 0 ? st : asn1Copy_Extensions(ctxt, from.extensions, to.extensions);
}

// ---- Certificate ::= SEQUENCE { tbsCertificate TBSCertificate,
//        signatureAlgorithm AlgorithmIdentifier, signature BIT STRING }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Certificate& v, ASN1TAG tag) {
    return writeSigned(b, v.raw, v.tbsCertificate, v.signatureAlgorithm, v.signature, tag);
}

int asn1D(BerReader& r, ASN1T_Certificate& v, ASN1TAG tag) {
    return readSigned(r, v.tbsCertificate, v.signatureAlgorithm, v.signature, v.raw, tag,
                      "Certificate", {"tbsCertificate", "signatureAlgorithm", "signature"});
}

int asn1Copy_Certificate(ASN1CTXT* ctxt, const ASN1T_Certificate& from, ASN1T_Certificate& to) {
    int st = asn1Copy_TBSCertificate(ctxt, from.tbsCertificate, to.tbsCertificate);
    if (st >= 0) {
        st = asn1Copy_AlgorithmIdentifier(ctxt, from.signatureAlgorithm, to.signatureAlgorithm);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.signature, to.signature);
    }
    return st < 0 ? st : rtCopy(ctxt, from.raw, to.raw);
}

// ---- SEQUENCE OF Certificate

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T__SeqOfCertificate& v, ASN1TAG tag) {
    return writeSeqOf<ASN1T_Certificate>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T__SeqOfCertificate& v, ASN1TAG tag) {
    return readSeqOf<ASN1T_Certificate>(r, v, tag, "SEQUENCE OF Certificate");
}

int asn1Copy__SeqOfCertificate(ASN1CTXT* ctxt, const ASN1T__SeqOfCertificate& from,
                               ASN1T__SeqOfCertificate& to) {
    return rtCopyList<ASN1T_Certificate>(ctxt, from, to, asn1Copy_Certificate);
}
