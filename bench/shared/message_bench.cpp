// Decode and encode of OCSP requests and responses through the installed shared library,
// against OpenSSL's d2i/i2d on the same bytes, in one process; the verification of a signed
// request and of a basic response from its signer's certificate against a bare
// EVP_DigestVerify of the same to-be-signed octets with the signer's key made beforehand;
// and a responder's sign + encode against OCSP_basic_sign + i2d; and the typed extension
// classes (extension_operations.cpp, shared with bench/extensions_bench.cpp).
//
// Each operation is timed in rounds. A round runs a batch of N calls of ours and a batch of
// N calls of OpenSSL's, back to back, the side that goes first alternating from round to
// round, so that a slow stretch of the machine falls on both sides alike. The table shows
// the median time per call of each side over the rounds, their ratio, the spread of the
// per-round ratios, and heap allocations per call counted in a separate pass.
//
// The program uses only the public headers; it is built by bench/shared/CMakeLists.txt
// against an installed library (bench/run-shared-bench.sh), and by bench/CMakeLists.txt
// against the static archive, so that the two builds run the same code.
#include "alloc_counter.h"
#include "extension_operations.h"
#include "operation.h"
#include "signed_message.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <openssl/crypto.h>
#include <openssl/ocsp.h>
#include <openssl/pem.h>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/cert_id.h>
#include <pki/ocsp/crypt_provider.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/response_message.h>
#include <string>
#include <vector>

using Velmor::CBlob;
using Velmor::PKI::OCSP::CBasicResponse;
using Velmor::PKI::OCSP::CRequestMessage;
using Velmor::PKI::OCSP::CResponseMessage;
using Velmor::PKI::OCSP::CSingleResponseList;
using velmor_bench::Keep;
using velmor_bench::Operation;
using Bytes = std::vector<std::uint8_t>;

namespace {

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "message_bench: %s\n", what.c_str());
    std::exit(2);
}

void Require(bool ok, const std::string& what) {
    if (!ok) {
        Fail(what);
    }
}

Bytes ReadData(const std::string& relative) {
    const std::string path = std::string(VELMOR_TEST_DATA_DIR) + "/" + relative;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        Fail("cannot read " + path);
    }
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Bytes BytesOf(const CBlob& blob) { return Bytes(blob.pbData(), blob.pbData() + blob.cbData()); }

OCSP_REQUEST* OpenSslRequest(const Bytes& der) {
    const unsigned char* p = der.data();
    OCSP_REQUEST* request = d2i_OCSP_REQUEST(nullptr, &p, static_cast<long>(der.size()));
    Require(request != nullptr && p == der.data() + der.size(), "d2i_OCSP_REQUEST");
    return request;
}

OCSP_RESPONSE* OpenSslResponse(const Bytes& der) {
    const unsigned char* p = der.data();
    OCSP_RESPONSE* response = d2i_OCSP_RESPONSE(nullptr, &p, static_cast<long>(der.size()));
    Require(response != nullptr && p == der.data() + der.size(), "d2i_OCSP_RESPONSE");
    return response;
}

OCSP_BASICRESP* OpenSslBasicResponse(const Bytes& der) {
    const unsigned char* p = der.data();
    OCSP_BASICRESP* response = d2i_OCSP_BASICRESP(nullptr, &p, static_cast<long>(der.size()));
    Require(response != nullptr && p == der.data() + der.size(), "d2i_OCSP_BASICRESP");
    return response;
}

// The BasicOCSPResponse that an OCSPResponse fixture carries.
Bytes BasicBody(const std::string& relative) {
    CResponseMessage message;
    message.decode(CBlob(ReadData(relative)));
    Require(message.get_response() != nullptr, relative + " has no body");
    return BytesOf(*message.get_response());
}

// The basic response of one entry, with that entry repeated count times, and its signature
// (which then no longer matches: decoding does not check it).
Bytes RepeatedEntries(const Bytes& oneEntry, std::size_t count) {
    CBasicResponse response;
    response.decode(CBlob(oneEntry));
    CSingleResponseList entries;
    entries.assign(count, response.get_responses().front());
    response.put_responses(entries);
    return BytesOf(response.encode());
}

