// AlgorithmIdentifier, Name, Extensions and GeneralName: the small PKIX types that every
// message carries.
#include "asn1/asn1_fields.h"
#include "asn1/asn1_known_names.h"
#include "asn1/pkix_types.h"

using namespace Velmor::Asn1Rt;

// ---- AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_AlgorithmIdentifier& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.algorithm),
                         optionalField(v.m.parametersPresent, field(v.parameters)));
}

int asn1D(BerReader& r, ASN1T_AlgorithmIdentifier& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "AlgorithmIdentifier")) {
        seq.at("algorithm").readOid(v.algorithm);
        v.m.parametersPresent = seq.at("parameters").more();
        if (v.m.parametersPresent) {
            seq.readOpenType(v.parameters);
        }
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_AlgorithmIdentifier(ASN1CTXT* ctxt, const ASN1T_AlgorithmIdentifier& from,
                                 ASN1T_AlgorithmIdentifier& to) {
    to.m = from.m;
    const int st = rtCopy(ctxt, from.algorithm, to.algorithm);
    return st < 0 ? st : rtCopy(ctxt, from.parameters, to.parameters);
}

// ---- AttributeTypeAndValue ::= SEQUENCE { type OBJECT IDENTIFIER, value ANY }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_AttributeTypeAndValue& v, ASN1TAG tag) {
    if (v.value.numocts == 0) {
        return b.fail(RTERR_INVPARAM, "AttributeTypeAndValue without a value");
    }
    return writeSequence(b, tag, field(v.type), field(v.value));
}

int asn1D(BerReader& r, ASN1T_AttributeTypeAndValue& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "AttributeTypeAndValue")) {
        seq.at("type").readOid(v.type);
        seq.at("value").readOpenType(v.value);
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_AttributeTypeAndValue(ASN1CTXT* ctxt, const ASN1T_AttributeTypeAndValue& from,
                                   ASN1T_AttributeTypeAndValue& to) {
    const int st = rtCopy(ctxt, from.type, to.type);
    return st < 0 ? st : rtCopy(ctxt, from.value, to.value);
}

// ---- RelativeDistinguishedName ::= SET SIZE (1..MAX) OF AttributeTypeAndValue
// Written in DER order (sorted encodings); read in any order, as BER allows.

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_RelativeDistinguishedName& v, ASN1TAG tag) {
    return writeSetOf<ASN1T_AttributeTypeAndValue>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T_RelativeDistinguishedName& v, ASN1TAG tag) {
    const std::size_t start = r.offset();
    BerReader set;
    if (r.enter(tag, set, "RelativeDistinguishedName")) {
        readList<ASN1T_AttributeTypeAndValue>(set, v);
        if (set.ok() && v.count == 0) {
            r.failElement(start, RTERR_BADVALUE, "empty RelativeDistinguishedName");
        }
        r.leave(set);
    }
    return r.status();
}

int asn1Copy_RelativeDistinguishedName(ASN1CTXT* ctxt, const ASN1T_RelativeDistinguishedName& from,
                                       ASN1T_RelativeDistinguishedName& to) {
    return rtCopyList<ASN1T_AttributeTypeAndValue>(ctxt, from, to, asn1Copy_AttributeTypeAndValue);
}

// ---- RDNSequence ::= SEQUENCE OF RelativeDistinguishedName

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_RDNSequence& v, ASN1TAG tag) {
    return writeSeqOf<ASN1T_RelativeDistinguishedName>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T_RDNSequence& v, ASN1TAG tag) {
    return readSeqOf<ASN1T_RelativeDistinguishedName>(r, v, tag, "RDNSequence");
}

int asn1Copy_RDNSequence(ASN1CTXT* ctxt, const ASN1T_RDNSequence& from, ASN1T_RDNSequence& to) {
    return rtCopyList<ASN1T_RelativeDistinguishedName>(ctxt, from, to,
                                                       asn1Copy_RelativeDistinguishedName);
}

