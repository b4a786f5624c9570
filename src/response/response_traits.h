// Converters between the basic response classes and their ASN.1 structures, and the private
// records they fill.
#ifndef VELMOR_SRC_RESPONSE_RESPONSE_TRAITS_H
#define VELMOR_SRC_RESPONSE_RESPONSE_TRAITS_H

#include "asn1/ocsp_types.h"
#include "foundation/certificate_list.h"
#include "foundation/entry_recycler.h"
#include "foundation/value_record.h"
#include "message/signed_part.h"

#include <memory>
#include <optional>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/responder_id.h>
#include <pki/ocsp/single_response.h>

namespace Velmor::PKI::OCSP {

// The optional fields of the entry classes live inside their records: a getter's pointer
// stays valid until the field is changed.
struct VELMOR_OCSP_LOCAL CCertStatus::Data : Detail::PooledRecord {
    Type type = unknown;
    CDateTime revocationTime;
    std::optional<ASN1::CrlReason> revocationReason;
};

struct VELMOR_OCSP_LOCAL CSingleResponse::Data : Detail::PooledRecord {
    CReqCert reqCert;
    CCertStatus certStatus;
    CDateTime thisUpdate;
    std::optional<CDateTime> nextUpdate;
    Detail::Owned<ASN1::CExtensions> singleExtensions;

    Data() : reqCert(CReqCert::certificate, CBlob()) {}
    Data(const CReqCert& cert, const CCertStatus& status, const CDateTime& time)
        : reqCert(cert), certStatus(status), thisUpdate(time) {}
    Data(CReqCert&& cert, const CCertStatus& status, const CDateTime& time)
        : reqCert(std::move(cert)), certStatus(status), thisUpdate(time) {}
    Data(const Data& other)
        : reqCert(other.reqCert), certStatus(other.certStatus), thisUpdate(other.thisUpdate),
          nextUpdate(other.nextUpdate),
          singleExtensions(Detail::OwnedCopyOf(other.singleExtensions.get())) {}
};

} // namespace Velmor::PKI::OCSP

// A decoded response's entries are overwritten field by field: spare ones are reused.
template <>
struct Velmor::Detail::RecyclesEntries<Velmor::PKI::OCSP::CSingleResponse> : std::true_type {};

namespace Velmor::PKI::OCSP {

struct VELMOR_OCSP_LOCAL CBasicResponse::Data : Detail::PooledRecord {
    Version version = v1;
    CDateTime producedAt;
    CResponderID responderID;
    // The signature, its algorithm and the tbsResponseData as received.
    SignedPart signedPart;
    CSingleResponseList responses;
    CertificateList certs;
    Detail::Owned<ASN1::CExtensions> responseExtensions;

    Data() = default;
    Data(const CDateTime& produced, const CResponderID& responder)
        : producedAt(produced), responderID(responder) {}
    // Every field but the received tbsResponseData (see SignedPart).
    Data(const Data& other);

    // The DER of tbsResponseData alone, written from the fields: the octets that are signed.
    CBlob EncodeTbsResponseData() const;
};

// set: good, revoked (with its RevokedInfo) or unknown. get replaces the whole status: a
// selector other than good or revoked is read as unknown.
struct ASN1T_CertStatus_traits {
    using Type = ASN1T_CertStatus;
    static void set(ASN1CTXT* ctxt, ASN1T_CertStatus& out, const CCertStatus& value);
    static void get(const ASN1T_CertStatus& in, CCertStatus& value);
};

// One entry. set leaves an empty extension list off the wire; get replaces every field of
// value, a present extension list staying present even when empty.
struct ASN1T_SingleResponse_traits {
    using Type = ASN1T_SingleResponse;
    static void set(ASN1CTXT* ctxt, ASN1T_SingleResponse& out, const CSingleResponse& value);
    static void get(const ASN1T_SingleResponse& in, CSingleResponse& value);
};

// set throws E_INVALIDARG for a type other than byName and byKey; get for a selector other
// than byName and byKey. get changes value only once the new value is complete.
struct ASN1T_ResponderID_traits {
    using Type = ASN1T_ResponderID;
    static void set(ASN1CTXT* ctxt, ASN1T_ResponderID& out, const CResponderID& value);
    static void get(const ASN1T_ResponderID& in, CResponderID& value);
};

// tbsResponseData alone, written from the fields (never from octets kept by a decode).
struct ASN1T_ResponseData_traits {
    using Type = ASN1T_ResponseData;
    using Record = Detail::Records::Record<CBasicResponse>;
    static void set(ASN1CTXT* ctxt, ASN1T_ResponseData& out, const Record& value);
};

// The whole basic response. set throws E_FAIL for a response without signature. get first
// drops the signature, certificates, response extensions and entries of value, then fills
// every field in turn and keeps the received tbsResponseData: a conversion that fails part
// way leaves value partly replaced.
struct ASN1T_BasicOCSPResponse_traits {
    using Type = ASN1T_BasicOCSPResponse;
    using Record = Detail::Records::Record<CBasicResponse>;
    static void set(ASN1CTXT* ctxt, ASN1T_BasicOCSPResponse& out, const Record& value);
    static void get(const ASN1T_BasicOCSPResponse& in, Record& value);
};

} // namespace Velmor::PKI::OCSP

#endif
