// CSingleRequest and its list.
#include <pki/ocsp/single_request.h>

#include "foundation/dll_list_impl.h"
#include "request/request_traits.h"

#include <utility>

namespace Velmor::PKI::OCSP {

using ASN1::CExtensions;
using Detail::Records;

CSingleRequest::CSingleRequest() { Records::Make(*this); }

CSingleRequest::CSingleRequest(const CReqCert& reqCert) { Records::Make(*this, reqCert); }

CSingleRequest::CSingleRequest(CReqCert&& reqCert) { Records::Make(*this, std::move(reqCert)); }

CSingleRequest::CSingleRequest(const CSingleRequest& other) { Records::Make(*this, *other.m_data); }

CSingleRequest& CSingleRequest::operator=(const CSingleRequest& other) {
    Records::Assign(*this, other);
    return *this;
}

CSingleRequest::~CSingleRequest() { clear(); }

void CSingleRequest::clear() { Records::Destroy(*this); }

const CReqCert& CSingleRequest::get_reqCert() const { return m_data->reqCert; }

const CExtensions* CSingleRequest::get_singleRequestExtensions() const {
    return m_data->singleRequestExtensions.get();
}

void CSingleRequest::put_singleRequestExtensions(const CExtensions* extensions) {
    m_data->singleRequestExtensions = Detail::OwnedCopyOf(extensions);
}

CSingleRequestList::CSingleRequestList() = default;
CSingleRequestList::CSingleRequestList(const CSingleRequestList& other) = default;
CSingleRequestList& CSingleRequestList::operator=(const CSingleRequestList& other) = default;
CSingleRequestList::~CSingleRequestList() = default;

} // namespace Velmor::PKI::OCSP

namespace Velmor {
template class CDllList<PKI::OCSP::CSingleRequest>;
}