template <class T, class I2d> Bytes OpenSslEncoding(T* value, I2d i2d) {
    unsigned char* out = nullptr;
    const int length = i2d(value, &out);
    Require(length > 0, "i2d");
    Bytes encoded(out, out + length);
    OPENSSL_free(out);
    return encoded;
}

// Both libraries read the fixture and write back exactly its bytes: otherwise the encode
// rows would not compare the same output, and a decode that lost a field would look fast.
void CheckRequestRoundTrip(const std::string& name, const Bytes& der) {
    CRequestMessage message;
    message.decode(CBlob(der));
    Require(BytesOf(message.encode()) == der, name + ": our encoding differs from the input");
    OCSP_REQUEST* request = OpenSslRequest(der);
    Require(OpenSslEncoding(request, i2d_OCSP_REQUEST) == der,
            name + ": OpenSSL's encoding differs from the input");
    OCSP_REQUEST_free(request);
}

void CheckResponseRoundTrip(const std::string& name, const Bytes& der) {
    CResponseMessage message;
    message.decode(CBlob(der));
    Require(BytesOf(message.encode()) == der, name + ": our encoding differs from the input");
    OCSP_RESPONSE* response = OpenSslResponse(der);
    Require(OpenSslEncoding(response, i2d_OCSP_RESPONSE) == der,
            name + ": OpenSSL's encoding differs from the input");
    OCSP_RESPONSE_free(response);
}

void CheckBasicResponseRoundTrip(const std::string& name, const Bytes& der) {
    CBasicResponse response;
    response.decode(CBlob(der));
    Require(BytesOf(response.encode()) == der, name + ": our encoding differs from the input");
    OCSP_BASICRESP* basic = OpenSslBasicResponse(der);
    Require(OpenSslEncoding(basic, i2d_OCSP_BASICRESP) == der,
            name + ": OpenSSL's encoding differs from the input");
    OCSP_BASICRESP_free(basic);
}

// Like requests, a decoded basic response is written anew by i2d_OCSP_BASICRESP (only the
// certificates and the responder's Name come from octets OpenSSL kept, as ours do).
void CheckOpenSslReencodesBasicResponses(const Bytes& der) {
    OCSP_BASICRESP* basic = OpenSslBasicResponse(der);
    ASN1_INTEGER* serial = nullptr;
    OCSP_id_get0_info(nullptr, nullptr, nullptr, &serial,
                      const_cast<OCSP_CERTID*>(OCSP_SINGLERESP_get0_id(OCSP_resp_get0(basic, 0))));
    Require(serial != nullptr, "serial number of the first entry");
    ASN1_INTEGER_set(serial, ASN1_INTEGER_get(serial) == 1 ? 2 : 1);
    Require(OpenSslEncoding(basic, i2d_OCSP_BASICRESP) != der,
            "i2d_OCSP_BASICRESP writes a decoded response from its fields");
    OCSP_BASICRESP_free(basic);
}

// i2d_OCSP_REQUEST writes a decoded request anew rather than from octets it kept: a changed
// serial number shows in its output. Otherwise the request encode rows would compare a copy
// against a real encoding.
void CheckOpenSslReencodesRequests(const Bytes& der) {
    OCSP_REQUEST* request = OpenSslRequest(der);
    ASN1_INTEGER* serial = nullptr;
    OCSP_id_get0_info(nullptr, nullptr, nullptr, &serial,
                      OCSP_onereq_get0_id(OCSP_request_onereq_get0(request, 0)));
    Require(serial != nullptr, "serial number of the first entry");
    ASN1_INTEGER_set(serial, ASN1_INTEGER_get(serial) == 1 ? 2 : 1);
    Require(OpenSslEncoding(request, i2d_OCSP_REQUEST) != der,
            "i2d_OCSP_REQUEST writes a decoded request from its fields");
    OCSP_REQUEST_free(request);
}

// Allocations made by body, read from the counter that the executable's malloc keeps.
template <class F> std::uint64_t AllocationsOf(F&& body) {
    const std::uint64_t before = velmor_bench::AllocationCount();
    body();
    return velmor_bench::AllocationCount() - before;
}

