// The PKIX structures of RFC 5280 and RFC 3281 that the library's messages carry, with
// their DER encoders, BER decoders and deep copiers. docs/asn1/pkix.asn1 holds their ASN.1
// text. Every pointer and view in these structures points into the decoded input or into
// the arena of one ASN1CTXT.
#ifndef VELMOR_SRC_ASN1_PKIX_TYPES_H
#define VELMOR_SRC_ASN1_PKIX_TYPES_H

#include "asn1/asn1_fields.h"
#include "asn1/asn1_runtime.h"

using Velmor::Asn1Rt::BerReader;

// ---- AlgorithmIdentifier ------------------------------------------------------------------

struct ASN1T_AlgorithmIdentifier {
    struct {
        unsigned parametersPresent : 1;
    } m{};
    ASN1OBJID algorithm;
    ASN1OpenType parameters; // the whole encoded parameters element
};

// ---- Name ---------------------------------------------------------------------------------

struct ASN1T_AttributeTypeAndValue {
    ASN1OBJID type;
    ASN1OpenType value; // kept exactly as received
};

// SET OF AttributeTypeAndValue (elements are ASN1T_AttributeTypeAndValue).
struct ASN1T_RelativeDistinguishedName : OSRTDList {};

// SEQUENCE OF RelativeDistinguishedName.
struct ASN1T_RDNSequence : OSRTDList {};

// Name ::= CHOICE { rdnSequence RDNSequence }: t is 1 for its one alternative.
struct ASN1T_Name {
    OSUINT32 t = 1;
    ASN1T_RDNSequence rdnSequence;
    // When not empty, the whole Name's DER, written as it stands in place of rdnSequence
    // (the decoder leaves it empty).
    ASN1OpenType raw;
    // Set by the decoder: the whole element as it stood in the input (BER or DER), a view.
    ASN1OpenType received;
};

// ---- Extensions ---------------------------------------------------------------------------

struct ASN1T_Extension {
    ASN1OBJID extnID;
    OSBOOL critical = false; // DEFAULT FALSE: written only when true
    ASN1TDynOctStr extnValue;
};

// SEQUENCE OF Extension.
struct ASN1T_Extensions : OSRTDList {};

// ---- GeneralName --------------------------------------------------------------------------

// Selectors of GeneralName, numbered from 1 in the order of the CHOICE.
enum : OSUINT32 {
    T_GeneralName_otherName = 1,
    T_GeneralName_rfc822Name,
    T_GeneralName_dNSName,
    T_GeneralName_x400Address,
    T_GeneralName_directoryName,
    T_GeneralName_ediPartyName,
    T_GeneralName_uniformResourceIdentifier,
    T_GeneralName_iPAddress,
    T_GeneralName_registeredID,
};

struct ASN1T_GeneralName {
    OSUINT32 t = 0;
    // otherName, x400Address, ediPartyName: the whole [0]/[3]/[5] element, verbatim.
    ASN1OpenType other;
    // rfc822Name, dNSName, uniformResourceIdentifier (IA5String).
    const char* text = nullptr;
    ASN1T_Name directoryName;
    ASN1TDynOctStr iPAddress;
    ASN1OBJID registeredID;
};

// SEQUENCE OF GeneralName.
struct ASN1T_GeneralNames : OSRTDList {};

// ---- Certificate --------------------------------------------------------------------------

// Time ::= CHOICE { utcTime UTCTime, generalTime GeneralizedTime }.
enum : OSUINT32 { T_Time_utcTime = 1, T_Time_generalTime = 2 };

struct ASN1T_Time {
    OSUINT32 t = 0;
    const char* value = nullptr; // the time text as received
};

struct ASN1T_Validity {
    ASN1T_Time notBefore;
    ASN1T_Time notAfter;
};

struct ASN1T_SubjectPublicKeyInfo {
    ASN1T_AlgorithmIdentifier algorithm;
    ASN1TDynBitStr subjectPublicKey;
};

struct ASN1T_TBSCertificate {
    struct {
        unsigned versionPresent : 1;
        unsigned issuerUniqueIDPresent : 1;
        unsigned subjectUniqueIDPresent : 1;
        unsigned extensionsPresent : 1;
    } m{};
    OSINT32 version = 0; // v1 (0) is the DEFAULT and is not written
    ASN1TDynBigInt serialNumber;
    ASN1T_AlgorithmIdentifier signature;
    ASN1T_Name issuer;
    ASN1T_Validity validity;
    ASN1T_Name subject;
    ASN1T_SubjectPublicKeyInfo subjectPublicKeyInfo;
    ASN1TDynBitStr issuerUniqueID;
    ASN1TDynBitStr subjectUniqueID;
    ASN1T_Extensions extensions;
};

