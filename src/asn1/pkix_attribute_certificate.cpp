// AttributeCertificate (RFC 3281 section 4.1).
#include "asn1/asn1_fields.h"
#include "asn1/pkix_types.h"

using namespace Velmor::Asn1Rt;

namespace {

// A BIT STRING field that may arrive primitive or (in BER) constructed.
bool NextIsBitString(BerReader& r, ASN1TAG tag) { return r.nextIs(tag) || r.nextIs(tag | TM_CONS); }

} // namespace

// ---- IssuerSerial ::= SEQUENCE { issuer GeneralNames, serial CertificateSerialNumber,
//                                  issuerUID UniqueIdentifier OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_IssuerSerial& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.issuer), bigIntField(v.serial),
                         optionalField(v.m.issuerUIDPresent, field(v.issuerUID)));
}

int asn1D(BerReader& r, ASN1T_IssuerSerial& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "IssuerSerial")) {
        asn1D(seq.at("issuer"), v.issuer);
        seq.at("serial").readBigInt(v.serial);
        v.m.issuerUIDPresent = NextIsBitString(seq.at("issuerUID"), ASN1TAG_BITSTRING);
        if (v.m.issuerUIDPresent) {
            seq.readBitStr(v.issuerUID);
        }
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_IssuerSerial(ASN1CTXT* ctxt, const ASN1T_IssuerSerial& from, ASN1T_IssuerSerial& to) {
    to.m = from.m;
    int st = asn1Copy_GeneralNames(ctxt, from.issuer, to.issuer);
    if (st >= 0) {
        st = rtCopy(ctxt, from.serial, to.serial);
    }
    return st < 0 ? st : rtCopy(ctxt, from.issuerUID, to.issuerUID);
}

// ---- ObjectDigestInfo ::= SEQUENCE { digestedObjectType ENUMERATED,
//        otherObjectTypeID OBJECT IDENTIFIER OPTIONAL, digestAlgorithm AlgorithmIdentifier,
//        objectDigest BIT STRING }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_ObjectDigestInfo& v, ASN1TAG tag) {
    return writeSequence(b, tag, enumField(v.digestedObjectType),
                         optionalField(v.m.otherObjectTypeIDPresent, field(v.otherObjectTypeID)),
                         field(v.digestAlgorithm), field(v.objectDigest));
}

int asn1D(BerReader& r, ASN1T_ObjectDigestInfo& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "ObjectDigestInfo")) {
        seq.at("digestedObjectType").readEnum(v.digestedObjectType);
        v.m.otherObjectTypeIDPresent = seq.at("otherObjectTypeID").nextIs(ASN1TAG_OBJID);
        if (v.m.otherObjectTypeIDPresent) {
            seq.readOid(v.otherObjectTypeID);
        }
        asn1D(seq.at("digestAlgorithm"), v.digestAlgorithm);
        seq.at("objectDigest").readBitStr(v.objectDigest);
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_ObjectDigestInfo(ASN1CTXT* ctxt, const ASN1T_ObjectDigestInfo& from,
                              ASN1T_ObjectDigestInfo& to) {
    to.m = from.m;
    to.digestedObjectType = from.digestedObjectType;
    int st = rtCopy(ctxt, from.otherObjectTypeID, to.otherObjectTypeID);
    if (st >= 0) {
        st = asn1Copy_AlgorithmIdentifier(ctxt, from.digestAlgorithm, to.digestAlgorithm);
    }
    return st < 0 ? st : rtCopy(ctxt, from.objectDigest, to.objectDigest);
}

// ---- Holder ::= SEQUENCE { baseCertificateID [0] IMPLICIT IssuerSerial OPTIONAL,
//        entityName [1] IMPLICIT GeneralNames OPTIONAL,
//        objectDigestInfo [2] IMPLICIT ObjectDigestInfo OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Holder& v, ASN1TAG tag) {
    return writeSequence(
        b, tag,
        optionalField(v.m.baseCertificateIDPresent, field(v.baseCertificateID, asn1CtxtConsTag(0))),
        optionalField(v.m.entityNamePresent, field(v.entityName, asn1CtxtConsTag(1))),
        optionalField(v.m.objectDigestInfoPresent, field(v.objectDigestInfo, asn1CtxtConsTag(2))));
}

