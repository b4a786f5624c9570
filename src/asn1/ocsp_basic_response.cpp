// BasicOCSPResponse with its ResponseData, responder identifier and single responses.
#include "asn1/asn1_fields.h"
#include "asn1/ocsp_types.h"

using namespace Velmor::Asn1Rt;

// ---- ResponderID ::= CHOICE { byName [1] EXPLICIT Name, byKey [2] EXPLICIT KeyHash }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_ResponderID& v, ASN1TAG /*tag*/) {
    switch (v.t) {
    case T_ResponderID_byName:
        return writeChoice(
            b, explicitField(1, alternativeField(v.u.byName, "ResponderID without its Name")));
    case T_ResponderID_byKey:
        return writeChoice(
            b, explicitField(2, alternativeField(v.u.byKey, "ResponderID without its key hash")));
    default:
        return b.fail(RTERR_INVPARAM, "ResponderID: unknown choice");
    }
}

int asn1D(BerReader& r, ASN1T_ResponderID& v, ASN1TAG /*tag*/) {
    const ASN1TAG next = r.peekTag();
    if (next == asn1CtxtConsTag(1)) {
        v.t = T_ResponderID_byName;
        readExplicitAlternative(r, 1, "byName", v.u.byName);
    } else if (next == asn1CtxtConsTag(2)) {
        v.t = T_ResponderID_byKey;
        readExplicitAlternative(r, 2, "byKey", v.u.byKey);
    } else {
        failChoice(r, "ResponderID: unknown choice");
    }
    return r.status();
}

int asn1Copy_ResponderID(ASN1CTXT* ctxt, const ASN1T_ResponderID& from, ASN1T_ResponderID& to) {
    to.t = from.t;
    switch (from.t) {
    case T_ResponderID_byName:
        return copyAlternative(ctxt, from.u.byName, to.u.byName, asn1Copy_Name);
    case T_ResponderID_byKey:
        return copyAlternative(ctxt, from.u.byKey, to.u.byKey,
                               [](ASN1CTXT* c, const ASN1TDynOctStr& f, ASN1TDynOctStr& t) {
                                   return rtCopy(c, f, t);
                               });
    default:
        to.u.byName = nullptr;
        return ASN_OK;
    }
}

// ---- RevokedInfo ::= SEQUENCE { revocationTime GeneralizedTime,
//                                 revocationReason [0] EXPLICIT CRLReason OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_RevokedInfo& v, ASN1TAG tag) {
    return writeSequence(
        b, tag, stringField(v.revocationTime, ASN1TAG_GENERALIZEDTIME),
        optionalExplicitField(v.m.revocationReasonPresent, 0, enumField(v.revocationReason)));
}

int asn1D(BerReader& r, ASN1T_RevokedInfo& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "RevokedInfo")) {
        seq.at("revocationTime").readTime(v.revocationTime, ASN1TAG_GENERALIZEDTIME);
        v.m.revocationReasonPresent = readOptionalExplicit(
            seq, 0, "revocationReason", [&](BerReader& in) { in.readEnum(v.revocationReason); });
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_RevokedInfo(ASN1CTXT* ctxt, const ASN1T_RevokedInfo& from, ASN1T_RevokedInfo& to) {
    to.m = from.m;
    to.revocationReason = from.revocationReason;
    return rtCopy(ctxt, from.revocationTime, to.revocationTime);
}

// ---- CertStatus ::= CHOICE { good [0] IMPLICIT NULL, revoked [1] IMPLICIT RevokedInfo,
//                             unknown [2] IMPLICIT UnknownInfo }   -- UnknownInfo ::= NULL

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_CertStatus& v, ASN1TAG /*tag*/) {
    switch (v.t) {
    case T_CertStatus_good:
        return writeChoice(b, nullField(asn1CtxtTag(0)));
    case T_CertStatus_revoked:
        return writeChoice(b, alternativeField(v.u.revoked, "CertStatus without its RevokedInfo",
                                               asn1CtxtConsTag(1)));
    case T_CertStatus_unknown:
        return writeChoice(b, nullField(asn1CtxtTag(2)));
    default:
        return b.fail(RTERR_INVPARAM, "CertStatus: unknown choice");
    }
}

