// The validator on responses signed here: a valid response for each key type gives no
// failure bit, and each response built to break one rule gives that rule's bit and no other.
#include <gtest/gtest.h>
#include <pki/ocsp/response_validator.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "validation/validation_builders.h"

using namespace velmor_test;
using Result = CValidationResult;

namespace {

const std::string kRequestNonce = "0410 000102030405060708090a0b0c0d0e0f";

// Everything a case may change: who signs, what the response says, how it is checked.
struct Scenario {
    explicit Scenario(const std::string& keyFamily) : family(keyFamily) {
        SignAs("ocsp", Pki(family, "ocsp"));
        entries.push_back(Leaf(Good(), At(-3600), &nextUpdate));
        CRequestMessage request;
        const ASN1::CExtensions requestNonce = NonceExtensions(kRequestNonce);
        request.put_requestExtensions(&requestNonce);
        validator.put_request(&request);
        validator.put_validationTime(&kNow);
    }

    // Signed with the key of fixture key, named by certificate, which the response carries.
    void SignAs(const std::string& key, const CBlob& certificate,
                CResponderID::Type type = CResponderID::byName) {
        keyPath = KeyPath(family, key);
        responderId = CResponderID::fromCert(type, certificate);
        certs = CBlobList();
        certs.push_back(certificate);
    }
    // Signed by a delegate made of profile for the client's key.
    void SignAsDelegate(DelegateProfile profile) {
        profile.family = family;
        profile.keyPath = KeyPath(family, "client");
        SignAs("client", MakeDelegate(profile));
    }
    CSingleResponse Leaf(const CCertStatus& status, const CDateTime& thisUpdate,
                         const CDateTime* next, const char* issuer = "inter",
                         const char* hash = kSha1) const {
        return Entry(CertIdOf(family, "leaf", issuer, hash), status, thisUpdate, next);
    }
    void Only(const CSingleResponse& entry) {
        entries = CSingleResponseList();
        entries.push_back(entry);
    }
    void MaxAge(std::int64_t seconds) {
        const std::chrono::seconds maxAge(seconds);
        validator.put_maxAge(&maxAge);
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
    const CDateTime nextUpdate = At(7 * kDay);
    std::optional<std::string> nonce = kRequestNonce;
    CResponseValidator validator;
};

const std::int64_t kSkew = 300; // the default

struct Case {
    const char* name;
    std::uint32_t expected;
    std::function<void(Scenario&)> change;
    Result::SignerKind kind = Result::delegate;
};

// Each failing row breaks one rule; the accepted rows sit at the edge of a rule or differ
// from the valid response in ways that do not matter.
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
     [](Scenario& s) { s.SignAs("client", Pki(s.family, "client")); }},
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
    {"signed by the issuer", 0, [](Scenario& s) { s.SignAs("inter", Pki(s.family, "inter")); },
     Result::issuer},
    {"trusted responder without any authority", 0,
     [](Scenario& s) {
         s.SignAsDelegate({.issuerName = "root", .signingKey = "root", .ocspSigning = false});
         s.validator.put_trustedResponders(&s.certs);
     },
     Result::trusted},
    {"responder by key hash", 0,
     [](Scenario& s) { s.SignAs("ocsp", Pki(s.family, "ocsp"), CResponderID::byKey); }},
    {"responder certificate given by the caller", 0,
     [](Scenario& s) {
         s.validator.put_extraCertificates(&s.certs);
         s.certs = CBlobList();
     }},
    // ---- entries
    {"entry for another certificate only", Result::entryMissing,
     [](Scenario& s) { s.Only(Entry(CertIdOf(s.family, "leaf20"), Good(), At(-3600), nullptr)); }},
    {"entry under the root's key", Result::entryMissing,
     [](Scenario& s) { s.Only(s.Leaf(Good(), At(-3600), nullptr, "root")); }},
    {"good and revoked entries", Result::entriesContradict,
     [](Scenario& s) {
         s.entries.push_back(s.Leaf(CCertStatus(At(-kDay), nullptr), kNow, nullptr));
     }},
    {"revoked at two times", Result::entriesContradict,
     [](Scenario& s) {
         s.Only(s.Leaf(CCertStatus(At(-kDay), nullptr), kNow, nullptr));
         s.entries.push_back(s.Leaf(CCertStatus(At(-2 * kDay), nullptr), kNow, nullptr));
     }},
    {"the same status twice", 0,
     [](Scenario& s) { s.entries.push_back(s.Leaf(Good(), kNow, nullptr)); }},
    {"entry among others, by SHA-256", 0,
     [](Scenario& s) {
         s.Only(Entry(CertIdOf(s.family, "leaf20"), CCertStatus(), kNow, nullptr));
         s.entries.push_back(s.Leaf(Good(), kNow, nullptr, "inter", kSha256));
     }},
    {"SHA-1 without parameters", 0,
     [](Scenario& s) {
         CCertID bare = *CertIdOf(s.family, "leaf").get_certID();
         bare.put_hashAlgorithm(ASN1::CAlgorithmIdentifier(kSha1));
         s.Only(Entry(CReqCert(bare), Good(), kNow, nullptr));
     }},
    // ---- times
    {"nextUpdate passed beyond the skew", Result::nextUpdatePassed,
     [](Scenario& s) {
         const CDateTime next = At(-kSkew - 1);
         s.Only(s.Leaf(Good(), At(-kDay), &next));
     }},
    {"nextUpdate at the skew", 0,
     [](Scenario& s) {
         const CDateTime next = At(-kSkew);
         s.Only(s.Leaf(Good(), At(-kDay), &next));
     }},
    {"thisUpdate ahead beyond the skew", Result::thisUpdateInFuture,
     [](Scenario& s) { s.Only(s.Leaf(Good(), At(kSkew + 1), &s.nextUpdate)); }},
    {"thisUpdate at the skew", 0,
     [](Scenario& s) { s.Only(s.Leaf(Good(), At(kSkew), &s.nextUpdate)); }},
    {"older than the maximum age without nextUpdate", Result::tooOld,
     [](Scenario& s) {
         s.MaxAge(3600);
         s.Only(s.Leaf(Good(), At(-3600 - kSkew - 1), nullptr));
     }},
    {"at the maximum age and skew", 0,
     [](Scenario& s) {
         s.MaxAge(3600);
         s.Only(s.Leaf(Good(), At(-3600 - kSkew), nullptr));
     }},
    {"maximum age ignored with nextUpdate", 0,
     [](Scenario& s) {
         s.MaxAge(60);
         s.Only(s.Leaf(Good(), At(-kDay), &s.nextUpdate));
     }},
    {"no maximum age", 0, [](Scenario& s) { s.Only(s.Leaf(Good(), At(-3650 * kDay), nullptr)); }},
    {"no skew and exact times", 0,
     [](Scenario& s) {
         s.validator.put_clockSkew(std::chrono::seconds(0));
         s.Only(s.Leaf(Good(), kNow, &kNow));
     }},
    // ---- nonce
    {"another nonce", Result::nonceMismatch,
     [](Scenario& s) { s.nonce = "0410 000102030405060708090a0b0c0d0eff"; }},
    {"no nonce", Result::nonceMissing, [](Scenario& s) { s.nonce.reset(); }},
    {"nonce in the response only", 0, [](Scenario& s) { s.validator.put_request(nullptr); }},
};

class ResponseValidatorTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ResponseValidatorTest, EachBrokenRuleSetsItsOwnBitOnly) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        Scenario scenario(GetParam());
        c.change(scenario);
        const Result result = scenario.Validate();
        EXPECT_EQ(FailureText(result.get_failures()), FailureText(c.expected));
        EXPECT_EQ(result.isAccepted(), c.expected == 0);
        // A step that failed leaves its part of the result empty.
        EXPECT_EQ(result.get_signer() == nullptr, c.expected == Result::signerNotFound);
        EXPECT_EQ(result.get_entry() == nullptr, c.expected == Result::entryMissing);
        if (c.expected == 0) {
            EXPECT_EQ(result.get_signerKind(), c.kind);
        }
    }
}

TEST_P(ResponseValidatorTest, ValidResponseReportsEntryAndDelegatedSigner) {
    Scenario scenario(GetParam());
    const ASN1::CrlReason reason = ASN1::keyCompromise;
    scenario.Only(
        scenario.Leaf(CCertStatus(At(-2 * kDay), &reason), At(-3600), &scenario.nextUpdate));
    const Result result = scenario.Validate();
    EXPECT_EQ(result.get_failures(), 0u);
    ASSERT_NE(result.get_entry(), nullptr);
    const CCertStatus& status = result.get_entry()->get_certStatus();
    ASSERT_TRUE(status.isRevoked());
    EXPECT_EQ(*status.get_revocationTime(), At(-2 * kDay));
    EXPECT_EQ(*status.get_revocationReason(), ASN1::keyCompromise);
    EXPECT_EQ(result.get_entry()->get_thisUpdate(), At(-3600));
    EXPECT_EQ(*result.get_entry()->get_nextUpdate(), At(7 * kDay));
    EXPECT_EQ(*result.get_signer(), Pki(scenario.family, "ocsp"));
    EXPECT_EQ(result.get_signerKind(), Result::delegate);
    EXPECT_TRUE(result.get_signerNoCheck());
    // The client's certificate carries no nocheck.
    scenario.SignAs("client", Pki(scenario.family, "client"));
    scenario.validator.put_trustedResponders(&scenario.certs);
    EXPECT_FALSE(scenario.Validate().get_signerNoCheck());
}

