// CRequestMessage::sign and verify: the signature over the DER of tbsRequest.
#include "request/request_traits.h"

#include "platform/crypt_api.h"
#include "trace/trace_guard.h"

#include <pki/ocsp/atl_exception.h>

namespace Velmor::PKI::OCSP {

using namespace Velmor::Win32;

namespace {

// The hash of a signature algorithm, as CryptoAPI's OID table gives it; CRYPT_E_NOT_FOUND
// for an OID that is not a signature algorithm.
ALG_ID SignatureHashAlgId(const char* oid) {
    PCCRYPT_OID_INFO info =
        CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, oid, CRYPT_SIGN_ALG_OID_GROUP_ID);
    if (info == nullptr) {
        ATL::AtlThrow(CRYPT_E_NOT_FOUND);
    }
    return info->Algid;
}

} // namespace

void CRequestMessage::sign(std::uint64_t provider, unsigned long keySpec,
                           const ASN1::CAlgorithmIdentifierEx& algorithm, const CBlobList* certs) {
    Trace::Guard("CRequestMessage::sign", [&] {
        // Always a fresh encoding: the octets a decoded request arrived in are kept for
        // verify only.
        const CBlob tbs = m_data->EncodeTbsRequest();
        const ALG_ID hashAlgId = SignatureHashAlgId(algorithm.get_algorithm());
        m_data->signedPart.Sign(provider, keySpec, algorithm, hashAlgId, tbs);
        // Without a new list the certificates stored before stay.
        if (certs != nullptr) {
            m_data->certs.put(certs);
        }
    });
}

bool CRequestMessage::verify(const CBlob& signerCertificate) const {
    static constexpr char kMember[] = "CRequestMessage::verify";
    return Trace::Guard(kMember, [&] {
        const SignedPart& part = m_data->signedPart;
        if (!part.signature || !part.algorithm) {
            ATL::AtlThrow(E_INVALIDARG);
        }
        return part.Verify(kMember, signerCertificate, [&] { return m_data->EncodeTbsRequest(); });
    });
}

} // namespace Velmor::PKI::OCSP