// The counter sees allocations made inside the shared library (operator new there goes to
// libstdc++, which calls the executable's malloc) and inside OpenSSL (CRYPTO_malloc calls
// malloc). A counter that saw neither would report zero for both sides.
void CheckAllocationCounter(const Bytes& request) {
    // A blob over its inline capacity is always a fresh heap block (records are recycled
    // per thread, so constructing a message may well allocate nothing).
    const auto ours = AllocationsOf([] {
        CBlob large(4096);
        Keep(large.cbData());
    });
    Require(ours >= 1, "a 4096-octet CBlob counted no allocation: the counter does not see "
                       "the library's allocations");
    const auto theirs = AllocationsOf([&] { OCSP_REQUEST_free(OpenSslRequest(request)); });
    Require(theirs >= 1, "d2i_OCSP_REQUEST counted no allocation: the counter does not see "
                         "OpenSSL's allocations");
}

// The message decoded once; each call of ours verifies it from the signer certificate's
// DER (parse, key import, hash, check), each of OpenSSL's makes a context for the key it
// holds and checks the same octets: the bare signature check. SHA-256 signatures.
template <class Message>
void AddVerify(std::vector<Operation>& operations, const std::string& name, const Bytes& der,
               velmor_bench::Layout layout, const char* signer) {
    auto message = std::make_shared<Message>();
    message->decode(CBlob(der));
    const Bytes certificate = ReadData(std::string("pki/") + signer);
    auto parts = std::make_shared<velmor_bench::SignedParts>();
    Require(velmor_bench::SplitSigned(der, certificate, layout, *parts), name + ": split it");
    std::shared_ptr<EVP_MD> md(EVP_MD_fetch(nullptr, "SHA256", nullptr), EVP_MD_free);
    Require(message->verify(CBlob(certificate)) && velmor_bench::DigestVerify(*parts, md.get()),
            name + ": both sides verify the fixture");
    operations.push_back({name,
                          [message, blob = CBlob(certificate)](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  Keep(message->verify(blob));
                              }
                          },
                          [parts, md](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  Keep(velmor_bench::DigestVerify(*parts, md.get()));
                              }
                          }});
}

// A responder's signing of a decoded basic response with its key ready, and the encoding:
// sign() + encode() against OCSP_basic_sign() + i2d_OCSP_BASICRESP() of the same response,
// with the same key, SHA-256 and the same kind of responder ID, no certificates added.
void AddSignAndEncode(std::vector<Operation>& operations, const std::string& name, const Bytes& der,
                      const std::string& family, Velmor::Win32::DWORD providerType,
                      const char* signatureOid) {
    auto response = std::make_shared<CBasicResponse>();
    response->decode(CBlob(der));
    const std::string keyPath =
        std::string(VELMOR_TEST_DATA_DIR) + "/pki/" + family + "/ocsp.key.pem";
    const std::wstring container(keyPath.begin(), keyPath.end());
    Velmor::Win32::HCRYPTPROV handle = 0;
    Require(
        Velmor::Win32::CryptAcquireContextW(&handle, container.c_str(), nullptr, providerType, 0),
        name + ": open the responder key");
    std::shared_ptr<void> provider(
        nullptr, [handle](void*) { Velmor::Win32::CryptReleaseContext(handle, 0); });
    auto algorithm = std::make_shared<Velmor::ASN1::CAlgorithmIdentifierEx>(signatureOid);

    std::shared_ptr<OCSP_BASICRESP> decoded(OpenSslBasicResponse(der), OCSP_BASICRESP_free);
    const Bytes certificate = ReadData("pki/" + family + "/ocsp.der");
    const unsigned char* p = certificate.data();
    std::shared_ptr<X509> signer(d2i_X509(nullptr, &p, static_cast<long>(certificate.size())),
                                 X509_free);
    FILE* keyFile = std::fopen(keyPath.c_str(), "rb");
    Require(keyFile != nullptr && signer != nullptr, name + ": read the responder");
    std::shared_ptr<EVP_PKEY> key(PEM_read_PrivateKey(keyFile, nullptr, nullptr, nullptr),
                                  EVP_PKEY_free);
    std::fclose(keyFile);
    const unsigned long flags = OCSP_NOCERTS | (response->get_responderID().get_type() ==
                                                        Velmor::PKI::OCSP::CResponderID::byKey
                                                    ? OCSP_RESPID_KEY
                                                    : 0);
    operations.push_back({name,
                          [response, provider, handle, algorithm](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  response->sign(handle, Velmor::Win32::AT_SIGNATURE, *algorithm);
                                  CBlob encoded = response->encode();
                                  Keep(encoded.pbData());
                              }
                          },
                          [decoded, signer, key, flags](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  Require(OCSP_basic_sign(decoded.get(), signer.get(), key.get(),
                                                          EVP_sha256(), nullptr, flags) == 1,
                                          "OCSP_basic_sign");
                                  unsigned char* out = nullptr;
                                  const int length = i2d_OCSP_BASICRESP(decoded.get(), &out);
                                  Keep(length);
                                  OPENSSL_free(out);
                              }
                          }});
}

