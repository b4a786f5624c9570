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

CBasicResponse BasicResponse(const std::string& file) {
    CResponseMessage message;
    message.decode(CBlob(ReadData("ocsp/" + file)));
    CBasicResponse response;
    response.decode(*message.get_response());
    return response;
}

CRequestMessage Request(const std::string& file) {
    CRequestMessage request;
    request.decode(CBlob(ReadData("ocsp/" + file)));
    return request;
}

std::string Names(std::uint32_t failures) {
    std::string text;
    for (const std::string& name : Result::FailureNames(failures)) {
        text += (text.empty() ? "" : ",") + name;
    }
    return text.empty() ? "none" : text;
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
        const CRequestMessage sent = Request(request);
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
            EXPECT_EQ(Names(result.get_failures()), "none");
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
    const CBlob inter = Pki("rsa", "inter");
    const auto failures = [&](const CBasicResponse& response, const CResponseValidator& validator,
                              const CBlob& certificate) {
        return Names(validator.validate(response, certificate, inter).get_failures());
    };
    const CResponseValidator plain;

    // One bit of the signature, or one digit of producedAt in the signed octets, changed.
    for (const bool inSignature : {true, false}) {
        CBlob der(ReadData("ocsp/resp-nocerts-rsa.der"));
        CResponseMessage message;
        message.decode(der);
        CBlob body = *message.get_response();
        if (inSignature) {
            body.pbData()[body.cbData() - 1] ^= 0x01;
        } else {
            // The last seconds digit of producedAt, the first GeneralizedTime (18 0f): the
            // time stays a time, another digit.
            const std::string text(reinterpret_cast<const char*>(body.pbData()), body.cbData());
            const std::size_t at = text.find("\x18\x0f");
            ASSERT_NE(at, std::string::npos);
            body.pbData()[at + 2 + 13] ^= 0x01;
        }
        CBasicResponse changed;
        changed.decode(body);
        EXPECT_EQ(failures(changed, ValidatorFor("rsa", "", true), leaf), "signature")
            << inSignature;
    }

    const CBasicResponse noCerts = BasicResponse("resp-nocerts-rsa.der");
    EXPECT_EQ(failures(noCerts, plain, leaf), "signer-not-found");
    EXPECT_EQ(failures(BasicResponse("resp-good-rsa.der"), plain, Pki("rsa", "leaf20")),
              "no-entry");
    EXPECT_EQ(failures(BasicResponse("resp-good-rsa.der"),
                       ValidatorFor("rsa", "req-two.der", false), leaf),
              "nonce-mismatch");
    EXPECT_EQ(failures(BasicResponse("resp-plain-rsa.der"),
                       ValidatorFor("rsa", "req-nonce.der", false), leaf),
              "nonce-missing");

    // Checked ten years and a day on, the entry's nextUpdate has passed.
    CResponseValidator late;
    const CDateTime tenYears = CDateTime(
        BasicResponse("resp-good-rsa.der").get_responses().front().get_nextUpdate()->seconds() +
            kDay,
        0);
    late.put_validationTime(&tenYears);
    EXPECT_EQ(failures(BasicResponse("resp-plain-rsa.der"), late, leaf),
              "delegate-not-valid,next-update-passed");

    // Asked about the EC hierarchy's leaf under the EC intermediate, the RSA response has no
    // entry for it and a signer that intermediate did not issue.
    EXPECT_EQ(Names(plain
                        .validate(BasicResponse("resp-good-rsa.der"), Pki("ec", "leaf"),
                                  Pki("ec", "inter"))
                        .get_failures()),
              "delegate-not-issued-by-issuer,no-entry");
}

} // namespace