INSTANTIATE_TEST_SUITE_P(KeyTypes, ResponseValidatorTest, ::testing::Values("rsa", "ec"));

TEST(ResponseValidator, SettingsKeepOnlyWhatTheChecksUseAndRefuseNegativeSpans) {
    CResponseValidator validator;
    CRequestMessage request;
    const ASN1::CExtensions nonce = NonceExtensions("0402abcd");
    request.put_requestExtensions(&nonce);
    validator.put_request(&request);
    EXPECT_EQ(HexOf(*validator.get_requestNonce()), "0402abcd");
    const CRequestMessage withoutNonce;
    validator.put_request(&withoutNonce);
    EXPECT_EQ(validator.get_requestNonce(), nullptr);

    EXPECT_HRESULT_THROW(validator.put_clockSkew(std::chrono::seconds(-1)), Win32::E_INVALIDARG);
    const std::chrono::seconds negative(-1);
    EXPECT_HRESULT_THROW(validator.put_maxAge(&negative), Win32::E_INVALIDARG);
    EXPECT_EQ(validator.get_clockSkew(), std::chrono::seconds(300));
    EXPECT_EQ(validator.get_maxAge(), nullptr);

    // A copy owns its own lists.
    CBlobList trusted;
    trusted.push_back(Pki("rsa", "ocsp"));
    validator.put_trustedResponders(&trusted);
    const CResponseValidator copy = validator;
    validator.put_trustedResponders(nullptr);
    ASSERT_NE(copy.get_trustedResponders(), nullptr);
    EXPECT_EQ(copy.get_trustedResponders()->front(), Pki("rsa", "ocsp"));
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
    // Lowest bit first; bits without a name are left out.
    EXPECT_EQ(Result::FailureNames(Result::tooOld | Result::signerNotFound | (1u << 20)),
              (std::vector<std::string>{"signer-not-found", "too-old"}));
    EXPECT_TRUE(Result::FailureNames(0).empty());
}

} // namespace