std::vector<Operation> Operations(const Bytes& pythonNonce, const Bytes& signedEc,
                                  const Bytes& signedRsa, const Bytes& response) {
    std::vector<Operation> operations;

    // Decode into a new object per call, as a caller that does not reuse one pays.
    const auto decodeRequest = [&](const char* name, const Bytes& der) {
        operations.push_back({name,
                              [blob = CBlob(der)](std::size_t n) {
                                  for (std::size_t i = 0; i < n; ++i) {
                                      CRequestMessage message;
                                      message.decode(blob);
                                      Keep(message.get_requestList().size());
                                  }
                              },
                              [&der](std::size_t n) {
                                  for (std::size_t i = 0; i < n; ++i) {
                                      const unsigned char* p = der.data();
                                      OCSP_REQUEST* request = d2i_OCSP_REQUEST(
                                          nullptr, &p, static_cast<long>(der.size()));
                                      Keep(request);
                                      OCSP_REQUEST_free(request);
                                  }
                              }});
    };
    // Encode of an object decoded once from the fixture.
    const auto encodeRequest = [&](const char* name, const Bytes& der) {
        auto message = std::make_shared<CRequestMessage>();
        message->decode(CBlob(der));
        std::shared_ptr<OCSP_REQUEST> request(OpenSslRequest(der), OCSP_REQUEST_free);
        operations.push_back({name,
                              [message](std::size_t n) {
                                  for (std::size_t i = 0; i < n; ++i) {
                                      CBlob encoded = message->encode();
                                      Keep(encoded.pbData());
                                  }
                              },
                              [request](std::size_t n) {
                                  for (std::size_t i = 0; i < n; ++i) {
                                      unsigned char* out = nullptr;
                                      const int length = i2d_OCSP_REQUEST(request.get(), &out);
                                      Keep(length);
                                      OPENSSL_free(out);
                                  }
                              }});
    };

    // The signed rows show what a caller pays, not the same work: d2i_OCSP_REQUEST makes an
    // X509 of each certificate, public key included (on OpenSSL 3.0 through a key decoder
    // set up per certificate, about a thousand allocations each), while a decoded message
    // keeps each certificate as its octets. On encode the roles turn: i2d writes the
    // encoding each X509 kept, while encode() reads every certificate again to write it.
    decodeRequest("request decode, python nonce", pythonNonce);
    decodeRequest("request decode, signed EC 1 cert", signedEc);
    decodeRequest("request decode, signed RSA 2 certs", signedRsa);
    encodeRequest("request encode, python nonce", pythonNonce);
    encodeRequest("request encode, signed EC 1 cert", signedEc);
    encodeRequest("request encode, signed RSA 2 certs", signedRsa);

    AddVerify<CRequestMessage>(operations, "request verify, signed RSA-2048", signedRsa,
                               velmor_bench::Layout::request, "rsa/client.der");
    AddVerify<CRequestMessage>(operations, "request verify, signed P-256", signedEc,
                               velmor_bench::Layout::request, "ec/client.der");

    operations.push_back({"response decode, good RSA",
                          [blob = CBlob(response)](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  CResponseMessage message;
                                  message.decode(blob);
                                  Keep(message.get_response());
                              }
                          },
                          [&response](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  const unsigned char* p = response.data();
                                  OCSP_RESPONSE* decoded = d2i_OCSP_RESPONSE(
                                      nullptr, &p, static_cast<long>(response.size()));
                                  Keep(decoded);
                                  OCSP_RESPONSE_free(decoded);
                              }
                          }});
    auto message = std::make_shared<CResponseMessage>();
    message->decode(CBlob(response));
    std::shared_ptr<OCSP_RESPONSE> decoded(OpenSslResponse(response), OCSP_RESPONSE_free);
    operations.push_back({"response encode, good RSA",
                          [message](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  CBlob encoded = message->encode();
                                  Keep(encoded.pbData());
                              }
                          },
                          [decoded](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  unsigned char* out = nullptr;
                                  const int length = i2d_OCSP_RESPONSE(decoded.get(), &out);
                                  Keep(length);
                                  OPENSSL_free(out);
                              }
                          }});
    return operations;
}

