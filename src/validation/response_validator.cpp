// CResponseValidator: its settings and the acceptance checks of a basic response about one
// certificate. docs/validator.md describes the rules.
#include "certid/crypt_calls.h"
#include "platform/crypt_raii.h"
#include "trace/trace_guard.h"
#include "validation/delegate_checks.h"
#include "validation/validation_records.h"

#include <cstring>
#include <deque>
#include <limits>
#include <optional>
#include <pki/ocsp/atl_exception.h>
#include <string>
#include <utility>
#include <vector>

namespace Velmor::PKI::OCSP {

using namespace Velmor::Win32;
using Detail::Records;

namespace {

constexpr const char* kNonceOid = "1.3.6.1.5.5.7.48.1.2";
constexpr const char* kNoCheckOid = "1.3.6.1.5.5.7.48.1.5";

// ---- Times ---------------------------------------------------------------------------------

// time moved by seconds, held at the ends of the range instead of overflowing.
CDateTime Shifted(const CDateTime& time, std::int64_t seconds) {
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    std::int64_t moved;
    if (seconds > 0 && time.seconds() > kMax - seconds) {
        moved = kMax;
    } else if (seconds < 0 && time.seconds() < kMin - seconds) {
        moved = kMin;
    } else {
        moved = time.seconds() + seconds;
    }
    return CDateTime(moved, time.nanoseconds());
}

// ---- Signer candidates ---------------------------------------------------------------------

// A certificate that may have signed the response, parsed by the library's decoder.
struct Candidate {
    Candidate(const CBlob& certificate, PCCERT_CONTEXT parsed, bool trustedResponder)
        : der(&certificate), context(parsed), trusted(trustedResponder) {}

    const CBlob* der;
    CScopedCertContext context;
    bool trusted;
    // Whether the signature verifies with this certificate's key, once asked.
    std::optional<bool> verifies;
};

class Candidates {
  public:
    // A certificate of the caller: one that does not parse throws its parse error.
    void AddRequired(const CBlob& certificate, bool trusted) {
        if (!Contains(certificate)) {
            m_list.emplace_back(certificate, ParseCertificate(certificate), trusted);
        }
    }
    // A certificate the response carries: one that does not parse is passed over.
    void AddOptional(const CBlob& certificate) {
        if (Contains(certificate)) {
            return;
        }
        PCCERT_CONTEXT parsed =
            CertCreateCertificateContext(kCertEncoding, certificate.pbData(), certificate.cbData());
        if (parsed != nullptr) {
            m_list.emplace_back(certificate, parsed, false);
        }
    }
    std::deque<Candidate>& List() { return m_list; }

  private:
    bool Contains(const CBlob& certificate) const {
        for (const Candidate& candidate : m_list) {
            if (*candidate.der == certificate) {
                return true;
            }
        }
        return false;
    }

    // A deque: the scoped contexts can be neither copied nor moved.
    std::deque<Candidate> m_list;
};

bool NamedBy(const CResponderID& id, const CBlob& certificate) {
    try {
        return CResponderID::fromCert(id.get_type(), certificate) == id;
    } catch (const ATL::CAtlException&) {
        return false; // a responder ID of no known type names no certificate
    }
}

bool Verifies(const CBasicResponse& response, Candidate& candidate) {
    if (!candidate.verifies) {
        try {
            candidate.verifies = response.verify(*candidate.der);
        } catch (const ATL::CAtlException&) {
            // No signature, or a key or algorithm that cannot be used: nothing verifies.
            candidate.verifies = false;
        }
    }
    return *candidate.verifies;
}

// ---- Authority of the signer ---------------------------------------------------------------

bool SameBlob(const CRYPT_INTEGER_BLOB& a, const CRYPT_INTEGER_BLOB& b) {
    return a.cbData == b.cbData &&
           (a.cbData == 0 || std::memcmp(a.pbData, b.pbData, a.cbData) == 0);
}

// The signer is the CA itself when it has the CA's subject Name and public key (a CA
// certificate issued again for the same key counts).
bool IsIssuer(const CERT_INFO& signer, const CERT_INFO& issuer) {
    const CERT_PUBLIC_KEY_INFO& a = signer.SubjectPublicKeyInfo;
    const CERT_PUBLIC_KEY_INFO& b = issuer.SubjectPublicKeyInfo;
    if (std::strcmp(a.Algorithm.pszObjId, b.Algorithm.pszObjId) != 0 ||
        !SameBlob(a.Algorithm.Parameters, b.Algorithm.Parameters) ||
        a.PublicKey.cUnusedBits != b.PublicKey.cUnusedBits ||
        !SameBlob({a.PublicKey.cbData, a.PublicKey.pbData},
                  {b.PublicKey.cbData, b.PublicKey.pbData})) {
        return false;
    }
    CERT_NAME_BLOB first = signer.Subject;
    CERT_NAME_BLOB second = issuer.Subject;
    return CertCompareCertificateName(kCertEncoding, &first, &second) != FALSE;
}

bool HasNoCheck(const CERT_INFO& info) {
    for (DWORD i = 0; i < info.cExtension; ++i) {
        if (std::strcmp(info.rgExtension[i].pszObjId, kNoCheckOid) == 0) {
            return true;
        }
    }
    return false;
}

// ---- Entries -------------------------------------------------------------------------------

// Whether an entry names the certificate. The CertID of the certificate is worked out once
// per hash algorithm the entries use.
class EntryMatcher {
  public:
    EntryMatcher(const CBlob& certificate, const CBlob& issuer)
        : m_certificate(certificate), m_issuer(issuer) {}

