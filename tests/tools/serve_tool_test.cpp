// velmor-ocsp serve, run as a child process on 127.0.0.1: openssl's client accepts its
// answers, GET answers carry exact caching headers, errors are OCSP statuses or HTTP
// statuses as documented, no client can stop it serving others, a changed index is seen,
// concurrent clients get their own answers, and it stops with exit code 0 when told to.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/test_support.h"
#include "tools/http_peer.h"
#include "tools/tool_runner.h"

using namespace velmor_test;

namespace {

const std::string kMalformedRequest = "30030a0101";
const std::string kUnauthorized = "30030a0106";
const std::string kOcspType = "application/ocsp-response";

// A request of ours about leaves of a family, as bytes.
Bytes RequestBytes(const std::string& family, const std::vector<std::string>& leaves,
                   const std::vector<std::string>& more = {}) {
    static int counter = 0;
    const std::string path = ScratchPath("serve-request-" + std::to_string(++counter) + ".der");
    const ToolRun run = RunRequest(family, leaves, path, more);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    return ReadFile(path);
}

using Entries = std::vector<std::pair<std::string, std::string>>;

// Expects an OCSP answer with an error status and the headers that forbid keeping it.
void ExpectErrorStatus(const HttpReply& reply, const std::string& statusHex) {
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.header("Content-Type"), kOcspType);
    EXPECT_EQ(reply.header("Cache-Control"), "max-age=0, no-cache");
    EXPECT_EQ(reply.count("ETag"), 0u);
    EXPECT_EQ(reply.count("Expires"), 0u);
    EXPECT_EQ(ToHex(reply.body), statusHex);
}

// Expects an HTTP error status and a closed connection.
void ExpectRefused(HttpConnection& connection, const HttpReply& reply, int status) {
    EXPECT_EQ(reply.status, status);
    EXPECT_EQ(reply.header("Connection"), "close");
    EXPECT_TRUE(connection.closedByServer(5000)) << status;
}

void RewriteFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

} // namespace

TEST(ServeTool, OpensslClientVerifiesEveryStatusWithItsNonce) {
    ASSERT_TRUE(HaveOpenssl());
    for (const std::string family : {"rsa", "ec"}) {
        SCOPED_TRACE(family);
        ServerProcess server(ServeArgs(family));
        ASSERT_NE(server.port(), 0);
        const std::string errPath = ScratchPath("openssl-client.err");
        std::string out;
        // openssl sends a nonce and warns when the answer does not echo it.
        const int code = RunCommand(
            "openssl ocsp -url http://127.0.0.1:" + std::to_string(server.port()) + " -issuer " +
                Pki(family, "inter.pem") + " -cert " + Pki(family, "leaf.pem") + " -cert " +
                Pki(family, "leaf00.pem") + " -cert " + Pki(family, "client.pem") + " -VAfile " +
                Pki(family, "ocsp.pem") + " 2>" + errPath,
            &out);
        EXPECT_EQ(code, 0) << out;
        const Bytes err = ReadFile(errPath);
        EXPECT_EQ(std::string(err.begin(), err.end()), "Response verify OK\n");
        EXPECT_NE(out.find(Pki(family, "leaf.pem") + ": good\n"), std::string::npos) << out;
        EXPECT_NE(out.find(Pki(family, "leaf00.pem") + ": revoked\n"), std::string::npos) << out;
        EXPECT_NE(out.find(Pki(family, "client.pem") + ": unknown\n"), std::string::npos) << out;
        EXPECT_NE(out.find("\tReason: keyCompromise\n"
                           "\tRevocation Time: Jan  1 00:00:00 2026 GMT\n"),
                  std::string::npos)
            << out;
        EXPECT_EQ(server.stop(SIGTERM), 0);
        EXPECT_EQ(server.errors(), "");
    }
}

