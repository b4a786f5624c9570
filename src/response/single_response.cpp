// CCertStatus, CSingleResponse and the list of entries.
#include <pki/ocsp/single_response.h>

#include "foundation/dll_list_impl.h"
#include "response/response_traits.h"

#include <utility>

namespace Velmor::PKI::OCSP {

using ASN1::CExtensions;
using ASN1::CrlReason;
using Detail::Records;

// ---- CCertStatus

CCertStatus::CCertStatus() { Records::Make(*this); }

CCertStatus::CCertStatus(const CDateTime& revocationTime, const CrlReason* reason) {
    Records::Make(*this);
    put_revoked(revocationTime, reason);
}

CCertStatus::CCertStatus(const CCertStatus& other) { Records::Make(*this, *other.m_data); }

CCertStatus& CCertStatus::operator=(const CCertStatus& other) {
    Records::Assign(*this, other);
    return *this;
}

CCertStatus::~CCertStatus() { Records::Destroy(*this); }

bool CCertStatus::isGood() const { return m_data->type == good; }
bool CCertStatus::isRevoked() const { return m_data->type == revoked; }
bool CCertStatus::isUnknown() const { return m_data->type == unknown; }
CCertStatus::Type CCertStatus::get_type() const { return m_data->type; }

const CDateTime* CCertStatus::get_revocationTime() const {
    return isRevoked() ? &m_data->revocationTime : nullptr;
}

const CrlReason* CCertStatus::get_revocationReason() const {
    return isRevoked() && m_data->revocationReason ? &*m_data->revocationReason : nullptr;
}

void CCertStatus::put_good() { m_data->type = good; }
void CCertStatus::put_unknown() { m_data->type = unknown; }

void CCertStatus::put_revoked(const CDateTime& time, const CrlReason* reason) {
    m_data->type = revoked;
    m_data->revocationTime = time;
    m_data->revocationReason.reset();
    if (reason != nullptr) {
        m_data->revocationReason = *reason;
    }
}

// ---- CSingleResponse

CSingleResponse::CSingleResponse() { Records::Make(*this); }

CSingleResponse::CSingleResponse(const CReqCert& reqCert, const CCertStatus& certStatus,
                                 const CDateTime& thisUpdate) {
    Records::Make(*this, reqCert, certStatus, thisUpdate);
}

CSingleResponse::CSingleResponse(CReqCert&& reqCert, const CCertStatus& certStatus,
                                 const CDateTime& thisUpdate) {
    Records::Make(*this, std::move(reqCert), certStatus, thisUpdate);
}

CSingleResponse::CSingleResponse(const CSingleResponse& other) {
    Records::Make(*this, *other.m_data);
}

CSingleResponse& CSingleResponse::operator=(const CSingleResponse& other) {
    Records::Assign(*this, other);
    return *this;
}

CSingleResponse::~CSingleResponse() { Records::Destroy(*this); }

const CReqCert& CSingleResponse::get_reqCert() const { return m_data->reqCert; }
const CCertStatus& CSingleResponse::get_certStatus() const { return m_data->certStatus; }
const CDateTime& CSingleResponse::get_thisUpdate() const { return m_data->thisUpdate; }

const CDateTime* CSingleResponse::get_nextUpdate() const {
    return m_data->nextUpdate ? &*m_data->nextUpdate : nullptr;
}

const CExtensions* CSingleResponse::get_singleExtensions() const {
    return m_data->singleExtensions.get();
}

void CSingleResponse::put_nextUpdate(const CDateTime* nextUpdate) {
    m_data->nextUpdate.reset();
    if (nextUpdate != nullptr) {
        m_data->nextUpdate = *nextUpdate;
    }
}

void CSingleResponse::put_singleExtensions(const CExtensions* singleExtensions) {
    m_data->singleExtensions = Detail::OwnedCopyOf(singleExtensions);
}

CSingleResponseList::CSingleResponseList() = default;
CSingleResponseList::CSingleResponseList(const CSingleResponseList& other) = default;
CSingleResponseList& CSingleResponseList::operator=(const CSingleResponseList& other) = default;
CSingleResponseList::~CSingleResponseList() = default;

} // namespace Velmor::PKI::OCSP

namespace Velmor {
template class CDllList<PKI::OCSP::CSingleResponse>;
}
