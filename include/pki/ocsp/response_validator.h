// Velmor::PKI::OCSP::CResponseValidator: whether a client may accept a basic response as the
// answer about one certificate, and CValidationResult, what it found, check by check.
#ifndef VELMOR_PKI_OCSP_RESPONSE_VALIDATOR_H
#define VELMOR_PKI_OCSP_RESPONSE_VALIDATOR_H

#include <chrono>
#include <cstdint>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/config.h>
#include <pki/ocsp/datetime.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/single_response.h>
#include <string>
#include <vector>

namespace Velmor::PKI::OCSP {

// The outcome of one validation: a bit for every check that failed (0 when the response may
// be accepted), the entry that answers about the certificate and the certificate that signed
// the response. docs/validator.md gives the rules behind each bit.
class VELMOR_OCSP_API CValidationResult {
  public:
    // One bit per check. Several may be set at once; checks that need an earlier step (the
    // signer, the entry) are skipped when that step failed, and then set no bit.
    enum Failure : std::uint32_t {
        // The signature does not verify over the received tbsResponseData with the signer's
        // key (also for a response without signature).
        signatureInvalid = 1u << 0,
        // No candidate certificate is named by the responder ID or verifies the signature:
        // the signature, the responder ID and the signer's authority were not checked.
        signerNotFound = 1u << 1,
        // The signer is neither the issuer nor a trusted responder, and the issuer did not
        // sign it (names or signature do not match, or the issuer may not sign certificates).
        delegateNotIssuedByIssuer = 1u << 2,
        // The delegated signer has no extendedKeyUsage extension with id-kp-OCSPSigning.
        delegateNotOcspSigner = 1u << 3,
        // The validation time lies outside the delegated signer's validity period.
        delegateNotValid = 1u << 4,
        // The signer was found by its signature, but the responder ID names another
        // certificate.
        responderIdMismatch = 1u << 5,
        // No entry names the certificate.
        entryMissing = 1u << 6,
        // Entries naming the certificate give different statuses.
        entriesContradict = 1u << 7,
        // The entry's thisUpdate is later than the validation time plus the clock skew.
        thisUpdateInFuture = 1u << 8,
        // The entry's nextUpdate is earlier than the validation time minus the clock skew.
        nextUpdatePassed = 1u << 9,
        // The entry has no nextUpdate and its thisUpdate is older than the maximum age plus
        // the clock skew.
        tooOld = 1u << 10,
        // The request carried a nonce and the response carries none.
        nonceMissing = 1u << 11,
        // The request and the response carry different nonces.
        nonceMismatch = 1u << 12,
    };
    // Every bit above.
    static constexpr std::uint32_t kAllFailures = (1u << 13) - 1;

    // How the signer is authorised to answer for the certificate.
    enum SignerKind : std::int32_t {
        noSigner = 0, // no signer was found
        issuer = 1,   // the issuer itself: the same subject Name and public key
        delegate = 2, // a certificate meant to be issued by the issuer (see the delegate bits)
        trusted = 3,  // one of the validator's trusted responder certificates
    };

    // No failure, no signer, no entry.
    CValidationResult();
    CValidationResult(const CValidationResult& other);
    CValidationResult& operator=(const CValidationResult& other);
    ~CValidationResult();

    // The bits of the checks that failed.
    std::uint32_t get_failures() const;
    // True when no check failed: the entry may be taken as the certificate's status.
    bool isAccepted() const;

    // The first entry naming the certificate, null when there is none. Its status says good,
    // revoked (with time and reason) or unknown; it also holds thisUpdate and nextUpdate.
    const CSingleResponse* get_entry() const;
    // The DER of the certificate that signed the response, null when none was found.
    const CBlob* get_signer() const;
    SignerKind get_signerKind() const;
    // True when the signer carries id-pkix-ocsp-nocheck: a client need not ask about the
    // signer's own revocation status. Reported, never a failure.
    bool get_signerNoCheck() const;

    // The short name of one failure bit ("signature", "no-entry", ...), null for a value that
    // is not exactly one of the bits above.
    static const char* FailureName(std::uint32_t failure) noexcept;
    // The short names of the bits set in failures, lowest bit first; unknown bits are left
    // out.
    static std::vector<std::string> FailureNames(std::uint32_t failures);

  private:
    friend struct Detail::Records;
    struct Data;
    Data* m_data;
};

// The acceptance decision of a client for a basic response about one certificate. The
// settings are optional: the request that was sent (for its nonce), trusted responder
// certificates, further certificates that may have signed the response, the validation time,
// the clock skew and a maximum age. validate() checks the response against them and reports
// each check on its own; a response is to be accepted only when no bit is set.
class VELMOR_OCSP_API CResponseValidator {
  public:
    // No request nonce, no trusted or further certificates, the current time at each
    // validation, a clock skew of 300 seconds and no maximum age.
    CResponseValidator();
    CResponseValidator(const CResponseValidator& other);
    CResponseValidator& operator=(const CResponseValidator& other);
    ~CResponseValidator();

    // Keeps the value of the request's id-pkix-ocsp-nonce extension, the only part of the
    // request the checks use; null, or a request without nonce, removes it. While a nonce is
    // kept the response must carry an equal one.
    void put_request(const CRequestMessage* request);
    // The request's nonce extension value (extnValue octets), null when none is kept.
    const CBlob* get_requestNonce() const;

    // Certificates (DER) trusted locally to sign responses about any certificate: a signer
    // among them needs no further authority. Null removes them.
    void put_trustedResponders(const CBlobList* certificates);
    const CBlobList* get_trustedResponders() const;
    // Certificates (DER) that may have signed the response besides those it carries, such as
    // the responder certificate of a responder that sends none. They must still be authorised.
    // Null removes them.
    void put_extraCertificates(const CBlobList* certificates);
    const CBlobList* get_extraCertificates() const;

    // The time the response is checked at; null (the default) takes the current time at each
    // validate().
    void put_validationTime(const CDateTime* validationTime);
    const CDateTime* get_validationTime() const;
    // The tolerance of every comparison of the response's times with the validation time.
    // Throws E_INVALIDARG for a negative value and then changes nothing.
    void put_clockSkew(std::chrono::seconds clockSkew);
    std::chrono::seconds get_clockSkew() const;
    // How old thisUpdate may be when the entry has no nextUpdate; null (the default) means no
    // limit. Throws E_INVALIDARG for a negative value and then changes nothing.
    void put_maxAge(const std::chrono::seconds* maxAge);
    const std::chrono::seconds* get_maxAge() const;

    // Checks response (decoded, or built and signed here) as the answer about certificate,
    // issued by issuer (both DER). Throws the parse error for a certificate, issuer, trusted or
    // further certificate that is not a certificate; certificates carried in the response
    // that cannot be parsed are passed over. A failed check is a bit in the result, never an
    // exception. Verifying fills the ALG_ID cache of the response's signature algorithm, so
    // one response is not validated from two threads at once.
    CValidationResult validate(const CBasicResponse& response, const CBlob& certificate,
                               const CBlob& issuer) const;

  private:
    friend struct Detail::Records;
    struct Data;
    Data* m_data;
};

} // namespace Velmor::PKI::OCSP

#endif
