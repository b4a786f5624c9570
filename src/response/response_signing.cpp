// CBasicResponse::sign and verify: the signature over the DER of tbsResponseData.
#include "response/response_traits.h"
#include "trace/trace_guard.h"

#include <pki/ocsp/atl_exception.h>

namespace Velmor::PKI::OCSP {

void CBasicResponse::sign(std::uint64_t provider, unsigned long keySpec,
                          const ASN1::CAlgorithmIdentifierEx& algorithm) {
    Trace::Guard("CBasicResponse::sign", [&] {
        // Always a fresh encoding: the octets a decoded response arrived in are kept for
        // verify only.
        const CBlob tbs = m_data->EncodeTbsResponseData();
        // The hash comes from the algorithm's own cache, filled from CryptoAPI's OID table
        // when empty. An OID without an ALG_ID gives 0, which hash creation refuses.
        const Win32::ALG_ID hashAlgId = algorithm.get_algId();
        m_data->signedPart.Sign(provider, keySpec, algorithm, hashAlgId, tbs);
    });
}

bool CBasicResponse::verify(const CBlob& responderCertificate) const {
    static constexpr char kMember[] = "CBasicResponse::verify";
    return Trace::Guard(kMember, [&] {
        const SignedPart& part = m_data->signedPart;
        if (!part.signature || !part.algorithm) {
            ATL::AtlThrow(Win32::E_FAIL);
        }
        return part.Verify(kMember, responderCertificate,
                           [&] { return m_data->EncodeTbsResponseData(); });
    });
}

} // namespace Velmor::PKI::OCSP
