// The validator on responses signed here: a valid response for each key type gives no
// failure bit, and each response built to break one rule gives that rule's bit and no other.
#include <gtest/gtest.h>
#include <pki/ocsp/response_validator.h>

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "validation/validation_builders.h"

using namespace velmor_test;
using Result = CValidationResult;

namespace {

const std::string kRequestNonce = "0410 000102030405060708090a0b0c0d0e0f";

// Everything a case may change: who signs, what the response says, how it is checked.
struct Scenario {
    explicit Scenario(const std::string& keyFamily) : family(keyFamily) {
        keyPath = KeyPath(family, "ocsp");
        responderId = CResponderID::fromCert(CResponderID::byName, Pki(family, "ocsp"));
        certs.push_back(Pki(family, "ocsp"));
        nextUpdate = At(7 * kDay);
        entries.push_back(Entry(CertIdOf(family, "leaf"), Good(), At(-3600), &*nextUpdate));
        nonce = kRequestNonce;
        CRequestMessage request;
        const ASN1::CExtensions requestNonce = NonceExtensions(kRequestNonce);
        request.put_requestExtensions(&requestNonce);
        validator.put_request(&request);
        validator.put_validationTime(&kNow);
    }

    // The delegate made of spec, with the client's key, becomes the signer.
    void SignAsDelegate(DelegateSpec spec) {
        spec.family = family;
        spec.keyPath = KeyPath(family, "client");
        const CBlob delegate = MakeDelegate(spec);
        keyPath = spec.keyPath;
        responderId = CResponderID::fromCert(CResponderID::byName, delegate);
        certs = CBlobList();
        certs.push_back(delegate);
    }
    // The only entry, about the leaf, with these times.
    void LeafTimes(const CDateTime& thisUpdate, const CDateTime* next) {
        entries = CSingleResponseList();
        entries.push_back(Entry(CertIdOf(family, "leaf"), Good(), thisUpdate, next));
    }

    Result Validate() const {
        const ASN1::CExtensions extensions = NonceExtensions(nonce ? *nonce : "");
        const CBasicResponse response = SignedResponse(family, keyPath, responderId, entries,
                                                       &certs, nonce ? &extensions : nullptr);
        return validator.validate(response, Pki(family, "leaf"), Pki(family, "inter"));
    }

