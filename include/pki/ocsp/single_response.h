// Velmor::PKI::OCSP::CCertStatus, what a responder knows of one certificate;
// CSingleResponse, one entry of a basic response; and CSingleResponseList, the list of them.
#ifndef VELMOR_PKI_OCSP_SINGLE_RESPONSE_H
#define VELMOR_PKI_OCSP_SINGLE_RESPONSE_H

#include <cstdint>
#include <pki/ocsp/config.h>
#include <pki/ocsp/crl_reason.h>
#include <pki/ocsp/datetime.h>
#include <pki/ocsp/dll_list.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/req_cert.h>

namespace Velmor::PKI::OCSP {

// Good, revoked (at a time, with an optional reason) or unknown.
class VELMOR_OCSP_API CCertStatus {
  public:
    enum Type : std::int32_t {
        good = 0,
        revoked = 1,
        unknown = 2,
    };

    // unknown, with a zero revocation time and no reason: knowing nothing is the starting
    // state, not good.
    CCertStatus();
    // revoked at revocationTime, with a copy of *reason, or without a reason when null.
    CCertStatus(const CDateTime& revocationTime, const ASN1::CrlReason* reason);
    CCertStatus(const CCertStatus& other);
    CCertStatus& operator=(const CCertStatus& other);
    ~CCertStatus();

    bool isGood() const;
    bool isRevoked() const;
    bool isUnknown() const;
    Type get_type() const;
    // The revocation time; null unless the status is revoked.
    const CDateTime* get_revocationTime() const;
    // The reason; null unless the status is revoked with a reason.
    const ASN1::CrlReason* get_revocationReason() const;

    // Change the kind only. An earlier revocation time and reason stay inside, out of reach
    // of the getters (and carried along by copies), until put_revoked replaces both.
    void put_good();
    void put_unknown();
    // revoked at time; the reason becomes a copy of *reason, or absent when null.
    void put_revoked(const CDateTime& time, const ASN1::CrlReason* reason);

  private:
    friend struct Detail::Records;
    struct Data;
    Data* m_data;
};

// One entry of a basic response: which certificate, its status, when that status was known
// to be correct (thisUpdate), optionally when newer information will be available
// (nextUpdate), and the entry's own extensions. The certificate reference, the status and
// thisUpdate are fixed at construction.
class VELMOR_OCSP_API CSingleResponse {
  public:
    // A reference by full certificate of type certificate with an empty certificate (unlike
    // a default CReqCert, which is an empty CertID), status unknown, a zero thisUpdate, no
    // nextUpdate and no extensions. Such an entry cannot be encoded until it is replaced.
    CSingleResponse();
    CSingleResponse(const CReqCert& reqCert, const CCertStatus& certStatus,
                    const CDateTime& thisUpdate);
    // The same, taking reqCert's alternative instead of copying it.
    CSingleResponse(CReqCert&& reqCert, const CCertStatus& certStatus, const CDateTime& thisUpdate);
    CSingleResponse(const CSingleResponse& other);
    CSingleResponse& operator=(const CSingleResponse& other);
    ~CSingleResponse();

    const CReqCert& get_reqCert() const;
    const CCertStatus& get_certStatus() const;
    const CDateTime& get_thisUpdate() const;
    // Null when absent.
    const CDateTime* get_nextUpdate() const;
    const ASN1::CExtensions* get_singleExtensions() const;
    // Null removes the field; otherwise a copy replaces it. An empty extension list is kept
    // but not written.
    void put_nextUpdate(const CDateTime* nextUpdate);
    void put_singleExtensions(const ASN1::CExtensions* singleExtensions);

  private:
    friend struct Detail::Records;
    struct Data;
    Data* m_data;
};

} // namespace Velmor::PKI::OCSP

namespace Velmor {
extern template class VELMOR_OCSP_API CDllList<PKI::OCSP::CSingleResponse>;
}

namespace Velmor::PKI::OCSP {

class VELMOR_OCSP_API CSingleResponseList : public CDllList<CSingleResponse> {
  public:
    CSingleResponseList();
    CSingleResponseList(const CSingleResponseList& other);
    CSingleResponseList& operator=(const CSingleResponseList& other);
    ~CSingleResponseList();
};

} // namespace Velmor::PKI::OCSP

#endif
