// Converters between the request classes and their ASN.1 structures, and the private records
// they fill.
#ifndef VELMOR_SRC_REQUEST_REQUEST_TRAITS_H
#define VELMOR_SRC_REQUEST_REQUEST_TRAITS_H

#include "asn1/ocsp_types.h"
#include "foundation/certificate_list.h"
#include "foundation/entry_recycler.h"
#include "foundation/value_record.h"
#include "message/signed_part.h"

#include <memory>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/single_request.h>

namespace Velmor::PKI::OCSP {

struct VELMOR_OCSP_LOCAL CSingleRequest::Data : Detail::PooledRecord {
    CReqCert reqCert;
    Detail::Owned<ASN1::CExtensions> singleRequestExtensions;

    Data() = default;
    explicit Data(const CReqCert& cert) : reqCert(cert) {}
    explicit Data(CReqCert&& cert) noexcept : reqCert(std::move(cert)) {}
    Data(const Data& other)
        : reqCert(other.reqCert),
          singleRequestExtensions(Detail::OwnedCopyOf(other.singleRequestExtensions.get())) {}
};

} // namespace Velmor::PKI::OCSP

// A decoded request's entries are overwritten field by field: spare ones are reused.
template <>
struct Velmor::Detail::RecyclesEntries<Velmor::PKI::OCSP::CSingleRequest> : std::true_type {};

namespace Velmor::PKI::OCSP {

struct VELMOR_OCSP_LOCAL CRequestMessage::Data : Detail::PooledRecord {
    Version version = v1;
    CSingleRequestList requestList;
    Detail::Owned<CBlob> requestorName;
    Detail::Owned<ASN1::CExtensions> requestExtensions;
    // The signature, its algorithm and the tbsRequest as received.
    SignedPart signedPart;
    CertificateList certs;

    Data() = default;
    // Every field but the received tbsRequest (see SignedPart).
    Data(const Data& other);
    // Exchanges every field with other, without allocating.
    void swap(Data& other) noexcept;
    // Whether every field has its default value (a new or cleared-out request).
    bool holdsNothing() const noexcept;
    // Gives every field its default value; the list object of requestList stays.
    void dropAll() noexcept;

    // The DER of tbsRequest alone: the octets that are signed.
    CBlob EncodeTbsRequest() const;
};

// One entry of the requestList.
struct ASN1T_Request_traits {
    using Type = ASN1T_Request;
    static void set(ASN1CTXT* ctxt, ASN1T_Request& out, const CSingleRequest& value);
    // Replaces value's reference and extensions with the decoded ones.
    static void get(const ASN1T_Request& in, CSingleRequest& value);
};

// The to-be-signed part alone: what sign() signs and verify() checks for a request that
// keeps no received octets.
struct ASN1T_TBSRequest_traits {
    using Type = ASN1T_TBSRequest;
    using Record = Detail::Records::Record<CRequestMessage>;
    static void set(ASN1CTXT* ctxt, ASN1T_TBSRequest& out, const Record& value);
};

// The whole request. set fills tbsRequest and, when there is a signature, the
// optionalSignature (CRYPT_E_BAD_MSG for a signature without algorithm). get replaces every
// field of value but the entries, which it appends to value's list.
struct ASN1T_OCSPRequest_traits {
    using Type = ASN1T_OCSPRequest;
    using Record = Detail::Records::Record<CRequestMessage>;
    static void set(ASN1CTXT* ctxt, ASN1T_OCSPRequest& out, const Record& value);
    static void get(const ASN1T_OCSPRequest& in, Record& value);
};

} // namespace Velmor::PKI::OCSP

#endif
