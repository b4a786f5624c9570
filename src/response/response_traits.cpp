// The basic response's fields to and from BasicOCSPResponse, ResponseData, ResponderID,
// SingleResponse and CertStatus structures.
#include "response/response_traits.h"

#include "certid/cert_id_traits.h"
#include "foundation/asn1_traits.h"
#include "foundation/codec_frame.h"
#include "foundation/list_access.h"

#include <list>
#include <pki/ocsp/atl_exception.h>
#include <stdexcept>
#include <utility>

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;
using namespace Velmor::Win32;
using Detail::Records;

// ---- CertStatus

void ASN1T_CertStatus_traits::set(ASN1CTXT* ctxt, ASN1T_CertStatus& out, const CCertStatus& value) {
    const auto& status = Records::Of(value);
    switch (status.type) {
    case CCertStatus::good:
        out.t = T_CertStatus_good;
        break;
    case CCertStatus::revoked: {
        auto* info = Codec::NewZ<ASN1T_RevokedInfo>(ctxt);
        ASN1GeneralizedTime_traits::set(ctxt, info->revocationTime, status.revocationTime);
        if (status.revocationReason) {
            info->m.revocationReasonPresent = 1;
            info->revocationReason = *status.revocationReason;
        }
        out.t = T_CertStatus_revoked;
        out.u.revoked = info;
        break;
    }
    default:
        out.t = T_CertStatus_unknown;
        break;
    }
}

void ASN1T_CertStatus_traits::get(const ASN1T_CertStatus& in, CCertStatus& value) {
    Records::Record<CCertStatus> status;
    if (in.t == T_CertStatus_good) {
        status.type = CCertStatus::good;
    } else if (in.t == T_CertStatus_revoked && in.u.revoked != nullptr) {
        const ASN1T_RevokedInfo& info = *in.u.revoked;
        status.type = CCertStatus::revoked;
        ASN1GeneralizedTime_traits::get(info.revocationTime, status.revocationTime);
        if (info.m.revocationReasonPresent) {
            status.revocationReason = static_cast<CrlReason>(info.revocationReason);
        }
    }
    Records::Of(value) = status;
}

// ---- SingleResponse

void ASN1T_SingleResponse_traits::set(ASN1CTXT* ctxt, ASN1T_SingleResponse& out,
                                      const CSingleResponse& value) {
    const auto& entry = Records::Of(value);
    ASN1T_ReqCert_traits::set(ctxt, out.certID, entry.reqCert);
    ASN1T_CertStatus_traits::set(ctxt, out.certStatus, entry.certStatus);
    ASN1GeneralizedTime_traits::set(ctxt, out.thisUpdate, entry.thisUpdate);
    if (entry.nextUpdate) {
        out.m.nextUpdatePresent = 1;
        ASN1GeneralizedTime_traits::set(ctxt, out.nextUpdate, *entry.nextUpdate);
    }
    out.m.singleExtensionsPresent =
        SetOptionalExtensions(ctxt, out.singleExtensions, entry.singleExtensions.get());
}

void ASN1T_SingleResponse_traits::get(const ASN1T_SingleResponse& in, CSingleResponse& value) {
    auto& entry = Records::Of(value);
    GetEntryReference(in.certID, entry.reqCert);
    ASN1T_CertStatus_traits::get(in.certStatus, entry.certStatus);
    ASN1GeneralizedTime_traits::get(in.thisUpdate, entry.thisUpdate);
    entry.nextUpdate.reset();
    if (in.m.nextUpdatePresent) {
        CDateTime nextUpdate;
        ASN1GeneralizedTime_traits::get(in.nextUpdate, nextUpdate);
        entry.nextUpdate = nextUpdate;
    }
    entry.singleExtensions =
        GetOptionalExtensions(in.m.singleExtensionsPresent, in.singleExtensions);
}

// ---- ResponderID

void ASN1T_ResponderID_traits::set(ASN1CTXT* ctxt, ASN1T_ResponderID& out,
                                   const CResponderID& value) {
    switch (value.get_type()) {
    case CResponderID::byName:
        out.t = T_ResponderID_byName;
        out.u.byName = Codec::NewZ<ASN1T_Name>(ctxt);
        ASN1T_Name_traits::set(ctxt, *out.u.byName, value.get_value());
        break;
    case CResponderID::byKey:
        out.t = T_ResponderID_byKey;
        out.u.byKey = Codec::NewZ<ASN1TDynOctStr>(ctxt);
        ASN1TDynOctStr_traits::set(ctxt, *out.u.byKey, value.get_value());
        break;
    default:
        ATL::AtlThrow(E_INVALIDARG);
    }
}

void ASN1T_ResponderID_traits::get(const ASN1T_ResponderID& in, CResponderID& value) {
    CBlob id;
    if (in.t == T_ResponderID_byName && in.u.byName != nullptr) {
        ASN1T_Name_traits::get(*in.u.byName, id);
        value = CResponderID(CResponderID::byName, std::move(id));
    } else if (in.t == T_ResponderID_byKey && in.u.byKey != nullptr) {
        ASN1TDynOctStr_traits::get(*in.u.byKey, id);
        value = CResponderID(CResponderID::byKey, std::move(id));
    } else {
        ATL::AtlThrow(E_INVALIDARG);
    }
}

