// Velmor::PKI::OCSP::CSingleRequest, one entry of a request's requestList, and
// CSingleRequestList, the list of them.
#ifndef VELMOR_PKI_OCSP_SINGLE_REQUEST_H
#define VELMOR_PKI_OCSP_SINGLE_REQUEST_H

#include <pki/ocsp/config.h>
#include <pki/ocsp/dll_list.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/req_cert.h>

namespace Velmor::PKI::OCSP {

// Which certificate's status is asked for, and the entry's own extensions (null when
// absent). The certificate reference is fixed at construction.
class VELMOR_OCSP_API CSingleRequest {
  public:
    // A CertID with every field empty, no extensions.
    CSingleRequest();
    explicit CSingleRequest(const CReqCert& reqCert);
    // Takes reqCert's alternative instead of copying it.
    explicit CSingleRequest(CReqCert&& reqCert);
    CSingleRequest(const CSingleRequest& other);
    CSingleRequest& operator=(const CSingleRequest& other);
    ~CSingleRequest();

    const CReqCert& get_reqCert() const;
    const ASN1::CExtensions* get_singleRequestExtensions() const;
    // Null removes the extensions; otherwise a copy replaces them. An empty list is kept
    // but not written.
    void put_singleRequestExtensions(const ASN1::CExtensions* extensions);

  private:
    friend struct Detail::Records;
    struct Data;
    void clear();

    Data* m_data;
};

} // namespace Velmor::PKI::OCSP

namespace Velmor {
extern template class VELMOR_OCSP_API CDllList<PKI::OCSP::CSingleRequest>;
}

namespace Velmor::PKI::OCSP {

class VELMOR_OCSP_API CSingleRequestList : public CDllList<CSingleRequest> {
  public:
    CSingleRequestList();
    CSingleRequestList(const CSingleRequestList& other);
    CSingleRequestList& operator=(const CSingleRequestList& other);
    ~CSingleRequestList();
};

} // namespace Velmor::PKI::OCSP

#endif
