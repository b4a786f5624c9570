// OCSP over HTTP as RFC 6960 (appendix A) and RFC 5019 describe it: the DER request POSTed
// as application/ocsp-request, or base64-encoded in the path of a GET; the answer must be
// HTTP 200 with Content-Type application/ocsp-response.
#ifndef VELMOR_TOOLS_HTTP_TRANSPORT_H
#define VELMOR_TOOLS_HTTP_TRANSPORT_H

#include <pki/ocsp/blob.h>

#include <string>
#include <utility>
#include <vector>

namespace VelmorTool {

enum class HttpMethod { automatic, get, post };

struct HttpExchange {
    std::string url; // http://host[:port][/path]
    HttpMethod method = HttpMethod::automatic;
    int timeoutSeconds = 10; // for connecting, and for each read and write
    std::vector<std::pair<std::string, std::string>> headers;
};

// GET is used below this many octets of DER when the method is automatic.
inline constexpr unsigned long kLargestGetRequest = 254;

// The path of the GET for der under the URL's path: the path, a slash unless it ends in one,
// then the base64 of der with '+', '/' and '=' percent-encoded.
std::string GetPath(const std::string& urlPath, const Velmor::CBlob& der);

// Sends der and returns the body of the answer. A URL that is not http:// is a usage error;
// no connection, an HTTP status other than 200 or another Content-Type end the command
// with a transport error (exit 5) naming the URL.
Velmor::CBlob Exchange(const HttpExchange& exchange, const Velmor::CBlob& der);

} // namespace VelmorTool

#endif
