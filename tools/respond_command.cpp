// velmor-ocsp respond: answers a request as the OCSP responder of one CA, from the CA's
// OpenSSL index file.
#include "algorithms.h"
#include "ca_index.h"
#include "certificate.h"
#include "commands.h"
#include "exit_status.h"
#include "input.h"
#include "output.h"

#include <CLI/CLI.hpp>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/crypt_provider.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/response_message.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace VelmorTool {

namespace {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

struct RespondOptions {
    std::string index;
    std::string ca;
    std::string signer;
    std::string key;
    bool byKey = false;
    std::optional<unsigned> nextUpdateDays;
    std::string otherCertificates;
    bool noCertificates = false;
    std::string digest = "sha256";
    std::string requestPath;
    std::string out;
    OutputOptions output;
};

constexpr std::int64_t kSecondsPerDay = 86400;

// The request, or null (after saying why on stderr) when it cannot be read as one.
std::optional<CRequestMessage> ReadRequest(const std::string& path) {
    const Bytes content = ReadFileBytes(path, true); // a missing file is no malformed request
    try {
        const MessageFile file = ParseMessageFile(path, content, {"OCSP REQUEST"}, "request");
        CRequestMessage request;
        try {
            request.decode(file.der);
        } catch (const ATL::CAtlException& e) {
            FailFile(path, std::string("is not an OCSP request (") + e.what() + ")");
        }
        if (request.get_requestList().empty()) {
            FailFile(path, "asks about no certificate");
        }
        return request;
    } catch (const ToolError& e) {
        std::fprintf(stderr, "velmor-ocsp: %s; answered malformedRequest\n", e.what());
        return std::nullopt;
    }
}

int AnswerWithStatus(const RespondOptions& options, ResponseStatus status) {
    CResponseMessage response;
    response.put_responseStatus(status);
    WriteMessage(options.out, response.encode(), "OCSP RESPONSE", options.output.form());
    return kResponderError;
}

CDateTime Now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return CDateTime(std::chrono::duration_cast<std::chrono::seconds>(now).count(), 0);
}

CCertStatus StatusOf(const IndexEntry* entry) {
    CCertStatus status;
    if (entry == nullptr) {
        return status; // unknown
    }
    if (entry->status == 'R') {
        return CCertStatus(entry->revocationTime, entry->reason ? &*entry->reason : nullptr);
    }
    status.put_good(); // valid, or expired but never revoked
    return status;
}

void Sign(CBasicResponse& basic, const RespondOptions& options, const CBlob& signer) {
    const SigningKey key(options.key);
    try {
        basic.sign(key.provider(), Win32::AT_SIGNATURE,
                   ASN1::CAlgorithmIdentifierEx(SignatureOid(key.type(), options.digest)));
    } catch (const ATL::CAtlException& e) {
        FailFile(options.key, std::string("cannot sign: ") + e.what());
    }
    if (!basic.verify(signer)) {
        FailFile(options.key, "is not the key of the responder certificate " + options.signer);
    }
}

int Run(const RespondOptions& options) {
    const CaIndex index(options.index);
    const CBlob ca = ReadCertificate(options.ca);
    const CBlob signer = ReadCertificate(options.signer);
    CBlobList certificates;
    certificates.push_back(signer);
    if (!options.otherCertificates.empty()) {
        for (const CBlob& certificate : ReadCertificates(options.otherCertificates)) {
            certificates.push_back(certificate);
        }
    }

    const std::optional<CRequestMessage> request = ReadRequest(options.requestPath);
    if (!request) {
        return AnswerWithStatus(options, malformedRequest);
    }

    const CDateTime now = Now();
    const std::optional<CDateTime> nextUpdate =
        options.nextUpdateDays ? std::optional<CDateTime>(CDateTime(
                                     now.seconds() + *options.nextUpdateDays * kSecondsPerDay, 0))
                               : std::nullopt;
    Outcome outcome;
    bool anyOfThisCa = false;
    CSingleResponseList answers;
    for (const CSingleRequest& entry : request->get_requestList()) {
        const CCertID* id = entry.get_reqCert().get_certID();
        // A certificate of another CA, or one not named by CertID, is unknown here.
        const bool ours = id != nullptr && NamesIssuer(*id, ca);
        anyOfThisCa = anyOfThisCa || ours;
        const CCertStatus status = StatusOf(ours ? index.find(id->get_serialNumber()) : nullptr);
        outcome.add(status.get_type());
        CSingleResponse answer(entry.get_reqCert(), status, now);
        if (nextUpdate) {
            answer.put_nextUpdate(&*nextUpdate);
        }
        answers.push_back(answer);
    }
    if (!anyOfThisCa) {
        std::fprintf(stderr,
                     "velmor-ocsp: %s: asks about no certificate issued by %s; answered "
                     "unauthorized\n",
                     options.requestPath.c_str(), options.ca.c_str());
        return AnswerWithStatus(options, unauthorized);
    }

    CBasicResponse basic(
        now,
        CResponderID::fromCert(options.byKey ? CResponderID::byKey : CResponderID::byName, signer));
    basic.put_responses(answers);
    if (const ASN1::CExtensions* extensions = request->get_requestExtensions()) {
        if (const ASN1::CExtension* nonce = extensions->find(kNonceOid)) {
            ASN1::CExtensions echoed;
            echoed.push_back(*nonce);
            basic.put_responseExtensions(&echoed);
        }
    }
    if (!options.noCertificates) {
        basic.put_certs(&certificates);
    }
    Sign(basic, options, signer);
    const CBlob body = basic.encode();

    CResponseMessage response;
    response.put_responseStatus(successful);
    response.put_response(kBasicResponseOid, &body);
    WriteMessage(options.out, response.encode(), "OCSP RESPONSE", options.output.form());
    return outcome.code();
}

} // namespace

Command AddRespondCommand(CLI::App& application) {
    auto options = std::make_shared<RespondOptions>();
    CLI::App* command = application.add_subcommand(
        "respond", "Answer an OCSP request from an OpenSSL CA index (exit code: the answer)");
    command->add_option("--index", options->index, "The CA's index.txt, as `openssl ca` keeps it")
        ->required();
    command->add_option("--ca", options->ca, "Certificate of the CA (PEM or DER)")->required();
    command->add_option("--rsigner", options->signer, "Certificate of the responder (PEM or DER)")
        ->required();
    command
        ->add_option("--rkey", options->key,
                     "Private key of the responder: a PEM or DER file, or an OpenSSL store URI")
        ->required();
    command->add_flag("--by-key", options->byKey,
                      "Name the responder by the hash of its key rather than by its name");
    command
        ->add_option("--next-update", options->nextUpdateDays,
                     "Days until newer information is available (no nextUpdate without it)")
        ->check(CLI::Range(0u, 36500u));
    CLI::Option* other = command->add_option(
        "--rother", options->otherCertificates,
        "More certificates to send with the response (PEM, any number, or one DER)");
    command->add_flag("--no-certs", options->noCertificates, "Send no certificates at all")
        ->excludes(other);
    command->add_option("--digest", options->digest, "Hash of the signature")
        ->check(CLI::IsMember(HashNames()))
        ->capture_default_str();
    command->add_option("--reqin", options->requestPath, "The request (DER, PEM or base64)")
        ->required();
    command->add_option("--out", options->out, "File to write (- for standard output)")->required();
    AddOutputOptions(*command, options->output);
    return Command{command, [options] { return Run(*options); }};
}

} // namespace VelmorTool
