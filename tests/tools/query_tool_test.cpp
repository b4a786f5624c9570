// velmor-ocsp query: asks `openssl ocsp` running as a responder on this machine by POST and
// by GET and prints what verify prints; against a small HTTP server of the test, the request
// on the wire is what RFC 6960 appendix A says, the URL comes from the certificate when not
// given, and an answer that is no OCSP response over HTTP ends with one line and exit 5.
#include <gtest/gtest.h>
#include <httplib.h>
#include <pki/ocsp/ocsp.h>

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <ctime>
#include <mutex>
#include <netinet/in.h>
#include <regex>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "support/test_support.h"
#include "tools/tool_runner.h"

using namespace velmor_test;

namespace {

std::string Slurp(const std::string& path) {
    const Bytes bytes = ReadFile(path);
    return std::string(bytes.begin(), bytes.end());
}

// A TCP port on 127.0.0.1 that nothing listens on right now.
int FreePort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                       ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    ::close(fd);
    return bound ? ntohs(address.sin_port) : 0;
}

std::string LocalUrl(int port, const std::string& path = "") {
    return "http://127.0.0.1:" + std::to_string(port) + path;
}

// `openssl ocsp` answering for a family's intermediate CA on a free port, for at most
// `requests` requests, with nextUpdate a day after thisUpdate. Stopped when the object goes.
class OpensslResponder {
  public:
    OpensslResponder(const std::string& family, int requests) : m_port(FreePort()) {
        std::vector<std::string> argv{"openssl",   "ocsp",
                                      "-port",     std::to_string(m_port),
                                      "-index",    Pki(family, "index.txt"),
                                      "-CA",       Pki(family, "inter.pem"),
                                      "-rsigner",  Pki(family, "ocsp.pem"),
                                      "-rkey",     Pki(family, "ocsp.key.pem"),
                                      "-nrequest", std::to_string(requests),
                                      "-ndays",    "1"};
        m_pid = Spawn(argv, m_out, m_log);
        // It says ACCEPT on stdout once it listens.
        for (int i = 0; m_pid != 0 && i < 500 && Slurp(m_out).find("ACCEPT") == std::string::npos;
             ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    ~OpensslResponder() {
        if (m_pid != 0) {
            ::kill(m_pid, SIGTERM);
            ::waitpid(m_pid, nullptr, 0);
        }
    }
    OpensslResponder(const OpensslResponder&) = delete;
    OpensslResponder& operator=(const OpensslResponder&) = delete;

    bool listening() const {
        return m_pid != 0 && Slurp(m_out).find("ACCEPT") != std::string::npos;
    }
    std::string url() const { return LocalUrl(m_port); }
    // The first line of every request it received, in order ("POST / HTTP/1.1").
    std::vector<std::string> requestLines() const {
        static const std::regex kLine("Received request, 1st line: ([^\r\n]*)");
        const std::string log = Slurp(m_log);
        std::vector<std::string> lines;
        for (std::sregex_iterator it(log.begin(), log.end(), kLine), end; it != end; ++it) {
            lines.push_back((*it)[1].str());
        }
        return lines;
    }

  private:
    int m_port;
    pid_t m_pid = 0;
    std::string m_out = ScratchPath("openssl-responder-" + std::to_string(m_port) + ".out");
    std::string m_log = ScratchPath("openssl-responder-" + std::to_string(m_port) + ".log");
};

// An HTTP server of the test that gives every request the same answer and keeps what it was
// sent.
class FakeResponder {
  public:
    struct Answer {
        int status = 200;
        std::string contentType = "application/ocsp-response";
        std::string body;
        int delaySeconds = 0;
    };
    struct Received {
        std::string method;
        std::string target; // as on the request line
        std::string contentType;
        std::string testHeader; // X-Velmor-Test
        std::string body;
    };

    explicit FakeResponder(Answer answer) : m_answer(std::move(answer)) {
        const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_received.push_back(Received{
                    request.method, request.target, request.get_header_value("Content-Type"),
                    request.get_header_value("X-Velmor-Test"), request.body});
            }
            std::this_thread::sleep_for(std::chrono::seconds(m_answer.delaySeconds));
            response.status = m_answer.status;
            response.body = m_answer.body;
            response.set_header("Content-Type", m_answer.contentType);
        };
        m_server.Get(".*", handler);
        m_server.Post(".*", handler);
        m_port = m_server.bind_to_any_port("127.0.0.1");
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
        for (int i = 0; i < 500 && !m_server.is_running(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    ~FakeResponder() {
        m_server.stop();
        m_thread.join();
    }
    FakeResponder(const FakeResponder&) = delete;
    FakeResponder& operator=(const FakeResponder&) = delete;

    int port() const { return m_port; }
    std::string url(const std::string& path = "") const { return LocalUrl(m_port, path); }
    std::vector<Received> received() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_received;
    }

  private:
    Answer m_answer;
    httplib::Server m_server;
    int m_port = 0;
    std::thread m_thread;
    std::mutex m_mutex;
    std::vector<Received> m_received;
};

// Answers one connection with raw octets, whatever it was asked: what an HTTP library
// would not send (no Content-Type).
class RawResponder {
  public:
    explicit RawResponder(std::string reply) : m_reply(std::move(reply)) {
        m_listener = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            ::listen(m_listener, 1) == 0 &&
            ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
            m_port = ntohs(address.sin_port);
        }
        m_thread = std::thread([this] {
            const int connection = ::accept(m_listener, nullptr, nullptr);
            if (connection < 0) {
                return;
            }
            std::string head;
            char chunk[4096];
            ssize_t got = 0;
            while (head.find("\r\n\r\n") == std::string::npos &&
                   (got = ::recv(connection, chunk, sizeof chunk, 0)) > 0) {
                head.append(chunk, static_cast<std::size_t>(got));
            }
            (void)!::send(connection, m_reply.data(), m_reply.size(), MSG_NOSIGNAL);
            ::close(connection);
        });
    }
    ~RawResponder() {
        ::shutdown(m_listener, SHUT_RDWR); // ends an accept that is still waiting
        m_thread.join();
        ::close(m_listener);
    }
    RawResponder(const RawResponder&) = delete;
    RawResponder& operator=(const RawResponder&) = delete;

    std::string url() const { return LocalUrl(m_port); }

  private:
    std::string m_reply;
    int m_listener = -1;
    int m_port = 0;
    std::thread m_thread;
};

FakeResponder::Answer Answering(const std::string& file) {
    FakeResponder::Answer answer;
    const Bytes bytes = ReadFile(DataPath("ocsp/" + file));
    answer.body.assign(bytes.begin(), bytes.end());
    return answer;
}

ToolRun Query(const std::string& url, const std::string& family,
              const std::vector<std::string>& leaves, const std::vector<std::string>& more = {}) {
    std::vector<std::string> args{"query"};
    if (!url.empty()) {
        args.push_back("--url");
        args.push_back(url);
    }
    args.push_back("--issuer");
    args.push_back(Pki(family, "inter.pem"));
    for (const std::string& leaf : leaves) {
        args.push_back("--cert");
        args.push_back(Pki(family, leaf + ".pem"));
    }
    args.insert(args.end(), more.begin(), more.end());
    return RunTool(args);
}

std::time_t FromIso(const std::string& text) {
    std::tm parts{};
    if (::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts) == nullptr) {
        return 0;
    }
    return ::timegm(&parts);
}