int asn1D(BerReader& r, ASN1T_Holder& v, ASN1TAG tag) {
    BerReader seq;
    if (!r.enter(tag, seq, "Holder")) {
        return r.status();
    }
    v.m.baseCertificateIDPresent = seq.at("baseCertificateID").nextIs(asn1CtxtConsTag(0));
    if (v.m.baseCertificateIDPresent) {
        asn1D(seq, v.baseCertificateID, asn1CtxtConsTag(0));
    }
    v.m.entityNamePresent = seq.at("entityName").nextIs(asn1CtxtConsTag(1));
    if (v.m.entityNamePresent) {
        asn1D(seq, v.entityName, asn1CtxtConsTag(1));
    }
    v.m.objectDigestInfoPresent = seq.at("objectDigestInfo").nextIs(asn1CtxtConsTag(2));
    if (v.m.objectDigestInfoPresent) {
        asn1D(seq, v.objectDigestInfo, asn1CtxtConsTag(2));
    }
    r.leave(seq);
    return r.status();
}

int asn1Copy_Holder(ASN1CTXT* ctxt, const ASN1T_Holder& from, ASN1T_Holder& to) {
    to.m = from.m;
    int st = asn1Copy_IssuerSerial(ctxt, from.baseCertificateID, to.baseCertificateID);
    if (st >= 0) {
        st = asn1Copy_GeneralNames(ctxt, from.entityName, to.entityName);
    }
    return st < 0 ? st
                  : asn1Copy_ObjectDigestInfo(ctxt, from.objectDigestInfo, to.objectDigestInfo);
}

// ---- V2Form ::= SEQUENCE { issuerName GeneralNames OPTIONAL,
//        baseCertificateID [0] IMPLICIT IssuerSerial OPTIONAL,
//        objectDigestInfo [1] IMPLICIT ObjectDigestInfo OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_V2Form& v, ASN1TAG tag) {
    return writeSequence(
        b, tag, optionalField(v.m.issuerNamePresent, field(v.issuerName)),
        optionalField(v.m.baseCertificateIDPresent, field(v.baseCertificateID, asn1CtxtConsTag(0))),
        optionalField(v.m.objectDigestInfoPresent, field(v.objectDigestInfo, asn1CtxtConsTag(1))));
}

int asn1D(BerReader& r, ASN1T_V2Form& v, ASN1TAG tag) {
    BerReader seq;
    if (!r.enter(tag, seq, "V2Form")) {
        return r.status();
    }
    v.m.issuerNamePresent = seq.at("issuerName").nextIs(ASN1TAG_SEQUENCE);
    if (v.m.issuerNamePresent) {
        asn1D(seq, v.issuerName);
    }
    v.m.baseCertificateIDPresent = seq.at("baseCertificateID").nextIs(asn1CtxtConsTag(0));
    if (v.m.baseCertificateIDPresent) {
        asn1D(seq, v.baseCertificateID, asn1CtxtConsTag(0));
    }
    v.m.objectDigestInfoPresent = seq.at("objectDigestInfo").nextIs(asn1CtxtConsTag(1));
    if (v.m.objectDigestInfoPresent) {
        asn1D(seq, v.objectDigestInfo, asn1CtxtConsTag(1));
    }
    r.leave(seq);
    return r.status();
}

int asn1Copy_V2Form(ASN1CTXT* ctxt, const ASN1T_V2Form& from, ASN1T_V2Form& to) {
    to.m = from.m;
    int st = asn1Copy_GeneralNames(ctxt, from.issuerName, to.issuerName);
    if (st >= 0) {
        st = asn1Copy_IssuerSerial(ctxt, from.baseCertificateID, to.baseCertificateID);
    }
    return st < 0 ? st
                  : asn1Copy_ObjectDigestInfo(ctxt, from.objectDigestInfo, to.objectDigestInfo);
}

// ---- AttCertIssuer ::= CHOICE { v1Form GeneralNames, v2Form [0] IMPLICIT V2Form }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_AttCertIssuer& v, ASN1TAG /*tag*/) {
    switch (v.t) {
    case T_AttCertIssuer_v1Form:
        return writeChoice(b, field(v.v1Form));
    case T_AttCertIssuer_v2Form:
        return writeChoice(b, field(v.v2Form, asn1CtxtConsTag(0)));
    default:
        return b.fail(RTERR_INVPARAM, "AttCertIssuer: unknown choice");
    }
}

