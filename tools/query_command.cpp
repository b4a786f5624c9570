// velmor-ocsp query: asks a responder over HTTP about certificates of one issuer, then checks
// and prints its answer as verify does.
#include "certificate.h"
#include "commands.h"
#include "exit_status.h"
#include "http_transport.h"
#include "input.h"
#include "request_builder.h"
#include "response_check.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

namespace VelmorTool {

namespace {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

struct QueryOptions {
    std::string url;
    RequestContent content;
    bool get = false;
    bool post = false;
    int timeout = 10;
    std::vector<std::string> headers;
    CheckSettings settings;
};

// The responder's URL: --url, or the first OCSP URL of the first certificate.
std::string ResponderUrl(const QueryOptions& options) {
    if (!options.url.empty()) {
        return options.url;
    }
    const std::string& path = options.content.asked.certificates.front();
    const auto url = OcspUrlOf(ReadCertificate(path));
    if (!url) {
        FailUsage(path + ": names no OCSP responder (authority information access); give --url");
    }
    return *url;
}

HttpExchange ExchangeOf(const QueryOptions& options, const std::string& url) {
    HttpExchange exchange;
    exchange.url = url;
    exchange.method = options.get    ? HttpMethod::get
                      : options.post ? HttpMethod::post
                                     : HttpMethod::automatic;
    exchange.timeoutSeconds = options.timeout;
    for (const std::string& header : options.headers) {
        const std::size_t equals = header.find('=');
        if (equals == 0 || equals == std::string::npos ||
            header.find_first_of("\r\n") != std::string::npos) {
            FailUsage("--header: \"" + header + "\" is not NAME=VALUE on one line");
        }
        exchange.headers.emplace_back(header.substr(0, equals), header.substr(equals + 1));
    }
    return exchange;
}

int Run(const QueryOptions& options) {
    const std::string url = ResponderUrl(options);
    const HttpExchange exchange = ExchangeOf(options, url);
    const CRequestMessage request = BuildRequest(options.content);
    const ResponseCheck check(options.content.asked, options.settings, &request);
    return check.run(url, Exchange(exchange, request.encode()));
}

} // namespace

Command AddQueryCommand(CLI::App& application) {
    auto options = std::make_shared<QueryOptions>();
    CLI::App* command = application.add_subcommand(
        "query", "Ask an OCSP responder over HTTP about certificates of one issuer and check "
                 "its answer");
    command->add_option("--url", options->url,
                        "The responder (http://...); by default the OCSP URL of the first "
                        "certificate");
    AddRequestContentOptions(*command, options->content);
    CLI::Option* get =
        command->add_flag("--get", options->get,
                          "Send the request in the URL of a GET (the default below 255 octets)");
    CLI::Option* post = command->add_flag("--post", options->post,
                                          "POST the request (the default from 255 octets on)");
    get->excludes(post);
    command->add_option("--timeout", options->timeout, "Seconds to wait for each step")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    command->add_option("--header", options->headers,
                        "An HTTP header to send, NAME=VALUE; repeat for more");
    AddCheckOptions(*command, options->settings);
    return Command{command, [options] { return Run(*options); }};
}

} // namespace VelmorTool
