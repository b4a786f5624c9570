// velmor-ocsp serve: the OCSP responder of one CA over HTTP/1.1 (POST, and GET with the
// request in the path), on cpp-httplib's server and its pool of worker threads.
#include "caching_responder.h"
#include "commands.h"
#include "exit_status.h"
#include "ocsp_get.h"
#include "responder.h"

#include <CLI/CLI.hpp>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <string>
#include <string_view>
#include <thread>

namespace VelmorTool {

namespace {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

struct ServeOptions {
    ResponderOptions responder;
    int port = 0;
    std::string bind = "127.0.0.1";
    unsigned threads = 0; // 0: Workers() decides
    std::size_t maxBody = 8192;
};

constexpr const char* kResponseType = "application/ocsp-response";
// What a kept-alive connection may ask before the server closes it, so that queued
// connections get their turn.
constexpr std::size_t kRequestsPerConnection = 100;
// The workers when --threads does not say: so many, or one per core on larger machines.
constexpr unsigned kLeastWorkers = 8;
// How long a stopping server waits for the connections still open.
constexpr std::chrono::seconds kStopGrace{1};
// A POST's path is not read, only matched; a longer one is refused before it is.
constexpr std::size_t kMostPostTarget = 2048;

// The HTTP date of now, made once a second by each thread.
const std::string& DateNow(std::int64_t now) {
    thread_local std::int64_t made = -1;
    thread_local std::string date;
    if (now != made) {
        date = HttpDate(now);
        made = now;
    }
    return date;
}

// True when an If-None-Match header names etag (or is "*"). Weak tags compare by their
// opaque part, as the weak comparison that If-None-Match uses allows.
bool NoneMatchNames(const std::string& header, const std::string& etag) {
    std::string_view rest = header;
    while (!rest.empty()) {
        const std::size_t comma = rest.find(',');
        std::string_view tag = rest.substr(0, comma);
        rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
        while (!tag.empty() && (tag.front() == ' ' || tag.front() == '\t')) {
            tag.remove_prefix(1);
        }
        while (!tag.empty() && (tag.back() == ' ' || tag.back() == '\t')) {
            tag.remove_suffix(1);
        }
        if (tag.substr(0, 2) == "W/") {
            tag.remove_prefix(2);
        }
        if (tag == "*" || tag == etag) {
            return true;
        }
    }
    return false;
}

void Send(const httplib::Request& request, httplib::Response& response, const Reply& reply) {
    const std::int64_t now = std::time(nullptr);
    response.set_header("Date", DateNow(now));
    if (reply.status == successful && !reply.nonce) {
        // Anyone may keep the answer until its nextUpdate and must not serve it after.
        const std::int64_t until = reply.expiresAt;
        response.set_header("Last-Modified", reply.lastModified);
        response.set_header("Expires", reply.expires);
        response.set_header("Cache-Control",
                            "max-age=" + std::to_string(until > now ? until - now : 0) +
                                ", public, no-transform, must-revalidate");
        response.set_header("ETag", reply.etag);
        const bool readOnly = request.method == "GET" || request.method == "HEAD";
        const auto condition = request.headers.find("If-None-Match");
        if (readOnly && condition != request.headers.end() &&
            NoneMatchNames(condition->second, reply.etag)) {
            response.status = 304;
            // No body; the length is that of the answer a 200 would carry.
            response.set_header("Content-Length", std::to_string(reply.der.cbData()));
            return;
        }
    } else {
        // An error status, or an answer for the one client whose nonce it echoes.
        response.set_header("Cache-Control", "max-age=0, no-cache");
    }
    response.status = 200;
    response.set_content(reinterpret_cast<const char*>(reply.der.pbData()), reply.der.cbData(),
                         kResponseType);
}

// The path of a request target: without the query, and without scheme and host when the
// target is an absolute URL.
std::string_view TargetPath(std::string_view target) {
    target = target.substr(0, target.find('?'));
    for (std::string_view scheme : {"http://", "https://"}) {
        if (target.substr(0, scheme.size()) == scheme) {
            target.remove_prefix(scheme.size());
            const std::size_t slash = target.find('/');
            return slash == std::string_view::npos ? "/" : target.substr(slash);
        }
    }
    return target;
}

void AnswerGet(CachingResponder& responder, const httplib::Request& request,
               httplib::Response& response) {
    const std::string_view path = TargetPath(request.target);
    if (path.find_first_not_of('/') == std::string_view::npos) {
        // The root answers a health check.
        response.set_header("Date", DateNow(std::time(nullptr)));
        response.set_header("Cache-Control", "max-age=0, no-cache");
        response.status = 200;
        response.set_content("OCSP responder\n", "text/plain");
        return;
    }
    const std::optional<Bytes> der = RequestFromGetPath(path);
    Send(request, response, *responder.answer(der ? CBlob(*der) : CBlob()));
}

const char* Reason(int status) {
    switch (status) {
    case 400:
        return "Bad Request";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 413:
        return "Payload Too Large";
    case 414:
        return "URI Too Long";
    case 417:
        return "Expectation Failed";
    default:
        return status >= 500 ? "Server Error" : "Client Error";
    }
}

// Answers with an error status and closes the connection: what is left of the request
// (a body not read) must not be taken for the next one. cpp-httplib closes a connection when
// writing the response fails, so the body goes out through a provider that writes all of it
// and then reports failure.
void Refuse(httplib::Response& response, int status) {
    response.status = status;
    response.set_header("Date", DateNow(std::time(nullptr)));
    response.set_header("Cache-Control", "max-age=0, no-cache");
    response.set_header("Connection", "close");
    auto text = std::make_shared<std::string>(std::to_string(status) + " " + Reason(status) + "\n");
    response.set_content_provider(
        text->size(), "text/plain",
        [text](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
            sink.write(text->data() + offset, length);
            return false;
        });
}

void AnswerPost(CachingResponder& responder, std::size_t maxBody, const httplib::Request& request,
                httplib::Response& response, const httplib::ContentReader& reader) {
    std::string body;
    // A request with neither length nor chunks has no body (cpp-httplib would read one until
    // the client closes).
    if (request.has_header("Content-Length") || request.has_header("Transfer-Encoding")) {
        const std::string length = request.get_header_value("Content-Length");
        if (!length.empty() && std::strtoull(length.c_str(), nullptr, 10) > maxBody) {
            Refuse(response, 413);
            return;
        }
        bool tooLarge = false;
        const bool complete = reader([&](const char* data, std::size_t size) {
            if (size > maxBody - body.size()) {
                tooLarge = true;
                return false;
            }
            body.append(data, size);
            return true;
        });
        if (tooLarge || !complete) {
            Refuse(response, tooLarge ? 413 : 400);
            return;
        }
    }
    Send(request, response, *responder.answer(CBlob(std::string_view(body))));
}

// What an error status says, for the statuses the server sends itself or gets from
// cpp-httplib (a request it cannot parse, an over-long target or body).
httplib::Server::HandlerResponse DescribeError(const httplib::Request&,
                                               httplib::Response& response) {
    if (response.body.empty() && !response.has_header("Content-Type")) {
        response.set_header("Date", DateNow(std::time(nullptr)));
        response.set_header("Cache-Control", "max-age=0, no-cache");
        response.set_content(std::to_string(response.status) + " " + Reason(response.status) + "\n",
                             "text/plain");
    }
    return httplib::Server::HandlerResponse::Handled;
}

// cpp-httplib's workers each serve one connection at a time, idle time of a kept-alive one
// included: the pool is sized for the clients that are connected at once, not for the cores
// (signing is the only work that keeps a worker busy).
unsigned Workers(const ServeOptions& options) {
    if (options.threads != 0) {
        return options.threads;
    }
    return std::max(kLeastWorkers, std::thread::hardware_concurrency());
}

std::string UrlOf(const std::string& host, int port) {
    const bool ipv6 = host.find(':') != std::string::npos;
    return "http://" + (ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(port) + "/";
}

int Run(const ServeOptions& options) {
    // Stopping signals are taken by one thread that waits for them; every other thread,
    // cpp-httplib's workers included (made later, they inherit the mask), has them blocked.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    // A client that goes away while it is answered must not end the server.
    std::signal(SIGPIPE, SIG_IGN);

    CachingResponder responder(options.responder);
    const unsigned workers = Workers(options);
    httplib::Server server;
    server.new_task_queue = [workers] { return new httplib::ThreadPool(workers); };
    server.set_keep_alive_max_count(kRequestsPerConnection);
    server.set_tcp_nodelay(true);
    // The POST handler counts the body itself; this bounds what cpp-httplib would read on
    // its own.
    server.set_payload_max_length(options.maxBody);
    // cpp-httplib's default would also set SO_REUSEPORT, letting a second server share the
    // port unnoticed.
    server.set_socket_options([](int socket) {
        const int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    server.set_pre_routing_handler(
        [&responder](const httplib::Request& request, httplib::Response& response) {
            if (request.method == "GET" || request.method == "HEAD") {
                AnswerGet(responder, request, response);
                return httplib::Server::HandlerResponse::Handled;
            }
            if (request.method == "POST" && request.target.size() <= kMostPostTarget) {
                return httplib::Server::HandlerResponse::Unhandled; // to the POST handler
            }
            if (request.method != "POST") {
                response.set_header("Allow", "GET, HEAD, POST");
            }
            Refuse(response, request.method == "POST" ? 414 : 405);
            return httplib::Server::HandlerResponse::Handled;
        });
    server.Post("[\\s\\S]*", // any path, control characters included
                [&responder, &options](const httplib::Request& request, httplib::Response& response,
                                       const httplib::ContentReader& reader) {
                    AnswerPost(responder, options.maxBody, request, response, reader);
                });
    server.set_expect_100_continue_handler(
        [&options](const httplib::Request& request, httplib::Response&) {
            const std::string length = request.get_header_value("Content-Length");
            return !length.empty() && std::strtoull(length.c_str(), nullptr, 10) > options.maxBody
                       ? 413
                       : 100;
        });
    server.set_error_handler(httplib::Server::HandlerWithResponse(DescribeError));
    server.set_exception_handler([](const httplib::Request&, httplib::Response& response,
                                    std::exception_ptr) { response.status = 500; });

    const int port = options.port == 0
                         ? server.bind_to_any_port(options.bind)
                         : (server.bind_to_port(options.bind, options.port) ? options.port : -1);
    if (port <= 0) {
        throw ToolError(kFileError, "cannot listen on " + options.bind + " port " +
                                        std::to_string(options.port) +
                                        " (address in use, not local or not allowed)");
    }

    // On a stopping signal the server stops accepting and lets the requests under way
    // finish; connections still open after a moment (kept alive and idle, or a client
    // that stalls halfway) are not waited for.
    std::mutex mutex;
    std::condition_variable listening;
    bool done = false;
    bool stopped = false;
    std::thread waiter([&] {
        int signal = 0;
        sigwait(&stopSignals, &signal);
        std::unique_lock<std::mutex> lock(mutex);
        if (done) {
            return; // woken by the main thread: the server ended by itself
        }
        stopped = true;
        server.stop();
        if (!listening.wait_for(lock, kStopGrace, [&] { return done; })) {
            std::fflush(stdout);
            std::_Exit(kAllGood);
        }
    });
    std::printf("velmor-ocsp: serving %s with %u workers\n", UrlOf(options.bind, port).c_str(),
                workers);
    std::fflush(stdout);
    server.listen_after_bind(); // until stopped
    {
        const std::lock_guard<std::mutex> lock(mutex);
        done = true;
        if (!stopped) {
            pthread_kill(waiter.native_handle(), SIGTERM); // ends the wait
        }
    }
    listening.notify_all();
    waiter.join();
    return stopped ? kAllGood : kFileError;
}

} // namespace

Command AddServeCommand(CLI::App& application) {
    auto options = std::make_shared<ServeOptions>();
    options->responder.nextUpdateDays = 1;
    CLI::App* command = application.add_subcommand(
        "serve", "Answer OCSP requests over HTTP (POST, and GET with the request in the path)");
    command->add_option("--port", options->port, "TCP port to listen on (0: any free port)")
        ->required()
        ->check(CLI::Range(0, 65535));
    command->add_option("--bind", options->bind, "Address to listen on")->capture_default_str();
    AddResponderOptions(*command, options->responder,
                        "Days until newer information is available (default 1; with 0 every "
                        "answer is signed when asked)");
    command
        ->add_option("--threads", options->threads,
                     "Worker threads, each serving one connection at a time, kept-alive and "
                     "idle ones included (default: 8, or one per core if there are more)")
        ->check(CLI::Range(1u, 4096u));
    command->add_option("--max-body", options->maxBody, "Largest request body accepted, in bytes")
        ->check(CLI::Range(std::size_t{1}, std::size_t{1} << 24))
        ->capture_default_str();
    return Command{command, [options] { return Run(*options); }};
}

} // namespace VelmorTool
