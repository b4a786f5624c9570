// CRequestMessage::sign and verify: the signature over the DER of tbsRequest.
#include "certid/message_signature.h"
#include "request/request_message_data.h"

#include <pki/ocsp/atl_exception.h>

namespace Velmor::PKI::OCSP {

void CRequestMessage::sign(std::uint64_t provider, unsigned long keySpec,
                           const ASN1::CAlgorithmIdentifierEx& algorithm, const CBlobList* certs) {
    // Always a fresh encoding: the octets a decoded request arrived in are kept for verify
    // only.
    const CBlob signature = SignData(provider, keySpec, algorithm, m_data->EncodeTbsRequest());
    m_data->signatureAlgorithm = std::make_unique<ASN1::CAlgorithmIdentifierEx>(algorithm);
    m_data->signature = std::make_unique<CBlob>(signature);
    // Without a new list the certificates stored before stay.
    if (certs != nullptr) {
        m_data->certs = std::make_unique<CBlobList>(*certs);
    }
}

bool CRequestMessage::verify(const CBlob& signerCertificate) const {
    if (!m_data->signature || !m_data->signatureAlgorithm) {
        ATL::AtlThrow(Win32::E_INVALIDARG);
    }
    // A decoded request is checked over the octets it arrived in, so that a BER tbsRequest
    // verifies; a request built or copied here over a fresh encoding.
    const CBlob& received = m_data->signedBytes;
    return VerifyData(signerCertificate, *m_data->signatureAlgorithm, *m_data->signature,
                      received.cbData() != 0 ? received : m_data->EncodeTbsRequest());
}

} // namespace Velmor::PKI::OCSP