    bool Matches(const CReqCert& reqCert) {
        if (const CCertID* certId = reqCert.get_certID()) {
            const CCertID* ours = CertIdFor(certId->get_hashAlgorithm().get_algorithm());
            // The parameters of the hash algorithm are not compared: sha1 with and without
            // NULL parameters is the same hash.
            return ours != nullptr && ours->get_issuerNameHash() == certId->get_issuerNameHash() &&
                   ours->get_issuerKeyHash() == certId->get_issuerKeyHash() &&
                   ours->get_serialNumber() == certId->get_serialNumber();
        }
        if (const CBlob* full = reqCert.get_fullCert()) {
            return *reqCert.get_fullCertType() == CReqCert::certificate && *full == m_certificate;
        }
        if (const CCertIdWithSignature* withSignature = reqCert.get_certIdWithSignature()) {
            const CCertIdWithSignature* ours = WithSignature();
            return ours != nullptr && *ours == *withSignature;
        }
        return false;
    }

  private:
    const CCertID* CertIdFor(const char* hashOid) {
        for (const auto& [oid, certId] : m_certIds) {
            if (oid == hashOid) {
                return certId ? &*certId : nullptr;
            }
        }
        std::optional<CCertID> computed;
        try {
            computed.emplace(ASN1::CAlgorithmIdentifierEx(hashOid), m_certificate, m_issuer);
        } catch (const ATL::CAtlException&) {
            // A hash we cannot compute: no entry using it names the certificate.
        }
        m_certIds.emplace_back(hashOid, std::move(computed));
        return m_certIds.back().second ? &*m_certIds.back().second : nullptr;
    }

    const CCertIdWithSignature* WithSignature() {
        if (!m_withSignatureTried) {
            m_withSignatureTried = true;
            try {
                m_withSignature.emplace(m_certificate);
            } catch (const ATL::CAtlException&) {
                // A certificate signed with an algorithm of no separate hash.
            }
        }
        return m_withSignature ? &*m_withSignature : nullptr;
    }

