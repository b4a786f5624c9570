#include "tools/http_peer.h"

#include "tools/tool_runner.h"

#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/response_message.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace velmor_test {

namespace {

constexpr int kWaitSeconds = 15;

std::string Lower(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// Waits for the child to end, up to seconds; its exit code, -1 for a signal, -2 when it
// is still running.
int WaitFor(pid_t pid, int seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    for (;;) {
        int status = 0;
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        if (done < 0 || std::chrono::steady_clock::now() > deadline) {
            return done < 0 ? -1 : -2;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

} // namespace

ServerProcess::ServerProcess(const std::vector<std::string>& args) {
    static int counter = 0;
    m_errPath = ScratchPath("serve-" + std::to_string(++counter) + ".err");
    std::vector<std::string> argv{VELMOR_TOOL, "serve", "--port", "0"};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> pointers;
    for (std::string& arg : argv) {
        pointers.push_back(arg.data());
    }
    pointers.push_back(nullptr);
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "no pipe";
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, m_errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    const int spawned =
        posix_spawn(&m_pid, VELMOR_TOOL, &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (spawned != 0) {
        m_pid = -1;
        ::close(out[0]);
        ADD_FAILURE() << "cannot start " << VELMOR_TOOL;
        return;
    }
    // The first line names the address: "velmor-ocsp: serving http://127.0.0.1:PORT/ ...".
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kWaitSeconds);
    while (m_banner.find('\n') == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd ready{out[0], POLLIN, 0};
        char chunk[256];
        if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0) {
            break;
        }
        const ssize_t got = ::read(out[0], chunk, sizeof chunk);
        if (got <= 0) {
            break;
        }
        m_banner.append(chunk, static_cast<std::size_t>(got));
    }
    ::close(out[0]);
    const std::string marker = "http://127.0.0.1:";
    const std::size_t at = m_banner.find(marker);
    if (at != std::string::npos) {
        m_port = std::atoi(m_banner.c_str() + at + marker.size());
    }
    if (m_port == 0) {
        ADD_FAILURE() << "serve did not start: " << m_banner << errors();
    }
}

ServerProcess::~ServerProcess() {
    if (m_pid > 0) {
        stop(SIGKILL);
    }
}

int ServerProcess::stop(int signal) {
    if (m_pid <= 0) {
        return -1;
    }
    ::kill(m_pid, signal);
    int code = WaitFor(m_pid, kWaitSeconds);
    if (code == -2) {
        ::kill(m_pid, SIGKILL);
        WaitFor(m_pid, kWaitSeconds);
        code = -1;
    }
    m_pid = -1;
    return code;
}

std::string ServerProcess::errors() const {
    std::ifstream in(m_errPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> ServeArgs(const std::string& family, const std::vector<std::string>& more,
                                   const std::string& index) {
    std::vector<std::string> args{"--index",   index.empty() ? Pki(family, "index.txt") : index,
                                  "--ca",      Pki(family, "inter.pem"),
                                  "--rsigner", Pki(family, "ocsp.pem"),
                                  "--rkey",    Pki(family, "ocsp.key.pem")};
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

std::string HttpReply::header(const std::string& name) const {
    std::string value;
    for (const auto& [key, text] : headers) {
        if (Lower(key) == Lower(name)) {
            value = text;
        }
    }
    EXPECT_LE(count(name), 1u) << name;
    return value;
}

std::size_t HttpReply::count(const std::string& name) const {
    std::size_t n = 0;
    for (const auto& header : headers) {
        n += Lower(header.first) == Lower(name) ? 1 : 0;
    }
    return n;
}

HttpConnection::HttpConnection(int port) {
    m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval timeout{10, 0};
    if (m_socket < 0 ||
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0 ||
        ::setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0 ||
        ::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close();
    }
}

HttpConnection::~HttpConnection() { close(); }

void HttpConnection::close() {
    if (m_socket >= 0) {
        ::close(m_socket);
        m_socket = -1;
    }
}

bool HttpConnection::send(const std::string& bytes) {
    std::size_t sent = 0;
    while (m_socket >= 0 && sent < bytes.size()) {
        const ssize_t n = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    return m_socket >= 0;
}

bool HttpConnection::fill() {
    if (m_socket < 0 || m_eof) {
        return false;
    }
    char chunk[16384];
    const ssize_t n = ::recv(m_socket, chunk, sizeof chunk, 0);
    if (n <= 0) {
        m_eof = n == 0;
        return false;
    }
    m_buffer.append(chunk, static_cast<std::size_t>(n));
    return true;
}

HttpReply HttpConnection::read(bool head) {
    HttpReply reply;
    std::size_t end = 0;
    while ((end = m_buffer.find("\r\n\r\n")) == std::string::npos) {
        if (!fill()) {
            reply.closed = m_eof;
            return reply;
        }
    }
    const std::vector<std::string> lines = Lines(m_buffer.substr(0, end + 2));
    m_buffer.erase(0, end + 4);
    if (lines.empty() || lines[0].rfind("HTTP/1.1 ", 0) != 0) {
        return reply;
    }
    int status = std::atoi(lines[0].c_str() + 9);
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::string line = lines[i].substr(0, lines[i].size() - 1); // the \r
        const std::size_t colon = line.find(':');
        std::size_t value = colon + 1;
        while (value < line.size() && line[value] == ' ') {
            ++value;
        }
        reply.headers.emplace_back(line.substr(0, colon), line.substr(value));
    }
    const std::size_t length =
        head || status == 304 ? 0
                              : std::strtoul(reply.header("Content-Length").c_str(), nullptr, 10);
    while (m_buffer.size() < length) {
        if (!fill()) {
            reply.closed = m_eof;
            return reply;
        }
    }
    reply.body.assign(m_buffer.begin(), m_buffer.begin() + static_cast<std::ptrdiff_t>(length));
    m_buffer.erase(0, length);
    reply.status = status;
    return reply;
}

bool HttpConnection::closedByServer(int milliseconds) {
    if (!m_buffer.empty()) {
        return false;
    }
    pollfd ready{m_socket, POLLIN, 0};
    if (m_socket < 0 || ::poll(&ready, 1, milliseconds) <= 0) {
        return false;
    }
    char probe;
    const ssize_t n = ::recv(m_socket, &probe, 1, MSG_PEEK);
    return n == 0 || (n < 0 && errno == ECONNRESET);
}

HttpReply HttpConnection::exchange(const std::string& request, bool head) {
    if (!send(request)) {
        return HttpReply{};
    }
    return read(head);
}

std::string Post(const Bytes& body, const std::string& extraHeaders) {
    return "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/ocsp-request\r\n"
           "Content-Length: " +
           std::to_string(body.size()) + "\r\n" + extraHeaders + "\r\n" +
           std::string(body.begin(), body.end());
}

std::string Get(const std::string& path, const std::string& extraHeaders) {
    return "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + extraHeaders + "\r\n";
}

std::string GetPathOf(const Bytes& der) {
    std::string base64(4 * ((der.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()), der.data(),
                                  static_cast<int>(der.size()));
    base64.resize(static_cast<std::size_t>(n));
    std::string path = "/";
    for (char c : base64) {
        path += c == '+' ? "%2B" : c == '/' ? "%2F" : c == '=' ? "%3D" : std::string(1, c);
    }
    return path;
}

std::string HttpDate(std::int64_t seconds) {
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[64];
    std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts);
    return text;
}

std::optional<std::int64_t> FromHttpDate(const std::string& text) {
    std::tm parts{};
    const char* end = strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
    if (end == nullptr || *end != '\0') {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(timegm(&parts));
}

ResponseFacts ReadResponse(const Bytes& der, const std::string& family) {
    using namespace Velmor;
    using namespace Velmor::PKI::OCSP;
    ResponseFacts facts;
    try {
        CResponseMessage response;
        response.decode(CBlob(der));
        facts.status = response.get_responseStatus();
        if (response.get_response() == nullptr) {
            return facts;
        }
        CBasicResponse basic;
        basic.decode(*response.get_response());
        facts.verified = basic.verify(CBlob(ReadFile(Pki(family, "ocsp.der"))));
        facts.producedAt = basic.get_producedAt().seconds();
        for (const CSingleResponse& single : basic.get_responses()) {
            const CCertStatus& status = single.get_certStatus();
            facts.entries.emplace_back(
                single.get_reqCert().get_certID()->get_serialNumber().ToHex(),
                status.isGood()      ? "good"
                : status.isRevoked() ? "revoked"
                                     : "unknown");
            if (facts.entries.size() == 1) {
                facts.thisUpdate = single.get_thisUpdate().seconds();
                if (single.get_nextUpdate() != nullptr) {
                    facts.nextUpdate = single.get_nextUpdate()->seconds();
                }
            }
        }
        if (const ASN1::CExtensions* extensions = basic.get_responseExtensions()) {
            if (const ASN1::CExtension* nonce = extensions->find("1.3.6.1.5.5.7.48.1.2")) {
                facts.nonce = nonce->get_extnValue().to_vector();
            }
        }
    } catch (const ATL::CAtlException& e) {
        ADD_FAILURE() << "not a response: " << e.what();
        facts.status = -1;
    }
    return facts;
}

std::optional<Bytes> RequestNonce(const Bytes& der) {
    using namespace Velmor;
    PKI::OCSP::CRequestMessage request;
    request.decode(CBlob(der));
    if (const ASN1::CExtensions* extensions = request.get_requestExtensions()) {
        if (const ASN1::CExtension* nonce = extensions->find("1.3.6.1.5.5.7.48.1.2")) {
            return nonce->get_extnValue().to_vector();
        }
    }
    return std::nullopt;
}

std::string Sha1Hex(const Bytes& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha1(), nullptr);
    return ToHex(digest, size);
}

} // namespace velmor_test