TEST(ServeTool, GetAnswersCarryCachingHeadersAndHonourIfNoneMatch) {
    ServerProcess server(ServeArgs("ec"));
    ASSERT_NE(server.port(), 0);
    const Bytes request = RequestBytes("ec", {"leaf00"}, {"--no-nonce"});
    const std::string path = GetPathOf(request);
    HttpConnection connection(server.port());
    const HttpReply reply = connection.exchange(Get(path));
    ASSERT_EQ(reply.status, 200);
    EXPECT_EQ(reply.header("Content-Type"), kOcspType);
    const ResponseFacts facts = ReadResponse(reply.body, "ec");
    EXPECT_EQ(facts.status, 0);
    EXPECT_TRUE(facts.verified);
    EXPECT_EQ(facts.entries, (Entries{{"8F3A5C11D2", "revoked"}}));
    EXPECT_FALSE(facts.nonce);
    ASSERT_TRUE(facts.nextUpdate);
    EXPECT_EQ(*facts.nextUpdate - facts.thisUpdate, 86400); // serve's default: one day

    // RFC 5019: Last-Modified is thisUpdate, Expires nextUpdate, max-age what is left of it.
    EXPECT_EQ(reply.header("Last-Modified"), HttpDate(facts.thisUpdate));
    EXPECT_EQ(reply.header("Expires"), HttpDate(*facts.nextUpdate));
    const auto date = FromHttpDate(reply.header("Date"));
    ASSERT_TRUE(date) << reply.header("Date");
    EXPECT_LE(*date - facts.thisUpdate, 5);
    EXPECT_EQ(reply.header("Cache-Control"),
              "max-age=" + std::to_string(*facts.nextUpdate - *date) +
                  ", public, no-transform, must-revalidate");
    const std::string etag = "\"" + Sha1Hex(reply.body) + "\"";
    EXPECT_EQ(reply.header("ETag"), etag);

    // The same question again, on the same connection: the answer signed before, to the byte
    // (ECDSA signs the same data differently each time).
    const HttpReply again = connection.exchange(Get(path));
    EXPECT_EQ(again.status, 200);
    EXPECT_EQ(again.body, reply.body);
    const HttpReply posted = connection.exchange(Post(request));
    EXPECT_EQ(posted.status, 200);
    EXPECT_EQ(posted.body, reply.body);
    EXPECT_EQ(posted.header("ETag"), etag);

    struct Conditional {
        std::string ifNoneMatch;
        int status;
    };
    const Conditional conditionals[] = {
        {etag, 304},
        {"W/" + etag, 304},
        {"\"0123\", " + etag, 304},
        {"*", 304},
        {"\"" + Sha1Hex(request) + "\"", 200},
    };
    for (const Conditional& c : conditionals) {
        SCOPED_TRACE(c.ifNoneMatch);
        const HttpReply conditional =
            connection.exchange(Get(path, "If-None-Match: " + c.ifNoneMatch + "\r\n"));
        EXPECT_EQ(conditional.status, c.status);
        EXPECT_EQ(conditional.header("ETag"), etag);
        EXPECT_EQ(conditional.header("Expires"), HttpDate(*facts.nextUpdate));
        EXPECT_EQ(conditional.body, c.status == 304 ? Bytes{} : reply.body);
    }
    // A POST is answered whatever its condition (it asks for a new answer).
    EXPECT_EQ(connection.exchange(Post(request, "If-None-Match: " + etag + "\r\n")).status, 200);

    const HttpReply head =
        connection.exchange("HEAD " + path + " HTTP/1.1\r\nHost: a\r\n\r\n", true);
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.header("Content-Length"), std::to_string(reply.body.size()));
    EXPECT_EQ(head.header("ETag"), etag);

    // With a nonce the answer is made for that request alone.
    const Bytes withNonce = RequestBytes("ec", {"leaf00"});
    const HttpReply fresh = connection.exchange(Post(withNonce));
    EXPECT_EQ(fresh.status, 200);
    EXPECT_EQ(fresh.header("Cache-Control"), "max-age=0, no-cache");
    EXPECT_EQ(fresh.count("ETag"), 0u);
    const ResponseFacts freshFacts = ReadResponse(fresh.body, "ec");
    EXPECT_TRUE(freshFacts.verified);
    EXPECT_EQ(freshFacts.nonce, RequestNonce(withNonce));
    EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ServeTool, GetPathsAreReadInEveryFormClientsWrite) {
    ServerProcess server(ServeArgs("ec"));
    ASSERT_NE(server.port(), 0);
    // Base64 with '/', with padding and with '+'. Each form gets the answer signed for the
    // first (ECDSA signs the same data differently each time).
    struct Form {
        Bytes request;
        char has; // a character of base64 that its path escapes
    };
    const Form forms[] = {
        {RequestBytes("ec", {"leaf"}, {"--no-nonce"}), '/'},
        {RequestBytes("ec", {"leaf00"}, {"--no-nonce"}), '='},
        {RequestBytes("ec", {"leaf"}, {"--no-nonce", "--hash", "sha256"}), '+'},
    };
    for (const Form& f : forms) {
        const std::string canonical = GetPathOf(f.request);
        std::string raw;    // base64 as it is
        std::string url;    // the URL-safe alphabet without padding
        std::string spaced; // '+' sent as an encoded space, lower-case escapes
        for (std::size_t i = 1; i < canonical.size(); ++i) {
            const std::string escape = canonical.substr(i, 3);
            const char c = escape == "%2B"   ? '+'
                           : escape == "%2F" ? '/'
                           : escape == "%3D" ? '='
                                             : 0;
            if (c == 0) {
                raw += canonical[i];
                url += canonical[i];
                spaced += canonical[i];
                continue;
            }
            i += 2;
            raw += c;
            url += c == '+' ? "-" : c == '/' ? "_" : "";
            spaced += c == '+' ? "%20" : c == '/' ? "%2f" : "%3d";
        }
        ASSERT_NE(raw.find(f.has), std::string::npos) << raw;
        HttpConnection connection(server.port());
        const HttpReply reply = connection.exchange(Get(canonical));
        ASSERT_EQ(reply.status, 200);
        ASSERT_TRUE(ReadResponse(reply.body, "ec").verified);
        for (const std::string& form : {"/" + raw, "/" + url, "/" + spaced, "//" + raw}) {
            SCOPED_TRACE(form);
            const HttpReply other = connection.exchange(Get(form));
            EXPECT_EQ(other.status, 200);
            EXPECT_EQ(other.body, reply.body); // the same cached answer
        }
    }
    HttpConnection connection(server.port());
    const HttpReply health = connection.exchange(Get("/"));
    EXPECT_EQ(health.status, 200);
    EXPECT_EQ(health.header("Content-Type"), "text/plain");
    for (const std::string junk : {"/%zz", "/MEMw%", "/not*base64", "/QQ=QQ==", "/M"}) {
        SCOPED_TRACE(junk);
        ExpectErrorStatus(connection.exchange(Get(junk)), kMalformedRequest);
    }
    EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ServeTool, BadRequestsAreAnsweredWithOcspOrHttpErrors) {
    ServerProcess server(ServeArgs("rsa"));
    ASSERT_NE(server.port(), 0);
    const int port = server.port();
    {
        // OCSP error statuses keep the connection.
        HttpConnection connection(port);
        ExpectErrorStatus(connection.exchange(Post(Text("not a request"))), kMalformedRequest);
        ExpectErrorStatus(connection.exchange(Post({})), kMalformedRequest);
        ExpectErrorStatus(connection.exchange("POST / HTTP/1.1\r\nHost: a\r\n\r\n"),
                          kMalformedRequest);
        ExpectErrorStatus(connection.exchange(Post(ReadData("ocsp/resp-good-rsa.der"))),
                          kMalformedRequest);
        ExpectErrorStatus(connection.exchange(Post(FromHex("3004 3002 3000"))), kMalformedRequest);
        ExpectErrorStatus(connection.exchange(Get(GetPathOf(FromHex("3004 3002 3000")))),
                          kMalformedRequest);
        // EC certificates asked of the RSA CA's responder.
        ExpectErrorStatus(connection.exchange(Post(RequestBytes("ec", {"leaf"}))), kUnauthorized);
        ExpectErrorStatus(
            connection.exchange(Get(GetPathOf(RequestBytes("ec", {"leaf"}, {"--no-nonce"})))),
            kUnauthorized);
        ExpectErrorStatus(connection.exchange(Post(Bytes(8192, 0x30))), kMalformedRequest);
        const HttpReply fine = connection.exchange(Post(RequestBytes("rsa", {"leaf"})));
        EXPECT_EQ(fine.status, 200);
        EXPECT_TRUE(ReadResponse(fine.body, "rsa").verified);
        // A POST's path does not matter, whatever it holds.
        std::string elsewhere = Post(RequestBytes("rsa", {"leaf"}));
        elsewhere.replace(0, 6, "POST /ocsp/a%0Ab%00 ");
        const HttpReply other = connection.exchange(elsewhere);
        EXPECT_EQ(other.status, 200);
        EXPECT_TRUE(ReadResponse(other.body, "rsa").verified);
    }
    struct Refusal {
        std::string what;
        std::string request;
        int status;
    };
    const std::string chunk(4096, 'x');
    const Refusal refusals[] = {
        {"over the limit by one", Post(Bytes(8193, 0x30)), 413},
        // Refused on its length, before the body comes.
        {"announced too large", "POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 100000\r\n\r\n12345",
         413},
        {"chunks over the limit",
         "POST / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n1000\r\n" + chunk +
             "\r\n1000\r\n" + chunk + "\r\n1\r\nx\r\n0\r\n\r\n",
         413},
        {"another method", "PUT / HTTP/1.1\r\nHost: a\r\nContent-Length: 4\r\n\r\nabcd", 405},
        {"a long POST target", "POST /" + std::string(3000, 'a') + " HTTP/1.1\r\nHost: a\r\n\r\n",
         414},
    };
    for (const Refusal& r : refusals) {
        SCOPED_TRACE(r.what);
        HttpConnection connection(port);
        const HttpReply reply = connection.exchange(r.request);
        ExpectRefused(connection, reply, r.status);
        EXPECT_EQ(reply.header("Cache-Control"), "max-age=0, no-cache");
        if (r.status == 405) {
            EXPECT_EQ(reply.header("Allow"), "GET, HEAD, POST");
        }
    }
    {
        // Not HTTP at all: a TLS ClientHello.
        HttpConnection connection(port);
        connection.send(std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", 15));
        const HttpReply reply = connection.read();
        EXPECT_TRUE(reply.status == 400 || reply.closed) << reply.status;
    }
    // After all that, still answering.
    HttpConnection connection(port);
    EXPECT_EQ(connection.exchange(Post(RequestBytes("rsa", {"leaf"}))).status, 200);
    EXPECT_EQ(server.stop(SIGTERM), 0);

    // --max-body sets the limit.
    ServerProcess small(ServeArgs("rsa", {"--max-body", "64"}));
    ASSERT_NE(small.port(), 0);
    const Bytes request = RequestBytes("rsa", {"leaf"}, {"--no-nonce"});
    ASSERT_GT(request.size(), 64u);
    HttpConnection tooLarge(small.port());
    ExpectRefused(tooLarge, tooLarge.exchange(Post(request)), 413);
    HttpConnection get(small.port());
    EXPECT_EQ(get.exchange(Get(GetPathOf(request))).status, 200); // GET has no body
    EXPECT_EQ(small.stop(SIGTERM), 0);
}

TEST(ServeTool, SlowAndVanishingClientsDoNotStopServiceToOthers) {
    ServerProcess server(ServeArgs("ec", {"--threads", "3"}));
    ASSERT_NE(server.port(), 0);
    const Bytes request = RequestBytes("ec", {"leaf"});
    const std::string post = Post(request);
    // Two clients stop halfway, one in the headers and one in the body, and stay.
    HttpConnection inHeaders(server.port());
    ASSERT_TRUE(inHeaders.send(post.substr(0, 20)));
    HttpConnection inBody(server.port());
    ASSERT_TRUE(inBody.send(post.substr(0, post.size() - 10)));
    // Others send half a request and go, or go without reading the answer.
    for (int i = 0; i < 10; ++i) {
        HttpConnection half(server.port());
        half.send(post.substr(0, post.size() / 2));
        HttpConnection impatient(server.port());
        impatient.send(post);
    }
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 5; ++i) {
        HttpConnection client(server.port());
        const HttpReply reply = client.exchange(post);
        ASSERT_EQ(reply.status, 200);
        EXPECT_EQ(ReadResponse(reply.body, "ec").nonce, RequestNonce(request));
    }
    // Served at once: not after the 5 s the stalled reads may wait.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    // The stalled ones finish and are answered too.
    ASSERT_TRUE(inBody.send(post.substr(post.size() - 10)));
    EXPECT_EQ(inBody.read().status, 200);
    EXPECT_EQ(server.stop(SIGTERM), 0);
    EXPECT_EQ(server.errors(), "");
}