// Decode (into a new object per call) and encode (of an object decoded once) of a basic
// response, against d2i_OCSP_BASICRESP with OCSP_BASICRESP_free and i2d_OCSP_BASICRESP.
void AddBasicResponseOperations(std::vector<Operation>& operations, const std::string& shape,
                                const Bytes& der, bool encodeToo) {
    operations.push_back({"basic decode, " + shape,
                          [blob = CBlob(der)](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  CBasicResponse response;
                                  response.decode(blob);
                                  Keep(response.get_responses().size());
                              }
                          },
                          [&der](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  const unsigned char* p = der.data();
                                  OCSP_BASICRESP* decoded = d2i_OCSP_BASICRESP(
                                      nullptr, &p, static_cast<long>(der.size()));
                                  Keep(decoded);
                                  OCSP_BASICRESP_free(decoded);
                              }
                          }});
    if (!encodeToo) {
        return;
    }
    // Decoding again into one object, as a client that keeps one for every answer does.
    auto reused = std::make_shared<CBasicResponse>();
    operations.push_back({"basic decode again, " + shape,
                          [reused, blob = CBlob(der)](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  reused->decode(blob);
                                  Keep(reused->get_responses().size());
                              }
                          },
                          operations.back().openssl});
    auto response = std::make_shared<CBasicResponse>();
    response->decode(CBlob(der));
    std::shared_ptr<OCSP_BASICRESP> decoded(OpenSslBasicResponse(der), OCSP_BASICRESP_free);
    operations.push_back({"basic encode, " + shape,
                          [response](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  CBlob encoded = response->encode();
                                  Keep(encoded.pbData());
                              }
                          },
                          [decoded](std::size_t n) {
                              for (std::size_t i = 0; i < n; ++i) {
                                  unsigned char* out = nullptr;
                                  const int length = i2d_OCSP_BASICRESP(decoded.get(), &out);
                                  Keep(length);
                                  OPENSSL_free(out);
                              }
                          }});
}

struct Settings {
    int rounds = 21;
    double batchMicroseconds = 2000;
    std::string filter;
    // When not zero: each selected operation makes this many calls per side, untimed, for
    // a profiler (perf record, callgrind) to look at.
    std::size_t profileCalls = 0;
};

Settings ParseArguments(int argc, char** argv) {
    Settings settings;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const auto value = [&](const char* prefix) -> const char* {
            const std::size_t length = std::strlen(prefix);
            return argument.compare(0, length, prefix) == 0 ? argv[i] + length : nullptr;
        };
        if (const char* v = value("--rounds=")) {
            settings.rounds = std::atoi(v);
        } else if (const char* v = value("--batch-us=")) {
            settings.batchMicroseconds = std::atof(v);
        } else if (const char* v = value("--filter=")) {
            settings.filter = v;
        } else if (const char* v = value("--profile-calls=")) {
            settings.profileCalls = std::strtoull(v, nullptr, 10);
        } else {
            std::fprintf(stderr,
                         "usage: %s [--rounds=N] [--batch-us=MICROSECONDS] [--filter=TEXT]\n"
                         "          [--profile-calls=N]\n"
                         "  rounds of one batch per side (default 21), the length of our batch\n"
                         "  (default 2000 us), only the operations whose name has TEXT, and\n"
                         "  instead of timing, N calls of each side to profile\n",
                         argv[0]);
            std::exit(1);
        }
    }
    Require(settings.rounds >= 1 && settings.batchMicroseconds > 0, "bad arguments");
    return settings;
}