// A certificate decoded from a message also keeps its whole encoding in raw, and is written
// back from those octets, so that a certificate passes through the library unchanged even
// when its issuer did not encode it in DER (re-encoding it would break its signature). A
// certificate built field by field has an empty raw and is encoded from its fields.
struct ASN1T_Certificate {
    ASN1T_TBSCertificate tbsCertificate;
    ASN1T_AlgorithmIdentifier signatureAlgorithm;
    ASN1TDynBitStr signature;
    ASN1OpenType raw;
};

// SEQUENCE OF Certificate.
struct ASN1T__SeqOfCertificate : OSRTDList {};

// ---- CRL distribution points and authority information access ---------------------------

enum : OSUINT32 {
    T_DistributionPointName_fullName = 1,
    T_DistributionPointName_nameRelativeToCRLIssuer = 2,
};

struct ASN1T_DistributionPointName {
    OSUINT32 t = 0;
    ASN1T_GeneralNames fullName;
    ASN1T_RelativeDistinguishedName nameRelativeToCRLIssuer;
};

struct ASN1T_DistributionPoint {
    struct {
        unsigned distributionPointPresent : 1;
        unsigned reasonsPresent : 1;
        unsigned cRLIssuerPresent : 1;
    } m{};
    ASN1T_DistributionPointName distributionPoint;
    ASN1TDynBitStr reasons;
    ASN1T_GeneralNames cRLIssuer;
};

// SEQUENCE OF DistributionPoint.
struct ASN1T_CRLDistPointsSyntax : OSRTDList {};

struct ASN1T_AccessDescription {
    ASN1OBJID accessMethod;
    ASN1T_GeneralName accessLocation;
};

// SEQUENCE OF AccessDescription.
struct ASN1T_AuthorityInfoAccessSyntax : OSRTDList {};

// ---- Attribute certificate (RFC 3281) ----------------------------------------------------

struct ASN1T_IssuerSerial {
    struct {
        unsigned issuerUIDPresent : 1;
    } m{};
    ASN1T_GeneralNames issuer;
    ASN1TDynBigInt serial;
    ASN1TDynBitStr issuerUID;
};

struct ASN1T_ObjectDigestInfo {
    struct {
        unsigned otherObjectTypeIDPresent : 1;
    } m{};
    OSINT32 digestedObjectType = 0;
    ASN1OBJID otherObjectTypeID;
    ASN1T_AlgorithmIdentifier digestAlgorithm;
    ASN1TDynBitStr objectDigest;
};

struct ASN1T_Holder {
    struct {
        unsigned baseCertificateIDPresent : 1;
        unsigned entityNamePresent : 1;
        unsigned objectDigestInfoPresent : 1;
    } m{};
    ASN1T_IssuerSerial baseCertificateID;
    ASN1T_GeneralNames entityName;
    ASN1T_ObjectDigestInfo objectDigestInfo;
};

struct ASN1T_V2Form {
    struct {
        unsigned issuerNamePresent : 1;
        unsigned baseCertificateIDPresent : 1;
        unsigned objectDigestInfoPresent : 1;
    } m{};
    ASN1T_GeneralNames issuerName;
    ASN1T_IssuerSerial baseCertificateID;
    ASN1T_ObjectDigestInfo objectDigestInfo;
};

enum : OSUINT32 { T_AttCertIssuer_v1Form = 1, T_AttCertIssuer_v2Form = 2 };

struct ASN1T_AttCertIssuer {
    OSUINT32 t = 0;
    ASN1T_GeneralNames v1Form;
    ASN1T_V2Form v2Form;
};

struct ASN1T_AttCertValidityPeriod {
    const char* notBeforeTime = nullptr;
    const char* notAfterTime = nullptr;
};

// SET OF AttributeValue (elements are ASN1OpenType).
struct ASN1T__SetOfAttributeValue : OSRTDList {};

struct ASN1T_Attribute {
    ASN1OBJID type;
    ASN1T__SetOfAttributeValue values;
};

// SEQUENCE OF Attribute.
struct ASN1T__SeqOfAttribute : OSRTDList {};

struct ASN1T_AttributeCertificateInfo {
    struct {
        unsigned issuerUniqueIDPresent : 1;
        unsigned extensionsPresent : 1;
    } m{};
    OSINT32 version = 1; // v2
    ASN1T_Holder holder;
    ASN1T_AttCertIssuer issuer;
    ASN1T_AlgorithmIdentifier signature;
    ASN1TDynBigInt serialNumber;
    ASN1T_AttCertValidityPeriod attrCertValidityPeriod;
    ASN1T__SeqOfAttribute attributes;
    ASN1TDynBitStr issuerUniqueID;
    ASN1T_Extensions extensions;
};

