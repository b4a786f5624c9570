// CRLDistPointsSyntax and AuthorityInfoAccessSyntax: where a certificate's CRLs and OCSP
// responders are found.
#include "asn1/asn1_fields.h"
#include "asn1/pkix_types.h"

using namespace Velmor::Asn1Rt;

// ---- DistributionPointName ::= CHOICE { fullName [0] IMPLICIT GeneralNames,
//        nameRelativeToCRLIssuer [1] IMPLICIT RelativeDistinguishedName }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_DistributionPointName& v, ASN1TAG /*tag*/) {
    switch (v.t) {
    case T_DistributionPointName_fullName:
        return writeChoice(b, field(v.fullName, asn1CtxtConsTag(0)));
    case T_DistributionPointName_nameRelativeToCRLIssuer:
        return writeChoice(b, field(v.nameRelativeToCRLIssuer, asn1CtxtConsTag(1)));
    default:
        return b.fail(RTERR_INVPARAM, "DistributionPointName: unknown choice");
    }
}

int asn1D(BerReader& r, ASN1T_DistributionPointName& v, ASN1TAG /*tag*/) {
    // Read inside distributionPoint's [0] EXPLICIT: the alternative names the path's last step.
    if (r.nextIs(asn1CtxtConsTag(0))) {
        v.t = T_DistributionPointName_fullName;
        asn1D(r.at("fullName"), v.fullName, asn1CtxtConsTag(0));
    } else {
        v.t = T_DistributionPointName_nameRelativeToCRLIssuer;
        asn1D(r.at("nameRelativeToCRLIssuer"), v.nameRelativeToCRLIssuer, asn1CtxtConsTag(1));
    }
    return r.status();
}

int asn1Copy_DistributionPointName(ASN1CTXT* ctxt, const ASN1T_DistributionPointName& from,
                                   ASN1T_DistributionPointName& to) {
    to.t = from.t;
    const int st = asn1Copy_GeneralNames(ctxt, from.fullName, to.fullName);
    return st < 0 ? st
                  : asn1Copy_RelativeDistinguishedName(ctxt, from.nameRelativeToCRLIssuer,
                                                       to.nameRelativeToCRLIssuer);
}

// ---- DistributionPoint ::= SEQUENCE {
//        distributionPoint [0] EXPLICIT DistributionPointName OPTIONAL,
//        reasons [1] IMPLICIT ReasonFlags OPTIONAL,
//        cRLIssuer [2] IMPLICIT GeneralNames OPTIONAL }
// (A tag on a CHOICE is always explicit, hence [0] EXPLICIT.)

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_DistributionPoint& v, ASN1TAG tag) {
    return writeSequence(
        b, tag, optionalExplicitField(v.m.distributionPointPresent, 0, field(v.distributionPoint)),
        optionalField(v.m.reasonsPresent, field(v.reasons, asn1CtxtTag(1))),
        optionalField(v.m.cRLIssuerPresent, field(v.cRLIssuer, asn1CtxtConsTag(2))));
}

int asn1D(BerReader& r, ASN1T_DistributionPoint& v, ASN1TAG tag) {
    BerReader seq;
    if (!r.enter(tag, seq, "DistributionPoint")) {
        return r.status();
    }
    v.m.distributionPointPresent = readOptionalExplicit(
        seq, 0, "distributionPoint", [&](BerReader& in) { asn1D(in, v.distributionPoint); });
    v.m.reasonsPresent = seq.at("reasons").nextIs(asn1CtxtTag(1)) || seq.nextIs(asn1CtxtConsTag(1));
    if (v.m.reasonsPresent) {
        seq.readBitStr(v.reasons, asn1CtxtTag(1));
    }
    v.m.cRLIssuerPresent = seq.at("cRLIssuer").nextIs(asn1CtxtConsTag(2));
    if (v.m.cRLIssuerPresent) {
        asn1D(seq, v.cRLIssuer, asn1CtxtConsTag(2));
    }
    r.leave(seq);
    return r.status();
}

int asn1Copy_DistributionPoint(ASN1CTXT* ctxt, const ASN1T_DistributionPoint& from,
                               ASN1T_DistributionPoint& to) {
    to.m = from.m;
    int st = asn1Copy_DistributionPointName(ctxt, from.distributionPoint, to.distributionPoint);
    if (st >= 0) {
        st = rtCopy(ctxt, from.reasons, to.reasons);
    }
    return st < 0 ? st : asn1Copy_GeneralNames(ctxt, from.cRLIssuer, to.cRLIssuer);
}

// ---- CRLDistPointsSyntax ::= SEQUENCE SIZE (1..MAX) OF DistributionPoint

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_CRLDistPointsSyntax& v, ASN1TAG tag) {
    return writeSeqOf<ASN1T_DistributionPoint>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T_CRLDistPointsSyntax& v, ASN1TAG tag) {
    return readSeqOf<ASN1T_DistributionPoint>(r, v, tag, "CRLDistPointsSyntax");
}

int asn1Copy_CRLDistPointsSyntax(ASN1CTXT* ctxt, const ASN1T_CRLDistPointsSyntax& from,
                                 ASN1T_CRLDistPointsSyntax& to) {
    return rtCopyList<ASN1T_DistributionPoint>(ctxt, from, to, asn1Copy_DistributionPoint);
}

// ---- AccessDescription ::= SEQUENCE { accessMethod OBJECT IDENTIFIER,
//                                       accessLocation GeneralName }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_AccessDescription& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.accessMethod), field(v.accessLocation));
}

int asn1D(BerReader& r, ASN1T_AccessDescription& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "AccessDescription")) {
        seq.at("accessMethod").readOid(v.accessMethod);
        asn1D(seq.at("accessLocation"), v.accessLocation);
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_AccessDescription(ASN1CTXT* ctxt, const ASN1T_AccessDescription& from,
                               ASN1T_AccessDescription& to) {
    const int st = rtCopy(ctxt, from.accessMethod, to.accessMethod);
    return st < 0 ? st : asn1Copy_GeneralName(ctxt, from.accessLocation, to.accessLocation);
}

// ---- AuthorityInfoAccessSyntax ::= SEQUENCE SIZE (1..MAX) OF AccessDescription

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_AuthorityInfoAccessSyntax& v, ASN1TAG tag) {
    return writeSeqOf<ASN1T_AccessDescription>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T_AuthorityInfoAccessSyntax& v, ASN1TAG tag) {
    return readSeqOf<ASN1T_AccessDescription>(r, v, tag, "AuthorityInfoAccessSyntax");
}

int asn1Copy_AuthorityInfoAccessSyntax(ASN1CTXT* ctxt, const ASN1T_AuthorityInfoAccessSyntax& from,
                                       ASN1T_AuthorityInfoAccessSyntax& to) {
    return rtCopyList<ASN1T_AccessDescription>(ctxt, from, to, asn1Copy_AccessDescription);
}