int asn1D(BerReader& r, ASN1T_AttCertIssuer& v, ASN1TAG /*tag*/) {
    if (r.nextIs(asn1CtxtConsTag(0))) {
        v.t = T_AttCertIssuer_v2Form;
        asn1D(r, v.v2Form, asn1CtxtConsTag(0));
    } else {
        v.t = T_AttCertIssuer_v1Form;
        asn1D(r, v.v1Form);
    }
    return r.status();
}

int asn1Copy_AttCertIssuer(ASN1CTXT* ctxt, const ASN1T_AttCertIssuer& from,
                           ASN1T_AttCertIssuer& to) {
    to.t = from.t;
    const int st = asn1Copy_GeneralNames(ctxt, from.v1Form, to.v1Form);
    return st < 0 ? st : asn1Copy_V2Form(ctxt, from.v2Form, to.v2Form);
}

// ---- AttCertValidityPeriod ::= SEQUENCE { notBeforeTime GeneralizedTime,
//                                           notAfterTime GeneralizedTime }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_AttCertValidityPeriod& v, ASN1TAG tag) {
    return writeSequence(b, tag, stringField(v.notBeforeTime, ASN1TAG_GENERALIZEDTIME),
                         stringField(v.notAfterTime, ASN1TAG_GENERALIZEDTIME));
}

int asn1D(BerReader& r, ASN1T_AttCertValidityPeriod& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "AttCertValidityPeriod")) {
        seq.at("notBeforeTime").readTime(v.notBeforeTime, ASN1TAG_GENERALIZEDTIME);
        seq.at("notAfterTime").readTime(v.notAfterTime, ASN1TAG_GENERALIZEDTIME);
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_AttCertValidityPeriod(ASN1CTXT* ctxt, const ASN1T_AttCertValidityPeriod& from,
                                   ASN1T_AttCertValidityPeriod& to) {
    const int st = rtCopy(ctxt, from.notBeforeTime, to.notBeforeTime);
    return st < 0 ? st : rtCopy(ctxt, from.notAfterTime, to.notAfterTime);
}

// ---- Attribute ::= SEQUENCE { type OBJECT IDENTIFIER, values SET OF AttributeValue }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Attribute& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.type), [&](ASN1BEREncodeBuffer& w) {
        return writeSetOf<ASN1OpenType>(w, v.values, ASN1TAG_SET);
    });
}

int asn1D(BerReader& r, ASN1T_Attribute& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "Attribute")) {
        seq.at("type").readOid(v.type);
        BerReader set;
        if (seq.at("values").enter(ASN1TAG_SET, set, "AttributeValues")) {
            readList<ASN1OpenType>(set, v.values, [](BerReader& in, ASN1OpenType& value) {
                return in.readOpenType(value);
            });
            seq.leave(set);
        }
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_Attribute(ASN1CTXT* ctxt, const ASN1T_Attribute& from, ASN1T_Attribute& to) {
    const int st = rtCopy(ctxt, from.type, to.type);
    if (st < 0) {
        return st;
    }
    return rtCopyList<ASN1OpenType>(
        ctxt, from.values, to.values,
        [](ASN1CTXT* c, const ASN1OpenType& f, ASN1OpenType& t) { return rtCopy(c, f, t); });
}

// ---- SEQUENCE OF Attribute

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T__SeqOfAttribute& v, ASN1TAG tag) {
    return writeSeqOf<ASN1T_Attribute>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T__SeqOfAttribute& v, ASN1TAG tag) {
    return readSeqOf<ASN1T_Attribute>(r, v, tag, "attributes");
}

int asn1Copy__SeqOfAttribute(ASN1CTXT* ctxt, const ASN1T__SeqOfAttribute& from,
                             ASN1T__SeqOfAttribute& to) {
    return rtCopyList<ASN1T_Attribute>(ctxt, from, to, asn1Copy_Attribute);
}