double Seconds(const std::function<void(std::size_t)>& run, std::size_t n) {
    const auto start = std::chrono::steady_clock::now();
    run(n);
    const auto stop = std::chrono::steady_clock::now();
    return std::chrono::duration<double>(stop - start).count();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double Quantile(std::vector<double> values, double q) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(q * static_cast<double>(values.size() - 1) + 0.5)];
}

// The median time per call of each side.
struct Timing {
    double oursNs = 0;
    double theirNs = 0;
};

Timing Measure(const Operation& operation, const Settings& settings) {
    // The batch size: calls of ours that take about the batch time; OpenSSL makes as many.
    std::size_t n = 1;
    while (Seconds(operation.ours, n) < settings.batchMicroseconds * 1e-6 && n < (1u << 30)) {
        n *= 2;
    }
    Seconds(operation.openssl, n); // warm-up of the other side

    std::vector<double> ours;
    std::vector<double> theirs;
    std::vector<double> ratios;
    for (int round = 0; round < settings.rounds; ++round) {
        double a = 0;
        double b = 0;
        if (round % 2 == 0) {
            a = Seconds(operation.ours, n);
            b = Seconds(operation.openssl, n);
        } else {
            b = Seconds(operation.openssl, n);
            a = Seconds(operation.ours, n);
        }
        ours.push_back(a * 1e9 / static_cast<double>(n));
        theirs.push_back(b * 1e9 / static_cast<double>(n));
        ratios.push_back(b / a);
    }

    // Up to 1000 calls, fewer for operations whose batch is short (a 10 000-entry decode).
    const std::size_t counted = std::clamp<std::size_t>(n, 10, 1000);
    const double oursAllocations =
        static_cast<double>(AllocationsOf([&] { operation.ours(counted); })) /
        static_cast<double>(counted);
    const double theirAllocations =
        static_cast<double>(AllocationsOf([&] { operation.openssl(counted); })) /
        static_cast<double>(counted);

    const double oursNs = Median(ours);
    const double theirNs = Median(theirs);
    std::printf("%-40s %10.1f %10.1f %7.2fx  %5.2f-%-5.2f %7.1f %7.1f\n", operation.name.c_str(),
                oursNs, theirNs, theirNs / oursNs, Quantile(ratios, 0.25), Quantile(ratios, 0.75),
                oursAllocations, theirAllocations);
    std::fflush(stdout);
    return {oursNs, theirNs};
}

// Decode time per entry of the responses that repeat one entry 1, 100 and 10 000 times: the
// whole call divided by the entries, and the cost of each entry beyond the first.
void PrintPerEntry(const std::map<std::string, Timing>& timings) {
    const auto one = timings.find("basic decode, 1 entry, no certs");
    const auto hundred = timings.find("basic decode, 100 repeated entries");
    const auto many = timings.find("basic decode, 10000 repeated entries");
    if (one == timings.end() || hundred == timings.end() || many == timings.end()) {
        return;
    }
    std::printf("\nbasic decode per entry, ns (whole call / entries; each entry beyond the "
                "first)\n");
    const auto row = [&](const char* side, double Timing::*ns) {
        const double t1 = one->second.*ns;
        const double t100 = hundred->second.*ns;
        const double t10000 = many->second.*ns;
        std::printf("%-8s 1: %8.1f   100: %7.1f   10000: %7.1f   added: %7.1f (100) %7.1f "
                    "(10000)\n",
                    side, t1, t100 / 100, t10000 / 10000, (t100 - t1) / 99, (t10000 - t1) / 9999);
    };
    row("ours", &Timing::oursNs);
    row("openssl", &Timing::theirNs);
}

} // namespace

