// What the validator tests build: fixture certificates, basic responses signed here with the
// fixture keys (and decoded again, so that the validator sees received bytes), and delegate
// certificates made with OpenSSL whose validity, extended key usage and issuer are chosen by
// the test.
#ifndef VELMOR_TESTS_VALIDATION_VALIDATION_BUILDERS_H
#define VELMOR_TESTS_VALIDATION_VALIDATION_BUILDERS_H

#include <cstdint>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/crypt_provider.h>
#include <pki/ocsp/response_validator.h>
#include <string>

#include "support/test_support.h"

namespace velmor_test {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

inline const char* const kSha1 = "1.3.14.3.2.26";
inline const char* const kSha256 = "2.16.840.1.101.3.4.2.1";
inline const char* const kNonceOid = "1.3.6.1.5.5.7.48.1.2";

// 2027-01-01T00:00:00Z: inside the validity of every fixture certificate.
inline const CDateTime kNow(1798761600, 0);
constexpr std::int64_t kDay = 86400;

inline CDateTime At(std::int64_t secondsFromNow) {
    return CDateTime(kNow.seconds() + secondsFromNow, 0);
}

inline CBlob Pki(const std::string& family, const std::string& name) {
    return CBlob(ReadData("pki/" + family + "/" + name + ".der"));
}
inline std::string KeyPath(const std::string& family, const std::string& name) {
    return DataPath("pki/" + family + "/" + name + ".key.pem");
}

// The CertID entry of a fixture certificate under a fixture issuer, SHA-1 with NULL
// parameters unless told otherwise.
inline CReqCert CertIdOf(const std::string& family, const std::string& name,
                         const std::string& issuer = "inter", const char* hash = kSha1) {
    const CBlob null = BlobOf("0500");
    return CReqCert(
        CCertID(ASN1::CAlgorithmIdentifierEx(hash, &null), Pki(family, name), Pki(family, issuer)));
}

inline CSingleResponse Entry(const CReqCert& certificate, const CCertStatus& status,
                             const CDateTime& thisUpdate, const CDateTime* nextUpdate) {
    CSingleResponse entry(certificate, status, thisUpdate);
    entry.put_nextUpdate(nextUpdate);
    return entry;
}

inline CCertStatus Good() {
    CCertStatus status;
    status.put_good();
    return status;
}

// A nonce extension list with the value given in hex.
inline ASN1::CExtensions NonceExtensions(const std::string& hex) {
    ASN1::CExtensions extensions;
    extensions.push_back(ASN1::CExtension(kNonceOid, false, BlobOf(hex)));
    return extensions;
}

// The short names of the failure bits joined by commas, "none" for no bit: a mismatch in a
// test then reads as the checks' names.
std::string FailureText(std::uint32_t failures);

// A response signed with the private key in keyPath (RSA with SHA-256, or ECDSA with SHA-256
// for family "ec"), encoded and decoded again.
CBasicResponse SignedResponse(const std::string& family, const std::string& keyPath,
                              const CResponderID& responderId, const CSingleResponseList& entries,
                              const CBlobList* certs, const ASN1::CExtensions* extensions);

// A certificate for the public key of keyPath, issued in the name of issuerName's subject and
// signed with signingKey's key (both fixtures of family), valid from notBefore to notAfter,
// with extendedKeyUsage id-kp-OCSPSigning when ocspSigning holds and no such extension
// otherwise.
struct DelegateProfile {
    std::string family = "rsa";
    std::string keyPath = {};
    std::string issuerName = "inter";
    std::string signingKey = "inter";
    std::int64_t notBefore = kNow.seconds() - 30 * kDay;
    std::int64_t notAfter = kNow.seconds() + 30 * kDay;
    bool ocspSigning = true;
};
CBlob MakeDelegate(const DelegateProfile& profile);

} // namespace velmor_test

#endif
