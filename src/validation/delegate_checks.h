// The checks a delegated OCSP signer's certificate must pass, on OpenSSL's certificate
// parser: issued by the CA it answers for, entitled to sign OCSP responses, valid at the
// validation time.
#ifndef VELMOR_SRC_VALIDATION_DELEGATE_CHECKS_H
#define VELMOR_SRC_VALIDATION_DELEGATE_CHECKS_H

#include <cstdint>
#include <pki/ocsp/blob.h>

namespace Velmor::PKI::OCSP {

struct DelegateChecks {
    // The signer's issuer Name is the issuer's subject, a present authority key identifier
    // names the issuer's key, the issuer may sign certificates (when it has a keyUsage), and
    // the signer's signature verifies with the issuer's public key.
    bool issuedByIssuer = false;
    // An extendedKeyUsage extension is present and lists id-kp-OCSPSigning.
    bool ocspSigning = false;
    // notBefore <= time <= notAfter.
    bool validAtTime = false;
};

// Each check of signer (DER) against issuer (DER) at time (seconds since 1970). A signer
// that OpenSSL cannot parse fails every check; an issuer it cannot parse fails the first.
// OpenSSL's error queue is left as it was found.
DelegateChecks CheckDelegate(const CBlob& signer, const CBlob& issuer, std::int64_t time);

} // namespace Velmor::PKI::OCSP

#endif