    std::string family;
    std::string keyPath;
    CResponderID responderId;
    CBlobList certs;
    CSingleResponseList entries;
    std::optional<CDateTime> nextUpdate;
    std::optional<std::string> nonce;
    CResponseValidator validator;
};

std::string Names(std::uint32_t failures) {
    std::string text;
    for (const std::string& name : Result::FailureNames(failures)) {
        text += (text.empty() ? "" : ",") + name;
    }
    return text.empty() ? "none" : text;
}

struct Case {
    const char* name;
    std::uint32_t expected;
    std::function<void(Scenario&)> change;
};

const std::int64_t kSkew = 300;

const Case kCases[] = {
    {"valid", 0, [](Scenario&) {}},
    // ---- signature and signer
    {"signed with the client key", Result::signatureInvalid,
     [](Scenario& s) { s.keyPath = KeyPath(s.family, "client"); }},
    {"responder certificate neither carried nor given", Result::signerNotFound,
     [](Scenario& s) { s.certs = CBlobList(); }},
    {"delegate issued by the root", Result::delegateNotIssuedByIssuer,
     [](Scenario& s) { s.SignAsDelegate({.issuerName = "root", .signingKey = "root"}); }},
    {"delegate naming the issuer, signed by the root", Result::delegateNotIssuedByIssuer,
     [](Scenario& s) { s.SignAsDelegate({.signingKey = "root"}); }},
    {"delegate for client authentication", Result::delegateNotOcspSigner,
     [](Scenario& s) {
         s.keyPath = KeyPath(s.family, "client");
         s.responderId = CResponderID::fromCert(CResponderID::byName, Pki(s.family, "client"));
         s.certs = CBlobList();
         s.certs.push_back(Pki(s.family, "client"));
     }},
    {"delegate without extended key usage", Result::delegateNotOcspSigner,
     [](Scenario& s) { s.SignAsDelegate({.ocspSigning = false}); }},
    {"delegate expired", Result::delegateNotValid,
     [](Scenario& s) {
         s.SignAsDelegate({.notBefore = At(-60 * kDay).seconds(), .notAfter = At(-1).seconds()});
     }},
    {"delegate not yet valid", Result::delegateNotValid,
     [](Scenario& s) { s.SignAsDelegate({.notBefore = At(1).seconds()}); }},
    {"responder name of the client", Result::responderIdMismatch,
     [](Scenario& s) {
         s.responderId = CResponderID::fromCert(CResponderID::byName, Pki(s.family, "client"));
     }},
    {"responder key hash of the client", Result::responderIdMismatch,
     [](Scenario& s) {
         s.responderId = CResponderID::fromCert(CResponderID::byKey, Pki(s.family, "client"));
     }},
    // ---- entries
    {"entry for another certificate only", Result::entryMissing,
     [](Scenario& s) {
         s.entries = CSingleResponseList();
         s.entries.push_back(Entry(CertIdOf(s.family, "leaf20"), Good(), At(-3600), nullptr));
     }},
    {"entry under the root's key", Result::entryMissing,
     [](Scenario& s) {
         s.entries = CSingleResponseList();
         s.entries.push_back(Entry(CertIdOf(s.family, "leaf", "root"), Good(), At(-3600), nullptr));
     }},
    {"good and revoked entries", Result::entriesContradict,
     [](Scenario& s) {
         s.entries.push_back(Entry(CertIdOf(s.family, "leaf"), CCertStatus(At(-kDay), nullptr),
                                   At(-3600), &*s.nextUpdate));
     }},
    {"revoked at two times", Result::entriesContradict,
     [](Scenario& s) {
         s.entries = CSingleResponseList();
         for (const std::int64_t when : {-kDay, -2 * kDay}) {
             s.entries.push_back(Entry(CertIdOf(s.family, "leaf"), CCertStatus(At(when), nullptr),
                                       At(-3600), nullptr));
         }
     }},
    // ---- times
    {"nextUpdate passed beyond the skew", Result::nextUpdatePassed,
     [](Scenario& s) {
         const CDateTime next = At(-kSkew - 1);
         s.LeafTimes(At(-kDay), &next);
     }},
    {"thisUpdate ahead beyond the skew", Result::thisUpdateInFuture,
     [](Scenario& s) { s.LeafTimes(At(kSkew + 1), &*s.nextUpdate); }},
    {"older than the maximum age without nextUpdate", Result::tooOld,
     [](Scenario& s) {
         const std::chrono::seconds maxAge(3600);
         s.validator.put_maxAge(&maxAge);
         s.LeafTimes(At(-3600 - kSkew - 1), nullptr);
     }},
    // ---- nonce
    {"another nonce", Result::nonceMismatch,
     [](Scenario& s) { s.nonce = "0410 000102030405060708090a0b0c0d0eff"; }},
    {"no nonce", Result::nonceMissing, [](Scenario& s) { s.nonce.reset(); }},
};

// Responses at the edge of a rule, or that differ from the valid one in ways that do not
// matter: all accepted.
const Case kAccepted[] = {
    {"nextUpdate at the skew", 0,
     [](Scenario& s) {
         const CDateTime next = At(-kSkew);
         s.LeafTimes(At(-kDay), &next);
     }},
    {"thisUpdate at the skew", 0, [](Scenario& s) { s.LeafTimes(At(kSkew), &*s.nextUpdate); }},
    {"thisUpdate at the maximum age and skew", 0,
     [](Scenario& s) {
         const std::chrono::seconds maxAge(3600);
         s.validator.put_maxAge(&maxAge);
         s.LeafTimes(At(-3600 - kSkew), nullptr);
     }},
    {"maximum age ignored with nextUpdate", 0,
     [](Scenario& s) {
         const std::chrono::seconds maxAge(60);
         s.validator.put_maxAge(&maxAge);
         s.LeafTimes(At(-kDay), &*s.nextUpdate);
     }},
    {"old thisUpdate without maximum age", 0,
     [](Scenario& s) { s.LeafTimes(At(-3650 * kDay), nullptr); }},
    {"no skew and exact times", 0,
     [](Scenario& s) {
         s.validator.put_clockSkew(std::chrono::seconds(0));
         s.LeafTimes(kNow, &kNow);
     }},
    {"nonce in the response only", 0, [](Scenario& s) { s.validator.put_request(nullptr); }},
    {"entry among others, by SHA-256", 0,
     [](Scenario& s) {
         s.entries = CSingleResponseList();
         s.entries.push_back(Entry(CertIdOf(s.family, "leaf20"), CCertStatus(), kNow, nullptr));
         s.entries.push_back(Entry(CertIdOf(s.family, "leaf", "inter", kSha256), Good(), At(-3600),
                                   &*s.nextUpdate));
     }},
    {"SHA-1 without parameters", 0,
     [](Scenario& s) {
         s.entries = CSingleResponseList();
         const CCertID withNull = *CertIdOf(s.family, "leaf").get_certID();
         CCertID bare = withNull;
         bare.put_hashAlgorithm(ASN1::CAlgorithmIdentifier(kSha1));
         s.entries.push_back(Entry(CReqCert(bare), Good(), At(-3600), &*s.nextUpdate));
     }},
    {"the same status twice", 0,
     [](Scenario& s) {
         const CSingleResponse first = s.entries.front();
         s.entries.push_back(first);
     }},
    {"responder by key hash", 0,
     [](Scenario& s) {
         s.responderId = CResponderID::fromCert(CResponderID::byKey, Pki(s.family, "ocsp"));
     }},
    {"responder certificate given by the caller", 0,
     [](Scenario& s) {
         s.validator.put_extraCertificates(&s.certs);
         s.certs = CBlobList();
     }},
};

class ResponseValidatorTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ResponseValidatorTest, EachBrokenRuleSetsItsOwnBitOnly) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        Scenario scenario(GetParam());
        c.change(scenario);
        EXPECT_EQ(Names(scenario.Validate().get_failures()), Names(c.expected));
    }
}