// What query prints about one certificate answered by OpensslResponder: thisUpdate is when
// it answered, within the run, and nextUpdate a day later.
std::string FreshStatus(const std::string& printed, const std::string& certificate,
                        const std::string& status, std::time_t before, std::time_t after) {
    static const std::regex kThisUpdate("This Update: ([0-9TZ:-]+)");
    std::smatch match;
    if (!std::regex_search(printed, match, kThisUpdate)) {
        ADD_FAILURE() << "no thisUpdate in " << printed;
        return "";
    }
    const std::time_t thisUpdate = FromIso(match[1].str());
    EXPECT_GE(thisUpdate, before - 1) << printed;
    EXPECT_LE(thisUpdate, after + 1) << printed;
    std::string text = certificate + ": " + status + "\n\tThis Update: " + IsoTime(thisUpdate) +
                       "\n\tNext Update: " + IsoTime(thisUpdate + 24 * 3600) + "\n";
    if (status == "revoked") {
        text += "\tReason: keyCompromise\n\tRevocation Time: 2026-01-01T00:00:00Z\n";
    }
    return text;
}

struct Asked {
    std::string leaf;
    std::string status;
    int exitCode;
};

void ExpectAnswered(const ToolRun& run, const Asked& asked, std::time_t before) {
    SCOPED_TRACE(asked.leaf);
    EXPECT_EQ(run.exitCode, asked.exitCode) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, FreshStatus(run.out, Pki("rsa", asked.leaf + ".pem"), asked.status, before,
                                   std::time(nullptr)) +
                           "Response verify OK\n");
}