// Like ASN1T_Certificate, a decoded attribute certificate keeps and is written back from
// its whole encoding (raw).
struct ASN1T_AttributeCertificate {
    ASN1T_AttributeCertificateInfo acinfo;
    ASN1T_AlgorithmIdentifier signatureAlgorithm;
    ASN1TDynBitStr signatureValue;
    ASN1OpenType raw;
};

// ---- Codecs -------------------------------------------------------------------------------
// asn1E prepends the DER of a value (its length, or a negative status); asn1D reads one
// value (0 or a negative status); asn1Copy_<Type> deep-copies into ctxt (0 or RTERR_NOMEM).
// tag replaces the type's own tag where a field is IMPLICITly tagged.

#define VELMOR_ASN1_DECLARE_TYPE(Type, defaultTag)                                                 \
    int asn1E(ASN1BEREncodeBuffer& b, const ASN1T_##Type& v, ASN1TAG tag = defaultTag);            \
    int asn1D(BerReader& r, ASN1T_##Type& v, ASN1TAG tag = defaultTag);                            \
    int asn1Copy_##Type(ASN1CTXT* ctxt, const ASN1T_##Type& from, ASN1T_##Type& to);               \
    using ASN1C_##Type = ASN1CTypeT<ASN1T_##Type>

VELMOR_ASN1_DECLARE_TYPE(AlgorithmIdentifier, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(AttributeTypeAndValue, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(RelativeDistinguishedName, ASN1TAG_SET);
VELMOR_ASN1_DECLARE_TYPE(RDNSequence, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(Name, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(Extension, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(Extensions, ASN1TAG_SEQUENCE);
// GeneralName is a CHOICE: its tag comes from the selected alternative, and tag is unused.
VELMOR_ASN1_DECLARE_TYPE(GeneralName, 0);
VELMOR_ASN1_DECLARE_TYPE(GeneralNames, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(Time, 0);
VELMOR_ASN1_DECLARE_TYPE(Validity, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(SubjectPublicKeyInfo, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(TBSCertificate, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(Certificate, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(_SeqOfCertificate, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(DistributionPointName, 0);
VELMOR_ASN1_DECLARE_TYPE(DistributionPoint, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(CRLDistPointsSyntax, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(AccessDescription, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(AuthorityInfoAccessSyntax, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(IssuerSerial, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(ObjectDigestInfo, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(Holder, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(V2Form, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(AttCertIssuer, 0);
VELMOR_ASN1_DECLARE_TYPE(AttCertValidityPeriod, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(Attribute, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(_SeqOfAttribute, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(AttributeCertificateInfo, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(AttributeCertificate, ASN1TAG_SEQUENCE);

// ---- Signed envelopes ---------------------------------------------------------------------
// SEQUENCE { toBeSigned, AlgorithmIdentifier, BIT STRING }: certificates and attribute
// certificates. (Basic OCSP responses carry certificates after the signature and have their
// own codec.) A decoded envelope keeps its whole encoding in raw
// and is written back from it; with raw empty it is encoded from its fields.

template <class ToBeSigned>
int writeSigned(ASN1BEREncodeBuffer& b, const ASN1OpenType& raw, const ToBeSigned& toBeSigned,
                const ASN1T_AlgorithmIdentifier& algorithm, const ASN1TDynBitStr& signature,
                ASN1TAG tag) {
    if (raw.numocts != 0) {
        return b.putOpenType(raw);
    }
    using namespace Velmor::Asn1Rt;
    return writeSequence(b, tag, field(toBeSigned), field(algorithm), field(signature));
}

// fields names the envelope's three fields, as its type's ASN.1 text does.
struct SignedFields {
    const char* toBeSigned;
    const char* algorithm;
    const char* signature;
};

template <class ToBeSigned>
int readSigned(BerReader& r, ToBeSigned& toBeSigned, ASN1T_AlgorithmIdentifier& algorithm,
               ASN1TDynBitStr& signature, ASN1OpenType& raw, ASN1TAG tag, const char* name,
               const SignedFields& fields) {
    const std::size_t start = r.offset();
    BerReader seq;
    if (r.enter(tag, seq, name)) {
        asn1D(seq.at(fields.toBeSigned), toBeSigned);
        asn1D(seq.at(fields.algorithm), algorithm);
        seq.at(fields.signature).readBitStr(signature);
        r.leave(seq);
    }
    Velmor::Asn1Rt::keepRaw(r, start, raw);
    return r.status();
}

#endif