int asn1D(BerReader& r, ASN1T_CertStatus& v, ASN1TAG /*tag*/) {
    const ASN1TAG next = r.peekTag();
    if (next == asn1CtxtTag(0)) {
        v.t = T_CertStatus_good;
        r.readNull(asn1CtxtTag(0));
    } else if (next == asn1CtxtConsTag(1)) {
        v.t = T_CertStatus_revoked;
        readAlternative(r, v.u.revoked, [](BerReader& rr, ASN1T_RevokedInfo& info) {
            asn1D(rr, info, asn1CtxtConsTag(1));
        });
    } else if (next == asn1CtxtTag(2)) {
        v.t = T_CertStatus_unknown;
        r.readNull(asn1CtxtTag(2));
    } else {
        failChoice(r, "CertStatus: unknown choice");
    }
    return r.status();
}

int asn1Copy_CertStatus(ASN1CTXT* ctxt, const ASN1T_CertStatus& from, ASN1T_CertStatus& to) {
    to.t = from.t;
    if (from.t != T_CertStatus_revoked) {
        to.u.revoked = nullptr;
        return ASN_OK;
    }
    return copyAlternative(ctxt, from.u.revoked, to.u.revoked, asn1Copy_RevokedInfo);
}

// ---- SingleResponse ::= SEQUENCE { certID ReqCert, certStatus CertStatus,
//        thisUpdate GeneralizedTime, nextUpdate [0] EXPLICIT GeneralizedTime OPTIONAL,
//        singleExtensions [1] EXPLICIT Extensions OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_SingleResponse& v, ASN1TAG tag) {
    return writeSequence(
        b, tag, field(v.certID), field(v.certStatus),
        stringField(v.thisUpdate, ASN1TAG_GENERALIZEDTIME),
        optionalExplicitField(v.m.nextUpdatePresent, 0,
                              stringField(v.nextUpdate, ASN1TAG_GENERALIZEDTIME)),
        optionalExplicitField(v.m.singleExtensionsPresent, 1, field(v.singleExtensions)));
}

int asn1D(BerReader& r, ASN1T_SingleResponse& v, ASN1TAG tag) {
    BerReader seq;
    if (!r.enter(tag, seq, "SingleResponse")) {
        return r.status();
    }
    asn1D(seq.at("certID"), v.certID);
    asn1D(seq.at("certStatus"), v.certStatus);
    seq.at("thisUpdate").readTime(v.thisUpdate, ASN1TAG_GENERALIZEDTIME);
    v.m.nextUpdatePresent = readOptionalExplicit(seq, 0, "nextUpdate", [&](BerReader& in) {
        in.readTime(v.nextUpdate, ASN1TAG_GENERALIZEDTIME);
    });
    v.m.singleExtensionsPresent = readOptionalExplicit(
        seq, 1, "singleExtensions", [&](BerReader& in) { asn1D(in, v.singleExtensions); });
    r.leave(seq);
    return r.status();
}

int asn1Copy_SingleResponse(ASN1CTXT* ctxt, const ASN1T_SingleResponse& from,
                            ASN1T_SingleResponse& to) {
    to.m = from.m;
    int st = asn1Copy_ReqCert(ctxt, from.certID, to.certID);
    if (st >= 0) {
        st = asn1Copy_CertStatus(ctxt, from.certStatus, to.certStatus);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.thisUpdate, to.thisUpdate);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.nextUpdate, to.nextUpdate);
    }
    return st < 0 ? st : asn1Copy_Extensions(ctxt, from.singleExtensions, to.singleExtensions);
}

// ---- SEQUENCE OF SingleResponse

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T__SeqOfSingleResponse& v, ASN1TAG tag) {
    return writeSeqOf<ASN1T_SingleResponse>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T__SeqOfSingleResponse& v, ASN1TAG tag) {
    return readSeqOf<ASN1T_SingleResponse>(r, v, tag, "responses");
}

int asn1Copy__SeqOfSingleResponse(ASN1CTXT* ctxt, const ASN1T__SeqOfSingleResponse& from,
                                  ASN1T__SeqOfSingleResponse& to) {
    return rtCopyList<ASN1T_SingleResponse>(ctxt, from, to, asn1Copy_SingleResponse);
}

