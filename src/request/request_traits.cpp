// The request's fields to and from OCSPRequest, TBSRequest and Request structures.
#include "request/request_traits.h"

#include "certid/cert_id_traits.h"
#include "foundation/asn1_traits.h"
#include "foundation/codec_frame.h"
#include "foundation/list_access.h"

#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/general_name.h>

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;
using namespace Velmor::Win32;
using Detail::Records;

void ASN1T_Request_traits::set(ASN1CTXT* ctxt, ASN1T_Request& out, const CSingleRequest& value) {
    const auto& record = Records::Of(value);
    ASN1T_ReqCert_traits::set(ctxt, out.reqCert, record.reqCert);
    out.m.singleRequestExtensionsPresent = SetOptionalExtensions(
        ctxt, out.singleRequestExtensions, record.singleRequestExtensions.get());
}

void ASN1T_Request_traits::get(const ASN1T_Request& in, CSingleRequest& value) {
    auto& record = Records::Of(value);
    GetEntryReference(in.reqCert, record.reqCert);
    record.singleRequestExtensions =
        GetOptionalExtensions(in.m.singleRequestExtensionsPresent, in.singleRequestExtensions);
}

namespace {

void SetRequestList(ASN1CTXT* ctxt, ASN1T__SeqOfRequest& out, const CSingleRequestList& list) {
    for (const CSingleRequest& request : list) {
        ASN1T_Request_traits::set(ctxt, Codec::AppendNew<ASN1T_Request>(ctxt, out), request);
    }
}

// Appends one entry per decoded Request, each converted in place: in one the thread kept
// from a destroyed list, else in a new one. An entry whose conversion fails is removed again.
void AppendRequestList(const ASN1T__SeqOfRequest& in, CSingleRequestList& list) {
    if (in.count > list.max_size() - list.size()) {
        throw std::length_error("list<T> too long");
    }
    std::list<CSingleRequest>& entries = Detail::UnderlyingList(list);
    for (const OSRTDListNode* node = in.head; node != nullptr; node = node->next) {
        if (!Detail::EntryRecycler<CSingleRequest>::TakeOne(entries)) {
            entries.emplace_back(CReqCert(nullptr));
        }
        try {
            ASN1T_Request_traits::get(*static_cast<const ASN1T_Request*>(node->data),
                                      entries.back());
        } catch (...) {
            entries.pop_back();
            throw;
        }
    }
}

void SetSignature(ASN1CTXT* ctxt, ASN1T_OCSPRequest& out,
                  const ASN1T_OCSPRequest_traits::Record& value) {
    const SignedPart& part = value.signedPart;
    if (!part.signature || part.signature->cbData() == 0) {
        return; // no signature, and so no certificates either
    }
    if (!part.algorithm) {
        ATL::AtlThrow(CRYPT_E_BAD_MSG);
    }
    out.m.optionalSignaturePresent = 1;
    ASN1T_Signature& signature = out.optionalSignature;
    ASN1T_AlgorithmIdentifier_traits::set(ctxt, signature.signatureAlgorithm, *part.algorithm);
    ASN1TDynBitStr_traits::set(ctxt, signature.signature, *part.signature);
    if (value.certs.get() && !value.certs.get()->empty()) {
        signature.m.certsPresent = 1;
        ASN1T__SeqOfCertificate_traits::set(ctxt, signature.certs, value.certs);
    }
}

void GetSignature(const ASN1T_Signature& in, ASN1T_OCSPRequest_traits::Record& value) {
    auto algorithm = std::make_unique<CAlgorithmIdentifierEx>();
    ASN1T_AlgorithmIdentifier_traits::get(in.signatureAlgorithm, *algorithm);
    auto signature = std::make_unique<CBlob>();
    ASN1TDynBitStr_traits::get(in.signature, *signature);
    if (in.m.certsPresent) {
        ASN1T__SeqOfCertificate_traits::get(in.certs, value.certs);
    }
    value.signedPart.algorithm = std::move(algorithm);
    value.signedPart.signature = std::move(signature);
}

} // namespace

void ASN1T_TBSRequest_traits::set(ASN1CTXT* ctxt, ASN1T_TBSRequest& tbs, const Record& value) {
    if (value.version != v1) {
        tbs.m.versionPresent = 1;
        tbs.version = value.version;
    }
    if (value.requestorName) {
        CGeneralName name;
        name.put_directoryName(*value.requestorName);
        ASN1T_GeneralName_traits::set(ctxt, tbs.requestorName, name);
        tbs.m.requestorNamePresent = 1;
    }
    SetRequestList(ctxt, tbs.requestList, value.requestList);
    tbs.m.requestExtensionsPresent =
        SetOptionalExtensions(ctxt, tbs.requestExtensions, value.requestExtensions.get());
}

void ASN1T_OCSPRequest_traits::set(ASN1CTXT* ctxt, ASN1T_OCSPRequest& out, const Record& value) {
    ASN1T_TBSRequest_traits::set(ctxt, out.tbsRequest, value);
    SetSignature(ctxt, out, value);
}

void ASN1T_OCSPRequest_traits::get(const ASN1T_OCSPRequest& in, Record& value) {
    const ASN1T_TBSRequest& tbs = in.tbsRequest;
    value.version = tbs.m.versionPresent ? static_cast<Version>(tbs.version) : v1;
    if (tbs.m.requestorNamePresent) {
        CGeneralName name;
        ASN1T_GeneralName_traits::get(tbs.requestorName, name);
        if (name.get_directoryName() == nullptr) {
            ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL); // only a directoryName names a requestor here
        }
        value.requestorName = Detail::MakeOwned<CBlob>(*name.get_directoryName());
    }
    AppendRequestList(tbs.requestList, value.requestList);
    value.requestExtensions =
        GetOptionalExtensions(tbs.m.requestExtensionsPresent, tbs.requestExtensions);
    if (in.m.optionalSignaturePresent) {
        GetSignature(in.optionalSignature, value);
        // Only a signature is checked over the octets as received; an unsigned request
        // that is signed later signs a fresh encoding.
        value.signedPart.received.assign(tbs.raw.data, tbs.raw.numocts);
    }
}

} // namespace Velmor::PKI::OCSP
