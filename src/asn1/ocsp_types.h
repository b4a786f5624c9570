// The OCSP structures of the library's module (docs/asn1/ocsp.asn1), with their DER
// encoders, BER decoders and deep copiers.
#ifndef VELMOR_SRC_ASN1_OCSP_TYPES_H
#define VELMOR_SRC_ASN1_OCSP_TYPES_H

#include "asn1/pkix_types.h"

// ResponseBytes ::= SEQUENCE { responseType OBJECT IDENTIFIER, response OCTET STRING }
struct ASN1T_ResponseBytes {
    ASN1OBJID responseType;
    ASN1TDynOctStr response;
};

// OCSPResponse ::= SEQUENCE { responseStatus OCSPResponseStatus,
//                             responseBytes [0] EXPLICIT ResponseBytes OPTIONAL }
struct ASN1T_OCSPResponse {
    struct {
        unsigned responseBytesPresent : 1;
    } m{};
    OSINT32 responseStatus = 0; // ENUMERATED
    ASN1T_ResponseBytes responseBytes;
};

VELMOR_ASN1_DECLARE_TYPE(ResponseBytes, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(OCSPResponse, ASN1TAG_SEQUENCE);

// ---- CHOICEs ------------------------------------------------------------------------------
// The OCSP CHOICE structures hold their alternatives by pointer, in a union selected by t
// (numbered from 1 in the order of the CHOICE; 0 is "not set"). A decoder allocates only the
// alternative it reads, so that an entry of a long request or response costs the arena what
// it carries and not the size of every alternative (a full certificate is large). A NULL
// alternative has no member. Encoding a selected alternative whose pointer is null, or an
// unknown t, fails with RTERR_INVPARAM.

// ---- Certificate references ---------------------------------------------------------------

// CertID ::= SEQUENCE { hashAlgorithm AlgorithmIdentifier, issuerNameHash OCTET STRING,
//                       issuerKeyHash OCTET STRING, serialNumber CertificateSerialNumber }
struct ASN1T_CertID {
    ASN1T_AlgorithmIdentifier hashAlgorithm;
    ASN1TDynOctStr issuerNameHash;
    ASN1TDynOctStr issuerKeyHash;
    ASN1TDynBigInt serialNumber;
};

// CertIdWithSignature ::= SEQUENCE { issuer Name, serialNumber CertificateSerialNumber,
//        tbsCertificateHash BIT STRING, signatureAlgorithm AlgorithmIdentifier,
//        signatureValue BIT STRING }
struct ASN1T_CertIdWithSignature {
    ASN1T_Name issuer;
    ASN1TDynBigInt serialNumber;
    ASN1TDynBitStr tbsCertificateHash;
    ASN1T_AlgorithmIdentifier signatureAlgorithm;
    ASN1TDynBitStr signatureValue;
};

// FullCertificate ::= CHOICE { certificate [0] EXPLICIT Certificate,
//                              attributeCertificate [1] EXPLICIT AttributeCertificate }
enum : OSUINT32 {
    T_FullCertificate_certificate = 1,
    T_FullCertificate_attributeCertificate = 2,
};

struct ASN1T_FullCertificate {
    OSUINT32 t = 0;
    union {
        ASN1T_Certificate* certificate;
        ASN1T_AttributeCertificate* attributeCertificate;
    } u{};
};

// ReqCert ::= CHOICE { certID CertID, fullCertificate [0] EXPLICIT FullCertificate,
//                      certIdWithSignature [1] EXPLICIT CertIdWithSignature }
enum : OSUINT32 {
    T_ReqCert_certID = 1,
    T_ReqCert_fullCertificate = 2,
    T_ReqCert_certIdWithSignature = 3,
};

struct ASN1T_ReqCert {
    OSUINT32 t = 0;
    union {
        ASN1T_CertID* certID;
        ASN1T_FullCertificate* fullCertificate;
        ASN1T_CertIdWithSignature* certIdWithSignature;
    } u{};
};

// ---- Requests -----------------------------------------------------------------------------

// Request ::= SEQUENCE { reqCert ReqCert,
//                        singleRequestExtensions [0] EXPLICIT Extensions OPTIONAL }
struct ASN1T_Request {
    struct {
        unsigned singleRequestExtensionsPresent : 1;
    } m{};
    ASN1T_ReqCert reqCert;
    ASN1T_Extensions singleRequestExtensions;
};

// SEQUENCE OF Request.
struct ASN1T__SeqOfRequest : OSRTDList {};

// TBSRequest ::= SEQUENCE { version [0] EXPLICIT Version DEFAULT v1,
//        requestorName [1] EXPLICIT GeneralName OPTIONAL, requestList SEQUENCE OF Request,
//        requestExtensions [2] EXPLICIT Extensions OPTIONAL }
// The signed part of a request. A decoded TBSRequest also keeps its whole encoding in raw and
// is written back from it, so that a signature made over BER octets still verifies over
// what the library sends on; with raw empty (a structure built field by field, or raw
// cleared) it is encoded from its fields.
struct ASN1T_TBSRequest {
    struct {
        unsigned versionPresent : 1;
        unsigned requestorNamePresent : 1;
        unsigned requestExtensionsPresent : 1;
    } m{};
    OSINT32 version = 0; // v1 (0) is the DEFAULT and is not written
    ASN1T_GeneralName requestorName;
    ASN1T__SeqOfRequest requestList;
    ASN1T_Extensions requestExtensions;
    ASN1OpenType raw;
};

// Signature ::= SEQUENCE { signatureAlgorithm AlgorithmIdentifier, signature BIT STRING,
//                          certs [0] EXPLICIT SEQUENCE OF Certificate OPTIONAL }
struct ASN1T_Signature {
    struct {
        unsigned certsPresent : 1;
    } m{};
    ASN1T_AlgorithmIdentifier signatureAlgorithm;
    ASN1TDynBitStr signature;
    ASN1T__SeqOfCertificate certs;
};

// OCSPRequest ::= SEQUENCE { tbsRequest TBSRequest,
//                            optionalSignature [0] EXPLICIT Signature OPTIONAL }
struct ASN1T_OCSPRequest {
    struct {
        unsigned optionalSignaturePresent : 1;
    } m{};
    ASN1T_TBSRequest tbsRequest;
    ASN1T_Signature optionalSignature;
};

// ---- Basic responses ----------------------------------------------------------------------

// ResponderID ::= CHOICE { byName [1] EXPLICIT Name, byKey [2] EXPLICIT KeyHash }
// (KeyHash ::= OCTET STRING, the SHA-1 hash of the responder's public key bits.)
enum : OSUINT32 {
    T_ResponderID_byName = 1,
    T_ResponderID_byKey = 2,
};

struct ASN1T_ResponderID {
    OSUINT32 t = 0;
    union {
        ASN1T_Name* byName;
        ASN1TDynOctStr* byKey;
    } u{};
};

// RevokedInfo ::= SEQUENCE { revocationTime GeneralizedTime,
//                            revocationReason [0] EXPLICIT CRLReason OPTIONAL }
struct ASN1T_RevokedInfo {
    struct {
        unsigned revocationReasonPresent : 1;
    } m{};
    const char* revocationTime = nullptr; // GeneralizedTime text
    OSINT32 revocationReason = 0;         // CRLReason (ENUMERATED)
};

// CertStatus ::= CHOICE { good [0] IMPLICIT NULL, revoked [1] IMPLICIT RevokedInfo,
//                         unknown [2] IMPLICIT UnknownInfo }   -- UnknownInfo ::= NULL
enum : OSUINT32 {
    T_CertStatus_good = 1,
    T_CertStatus_revoked = 2,
    T_CertStatus_unknown = 3,
};

struct ASN1T_CertStatus {
    OSUINT32 t = 0;
    union {
        ASN1T_RevokedInfo* revoked;
    } u{};
};

// SingleResponse ::= SEQUENCE { certID ReqCert, certStatus CertStatus,
//        thisUpdate GeneralizedTime, nextUpdate [0] EXPLICIT GeneralizedTime OPTIONAL,
//        singleExtensions [1] EXPLICIT Extensions OPTIONAL }
struct ASN1T_SingleResponse {
    struct {
        unsigned nextUpdatePresent : 1;
        unsigned singleExtensionsPresent : 1;
    } m{};
    ASN1T_ReqCert certID;
    ASN1T_CertStatus certStatus;
    const char* thisUpdate = nullptr; // GeneralizedTime text
    const char* nextUpdate = nullptr; // GeneralizedTime text
    ASN1T_Extensions singleExtensions;
};

// SEQUENCE OF SingleResponse.
struct ASN1T__SeqOfSingleResponse : OSRTDList {};

// ResponseData ::= SEQUENCE { version [0] EXPLICIT Version DEFAULT v1,
//        responderID ResponderID, producedAt GeneralizedTime,
//        responses SEQUENCE OF SingleResponse,
//        responseExtensions [1] EXPLICIT Extensions OPTIONAL }
// The signed part of a basic response: like ASN1T_TBSRequest, a decoded ResponseData keeps
// its whole encoding in raw and is written back from it; with raw empty it is encoded from
// its fields.
struct ASN1T_ResponseData {
    struct {
        unsigned versionPresent : 1;
        unsigned responseExtensionsPresent : 1;
    } m{};
    OSINT32 version = 0; // v1 (0) is the DEFAULT and is not written
    ASN1T_ResponderID responderID;
    const char* producedAt = nullptr; // GeneralizedTime text
    ASN1T__SeqOfSingleResponse responses;
    ASN1T_Extensions responseExtensions;
    ASN1OpenType raw;
};

// BasicOCSPResponse ::= SEQUENCE { tbsResponseData ResponseData,
//        signatureAlgorithm AlgorithmIdentifier, signature BIT STRING,
//        certs [0] EXPLICIT SEQUENCE OF Certificate OPTIONAL }
struct ASN1T_BasicOCSPResponse {
    struct {
        unsigned certsPresent : 1;
    } m{};
    ASN1T_ResponseData tbsResponseData;
    ASN1T_AlgorithmIdentifier signatureAlgorithm;
    ASN1TDynBitStr signature;
    ASN1T__SeqOfCertificate certs;
};

// ---- Extension values of the OCSP arc -----------------------------------------------------

// CrlID ::= SEQUENCE { crlUrl [0] EXPLICIT IA5String OPTIONAL,
//        crlNum [1] EXPLICIT INTEGER OPTIONAL, crlTime [2] EXPLICIT GeneralizedTime OPTIONAL }
// crlNum is held unsigned: written as the positive INTEGER of its value (2^31 and above
// included), read back only when the INTEGER is minimal and in 0 .. 2^32 - 1.
struct ASN1T_CrlID {
    struct {
        unsigned crlUrlPresent : 1;
        unsigned crlNumPresent : 1;
        unsigned crlTimePresent : 1;
    } m{};
    const char* crlUrl = nullptr; // IA5String text
    OSUINT32 crlNum = 0;
    const char* crlTime = nullptr; // GeneralizedTime text
};

// AcceptableResponses ::= SEQUENCE OF OBJECT IDENTIFIER (elements are ASN1OBJID).
struct ASN1T_AcceptableResponses : OSRTDList {};

// ArchiveCutoff ::= GeneralizedTime
struct ASN1T_ArchiveCutoff {
    const char* value = nullptr; // GeneralizedTime text
};

// ServiceLocator ::= SEQUENCE { issuer Name, locator AuthorityInfoAccessSyntax OPTIONAL }
struct ASN1T_ServiceLocator {
    struct {
        unsigned locatorPresent : 1;
    } m{};
    ASN1T_Name issuer;
    ASN1T_AuthorityInfoAccessSyntax locator;
};

VELMOR_ASN1_DECLARE_TYPE(CertID, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(CertIdWithSignature, ASN1TAG_SEQUENCE);
// The CHOICE types take their tag from the selected alternative; tag is unused.
VELMOR_ASN1_DECLARE_TYPE(FullCertificate, 0);
VELMOR_ASN1_DECLARE_TYPE(ReqCert, 0);
VELMOR_ASN1_DECLARE_TYPE(Request, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(_SeqOfRequest, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(TBSRequest, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(Signature, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(OCSPRequest, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(ResponderID, 0);
VELMOR_ASN1_DECLARE_TYPE(RevokedInfo, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(CertStatus, 0);
VELMOR_ASN1_DECLARE_TYPE(SingleResponse, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(_SeqOfSingleResponse, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(ResponseData, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(BasicOCSPResponse, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(CrlID, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(AcceptableResponses, ASN1TAG_SEQUENCE);
VELMOR_ASN1_DECLARE_TYPE(ArchiveCutoff, ASN1TAG_GENERALIZEDTIME);
VELMOR_ASN1_DECLARE_TYPE(ServiceLocator, ASN1TAG_SEQUENCE);

// ---- Helpers of the OCSP codecs -----------------------------------------------------------

namespace Velmor::Asn1Rt {

// Reads a CHOICE alternative held by pointer: allocates it in the reader's context (a
// refusal is recorded there as RTERR_NOMEM) and lets readInto fill it.
template <class T, class F> void readAlternative(BerReader& r, T*& alternative, F&& readInto) {
    alternative = rtMemNew<T>(r.ctxt());
    if (alternative != nullptr) {
        readInto(r, *alternative);
    }
}

// Reads "[n] EXPLICIT T" into a CHOICE alternative held by pointer, allocated as above and
// read with readValue. The alternative's name goes into the path of a failure inside it.
template <class T>
void readExplicitAlternative(BerReader& r, OSUINT32 n, const char* name, T*& alternative) {
    readAlternative(r, alternative, [&](BerReader& rr, T& value) {
        readExplicit(rr, n, name, [&](BerReader& in) { readValue(in.at(name), value); });
    });
}

// Fails the decode at a CHOICE whose next element is none of its alternatives: where no
// element follows, with the status of a missing or cut-off element; else RTERR_IDNOTFOU.
inline void failChoice(BerReader& r, const char* what) {
    ElementHeader header;
    if (r.peekHeader(header)) {
        r.fail(RTERR_IDNOTFOU, what);
    }
}

// A CHOICE alternative held by pointer, as a field callable: *alternative written with
// writeValue (under tag when one is given); a null pointer is a caller's error, recorded as
// RTERR_INVPARAM with the text what.
template <class T>
VELMOR_ASN1_FORCE_INLINE inline auto alternativeField(const T* const& alternative,
                                                      const char* what) {
    return [&alternative, what](ASN1BEREncodeBuffer& b) VELMOR_ASN1_FORCE_INLINE {
        return alternative == nullptr ? b.fail(RTERR_INVPARAM, what) : writeValue(b, *alternative);
    };
}
template <class T>
VELMOR_ASN1_FORCE_INLINE inline auto alternativeField(const T* const& alternative, const char* what,
                                                      ASN1TAG tag) {
    return [&alternative, what, tag](ASN1BEREncodeBuffer& b) VELMOR_ASN1_FORCE_INLINE {
        return alternative == nullptr ? b.fail(RTERR_INVPARAM, what)
                                      : writeValue(b, *alternative, tag);
    };
}

// Deep copy of a CHOICE alternative held by pointer into ctxt: a null source gives null.
template <class T, class F> int copyAlternative(ASN1CTXT* ctxt, const T* from, T*& to, F&& copy) {
    to = nullptr;
    if (from == nullptr) {
        return ASN_OK;
    }
    T* made = rtMemNew<T>(ctxt);
    if (made == nullptr) {
        return RTERR_NOMEM;
    }
    to = made;
    return copy(ctxt, *from, *made);
}

} // namespace Velmor::Asn1Rt

#endif