// ---- ResponseData and BasicOCSPResponse

void ASN1T_ResponseData_traits::set(ASN1CTXT* ctxt, ASN1T_ResponseData& out, const Record& value) {
    if (value.version != v1) {
        out.m.versionPresent = 1;
        out.version = value.version;
    }
    ASN1T_ResponderID_traits::set(ctxt, out.responderID, value.responderID);
    ASN1GeneralizedTime_traits::set(ctxt, out.producedAt, value.producedAt);
    for (const CSingleResponse& entry : value.responses) {
        ASN1T_SingleResponse_traits::set(
            ctxt, Codec::AppendNew<ASN1T_SingleResponse>(ctxt, out.responses), entry);
    }
    out.m.responseExtensionsPresent =
        SetOptionalExtensions(ctxt, out.responseExtensions, value.responseExtensions.get());
}

void ASN1T_BasicOCSPResponse_traits::set(ASN1CTXT* ctxt, ASN1T_BasicOCSPResponse& out,
                                         const Record& value) {
    const SignedPart& part = value.signedPart;
    if (!part.signature || !part.algorithm) {
        ATL::AtlThrow(E_FAIL); // never signed nor decoded
    }
    ASN1T_ResponseData_traits::set(ctxt, out.tbsResponseData, value);
    ASN1T_AlgorithmIdentifier_traits::set(ctxt, out.signatureAlgorithm, *part.algorithm);
    ASN1TDynBitStr_traits::set(ctxt, out.signature, *part.signature);
    if (value.certs.get() && !value.certs.get()->empty()) {
        out.m.certsPresent = 1;
        ASN1T__SeqOfCertificate_traits::set(ctxt, out.certs, value.certs);
    }
}

namespace {

// What a decode takes out of the object before it converts anything, so that a conversion
// that fails part way leaves the object without them; their storage then serves the new
// values where it fits (an object decoded into again allocates little).
struct Taken {
    std::unique_ptr<CAlgorithmIdentifierEx> algorithm;
    std::unique_ptr<CBlob> signature;
    std::list<CSingleResponse> entries; // a plain list: a CDllList would allocate its own
    CBlob received;

    explicit Taken(ASN1T_BasicOCSPResponse_traits::Record& value) {
        algorithm.swap(value.signedPart.algorithm);
        signature.swap(value.signedPart.signature);
        entries.swap(Detail::UnderlyingList(value.responses));
        std::swap(received, value.signedPart.received);
        value.certs.reset();
        value.responseExtensions.reset();
    }

    template <class T> static std::unique_ptr<T> Reuse(std::unique_ptr<T>& taken) {
        return taken ? std::move(taken) : std::make_unique<T>();
    }
};

// Appends one entry per decoded SingleResponse, each converted in place: in an entry taken
// from spares while there are any, else in one the thread kept from a destroyed list, else
// in a new one. An entry whose conversion fails is
// removed again before the failure goes on.
void AppendResponses(const ASN1T__SeqOfSingleResponse& in, CSingleResponseList& list,
                     std::list<CSingleResponse>& spares) {
    if (in.count > list.max_size() - list.size()) {
        throw std::length_error("list<T> too long");
    }
    static const CCertStatus unknown;
    std::list<CSingleResponse>& entries = Detail::UnderlyingList(list);
    for (const OSRTDListNode* node = in.head; node != nullptr; node = node->next) {
        if (!spares.empty()) {
            entries.splice(entries.end(), spares, spares.begin());
        } else if (!Detail::EntryRecycler<CSingleResponse>::TakeOne(entries)) {
            entries.emplace_back(CReqCert(nullptr), unknown, CDateTime());
        }
        try {
            ASN1T_SingleResponse_traits::get(*static_cast<const ASN1T_SingleResponse*>(node->data),
                                             entries.back());
        } catch (...) {
            entries.pop_back();
            throw;
        }
    }
}

} // namespace

void ASN1T_BasicOCSPResponse_traits::get(const ASN1T_BasicOCSPResponse& in, Record& value) {
    Taken taken(value);

    const ASN1T_ResponseData& tbs = in.tbsResponseData;
    value.version = tbs.m.versionPresent ? static_cast<Version>(tbs.version) : v1;
    ASN1T_ResponderID_traits::get(tbs.responderID, value.responderID);
    ASN1GeneralizedTime_traits::get(tbs.producedAt, value.producedAt);
    AppendResponses(tbs.responses, value.responses, taken.entries);
    value.responseExtensions =
        GetOptionalExtensions(tbs.m.responseExtensionsPresent, tbs.responseExtensions);

    auto algorithm = Taken::Reuse(taken.algorithm);
    ASN1T_AlgorithmIdentifier_traits::get(in.signatureAlgorithm, *algorithm);
    value.signedPart.algorithm = std::move(algorithm);
    auto signature = Taken::Reuse(taken.signature);
    ASN1TDynBitStr_traits::get(in.signature, *signature);
    value.signedPart.signature = std::move(signature);
    if (in.m.certsPresent) {
        ASN1T__SeqOfCertificate_traits::get(in.certs, value.certs);
    }
    taken.received.assign(tbs.raw.data, tbs.raw.numocts);
    std::swap(value.signedPart.received, taken.received);
}

} // namespace Velmor::PKI::OCSP
