// velmor-ocsp respond: answers a request as the OCSP responder of one CA, from the CA's
// OpenSSL index file.
#include "ca_index.h"
#include "commands.h"
#include "exit_status.h"
#include "input.h"
#include "output.h"
#include "responder.h"

#include <CLI/CLI.hpp>

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
    ResponderOptions responder;
    std::string requestPath;
    std::string out;
    OutputOptions output;
};

// The request, or null (after saying why on stderr) when it cannot be read as one.
std::optional<CRequestMessage> ReadRequest(const std::string& path) {
    const Bytes content = ReadFileBytes(path, true); // a missing file is no malformed request
    std::string problem;
    try {
        const MessageFile file = ParseMessageFile(path, content, {"OCSP REQUEST"}, "request");
        std::optional<CRequestMessage> request = DecodeRequest(file.der, &problem);
        if (request) {
            return request;
        }
        problem = path + ": " + problem;
    } catch (const ToolError& e) {
        problem = e.what();
    }
    std::fprintf(stderr, "velmor-ocsp: %s; answered malformedRequest\n", problem.c_str());
    return std::nullopt;
}

int Run(const RespondOptions& options) {
    const CaIndex index(options.responder.index);
    const Responder responder(options.responder);
    const std::optional<CRequestMessage> request = ReadRequest(options.requestPath);
    const auto now = std::chrono::duration_cast<std::chrono::seconds>(
        std::chrono::system_clock::now().time_since_epoch());
    const Answer answer = request ? responder.answer(*request, index, CDateTime(now.count(), 0))
                                  : ErrorAnswer(malformedRequest);
    if (answer.status == unauthorized) {
        std::fprintf(stderr,
                     "velmor-ocsp: %s: asks about no certificate issued by %s; answered "
                     "unauthorized\n",
                     options.requestPath.c_str(), options.responder.ca.c_str());
    }
    WriteMessage(options.out, answer.der, "OCSP RESPONSE", options.output.form());
    return answer.code;
}

} // namespace

Command AddRespondCommand(CLI::App& application) {
    auto options = std::make_shared<RespondOptions>();
    CLI::App* command = application.add_subcommand(
        "respond", "Answer an OCSP request from an OpenSSL CA index (exit code: the answer)");
    AddResponderOptions(*command, options->responder,
                        "Days until newer information is available (no nextUpdate without it)");
    command->add_option("--reqin", options->requestPath, "The request (DER, PEM or base64)")
        ->required();
    command->add_option("--out", options->out, "File to write (- for standard output)")->required();
    AddOutputOptions(*command, options->output);
    return Command{command, [options] { return Run(*options); }};
}

} // namespace VelmorTool
