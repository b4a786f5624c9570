// velmor-ocsp serve as a child process on 127.0.0.1, and a plain HTTP/1.1 client that sends
// exactly the bytes a test gives it: the server's answers are read as they come, headers and
// connection state included. Every wait is bounded.
#ifndef VELMOR_TESTS_TOOLS_HTTP_PEER_H
#define VELMOR_TESTS_TOOLS_HTTP_PEER_H

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

#include "support/test_support.h"

namespace velmor_test {

// velmor-ocsp serve on a free port of 127.0.0.1, stopped (SIGKILL if need be) when the object
// goes.
class ServerProcess {
  public:
    // Starts `velmor-ocsp serve --port 0 ARGS` and waits (15 s at most) for the line that
    // names its port. A failure to start fails the test; port() is then 0.
    explicit ServerProcess(const std::vector<std::string>& args);
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    int port() const noexcept { return m_port; }
    // The line it wrote on starting.
    const std::string& banner() const noexcept { return m_banner; }
    // Sends the signal and waits up to 15 s: the exit code, -1 for a crash or a server that
    // had to be killed.
    int stop(int signal);
    // What it wrote on stderr so far.
    std::string errors() const;

  private:
    pid_t m_pid = -1;
    int m_port = 0;
    std::string m_banner;
    std::string m_errPath;
};

// The responder of a family ("rsa" or "ec") from the fixture PKI, with more options.
std::vector<std::string> ServeArgs(const std::string& family,
                                   const std::vector<std::string>& more = {},
                                   const std::string& index = "");

struct HttpReply {
    int status = 0; // 0: no (complete) answer
    std::vector<std::pair<std::string, std::string>> headers;
    Bytes body;
    bool closed = false; // the connection ended before a whole answer came

    // The value of the one header of that name (compared without case); empty when absent,
    // a failure when it is sent twice.
    std::string header(const std::string& name) const;
    std::size_t count(const std::string& name) const;
};

// One TCP connection to 127.0.0.1:port; reads time out after 10 s.
class HttpConnection {
  public:
    explicit HttpConnection(int port);
    ~HttpConnection();
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    bool connected() const noexcept { return m_socket >= 0; }
    bool send(const std::string& bytes);
    // Reads one answer (its body by Content-Length; none for HEAD requests and 304).
    HttpReply read(bool head = false);
    // True when the server closes the connection within the time, nothing more coming.
    bool closedByServer(int milliseconds);
    // Sends and reads.
    HttpReply exchange(const std::string& request, bool head = false);
    void close();

  private:
    bool fill();
    int m_socket = -1;
    std::string m_buffer;
    bool m_eof = false;
};

// Raw requests.
std::string Post(const Bytes& body, const std::string& extraHeaders = "");
std::string Get(const std::string& path, const std::string& extraHeaders = "");

// The url-encoded base64 path of a request, as RFC 5019 clients write it.
std::string GetPathOf(const Bytes& der);

// An HTTP date of seconds since 1970, and back (nullopt for text that is not one).
std::string HttpDate(std::int64_t seconds);
std::optional<std::int64_t> FromHttpDate(const std::string& text);

// What an OCSP response says, read with the library: its status and, for a basic response,
// whether its signature verifies with the family's responder certificate, its entries, its
// nonce (the extension's value) and the times of its first entry.
struct ResponseFacts {
    int status = -1; // -1: not an OCSP response
    bool verified = false;
    std::vector<std::pair<std::string, std::string>> entries; // serial hex, good/revoked/unknown
    std::optional<Bytes> nonce;
    std::int64_t producedAt = 0;
    std::int64_t thisUpdate = 0;
    std::optional<std::int64_t> nextUpdate;
};
ResponseFacts ReadResponse(const Bytes& der, const std::string& family);

// The nonce extension's value in a DER request, if any.
std::optional<Bytes> RequestNonce(const Bytes& der);

// Lower-case hex of the SHA-1 of bytes.
std::string Sha1Hex(const Bytes& bytes);

} // namespace velmor_test

#endif