int main(int argc, char** argv) {
    const Settings settings = ParseArguments(argc, argv);
    try {
        const Bytes pythonNonce = ReadData("ocsp/req-python-nonce.der");
        const Bytes signedEc = ReadData("ocsp/req-signed-ec.der");
        const Bytes signedRsa = ReadData("ocsp/req-signed-rsa.der");
        const Bytes response = ReadData("ocsp/resp-good-rsa.der");
        // Basic responses: one entry without certificates, one entry with the responder's
        // certificate (both by Name), 100 entries (openssl's, mostly unknown serials), and
        // the first one's entry repeated 100 and 10 000 times.
        const Bytes basicOne = BasicBody("ocsp/resp-nocerts-rsa.der");
        const Bytes basicWithCert = BasicBody("ocsp/resp-plain-rsa.der");
        const Bytes basicHundred = BasicBody("ocsp/resp-100-rsa.der");
        const Bytes repeatedHundred = RepeatedEntries(basicOne, 100);
        const Bytes repeatedMany = RepeatedEntries(basicOne, 10000);

        CheckAllocationCounter(pythonNonce);
        CheckRequestRoundTrip("req-python-nonce.der", pythonNonce);
        CheckRequestRoundTrip("req-signed-ec.der", signedEc);
        CheckRequestRoundTrip("req-signed-rsa.der", signedRsa);
        CheckResponseRoundTrip("resp-good-rsa.der", response);
        CheckOpenSslReencodesRequests(pythonNonce);
        CheckOpenSslReencodesRequests(signedEc);
        CheckBasicResponseRoundTrip("resp-nocerts-rsa.der", basicOne);
        CheckBasicResponseRoundTrip("resp-plain-rsa.der", basicWithCert);
        CheckBasicResponseRoundTrip("resp-100-rsa.der", basicHundred);
        CheckBasicResponseRoundTrip("10000 repeated entries", repeatedMany);
        CheckOpenSslReencodesBasicResponses(basicOne);

        std::vector<Operation> operations = Operations(pythonNonce, signedEc, signedRsa, response);
        AddBasicResponseOperations(operations, "1 entry, no certs", basicOne, true);
        AddBasicResponseOperations(operations, "1 entry, responder cert", basicWithCert, true);
        AddBasicResponseOperations(operations, "100 entries", basicHundred, true);
        AddBasicResponseOperations(operations, "100 repeated entries", repeatedHundred, false);
        AddBasicResponseOperations(operations, "10000 repeated entries", repeatedMany, false);
        // Signatures of responses of one entry without certificates, RSA by name and P-256
        // by key hash.
        const Bytes basicEc = BasicBody("ocsp/resp-keyid-ec.der");
        AddVerify<CBasicResponse>(operations, "basic verify, 1 entry RSA-2048", basicOne,
                                  velmor_bench::Layout::basicResponse, "rsa/ocsp.der");
        AddVerify<CBasicResponse>(operations, "basic verify, 1 entry P-256", basicEc,
                                  velmor_bench::Layout::basicResponse, "ec/ocsp.der");
        AddSignAndEncode(operations, "basic sign+encode, 1 entry RSA-2048", basicOne, "rsa",
                         Velmor::Win32::PROV_RSA_FULL, "1.2.840.113549.1.1.11");
        AddSignAndEncode(operations, "basic sign+encode, 1 entry P-256", basicEc, "ec",
                         Velmor::Win32::PROV_EC_ECDSA_FULL, "1.2.840.10045.4.3.2");
        velmor_bench::AddExtensionOperations(operations);

        if (settings.profileCalls == 0) {
            std::printf("%d rounds; per call: median ns of each side, speedup = OpenSSL / ours, "
                        "p25-p75 of the per-round speedups, heap allocations\n\n",
                        settings.rounds);
            std::printf("%-40s %10s %10s %8s  %-11s %7s %7s\n", "operation", "ours ns",
                        "openssl ns", "speedup", "p25-p75", "allocs", "allocs");
            std::printf("%-40s %10s %10s %8s  %-11s %7s %7s\n", "", "", "", "", "", "ours",
                        "openssl");
        }
        std::map<std::string, Timing> timings;
        for (const Operation& operation : operations) {
            if (operation.name.find(settings.filter) == std::string::npos) {
                continue;
            }
            if (settings.profileCalls != 0) {
                operation.ours(settings.profileCalls);
                operation.openssl(settings.profileCalls);
            } else {
                timings[operation.name] = Measure(operation, settings);
            }
        }
        PrintPerEntry(timings);
    } catch (const ATL::CAtlException& e) {
        Fail("the library threw HRESULT " + std::to_string(static_cast<unsigned long>(e.m_hr)));
    }
    return 0;
}