// ---- Name ::= CHOICE { rdnSequence RDNSequence }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Name& v, ASN1TAG tag) {
    if (v.raw.numocts != 0) {
        return b.putOpenType(v.raw);
    }
    if (v.t != 1) {
        return b.fail(RTERR_INVPARAM, "Name: unknown choice");
    }
    return writeChoice(b, field(v.rdnSequence, tag));
}

// Name, RDN, AttributeTypeAndValue, value: the depth a Name's parse reaches below its own.
constexpr unsigned kNameDepth = 4;

// A Name whose octets this thread already found to be DER is taken as it stands (raw and
// received), without parsing its attributes again; any other is parsed. The views point
// into the reader's own input, which need not be the context's decode buffer.
int asn1D(BerReader& r, ASN1T_Name& v, ASN1TAG tag) {
    v.t = 1;
    const ASN1OCTET* begin = r.unread();
    const std::size_t start = r.offset();
    // The octets are compared before anything is parsed: a known Name is a whole valid
    // element, so skipping it cannot fail, and any other input meets the full parse.
    const bool known = tag == ASN1TAG_SEQUENCE && r.depth() + kNameDepth <= kMaxDepth &&
                       KnownDerNames::ofThisThread().prefixOf(begin, r.unreadSize()) != 0;
    if (known) {
        r.skip();
    } else {
        asn1D(r, v.rdnSequence, tag);
    }
    if (r.ok()) {
        v.received.data = begin;
        v.received.numocts = static_cast<OSUINT32>(r.offset() - start);
        if (known) {
            v.raw = v.received;
        }
    }
    return r.status();
}

int asn1Copy_Name(ASN1CTXT* ctxt, const ASN1T_Name& from, ASN1T_Name& to) {
    to.t = from.t;
    const int st = rtCopy(ctxt, from.raw, to.raw);
    return st < 0 ? st : asn1Copy_RDNSequence(ctxt, from.rdnSequence, to.rdnSequence);
}

// ---- Extension ::= SEQUENCE { extnID OBJECT IDENTIFIER, critical BOOLEAN DEFAULT FALSE,
//                               extnValue OCTET STRING }

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Extension& v, ASN1TAG tag) {
    return writeSequence(b, tag, field(v.extnID), optionalField(v.critical, boolField(true)),
                         field(v.extnValue));
}

int asn1D(BerReader& r, ASN1T_Extension& v, ASN1TAG tag) {
    BerReader seq;
    if (r.enter(tag, seq, "Extension")) {
        seq.at("extnID").readOid(v.extnID);
        v.critical = false;
        if (seq.at("critical").nextIs(ASN1TAG_BOOLEAN)) {
            seq.readBool(v.critical);
        }
        seq.at("extnValue").readOctStr(v.extnValue);
        r.leave(seq);
    }
    return r.status();
}

int asn1Copy_Extension(ASN1CTXT* ctxt, const ASN1T_Extension& from, ASN1T_Extension& to) {
    to.critical = from.critical;
    const int st = rtCopy(ctxt, from.extnID, to.extnID);
    return st < 0 ? st : rtCopy(ctxt, from.extnValue, to.extnValue);
}

// ---- Extensions ::= SEQUENCE SIZE (1..MAX) OF Extension
// An empty list is read (some encoders write one) and written as it stands.

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_Extensions& v, ASN1TAG tag) {
    return writeSeqOf<ASN1T_Extension>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T_Extensions& v, ASN1TAG tag) {
    return readSeqOf<ASN1T_Extension>(r, v, tag, "Extensions");
}

int asn1Copy_Extensions(ASN1CTXT* ctxt, const ASN1T_Extensions& from, ASN1T_Extensions& to) {
    return rtCopyList<ASN1T_Extension>(ctxt, from, to, asn1Copy_Extension);
}

// ---- GeneralName ::= CHOICE { otherName [0], rfc822Name [1] IA5String, dNSName [2] IA5String,
//        x400Address [3], directoryName [4] EXPLICIT Name, ediPartyName [5],
//        uniformResourceIdentifier [6] IA5String, iPAddress [7] OCTET STRING,
//        registeredID [8] OBJECT IDENTIFIER }   -- IMPLICIT but for directoryName