// ---- ResponseData ::= SEQUENCE { version [0] EXPLICIT Version DEFAULT v1,
//        responderID ResponderID, producedAt GeneralizedTime,
//        responses SEQUENCE OF SingleResponse,
//        responseExtensions [1] EXPLICIT Extensions OPTIONAL }
// Written back from raw when it holds the octets it was decoded from.

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_ResponseData& v, ASN1TAG tag) {
    if (v.raw.numocts != 0) {
        return b.putOpenType(v.raw);
    }
    return writeSequence(
        b, tag, optionalExplicitField(v.m.versionPresent && v.version != 0, 0, intField(v.version)),
        field(v.responderID), stringField(v.producedAt, ASN1TAG_GENERALIZEDTIME),
        field(v.responses),
        optionalExplicitField(v.m.responseExtensionsPresent, 1, field(v.responseExtensions)));
}

int asn1D(BerReader& r, ASN1T_ResponseData& v, ASN1TAG tag) {
    const std::size_t start = r.offset();
    BerReader seq;
    if (!r.enter(tag, seq, "ResponseData")) {
        return r.status();
    }
    v.m.versionPresent =
        readOptionalExplicit(seq, 0, "version", [&](BerReader& in) { in.readInt(v.version); });
    asn1D(seq.at("responderID"), v.responderID);
    seq.at("producedAt").readTime(v.producedAt, ASN1TAG_GENERALIZEDTIME);
    asn1D(seq.at("responses"), v.responses);
    v.m.responseExtensionsPresent = readOptionalExplicit(
        seq, 1, "responseExtensions", [&](BerReader& in) { asn1D(in, v.responseExtensions); });
    r.leave(seq);
    keepRaw(r, start, v.raw);
    return r.status();
}

int asn1Copy_ResponseData(ASN1CTXT* ctxt, const ASN1T_ResponseData& from, ASN1T_ResponseData& to) {
    to.m = from.m;
    to.version = from.version;
    int st = asn1Copy_ResponderID(ctxt, from.responderID, to.responderID);
    if (st >= 0) {
        st = rtCopy(ctxt, from.producedAt, to.producedAt);
    }
    if (st >= 0) {
        st = asn1Copy__SeqOfSingleResponse(ctxt, from.responses, to.responses);
    }
    if (st >= 0) {
        st = asn1Copy_Extensions(ctxt, from.responseExtensions, to.responseExtensions);
    }
    return st < 0 ? st : rtCopy(ctxt, from.raw, to.raw);
}

// ---- BasicOCSPResponse ::= SEQUENCE { tbsResponseData ResponseData,
//        signatureAlgorithm AlgorithmIdentifier, signature BIT STRING,
//        certs [0] EXPLICIT SEQUENCE OF Certificate OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_BasicOCSPResponse& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.tbsResponseData), field(v.signatureAlgorithm),
                         field(v.signature),
                         optionalExplicitField(v.m.certsPresent, 0, field(v.certs)));
}

int asn1D(BerReader& r, ASN1T_BasicOCSPResponse& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "BasicOCSPResponse")) {
        asn1D(seq.at("tbsResponseData"), v.tbsResponseData);
        asn1D(seq.at("signatureAlgorithm"), v.signatureAlgorithm);
        seq.at("signature").readBitStr(v.signature);
        v.m.certsPresent =
            readOptionalExplicit(seq, 0, "certs", [&](BerReader& in) { asn1D(in, v.certs); });
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_BasicOCSPResponse(ASN1CTXT* ctxt, const ASN1T_BasicOCSPResponse& from,
                               ASN1T_BasicOCSPResponse& to) {
    to.m = from.m;
    int st = asn1Copy_ResponseData(ctxt, from.tbsResponseData, to.tbsResponseData);
    if (st >= 0) {
        st = asn1Copy_AlgorithmIdentifier(ctxt, from.signatureAlgorithm, to.signatureAlgorithm);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.signature, to.signature);
    }
    return st < 0 ? st : asn1Copy__SeqOfCertificate(ctxt, from.certs, to.certs);
}