    const CBlob& m_certificate;
    const CBlob& m_issuer;
    std::vector<std::pair<std::string, std::optional<CCertID>>> m_certIds;
    bool m_withSignatureTried = false;
    std::optional<CCertIdWithSignature> m_withSignature;
};

bool SameStatus(const CCertStatus& a, const CCertStatus& b) {
    if (a.get_type() != b.get_type()) {
        return false;
    }
    if (!a.isRevoked()) {
        return true;
    }
    const ASN1::CrlReason* first = a.get_revocationReason();
    const ASN1::CrlReason* second = b.get_revocationReason();
    return *a.get_revocationTime() == *b.get_revocationTime() &&
           (first == nullptr ? second == nullptr : second != nullptr && *first == *second);
}

// ---- The checks ----------------------------------------------------------------------------

using Result = Records::Record<CValidationResult>;

// Finds the signer and checks the signature, the responder ID and the signer's authority.
void CheckSigner(const CBasicResponse& response, Candidates& candidates,
                 const CERT_INFO& issuerInfo, const CBlob& issuer, const CDateTime& now,
                 Result& result) {
    std::deque<Candidate>& list = candidates.List();
    const CResponderID& id = response.get_responderID();
    std::vector<bool> named(list.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        named[i] = NamedBy(id, *list[i].der);
    }
    // First a certificate the responder ID names whose key verifies the signature; else any
    // whose key verifies it (the ID is then wrong); else the first one the ID names (the
    // signature is then wrong).
    Candidate* signer = nullptr;
    for (std::size_t i = 0; i < list.size() && signer == nullptr; ++i) {
        if (named[i] && Verifies(response, list[i])) {
            signer = &list[i];
        }
    }
    for (std::size_t i = 0; i < list.size() && signer == nullptr; ++i) {
        if (!named[i] && Verifies(response, list[i])) {
            signer = &list[i];
            result.failures |= CValidationResult::responderIdMismatch;
        }
    }
    for (std::size_t i = 0; i < list.size() && signer == nullptr; ++i) {
        if (named[i]) {
            signer = &list[i];
            result.failures |= CValidationResult::signatureInvalid;
        }
    }
    if (signer == nullptr) {
        result.failures |= CValidationResult::signerNotFound;
        return;
    }

    result.signer = *signer->der;
    const CERT_INFO& signerInfo = *signer->context.get()->pCertInfo;
    result.signerNoCheck = HasNoCheck(signerInfo);
    if (signer->trusted) {
        result.signerKind = CValidationResult::trusted;
        return;
    }
    if (IsIssuer(signerInfo, issuerInfo)) {
        result.signerKind = CValidationResult::issuer;
        return;
    }
    result.signerKind = CValidationResult::delegate;
    const DelegateChecks checks = CheckDelegate(*signer->der, issuer, now.seconds());
    if (!checks.issuedByIssuer) {
        result.failures |= CValidationResult::delegateNotIssuedByIssuer;
    }
    if (!checks.ocspSigning) {
        result.failures |= CValidationResult::delegateNotOcspSigner;
    }
    if (!checks.validAtTime) {
        result.failures |= CValidationResult::delegateNotValid;
    }
}

// Finds the entry about the certificate and checks its times.
void CheckEntry(const CBasicResponse& response, const CBlob& certificate, const CBlob& issuer,
                const CResponseValidator& settings, const CDateTime& now, Result& result) {
    EntryMatcher matcher(certificate, issuer);
    const CSingleResponse* found = nullptr;
    for (const CSingleResponse& entry : response.get_responses()) {
        if (!matcher.Matches(entry.get_reqCert())) {
            continue;
        }
        if (found == nullptr) {
            found = &entry;
        } else if (!SameStatus(found->get_certStatus(), entry.get_certStatus())) {
            result.failures |= CValidationResult::entriesContradict;
        }
    }
    if (found == nullptr) {
        result.failures |= CValidationResult::entryMissing;
        return;
    }
    result.entry = *found;

    const std::int64_t skew = settings.get_clockSkew().count();
    if (found->get_thisUpdate() > Shifted(now, skew)) {
        result.failures |= CValidationResult::thisUpdateInFuture;
    }
    if (const CDateTime* nextUpdate = found->get_nextUpdate()) {
        if (*nextUpdate < Shifted(now, -skew)) {
            result.failures |= CValidationResult::nextUpdatePassed;
        }
    } else if (const std::chrono::seconds* maxAge = settings.get_maxAge()) {
        if (found->get_thisUpdate() < Shifted(Shifted(now, -skew), -maxAge->count())) {
            result.failures |= CValidationResult::tooOld;
        }
    }
}

void CheckNonce(const CBasicResponse& response, const CBlob* requestNonce, Result& result) {
    if (requestNonce == nullptr) {
        return;
    }
    const ASN1::CExtensions* extensions = response.get_responseExtensions();
    const ASN1::CExtension* nonce = extensions != nullptr ? extensions->find(kNonceOid) : nullptr;
    if (nonce == nullptr) {
        result.failures |= CValidationResult::nonceMissing;
    } else if (nonce->get_extnValue() != *requestNonce) {
        result.failures |= CValidationResult::nonceMismatch;
    }
}

} // namespace

// ---- Settings ------------------------------------------------------------------------------

CResponseValidator::CResponseValidator() { Records::Make(*this); }

CResponseValidator::CResponseValidator(const CResponseValidator& other) {
    Records::Make(*this, *other.m_data);
}

CResponseValidator& CResponseValidator::operator=(const CResponseValidator& other) {
    Records::Assign(*this, other);
    return *this;
}

CResponseValidator::~CResponseValidator() { Records::Destroy(*this); }

void CResponseValidator::put_request(const CRequestMessage* request) {
    const ASN1::CExtensions* extensions =
        request != nullptr ? request->get_requestExtensions() : nullptr;
    const ASN1::CExtension* nonce = extensions != nullptr ? extensions->find(kNonceOid) : nullptr;
    if (nonce != nullptr) {
        m_data->requestNonce = nonce->get_extnValue();
    } else {
        m_data->requestNonce.reset();
    }
}

const CBlob* CResponseValidator::get_requestNonce() const {
    return m_data->requestNonce ? &*m_data->requestNonce : nullptr;
}

void CResponseValidator::put_trustedResponders(const CBlobList* certificates) {
    m_data->trustedResponders = Detail::CopyOf(certificates);
}

const CBlobList* CResponseValidator::get_trustedResponders() const {
    return m_data->trustedResponders.get();
}

void CResponseValidator::put_extraCertificates(const CBlobList* certificates) {
    m_data->extraCertificates = Detail::CopyOf(certificates);
}

const CBlobList* CResponseValidator::get_extraCertificates() const {
    return m_data->extraCertificates.get();
}

void CResponseValidator::put_validationTime(const CDateTime* validationTime) {
    if (validationTime != nullptr) {
        m_data->validationTime = *validationTime;
    } else {
        m_data->validationTime.reset();
    }
}

const CDateTime* CResponseValidator::get_validationTime() const {
    return m_data->validationTime ? &*m_data->validationTime : nullptr;
}

void CResponseValidator::put_clockSkew(std::chrono::seconds clockSkew) {
    if (clockSkew.count() < 0) {
        ATL::AtlThrow(E_INVALIDARG);
    }
    m_data->clockSkew = clockSkew;
}

std::chrono::seconds CResponseValidator::get_clockSkew() const { return m_data->clockSkew; }

void CResponseValidator::put_maxAge(const std::chrono::seconds* maxAge) {
    if (maxAge == nullptr) {
        m_data->maxAge.reset();
        return;
    }
    if (maxAge->count() < 0) {
        ATL::AtlThrow(E_INVALIDARG);
    }
    m_data->maxAge = *maxAge;
}

const std::chrono::seconds* CResponseValidator::get_maxAge() const {
    return m_data->maxAge ? &*m_data->maxAge : nullptr;
}

// ---- Validation ----------------------------------------------------------------------------

CValidationResult CResponseValidator::validate(const CBasicResponse& response,
                                               const CBlob& certificate,
                                               const CBlob& issuer) const {
    return Trace::Guard("CResponseValidator::validate", [&] {
        // The caller's certificates are checked before anything else, so that a bad argument is
        // an exception and never a failure bit.
        const CScopedCertContext certificateContext(ParseCertificate(certificate));
        const CScopedCertContext issuerContext(ParseCertificate(issuer));
        Candidates candidates;
        if (const CBlobList* trusted = m_data->trustedResponders.get()) {
            for (const CBlob& responder : *trusted) {
                candidates.AddRequired(responder, true);
            }
        }
        candidates.AddRequired(issuer, false);
        if (const CBlobList* carried = response.get_certs()) {
            for (const CBlob& carriedCertificate : *carried) {
                candidates.AddOptional(carriedCertificate);
            }
        }
        if (const CBlobList* extra = m_data->extraCertificates.get()) {
            for (const CBlob& extraCertificate : *extra) {
                candidates.AddRequired(extraCertificate, false);
            }
        }

        const CDateTime now = m_data->validationTime
                                  ? *m_data->validationTime
                                  : CDateTime::FromTimePoint(std::chrono::system_clock::now());
        CValidationResult outcome;
        Result& result = Records::Of(outcome);
        CheckSigner(response, candidates, *issuerContext.get()->pCertInfo, issuer, now, result);
        CheckEntry(response, certificate, issuer, *this, now, result);
        CheckNonce(response, get_requestNonce(), result);
        return outcome;
    });
}

} // namespace Velmor::PKI::OCSP