// The GET path of der under prefix: base64 with '+', '/' and '=' percent-encoded.
std::string ExpectedGetTarget(const std::string& prefix, const std::string& derPath) {
    std::string base64;
    EXPECT_EQ(RunCommand("openssl base64 -A -in " + derPath, &base64), 0);
    std::string target = prefix;
    for (char c : base64) {
        target += c == '+' ? "%2B" : c == '/' ? "%2F" : c == '=' ? "%3D" : std::string(1, c);
    }
    return target;
}

// What verify prints about resp-good-rsa.der for a certificate with serial 1001 of rsa/inter.
std::string GoodFixtureStatus(const std::string& certificate) {
    return certificate +
           ": good\n\tThis Update: 2026-11-23T06:34:38Z\n\tNext Update: 2036-11-20T06:34:38Z\n"
           "Response verify OK\n";
}

} // namespace

TEST(QueryTool, PostsToOpensslWithANonce) {
    ASSERT_TRUE(HaveOpenssl());
    const Asked cases[] = {{"leaf", "good", 0}, {"leaf00", "revoked", 1}, {"client", "unknown", 2}};
    OpensslResponder responder("rsa", 3);
    ASSERT_TRUE(responder.listening());
    for (const Asked& c : cases) {
        const std::time_t before = std::time(nullptr);
        ExpectAnswered(Query(responder.url(), "rsa", {c.leaf}, {"--post"}), c, before);
    }
    EXPECT_EQ(responder.requestLines(),
              std::vector<std::string>(3, "POST / HTTP/1.1")); // -nrequest 3: all were answered
}

TEST(QueryTool, UsesGetWhenAskedOrForASmallRequest) {
    ASSERT_TRUE(HaveOpenssl());
    OpensslResponder responder("rsa", 3);
    ASSERT_TRUE(responder.listening());
    std::time_t before = std::time(nullptr);
    ExpectAnswered(Query(responder.url(), "rsa", {"leaf00"}, {"--get"}), {"leaf00", "revoked", 1},
                   before);
    before = std::time(nullptr);
    ExpectAnswered(Query(responder.url() + "/", "rsa", {"leaf"}), {"leaf", "good", 0}, before);
    // Three SHA-512 certificate IDs make more than 254 octets: POST.
    const ToolRun large =
        Query(responder.url(), "rsa", {"leaf", "client", "leaf20"}, {"--hash", "sha512"});
    EXPECT_EQ(large.exitCode, 2) << large.err;
    EXPECT_NE(large.out.find(Pki("rsa", "client.pem") + ": unknown\n"), std::string::npos)
        << large.out;
    EXPECT_NE(large.out.find("\nResponse verify OK\n"), std::string::npos) << large.out;

    const std::vector<std::string> lines = responder.requestLines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].substr(0, 5), "GET /");
    EXPECT_EQ(lines[1].substr(0, 5), "GET /");
    EXPECT_EQ(lines[1].find("//"), std::string::npos) << lines[1];
    EXPECT_EQ(lines[2], "POST / HTTP/1.1");
}

