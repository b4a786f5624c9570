// The validator on responses that real responders wrote (tests/data/ocsp: `openssl ocsp` and
// Python's cryptography): each is accepted for the certificates it answers about, at the
// current time, with the nonce of the request it answered; changed in one way, it fails in
// that way only.
#include <gtest/gtest.h>
#include <pki/ocsp/response_message.h>
#include <pki/ocsp/response_validator.h>

#include <string>
#include <vector>

#include "validation/validation_builders.h"

using namespace velmor_test;
using Result = CValidationResult;

namespace {

CBlob BasicBody(const std::string& file) {
    CResponseMessage message;
    message.decode(CBlob(ReadData("ocsp/" + file)));
    return *message.get_response();
}

CBasicResponse BasicResponse(const std::string& file) {
    CBasicResponse response;
    response.decode(BasicBody(file));
    return response;
}

// The status of the entry, as "good", "revoked <seconds> <reason or ->", "unknown".
std::string Status(const Result& result) {
    if (result.get_entry() == nullptr) {
        return "no entry";
    }
    const CCertStatus& status = result.get_entry()->get_certStatus();
    if (status.isGood()) {
        return "good";
    }
    if (status.isUnknown()) {
        return "unknown";
    }
    const ASN1::CrlReason* reason = status.get_revocationReason();
    return "revoked " + std::to_string(status.get_revocationTime()->seconds()) + " " +
           (reason != nullptr ? std::to_string(*reason) : "-");
}

const struct {
    const char* file;
    const char* family;
    const char* request; // the request answered, for its nonce; "" when not kept
    bool responderGiven; // the response carries no responder certificate
    std::vector<std::pair<const char*, const char*>> answers; // certificate, status
} kPeerResponses[] = {
    {"resp-good-rsa.der", "rsa", "req-nonce.der", false, {{"leaf", "good"}}},
    {"resp-plain-rsa.der", "rsa", "req-plain.der", false, {{"leaf", "good"}}},
    {"resp-two-rsa.der", "rsa", "req-two.der", false, {{"leaf", "good"}, {"leaf20", "good"}}},
    // 2026-01-01T00:00:00Z, keyCompromise
    {"resp-revoked-rsa.der", "rsa", "req-revoked.der", false, {{"leaf00", "revoked 1767225600 1"}}},
    {"resp-unknown-rsa.der", "rsa", "req-unknown.der", false, {{"client", "unknown"}}},
    {"resp-sha256-rsa.der", "rsa", "req-sha256.der", false, {{"leaf", "good"}}},
    {"resp-ec.der",
     "ec",
     "req-ec.der",
     false,
     {{"leaf", "good"}, {"leaf00", "revoked 1767225600 1"}}},
    {"resp-keyid-ec.der", "ec", "req-signed-ec.der", true, {{"leaf", "good"}}},
    {"resp-keyid-rsa.der", "rsa", "", false, {{"leaf", "good"}}},
    {"resp-mixed-rsa.der",
     "rsa",
     "",
     false,
     {{"leaf", "good"},
      {"leaf00", "revoked 1767225600 1"},
      {"client", "unknown"},
      {"leaf20", "good"}}},
    {"resp-nocerts-rsa.der", "rsa", "", true, {{"leaf", "good"}}},
    {"resp-100-rsa.der", "rsa", "", true, {{"leaf", "good"}, {"leaf00", "revoked 1767225600 1"}}},
    // Python's responses: revoked at 2025-12-01T00:00:00Z.
    {"resp-py-name-rsa.der", "rsa", "", false, {{"leaf", "good"}}},
    {"resp-py-key-rsa.der", "rsa", "", false, {{"leaf00", "revoked 1764547200 1"}}},
    {"resp-py-name-ec.der", "ec", "", true, {{"leaf20", "unknown"}}},
    {"resp-py-key-ec.der", "ec", "", false, {{"leaf00", "revoked 1764547200 -"}}},
};

CResponseValidator ValidatorFor(const std::string& family, const std::string& request,
                                bool responderGiven) {
    CResponseValidator validator;
    if (!request.empty()) {
        CRequestMessage sent;
        sent.decode(CBlob(ReadData("ocsp/" + request)));
        validator.put_request(&sent);
    }
    if (responderGiven) {
        CBlobList responder;
        responder.push_back(Pki(family, "ocsp"));
        validator.put_extraCertificates(&responder);
    }
    return validator;
}

TEST(ValidatorPeers, PeerResponsesAreAcceptedNow) {
    for (const auto& peer : kPeerResponses) {
        SCOPED_TRACE(peer.file);
        const CBasicResponse response = BasicResponse(peer.file);
        const CResponseValidator validator =
            ValidatorFor(peer.family, peer.request, peer.responderGiven);
        for (const auto& [certificate, status] : peer.answers) {
            SCOPED_TRACE(certificate);
            const Result result = validator.validate(response, Pki(peer.family, certificate),
                                                     Pki(peer.family, "inter"));
            EXPECT_EQ(FailureText(result.get_failures()), "none");
            EXPECT_EQ(Status(result), status);
            ASSERT_NE(result.get_signer(), nullptr);
            EXPECT_EQ(*result.get_signer(), Pki(peer.family, "ocsp"));
            EXPECT_EQ(result.get_signerKind(), Result::delegate);
            EXPECT_TRUE(result.get_signerNoCheck());
        }
    }
}

TEST(ValidatorPeers, ChangedPeerResponsesFailInOneWay) {
    const CBlob leaf = Pki("rsa", "leaf");
    const auto failures = [&](const CBlob& body, const CResponseValidator& validator) {
        CBasicResponse response;
        response.decode(body);
        return FailureText(validator.validate(response, leaf, Pki("rsa", "inter")).get_failures());
    };
    const CResponseValidator responderGiven = ValidatorFor("rsa", "", true);

    // One bit of the signature changed, or the last seconds digit of producedAt (the first
    // GeneralizedTime, 18 0f) in the signed octets.
    CBlob signature = BasicBody("resp-nocerts-rsa.der");
    signature.pbData()[signature.cbData() - 1] ^= 0x01;
    EXPECT_EQ(failures(signature, responderGiven), "signature");
    CBlob producedAt = BasicBody("resp-nocerts-rsa.der");
    const std::size_t at = producedAt.to_string_view().find("\x18\x0f");
    ASSERT_NE(at, std::string::npos);
    producedAt.pbData()[at + 2 + 13] ^= 0x01;
    EXPECT_EQ(failures(producedAt, responderGiven), "signature");

    EXPECT_EQ(failures(BasicBody("resp-nocerts-rsa.der"), CResponseValidator()),
              "signer-not-found");
    EXPECT_EQ(failures(BasicBody("resp-good-rsa.der"), ValidatorFor("rsa", "req-two.der", false)),
              "nonce-mismatch");
    EXPECT_EQ(
        failures(BasicBody("resp-plain-rsa.der"), ValidatorFor("rsa", "req-nonce.der", false)),
        "nonce-missing");

    // A day after the entry's nextUpdate (2036-11-20), the responder certificate has expired
    // too.
    CResponseValidator late;
    const CDateTime dayAfter("20361121070000Z");
    late.put_validationTime(&dayAfter);
    EXPECT_EQ(failures(BasicBody("resp-plain-rsa.der"), late),
              "delegate-not-valid,next-update-passed");
}

} // namespace