// ---- AttributeCertificateInfo ::= SEQUENCE { version AttCertVersion, holder Holder,
//        issuer AttCertIssuer, signature AlgorithmIdentifier,
//        serialNumber CertificateSerialNumber, attrCertValidityPeriod AttCertValidityPeriod,
//        attributes SEQUENCE OF Attribute, issuerUniqueID UniqueIdentifier OPTIONAL,
//        extensions Extensions OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_AttributeCertificateInfo& v, ASN1TAG tag) {
    return writeSequence(b, tag, intField(v.version), field(v.holder), field(v.issuer),
                         field(v.signature), bigIntField(v.serialNumber),
                         field(v.attrCertValidityPeriod), field(v.attributes),
                         optionalField(v.m.issuerUniqueIDPresent, field(v.issuerUniqueID)),
                         optionalField(v.m.extensionsPresent, field(v.extensions)));
}

int asn1D(BerReader& r, ASN1T_AttributeCertificateInfo& v, ASN1TAG tag) {
    BerReader seq;
    if (!r.enter(tag, seq, "AttributeCertificateInfo")) {
        return r.status();
    }
    seq.at("version").readInt(v.version);
    asn1D(seq.at("holder"), v.holder);
    asn1D(seq.at("issuer"), v.issuer);
    asn1D(seq.at("signature"), v.signature);
    seq.at("serialNumber").readBigInt(v.serialNumber);
    asn1D(seq.at("attrCertValidityPeriod"), v.attrCertValidityPeriod);
    asn1D(seq.at("attributes"), v.attributes);
    v.m.issuerUniqueIDPresent = NextIsBitString(seq.at("issuerUniqueID"), ASN1TAG_BITSTRING);
    if (v.m.issuerUniqueIDPresent) {
        seq.readBitStr(v.issuerUniqueID);
    }
    v.m.extensionsPresent = seq.at("extensions").nextIs(ASN1TAG_SEQUENCE);
    if (v.m.extensionsPresent) {
        asn1D(seq, v.extensions);
    }
    r.leave(seq);
    return r.status();
}

int asn1Copy_AttributeCertificateInfo(ASN1CTXT* ctxt, const ASN1T_AttributeCertificateInfo& from,
                                      ASN1T_AttributeCertificateInfo& to) {
    to.m = from.m;
    to.version = from.version;
    int st = asn1Copy_Holder(ctxt, from.holder, to.holder);
    if (st >= 0) {
        st = asn1Copy_AttCertIssuer(ctxt, from.issuer, to.issuer);
    }
    if (st >= 0) {
        st = asn1Copy_AlgorithmIdentifier(ctxt, from.signature, to.signature);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.serialNumber, to.serialNumber);
    }
    if (st >= 0) {
        st = asn1Copy_AttCertValidityPeriod(ctxt, from.attrCertValidityPeriod,
                                            to.attrCertValidityPeriod);
    }
    if (st >= 0) {
        st = asn1Copy__SeqOfAttribute(ctxt, from.attributes, to.attributes);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.issuerUniqueID, to.issuerUniqueID);
    }
    return st < 0 ? st : asn1Copy_Extensions(ctxt, from.extensions, to.extensions);
}

// ---- AttributeCertificate ::= SEQUENCE { acinfo AttributeCertificateInfo,
//        signatureAlgorithm AlgorithmIdentifier, signatureValue BIT STRING }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_AttributeCertificate& v, ASN1TAG tag) {
    return writeSigned(b, v.raw, v.acinfo, v.signatureAlgorithm, v.signatureValue, tag);
}

int asn1D(BerReader& r, ASN1T_AttributeCertificate& v, ASN1TAG tag) {
    return readSigned(r, v.acinfo, v.signatureAlgorithm, v.signatureValue, v.raw, tag,
                      "AttributeCertificate", {"acinfo", "signatureAlgorithm", "signatureValue"});
}

int asn1Copy_AttributeCertificate(ASN1CTXT* ctxt, const ASN1T_AttributeCertificate& from,
                                  ASN1T_AttributeCertificate& to) {
    int st = asn1Copy_AttributeCertificateInfo(ctxt, from.acinfo, to.acinfo);
    if (st >= 0) {
        st = asn1Copy_AlgorithmIdentifier(ctxt, from.signatureAlgorithm, to.signatureAlgorithm);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.signatureValue, to.signatureValue);
    }
    return st < 0 ? st : rtCopy(ctxt, from.raw, to.raw);
}