TEST(QueryTool, SendsTheRequestAsAppendixASays) {
    ASSERT_TRUE(HaveOpenssl());
    // Without a nonce the request is the same every time: the one `request` writes.
    const std::string der = ScratchPath("query-plain.req");
    ASSERT_EQ(RunRequest("rsa", {"leaf"}, der, {"--no-nonce"}).exitCode, 0);
    const Bytes expectedBody = ReadFile(der);
    FakeResponder server(Answering("resp-good-rsa.der"));
    const std::string leaf = Pki("rsa", "leaf.pem");

    ToolRun run = Query(server.url("/ocsp"), "rsa", {"leaf"},
                        {"--post", "--no-nonce", "--header", "X-Velmor-Test=a=b"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, GoodFixtureStatus(leaf));
    run = Query(server.url("/ocsp"), "rsa", {"leaf"}, {"--get", "--no-nonce"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, GoodFixtureStatus(leaf));
    run = Query(server.url("/a/"), "rsa", {"leaf"}, {"--no-nonce"}); // GET: under 255 octets
    EXPECT_EQ(run.exitCode, 0) << run.err;

    const std::vector<FakeResponder::Received> received = server.received();
    ASSERT_EQ(received.size(), 3u);
    EXPECT_EQ(received[0].method, "POST");
    EXPECT_EQ(received[0].target, "/ocsp");
    EXPECT_EQ(received[0].contentType, "application/ocsp-request");
    EXPECT_EQ(received[0].testHeader, "a=b");
    EXPECT_EQ(received[0].body, std::string(expectedBody.begin(), expectedBody.end()));
    EXPECT_EQ(received[1].method, "GET");
    EXPECT_EQ(received[1].target, ExpectedGetTarget("/ocsp/", der));
    EXPECT_EQ(received[1].testHeader, "");
    EXPECT_EQ(received[2].method, "GET");
    EXPECT_EQ(received[2].target, ExpectedGetTarget("/a/", der));
}

TEST(QueryTool, ChecksTheNonceItSent) {
    // The fixture response carries the nonce of another request.
    FakeResponder server(Answering("resp-good-rsa.der"));
    const std::string leaf = Pki("rsa", "leaf.pem");
    const ToolRun run = Query(server.url(), "rsa", {"leaf"});
    EXPECT_EQ(run.exitCode, 3) << run.err;
    EXPECT_EQ(run.out, leaf +
                           ": good\n\tThis Update: 2026-11-23T06:34:38Z\n\tNext Update: "
                           "2036-11-20T06:34:38Z\n" +
                           leaf + ": check failed: nonce-mismatch\nResponse verify FAILED\n");
}

TEST(QueryTool, TakesTheUrlFromTheCertificate) {
    ASSERT_TRUE(HaveOpenssl());
    FakeResponder server(Answering("resp-good-rsa.der"));
    // A certificate of rsa/inter with the serial of rsa/leaf, naming the test's server.
    const std::string config =
        WriteTempFile(Text("[aia]\nauthorityInfoAccess = OCSP;URI:" + server.url("/inter") +
                           ", caIssuers;URI:http://pki.velmor.test/inter.cer\n"
                           "authorityKeyIdentifier = keyid:always\n"),
                      "aia.cnf");
    const std::string request = ScratchPath("aia.csr");
    const std::string certificate = ScratchPath("aia.pem");
    ASSERT_EQ(RunCommand("openssl req -new -key " + Pki("rsa", "leaf.key.pem") +
                         " -subj /CN=aia.velmor.test -out " + request + " 2>&1"),
              0);
    ASSERT_EQ(RunCommand("openssl x509 -req -in " + request + " -CA " + Pki("rsa", "inter.pem") +
                         " -CAkey " + Pki("rsa", "inter.key.pem") +
                         " -set_serial 0x1001 -days 30 -extfile " + config +
                         " -extensions aia -out " + certificate + " 2>&1"),
              0);
    const ToolRun run = RunTool(
        {"query", "--issuer", Pki("rsa", "inter.pem"), "--cert", certificate, "--no-nonce"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, GoodFixtureStatus(certificate));
    const std::vector<FakeResponder::Received> received = server.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].method, "GET");
    EXPECT_EQ(received[0].target.substr(0, 7), "/inter/");

    // The fixture leaves name a responder that is not there; one without the extension
    // names none.
    ExpectOneLine(
        {{"query", "--issuer", Pki("rsa", "inter.pem"), "--cert", Pki("rsa", "client.pem")},
         64,
         Pki("rsa", "client.pem") +
             ": names no OCSP responder (authority information access); give --url"});
}

TEST(QueryTool, AnAnswerThatIsNoOcspResponseExitsFive) {
    struct Case {
        std::string what;
        FakeResponder::Answer answer;
        int exitCode;
        std::string message; // after "URL: "
    };
    FakeResponder::Answer notFound{404, "text/plain", "no such responder\n"};
    FakeResponder::Answer failed{500, "application/ocsp-response", ""};
    FakeResponder::Answer html = Answering("resp-good-rsa.der");
    html.contentType = "text/html; charset=utf-8";
    FakeResponder::Answer junk{200, "application/ocsp-response", "<html>hello</html>"};
    FakeResponder::Answer empty{200, "application/ocsp-response", ""};
    FakeResponder::Answer tryLater{200, "Application/OCSP-Response",
                                   std::string("\x30\x03\x0a\x01\x03", 5)};
    FakeResponder::Answer slow = Answering("resp-good-rsa.der");
    slow.delaySeconds = 3;
    const Case cases[] = {
        {"404", notFound, 5, "answered HTTP status 404 (Not Found), not 200"},
        {"500", failed, 5, "answered HTTP status 500 (Internal Server Error), not 200"},
        {"HTML", html, 5,
         "answered with Content-Type \"text/html; charset=utf-8\", not application/ocsp-response"},
        {"junk", junk, 5, "is not an OCSP response (CRYPT_E_ASN1_INTERNAL (0x80093101))"},
        {"empty", empty, 5, "answered with an empty body"},
        // The media type compares without case.
        {"tryLater", tryLater, 4, "the responder answered tryLater (3)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        FakeResponder server(c.answer);
        ExpectOneLine({{"query", "--url", server.url(), "--issuer", Pki("rsa", "inter.pem"),
                        "--cert", Pki("rsa", "leaf.pem"), "--timeout", "1"},
                       c.exitCode,
                       server.url() + ": " + c.message});
        EXPECT_EQ(server.received().size(), 1u);
    }
    {
        FakeResponder server(slow);
        ExpectOneLine({{"query", "--url", server.url(), "--issuer", Pki("rsa", "inter.pem"),
                        "--cert", Pki("rsa", "leaf.pem"), "--timeout", "1"},
                       5,
                       server.url() + ": no complete answer from 127.0.0.1:" +
                           std::to_string(server.port()) + " within 1 s"});
    }
    {
        const Bytes good = ReadFile(DataPath("ocsp/resp-good-rsa.der"));
        RawResponder server("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(good.size()) +
                            "\r\nConnection: close\r\n\r\n" +
                            std::string(good.begin(), good.end()));
        ExpectOneLine(
            {{"query", "--url", server.url(), "--issuer", Pki("rsa", "inter.pem"), "--cert",
              Pki("rsa", "leaf.pem"), "--get", "--timeout", "1"},
             5,
             server.url() + ": answered without a Content-Type, not application/ocsp-response"});
    }
    const int closed = FreePort();
    ExpectOneLine({{"query", "--url", LocalUrl(closed), "--issuer", Pki("rsa", "inter.pem"),
                    "--cert", Pki("rsa", "leaf.pem")},
                   5,
                   LocalUrl(closed) + ": cannot connect to 127.0.0.1:" + std::to_string(closed)});
}

TEST(QueryTool, BadCommandLinesAreUsageErrors) {
    const std::string inter = Pki("rsa", "inter.pem");
    const std::string leaf = Pki("rsa", "leaf.pem");
    const auto query = [&](const std::string& url, const std::vector<std::string>& more) {
        std::vector<std::string> args{"query", "--url", url, "--issuer", inter, "--cert", leaf};
        args.insert(args.end(), more.begin(), more.end());
        return args;
    };
    const std::string url = "http://127.0.0.1:9";
    const BadInput cases[] = {
        {query("https://ocsp.velmor.test", {}), 64,
         "https://ocsp.velmor.test: only http:// URLs are supported"},
        {query("ftp://ocsp.velmor.test/x", {}), 64,
         "ftp://ocsp.velmor.test/x: only http:// URLs are supported"},
        {query("http://127.0.0.1:99999/", {}), 64,
         "http://127.0.0.1:99999/: \"99999\" is no port number"},
        {query("http://:80/", {}), 64,
         "http://:80/: the URL names no host (user names are not supported)"},
        {query(url, {"--get", "--post"}), 64, "--get excludes --post (see velmor-ocsp --help)"},
        {query(url, {"--header", "X-Velmor-Test"}), 64,
         "--header: \"X-Velmor-Test\" is not NAME=VALUE on one line"},
        {query(url, {"--header", "=value"}), 64,
         "--header: \"=value\" is not NAME=VALUE on one line"},
        {query(url, {"--timeout", "0"}), 64,
         "--timeout: Value 0 not in range 1 to 86400 (see velmor-ocsp --help)"},
        {query(url, {"--at", "noon"}), 64,
         "--at: \"noon\" is no time (2026-01-31T12:00:00Z or 20260131120000Z)"},
        // What request refuses, query refuses before it sends anything.
        {{"query", "--url", url, "--issuer", Pki("ec", "inter.pem"), "--cert", leaf},
         5,
         leaf + ": was not issued by " + Pki("ec", "inter.pem")},
    };
    for (const BadInput& c : cases) {
        ExpectOneLine(c);
    }
}
