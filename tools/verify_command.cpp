// velmor-ocsp verify: checks a response from a file as the answer about certificates of one
// issuer, and prints what it says about each and which checks failed.
#include "commands.h"
#include "exit_status.h"
#include "input.h"
#include "request_builder.h"
#include "response_check.h"

#include <CLI/CLI.hpp>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/request_message.h>

#include <memory>
#include <optional>
#include <string>

namespace VelmorTool {

namespace {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

struct VerifyOptions {
    std::string response;
    std::string request;
    AskedCertificates asked;
    CheckSettings settings;
};

CRequestMessage ReadRequest(const std::string& path) {
    const MessageFile file = ReadMessageFile(path, {"OCSP REQUEST"}, "OCSP request");
    CRequestMessage request;
    try {
        request.decode(file.der);
    } catch (const ATL::CAtlException& e) {
        FailFile(path, std::string("is not an OCSP request (") + e.what() + ")");
    }
    return request;
}

int Run(const VerifyOptions& options) {
    std::optional<CRequestMessage> request;
    if (!options.request.empty()) {
        request = ReadRequest(options.request);
    }
    const ResponseCheck check(options.asked, options.settings, request ? &*request : nullptr);
    const MessageFile response =
        ReadMessageFile(options.response, {"OCSP RESPONSE"}, "OCSP response");
    return check.run(options.response, response.der);
}

} // namespace

Command AddVerifyCommand(CLI::App& application) {
    auto options = std::make_shared<VerifyOptions>();
    CLI::App* command = application.add_subcommand(
        "verify", "Check an OCSP response about certificates of one issuer, as a client would");
    command
        ->add_option("--respin", options->response,
                     "The response (DER, PEM or base64; - for standard input)")
        ->required();
    AddAskedCertificateOptions(*command, options->asked);
    command->add_option("--reqin", options->request,
                        "The request that was sent: its nonce must come back");
    AddCheckOptions(*command, options->settings);
    return Command{command, [options] { return Run(*options); }};
}

} // namespace VelmorTool