TEST(ServeTool, ReadsTheIndexAgainWhenItChanges) {
    const Bytes original = ReadFile(Pki("rsa", "index.txt"));
    const std::string index = WriteTempFile(original, "serve-index.txt");
    ServerProcess server(ServeArgs("rsa", {}, index));
    ASSERT_NE(server.port(), 0);
    const std::string path = GetPathOf(RequestBytes("rsa", {"leaf"}, {"--no-nonce"}));
    HttpConnection connection(server.port());
    const HttpReply before = connection.exchange(Get(path));
    EXPECT_EQ(ReadResponse(before.body, "rsa").entries, (Entries{{"1001", "good"}}));

    // leaf (1001) revoked: the cached good answer must go.
    std::string text(original.begin(), original.end());
    const std::string line = "V\t361120063437Z\t\t1001\t";
    ASSERT_EQ(text.rfind(line, 0), 0u);
    text.replace(0, line.size(), "R\t361120063437Z\t260301000000Z,superseded\t1001\t");
    RewriteFile(index, text);
    std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    const HttpReply after = connection.exchange(Get(path));
    const ResponseFacts facts = ReadResponse(after.body, "rsa");
    EXPECT_TRUE(facts.verified);
    EXPECT_EQ(facts.entries, (Entries{{"1001", "revoked"}}));

    // An index that cannot be read leaves the last good one in place, and says so.
    RewriteFile(index, "not an index\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    const HttpReply kept = connection.exchange(Get(path));
    EXPECT_EQ(ReadResponse(kept.body, "rsa").entries, (Entries{{"1001", "revoked"}}));
    EXPECT_EQ(server.errors(), "velmor-ocsp: " + index +
                                   ":1: not an OpenSSL CA index line (1 tab-separated fields, 6 "
                                   "expected); still answering from the index read before\n");
    EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(ServeTool, ConcurrentClientsEachGetTheirOwnAnswer) {
    ServerProcess server(ServeArgs("rsa"));
    ASSERT_NE(server.port(), 0);
    constexpr int kThreads = 8;
    constexpr int kRounds = 20;
    const std::vector<std::pair<std::string, std::string>> leaves = {
        {"leaf", "1001"},
        {"leaf00", "8F3A5C11D2"},
        {"client", "3001"},
        {"leaf20", "7E1D2C3B4A59687786950A1B2C3D4E5F60718293"}};
    const std::string expected[] = {"good", "revoked", "unknown", "good"};
    // Each thread has its own nonces; questions without one are shared.
    std::vector<std::vector<Bytes>> withNonce(kThreads);
    std::vector<Bytes> plain;
    for (const auto& leaf : leaves) {
        plain.push_back(RequestBytes("rsa", {leaf.first}, {"--no-nonce"}));
        for (std::vector<Bytes>& own : withNonce) {
            own.push_back(RequestBytes("rsa", {leaf.first}));
        }
    }
    std::atomic<int> answered{0};
    std::vector<std::string> failures(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            // Half the clients keep one connection, half connect for each question.
            std::unique_ptr<HttpConnection> kept;
            for (int round = 0; round < kRounds; ++round) {
                const std::size_t which = static_cast<std::size_t>(round + t) % leaves.size();
                const bool nonce = round % 2 == 0;
                const Bytes& request = nonce ? withNonce[t][which] : plain[which];
                if (!kept || t % 2 == 1) {
                    kept = std::make_unique<HttpConnection>(server.port());
                }
                const HttpReply reply =
                    kept->exchange(nonce ? Post(request) : Get(GetPathOf(request)));
                const ResponseFacts facts = ReadResponse(reply.body, "rsa");
                const bool right =
                    reply.status == 200 && facts.verified &&
                    facts.entries == Entries{{leaves[which].second, expected[which]}} &&
                    facts.nonce == (nonce ? RequestNonce(request) : std::nullopt);
                if (right) {
                    ++answered;
                } else if (failures[t].empty()) {
                    failures[t] = "round " + std::to_string(round) + ": status " +
                                  std::to_string(reply.status) + ", " + ToHex(reply.body);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answered, kThreads * kRounds);
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(failures[t], "") << "thread " << t;
    }
    EXPECT_EQ(server.stop(SIGTERM), 0);
    EXPECT_EQ(server.errors(), "");
}

TEST(ServeTool, StopsWithExitCodeZeroOnSigtermAndSigint) {
    for (const int signal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signal);
        ServerProcess server(ServeArgs("ec"));
        ASSERT_NE(server.port(), 0);
        EXPECT_NE(server.banner().find(" with "), std::string::npos) << server.banner();
        // A kept-alive connection, idle, and one halfway through a request.
        HttpConnection idle(server.port());
        EXPECT_EQ(idle.exchange(Get("/")).status, 200);
        HttpConnection halfway(server.port());
        halfway.send("GET / HT");
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(server.stop(signal), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
        EXPECT_EQ(server.errors(), "");
    }

    // A port taken by another server, and one that is no port.
    ServerProcess first(ServeArgs("ec"));
    ASSERT_NE(first.port(), 0);
    std::string command =
        "timeout 20 " + std::string(VELMOR_TOOL) + " serve --port " + std::to_string(first.port());
    for (const std::string& arg : ServeArgs("ec")) {
        command += " " + arg;
    }
    std::string out;
    EXPECT_EQ(RunCommand(command + " 2>&1", &out), 5);
    EXPECT_EQ(out, "velmor-ocsp: cannot listen on 127.0.0.1 port " + std::to_string(first.port()) +
                       " (address in use, not local or not allowed)\n");
    std::vector<std::string> args{"serve", "--port", "65536"};
    for (const std::string& arg : ServeArgs("ec")) {
        args.push_back(arg);
    }
    const ToolRun usage = RunTool(args);
    EXPECT_EQ(usage.exitCode, 64);
    EXPECT_EQ(usage.err, "velmor-ocsp: --port: Value 65536 not in range 0 to 65535 (see "
                         "velmor-ocsp --help)\n");
    EXPECT_EQ(first.stop(SIGTERM), 0);
}
