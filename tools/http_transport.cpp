#include "http_transport.h"

#include "armour.h"
#include "exit_status.h"
#include "ocsp_get.h"

#include <httplib.h>

#include <cctype>

namespace VelmorTool {

namespace {

constexpr const char* kRequestType = "application/ocsp-request";
constexpr const char* kResponseType = "application/ocsp-response";

struct Url {
    std::string host;
    int port = 80;
    std::string path; // as written, from the first '/' on; may be empty
};

std::string Lower(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

Url ParseUrl(const std::string& text) {
    const std::string scheme = "http://";
    if (Lower(text.substr(0, scheme.size())) != scheme) {
        FailUsage(text + ": only http:// URLs are supported");
    }
    const std::size_t start = scheme.size();
    const std::size_t end = text.find_first_of("/?#", start);
    const std::string authority = text.substr(start, end - start);
    Url url;
    url.path = end == std::string::npos ? "" : text.substr(end);
    if (!url.path.empty() && url.path[0] != '/') {
        url.path.insert(0, "/");
    }
    std::size_t colon = authority.rfind(':');
    if (!authority.empty() && authority[0] == '[') { // an IPv6 address
        const std::size_t close = authority.find(']');
        if (close == std::string::npos) {
            FailUsage(text + ": the IPv6 address has no closing ']'");
        }
        url.host = authority.substr(1, close - 1);
        colon = close + 1 < authority.size() && authority[close + 1] == ':' ? close + 1
                                                                            : std::string::npos;
        if (colon == std::string::npos && close + 1 != authority.size()) {
            FailUsage(text + ": the host is not followed by a port");
        }
    } else {
        url.host = authority.substr(0, colon);
    }
    if (url.host.empty() || url.host.find('@') != std::string::npos) {
        FailUsage(text + ": the URL names no host (user names are not supported)");
    }
    if (colon != std::string::npos) {
        const std::string port = authority.substr(colon + 1);
        bool digits = !port.empty() && port.size() <= 5;
        for (char c : port) {
            digits = digits && c >= '0' && c <= '9';
        }
        url.port = digits ? std::stoi(port) : 0;
        if (url.port < 1 || url.port > 65535) {
            FailUsage(text + ": \"" + port + "\" is no port number");
        }
    }
    return url;
}

std::string TransportFailure(httplib::Error error, const Url& url, int timeoutSeconds) {
    const std::string place = url.host + ":" + std::to_string(url.port);
    const std::string within = " within " + std::to_string(timeoutSeconds) + " s";
    switch (error) {
    case httplib::Error::Connection:
        return "cannot connect to " + place;
    case httplib::Error::ConnectionTimeout:
        return "no connection to " + place + within;
    case httplib::Error::Write:
        return "cannot send the request to " + place;
    case httplib::Error::Read:
        return "no complete answer from " + place + within;
    default:
        return "the HTTP exchange with " + place + " failed (" + httplib::to_string(error) + ")";
    }
}

// The media type of a Content-Type value, without parameters, in lower case.
std::string MediaType(const std::string& contentType) {
    std::string type = contentType.substr(0, contentType.find(';'));
    const std::size_t first = type.find_first_not_of(" \t");
    const std::size_t last = type.find_last_not_of(" \t");
    return first == std::string::npos ? "" : Lower(type.substr(first, last - first + 1));
}

} // namespace

std::string GetPath(const std::string& urlPath, const Velmor::CBlob& der) {
    std::string path = urlPath;
    if (path.empty() || path.back() != '/') {
        path += '/';
    }
    return path + GetPath(der.to_vector());
}

Velmor::CBlob Exchange(const HttpExchange& exchange, const Velmor::CBlob& der) {
    const Url url = ParseUrl(exchange.url);
    httplib::Client client(url.host, url.port);
    client.set_connection_timeout(exchange.timeoutSeconds);
    client.set_read_timeout(exchange.timeoutSeconds);
    client.set_write_timeout(exchange.timeoutSeconds);
    client.set_url_encode(false); // the GET path is encoded here, exactly once
    httplib::Headers headers;
    for (const auto& header : exchange.headers) {
        headers.emplace(header.first, header.second);
    }
    const bool get =
        exchange.method == HttpMethod::get ||
        (exchange.method == HttpMethod::automatic && der.cbData() <= kLargestGetRequest);
    httplib::Result result =
        get ? client.Get(GetPath(url.path, der), headers)
            : client.Post(url.path.empty() ? "/" : url.path, headers,
                          reinterpret_cast<const char*>(der.pbData()), der.cbData(), kRequestType);
    if (!result) {
        throw ToolError(kFileError,
                        exchange.url + ": " +
                            TransportFailure(result.error(), url, exchange.timeoutSeconds));
    }
    const httplib::Response& answer = result.value();
    if (answer.status != 200) {
        throw ToolError(kFileError, exchange.url + ": answered HTTP status " +
                                        std::to_string(answer.status) +
                                        (answer.reason.empty() ? "" : " (" + answer.reason + ")") +
                                        ", not 200");
    }
    if (!answer.has_header("Content-Type")) {
        throw ToolError(kFileError,
                        exchange.url + ": answered without a Content-Type, not " + kResponseType);
    }
    const std::string type = answer.get_header_value("Content-Type");
    if (MediaType(type) != kResponseType) {
        throw ToolError(kFileError, exchange.url + ": answered with Content-Type \"" + type +
                                        "\", not " + kResponseType);
    }
    if (answer.body.empty()) {
        throw ToolError(kFileError, exchange.url + ": answered with an empty body");
    }
    return Velmor::CBlob(std::string_view(answer.body));
}

} // namespace VelmorTool