namespace {

// The context tag number of a GeneralName selector (selector - 1).
OSUINT32 GeneralNameTagNumber(OSUINT32 t) { return t - 1; }

bool IsOpaqueGeneralName(OSUINT32 t) {
    return t == T_GeneralName_otherName || t == T_GeneralName_x400Address ||
           t == T_GeneralName_ediPartyName;
}

bool IsTextGeneralName(OSUINT32 t) {
    return t == T_GeneralName_rfc822Name || t == T_GeneralName_dNSName ||
           t == T_GeneralName_uniformResourceIdentifier;
}

} // namespace

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_GeneralName& v, ASN1TAG /*tag*/) {
    const OSUINT32 n = GeneralNameTagNumber(v.t);
    if (IsOpaqueGeneralName(v.t)) {
        if (v.other.numocts == 0) {
            return b.fail(RTERR_INVPARAM, "GeneralName without its element");
        }
        return writeChoice(b, field(v.other));
    }
    if (IsTextGeneralName(v.t)) {
        return writeChoice(b, stringField(v.text, asn1CtxtTag(n)));
    }
    switch (v.t) {
    case T_GeneralName_directoryName:
        return writeChoice(b, explicitField(n, field(v.directoryName)));
    case T_GeneralName_iPAddress:
        return writeChoice(b, field(v.iPAddress, asn1CtxtTag(n)));
    case T_GeneralName_registeredID:
        return writeChoice(b, field(v.registeredID, asn1CtxtTag(n)));
    default:
        return b.fail(RTERR_INVPARAM, "GeneralName: unknown choice");
    }
}

int asn1D(BerReader& r, ASN1T_GeneralName& v, ASN1TAG /*tag*/) {
    const ASN1TAG next = r.peekTag();
    if ((next & TM_CLASS_MASK) != TM_CTXT || (next & TM_IDCODE_MASK) > 8) {
        r.fail(RTERR_IDNOTFOU, "GeneralName: unknown choice");
        return r.status();
    }
    const OSUINT32 n = next & TM_IDCODE_MASK;
    v.t = n + 1;
    if (IsOpaqueGeneralName(v.t)) {
        r.readOpenType(v.other);
    } else if (IsTextGeneralName(v.t)) {
        r.readString(v.text, asn1CtxtTag(n));
    } else if (v.t == T_GeneralName_directoryName) {
        readExplicit(r, n, "directoryName",
                     [&](BerReader& in) { asn1D(in.at("directoryName"), v.directoryName); });
    } else if (v.t == T_GeneralName_iPAddress) {
        r.readOctStr(v.iPAddress, asn1CtxtTag(n));
    } else {
        r.readOid(v.registeredID, asn1CtxtTag(n));
    }
    return r.status();
}

int asn1Copy_GeneralName(ASN1CTXT* ctxt, const ASN1T_GeneralName& from, ASN1T_GeneralName& to) {
    to.t = from.t;
    int st = rtCopy(ctxt, from.other, to.other);
    if (st >= 0) {
        st = rtCopy(ctxt, from.text, to.text);
    }
    if (st >= 0) {
        st = asn1Copy_Name(ctxt, from.directoryName, to.directoryName);
    }
    if (st >= 0) {
        st = rtCopy(ctxt, from.iPAddress, to.iPAddress);
    }
    return st < 0 ? st : rtCopy(ctxt, from.registeredID, to.registeredID);
}

// ---- GeneralNames ::= SEQUENCE SIZE (1..MAX) OF GeneralName

int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_GeneralNames& v, ASN1TAG tag) {
    return writeSeqOf<ASN1T_GeneralName>(b, v, tag);
}

int asn1D(BerReader& r, ASN1T_GeneralNames& v, ASN1TAG tag) {
    return readSeqOf<ASN1T_GeneralName>(r, v, tag, "GeneralNames", true);
}

int asn1Copy_GeneralNames(ASN1CTXT* ctxt, const ASN1T_GeneralNames& from, ASN1T_GeneralNames& to) {
    return rtCopyList<ASN1T_GeneralName>(ctxt, from, to, asn1Copy_GeneralName);
}
