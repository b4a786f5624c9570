// CSingleRequest and its list.
#include <pki/ocsp/single_request.h>

#include "foundation/dll_list_impl.h"
#include "request/request_traits.h"

#include <list>
#include <memory>
#include <utility>

namespace Velmor::PKI::OCSP {

using ASN1::CExtensions;

struct CSingleRequest::Data {
    CReqCert reqCert;
    std::unique_ptr<CExtensions> singleRequestExtensions;

    Data() = default;
    explicit Data(const CReqCert& cert) : reqCert(cert) {}
    explicit Data(CReqCert&& cert) noexcept : reqCert(std::move(cert)) {}
    Data(const Data& other)
        : reqCert(other.reqCert),
          singleRequestExtensions(CopyOf(other.singleRequestExtensions.get())) {}
};

CSingleRequest::CSingleRequest() : m_data(new Data()) {}

CSingleRequest::CSingleRequest(const CReqCert& reqCert) : m_data(new Data(reqCert)) {}

CSingleRequest::CSingleRequest(CReqCert&& reqCert) : m_data(new Data(std::move(reqCert))) {}

CSingleRequest::CSingleRequest(const CSingleRequest& other) : m_data(new Data(*other.m_data)) {}

CSingleRequest& CSingleRequest::operator=(const CSingleRequest& other) {
    if (this != &other) {
        Data* copy = new Data(*other.m_data);
        clear();
        m_data = copy;
    }
    return *this;
}

CSingleRequest::~CSingleRequest() { clear(); }

void CSingleRequest::clear() {
    delete m_data;
    m_data = nullptr;
}

const CReqCert& CSingleRequest::get_reqCert() const { return m_data->reqCert; }

const CExtensions* CSingleRequest::get_singleRequestExtensions() const {
    return m_data->singleRequestExtensions.get();
}

void CSingleRequest::put_singleRequestExtensions(const CExtensions* extensions) {
    m_data->singleRequestExtensions = CopyOf(extensions);
}

void ASN1T_Request_set(ASN1CTXT* ctxt, ASN1T_Request& out, const CSingleRequest& request) {
    ASN1T_ReqCert_set(ctxt, out.reqCert, request.get_reqCert());
    const CExtensions* extensions = request.get_singleRequestExtensions();
    if (extensions != nullptr && !extensions->empty()) {
        out.m.singleRequestExtensionsPresent = 1;
        ASN1::ASN1T_Extensions_traits::set(ctxt, out.singleRequestExtensions, *extensions);
    }
}

namespace {

// Appends the entry naming reqCert, with a copy of extensions when they are present (even
// when empty).
CSingleRequest& AppendEntry(std::list<CSingleRequest>& list, CReqCert&& reqCert,
                            const CExtensions* extensions) {
    CSingleRequest& request = list.emplace_back(std::move(reqCert));
    if (extensions != nullptr) {
        request.put_singleRequestExtensions(extensions);
    }
    return request;
}

} // namespace

CSingleRequest& ASN1T_Request_append(const ASN1T_Request& in, std::list<CSingleRequest>& list) {
    CReqCert reqCert(nullptr);
    ASN1T_ReqCert_get(in.reqCert, reqCert);
    if (reqCert.get_certID() == nullptr && reqCert.get_fullCertType() == nullptr &&
        reqCert.get_certIdWithSignature() == nullptr) {
        // A choice the decoder did not fill leaves the entry an empty full certificate.
        reqCert = CReqCert(CReqCert::certificate, CBlob());
    }
    if (!in.m.singleRequestExtensionsPresent) {
        return AppendEntry(list, std::move(reqCert), nullptr);
    }
    CExtensions extensions;
    ASN1::ASN1T_Extensions_traits::get(in.singleRequestExtensions, extensions);
    return AppendEntry(list, std::move(reqCert), &extensions);
}

bool ReadDerRequestEntry(Asn1Rt::DerCursor& in, std::list<CSingleRequest>& list) {
    Asn1Rt::DerCursor seq;
    CReqCert reqCert(nullptr);
    if (!in.read(Asn1Rt::kDerSequence, seq) || !ReadDerReqCert(seq, reqCert)) {
        return false;
    }
    if (seq.empty()) {
        AppendEntry(list, std::move(reqCert), nullptr);
        return true;
    }
    CExtensions extensions;
    if (!ASN1::ReadDerExplicitExtensions(seq, 0, extensions) || !seq.empty()) {
        return false;
    }
    AppendEntry(list, std::move(reqCert), &extensions);
    return true;
}

CSingleRequestList::CSingleRequestList() = default;
CSingleRequestList::CSingleRequestList(const CSingleRequestList& other) = default;
CSingleRequestList& CSingleRequestList::operator=(const CSingleRequestList& other) = default;
CSingleRequestList::~CSingleRequestList() = default;

} // namespace Velmor::PKI::OCSP

namespace Velmor {
template class CDllList<PKI::OCSP::CSingleRequest>;
}
