// Strict-DER readers of AlgorithmIdentifier, Extension and CertID.
#include "asn1/der_structures.h"

#include "asn1/asn1_detail.h"

namespace Velmor::Asn1Rt {

namespace {

bool ReadOid(DerCursor& in, ASN1OBJID& out) noexcept {
    DerCursor contents;
    if (!in.read(kDerOid, contents) || !oidContentsValid(contents.data(), contents.size())) {
        return false;
    }
    out.data = contents.data();
    out.numocts = static_cast<OSUINT32>(contents.size());
    return true;
}

bool ReadOctets(DerCursor& in, ASN1TDynOctStr& out) noexcept {
    DerCursor contents;
    if (!in.read(kDerOctetString, contents)) {
        return false;
    }
    out.data = contents.data();
    out.numocts = static_cast<OSUINT32>(contents.size());
    return true;
}

} // namespace

bool ReadDer(DerCursor& in, ASN1T_AlgorithmIdentifier& out) noexcept {
    DerCursor seq;
    if (!in.read(kDerSequence, seq) || !ReadOid(seq, out.algorithm)) {
        return false;
    }
    out.m.parametersPresent = !seq.empty();
    if (out.m.parametersPresent) {
        // The parameters are kept as the whole element, as the BER decoder keeps them.
        DerCursor element;
        DerCursor contents;
        if (!seq.readElement(kDerNull, element, contents) || !contents.empty()) {
            return false;
        }
        out.parameters.data = element.data();
        out.parameters.numocts = static_cast<OSUINT32>(element.size());
    }
    return seq.empty();
}

bool ReadDer(DerCursor& in, ASN1T_Extension& out) noexcept {
    DerCursor seq;
    if (!in.read(kDerSequence, seq) || !ReadOid(seq, out.extnID)) {
        return false;
    }
    out.critical = false;
    if (seq.peek(kDerBoolean)) {
        DerCursor value;
        if (!seq.read(kDerBoolean, value) || value.size() != 1) {
            return false;
        }
        out.critical = value.data()[0] != 0;
    }
    return ReadOctets(seq, out.extnValue) && seq.empty();
}

bool ReadDer(DerCursor& in, ASN1T_CertID& out, DerCursor& serial) noexcept {
    DerCursor seq;
    return in.read(kDerSequence, seq) && ReadDer(seq, out.hashAlgorithm) &&
           ReadOctets(seq, out.issuerNameHash) && ReadOctets(seq, out.issuerKeyHash) &&
           seq.read(kDerInteger, serial) && !serial.empty() && seq.empty();
}

} // namespace Velmor::Asn1Rt