TEST_P(ResponseValidatorTest, EdgesOfTheRulesAreAccepted) {
    for (const Case& c : kAccepted) {
        SCOPED_TRACE(c.name);
        Scenario scenario(GetParam());
        c.change(scenario);
        const Result result = scenario.Validate();
        EXPECT_EQ(Names(result.get_failures()), "none");
        EXPECT_TRUE(result.isAccepted());
    }
}

TEST_P(ResponseValidatorTest, ValidResponseReportsEntryAndDelegatedSigner) {
    const Scenario scenario(GetParam());
    const Result result = scenario.Validate();
    EXPECT_EQ(result.get_failures(), 0u);
    ASSERT_NE(result.get_entry(), nullptr);
    EXPECT_TRUE(result.get_entry()->get_certStatus().isGood());
    EXPECT_EQ(result.get_entry()->get_thisUpdate(), At(-3600));
    ASSERT_NE(result.get_entry()->get_nextUpdate(), nullptr);
    EXPECT_EQ(*result.get_entry()->get_nextUpdate(), At(7 * kDay));
    ASSERT_NE(result.get_signer(), nullptr);
    EXPECT_EQ(*result.get_signer(), Pki(scenario.family, "ocsp"));
    EXPECT_EQ(result.get_signerKind(), Result::delegate);
    EXPECT_TRUE(result.get_signerNoCheck());
}

TEST_P(ResponseValidatorTest, IssuerMaySignItself) {
    Scenario scenario(GetParam());
    scenario.keyPath = KeyPath(scenario.family, "inter");
    scenario.responderId =
        CResponderID::fromCert(CResponderID::byKey, Pki(scenario.family, "inter"));
    scenario.certs = CBlobList();
    const Result result = scenario.Validate();
    EXPECT_EQ(Names(result.get_failures()), "none");
    EXPECT_EQ(result.get_signerKind(), Result::issuer);
    EXPECT_EQ(*result.get_signer(), Pki(scenario.family, "inter"));
    EXPECT_FALSE(result.get_signerNoCheck());
}

TEST_P(ResponseValidatorTest, TrustedResponderNeedsNoAuthorityFromTheIssuer) {
    // The client certificate is neither issued for OCSP signing nor, once re-made by the
    // root, issued by the issuer; trusted, it signs for the leaf.
    Scenario scenario(GetParam());
    scenario.SignAsDelegate({.issuerName = "root", .signingKey = "root", .ocspSigning = false});
    EXPECT_EQ(Names(scenario.Validate().get_failures()),
              Names(Result::delegateNotIssuedByIssuer | Result::delegateNotOcspSigner));
    scenario.validator.put_trustedResponders(&scenario.certs);
    const Result result = scenario.Validate();
    EXPECT_EQ(Names(result.get_failures()), "none");
    EXPECT_EQ(result.get_signerKind(), Result::trusted);
    EXPECT_FALSE(result.get_signerNoCheck());
}

TEST_P(ResponseValidatorTest, RevokedEntryReportedWithTimeAndReason) {
    Scenario scenario(GetParam());
    const ASN1::CrlReason reason = ASN1::keyCompromise;
    scenario.entries = CSingleResponseList();
    scenario.entries.push_back(Entry(CertIdOf(scenario.family, "leaf"),
                                     CCertStatus(At(-2 * kDay), &reason), At(-3600), nullptr));
    const Result result = scenario.Validate();
    EXPECT_EQ(result.get_failures(), 0u);
    const CCertStatus& status = result.get_entry()->get_certStatus();
    ASSERT_TRUE(status.isRevoked());
    EXPECT_EQ(*status.get_revocationTime(), At(-2 * kDay));
    ASSERT_NE(status.get_revocationReason(), nullptr);
    EXPECT_EQ(*status.get_revocationReason(), ASN1::keyCompromise);
}

