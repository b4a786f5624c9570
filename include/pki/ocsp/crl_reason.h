// Velmor::ASN1::CrlReason: why a certificate was revoked.
#ifndef VELMOR_PKI_OCSP_CRL_REASON_H
#define VELMOR_PKI_OCSP_CRL_REASON_H

#include <cstdint>

namespace Velmor::ASN1 {

// The CRLReason ENUMERATED values; 7 is not used.
enum CrlReason : std::int32_t {
    unspecified = 0,
    keyCompromise = 1,
    cACompromise = 2,
    affiliationChanged = 3,
    superseded = 4,
    cessationOfOperation = 5,
    certificateHold = 6,
    removeFromCRL = 8,
    privilegeWithdrawn = 9,
    aACompromise = 10
};

} // namespace Velmor::ASN1

#endif
