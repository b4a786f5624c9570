// Delegated signer checks with OpenSSL's X.509 code: the library's own certificate decoder
// gives the fields, but not the signature check of one certificate by another nor the
// extended key usage, which OpenSSL already implements.
#include "validation/delegate_checks.h"

#include <memory>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace Velmor::PKI::OCSP {

namespace {

struct X509Free {
    void operator()(X509* certificate) const noexcept { X509_free(certificate); }
};
using X509Ptr = std::unique_ptr<X509, X509Free>;

// The certificate in der, or null when the bytes are not exactly one certificate.
X509Ptr Parse(const CBlob& der) {
    const unsigned char* p = der.pbData();
    X509Ptr certificate(d2i_X509(nullptr, &p, static_cast<long>(der.cbData())));
    if (certificate && p != der.pbData() + der.cbData()) {
        certificate.reset();
    }
    return certificate;
}

bool IssuedBy(X509* signer, X509* issuer) {
    if (X509_check_issued(issuer, signer) != X509_V_OK) {
        return false;
    }
    EVP_PKEY* key = X509_get0_pubkey(issuer);
    return key != nullptr && X509_verify(signer, key) == 1;
}

bool OcspSigning(X509* signer) {
    // Without the extension OpenSSL reports every usage as allowed; a delegate must list
    // id-kp-OCSPSigning explicitly.
    const std::uint32_t flags = X509_get_extension_flags(signer);
    return (flags & EXFLAG_XKUSAGE) != 0 && (flags & EXFLAG_INVALID) == 0 &&
           (X509_get_extended_key_usage(signer) & XKU_OCSP_SIGN) != 0;
}

bool ValidAt(const X509* signer, std::int64_t time) {
    const auto when = static_cast<time_t>(time);
    const int afterStart = ASN1_TIME_cmp_time_t(X509_get0_notBefore(signer), when);
    const int beforeEnd = ASN1_TIME_cmp_time_t(X509_get0_notAfter(signer), when);
    // -2 is a time OpenSSL cannot read.
    return afterStart != -2 && afterStart <= 0 && beforeEnd != -2 && beforeEnd >= 0;
}

} // namespace

DelegateChecks CheckDelegate(const CBlob& signer, const CBlob& issuer, std::int64_t time) {
    ERR_set_mark();
    DelegateChecks checks;
    const X509Ptr signerCertificate = Parse(signer);
    if (signerCertificate) {
        const X509Ptr issuerCertificate = Parse(issuer);
        checks.issuedByIssuer =
            issuerCertificate && IssuedBy(signerCertificate.get(), issuerCertificate.get());
        checks.ocspSigning = OcspSigning(signerCertificate.get());
        checks.validAtTime = ValidAt(signerCertificate.get(), time);
    }
    ERR_pop_to_mark();
    return checks;
}

} // namespace Velmor::PKI::OCSP