TEST_P(ResponseValidatorTest, FailedStepsLeaveTheirResultsEmpty) {
    Scenario noSigner(GetParam());
    noSigner.certs = CBlobList();
    const Result notFound = noSigner.Validate();
    EXPECT_EQ(notFound.get_signer(), nullptr);
    EXPECT_EQ(notFound.get_signerKind(), Result::noSigner);
    EXPECT_NE(notFound.get_entry(), nullptr);

    Scenario noEntry(GetParam());
    noEntry.entries = CSingleResponseList();
    const Result missing = noEntry.Validate();
    EXPECT_EQ(missing.get_entry(), nullptr);
    EXPECT_NE(missing.get_signer(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(KeyTypes, ResponseValidatorTest, ::testing::Values("rsa", "ec"));

TEST(ResponseValidator, SettingsAreKeptAndCopied) {
    CResponseValidator validator;
    EXPECT_EQ(validator.get_clockSkew(), std::chrono::seconds(300));
    EXPECT_EQ(validator.get_maxAge(), nullptr);
    EXPECT_EQ(validator.get_validationTime(), nullptr);
    EXPECT_EQ(validator.get_requestNonce(), nullptr);

    // Only the request's nonce value is kept.
    CRequestMessage request;
    const ASN1::CExtensions nonce = NonceExtensions("0402abcd");
    request.put_requestExtensions(&nonce);
    validator.put_request(&request);
    ASSERT_NE(validator.get_requestNonce(), nullptr);
    EXPECT_EQ(HexOf(*validator.get_requestNonce()), "0402abcd");
    const CRequestMessage withoutNonce;
    validator.put_request(&withoutNonce);
    EXPECT_EQ(validator.get_requestNonce(), nullptr);

    EXPECT_HRESULT_THROW(validator.put_clockSkew(std::chrono::seconds(-1)), Win32::E_INVALIDARG);
    const std::chrono::seconds negative(-1);
    EXPECT_HRESULT_THROW(validator.put_maxAge(&negative), Win32::E_INVALIDARG);
    EXPECT_EQ(validator.get_clockSkew(), std::chrono::seconds(300));
    EXPECT_EQ(validator.get_maxAge(), nullptr);

    validator.put_request(&request);
    const std::chrono::seconds maxAge(60);
    validator.put_maxAge(&maxAge);
    CBlobList trusted;
    trusted.push_back(Pki("rsa", "ocsp"));
    validator.put_trustedResponders(&trusted);
    const CResponseValidator copy = validator;
    EXPECT_EQ(*copy.get_maxAge(), maxAge);
    EXPECT_EQ(HexOf(*copy.get_requestNonce()), "0402abcd");
    ASSERT_NE(copy.get_trustedResponders(), nullptr);
    EXPECT_EQ(copy.get_trustedResponders()->size(), 1u);
    EXPECT_EQ(copy.get_extraCertificates(), nullptr);
}

TEST(ResponseValidator, CallersCertificatesThatDoNotParseThrow) {
    Scenario scenario("rsa");
    const CBasicResponse response = SignedResponse("rsa", scenario.keyPath, scenario.responderId,
                                                   scenario.entries, &scenario.certs, nullptr);
    const CBlob junk = BlobOf("3003020101");
    const CResponseValidator& validator = scenario.validator;
    EXPECT_HRESULT_THROW(validator.validate(response, junk, Pki("rsa", "inter")),
                         Win32::CRYPT_E_ASN1_BADTAG);
    EXPECT_HRESULT_THROW(validator.validate(response, Pki("rsa", "leaf"), junk),
                         Win32::CRYPT_E_ASN1_BADTAG);
    CBlobList extra;
    extra.push_back(junk);
    CResponseValidator withExtra = validator;
    withExtra.put_extraCertificates(&extra);
    EXPECT_HRESULT_THROW(withExtra.validate(response, Pki("rsa", "leaf"), Pki("rsa", "inter")),
                         Win32::CRYPT_E_ASN1_BADTAG);
}

TEST(ResponseValidator, FailureNamesOnePerBit) {
    EXPECT_STREQ(Result::FailureName(Result::signatureInvalid), "signature");
    EXPECT_STREQ(Result::FailureName(Result::nonceMismatch), "nonce-mismatch");
    EXPECT_EQ(Result::FailureName(0), nullptr);
    EXPECT_EQ(Result::FailureName(Result::signatureInvalid | Result::entryMissing), nullptr);
    EXPECT_EQ(Result::FailureName(Result::kAllFailures + 1), nullptr);
    std::set<std::string> distinct;
    for (std::uint32_t bit = 1; bit <= Result::kAllFailures; bit <<= 1) {
        ASSERT_NE(Result::FailureName(bit), nullptr) << bit;
        distinct.insert(Result::FailureName(bit));
    }
    EXPECT_EQ(distinct.size(), 13u);
    EXPECT_EQ(Names(Result::tooOld | Result::signerNotFound | (1u << 20)),
              "signer-not-found,too-old");
}

} // namespace
