// velmor-ocsp request: builds the request a client sends for one or more certificates of
// one issuer, with a fresh nonce unless told otherwise, signed when given a key.
#include "algorithms.h"
#include "certificate.h"
#include "commands.h"
#include "exit_status.h"
#include "input.h"
#include "output.h"
#include "request_builder.h"

#include <CLI/CLI.hpp>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/crypt_provider.h>
#include <pki/ocsp/request_message.h>

#include <memory>
#include <string>
#include <vector>

namespace VelmorTool {

namespace {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

struct RequestOptions {
    RequestContent content;
    std::string signKey;
    std::string signer;
    std::string out;
    OutputOptions output;
};

void Sign(CRequestMessage& request, const RequestOptions& options) {
    const CBlob signer = ReadCertificate(options.signer);
    const SigningKey key(options.signKey);
    const auto facts = ReadCertificateFacts(signer);
    request.put_requestorName(&facts->subjectName);
    CBlobList certificates;
    certificates.push_back(signer);
    try {
        request.sign(key.provider(), Win32::AT_SIGNATURE,
                     ASN1::CAlgorithmIdentifierEx(SignatureOid(key.type(), "sha256")),
                     &certificates);
    } catch (const ATL::CAtlException& e) {
        FailFile(options.signKey, std::string("cannot sign: ") + e.what());
    }
    if (!request.verify(signer)) {
        FailFile(options.signKey, "is not the key of the signer certificate " + options.signer);
    }
}

int Run(const RequestOptions& options) {
    CRequestMessage request = BuildRequest(options.content);
    if (!options.signKey.empty()) {
        Sign(request, options);
    }
    WriteMessage(options.out, request.encode(), "OCSP REQUEST", options.output.form());
    return kAllGood;
}

} // namespace

Command AddRequestCommand(CLI::App& application) {
    auto options = std::make_shared<RequestOptions>();
    CLI::App* command = application.add_subcommand(
        "request", "Build an OCSP request for certificates of one issuer");
    AddRequestContentOptions(*command, options->content);
    CLI::Option* key = command->add_option(
        "--sign-key", options->signKey,
        "Private key that signs the request: a PEM or DER file, or an OpenSSL store URI");
    CLI::Option* signer = command->add_option(
        "--signer", options->signer, "Certificate of the signing key, sent with the request");
    key->needs(signer);
    signer->needs(key);
    command->add_option("--out", options->out, "File to write (- for standard output)")->required();
    AddOutputOptions(*command, options->output);
    return Command{command, [options] { return Run(*options); }};
}

} // namespace VelmorTool
