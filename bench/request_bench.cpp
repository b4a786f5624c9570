// Decode, encode and sign-and-encode of OCSP requests: the library against OpenSSL's
// d2i/i2d and OCSP_request_sign on the same bytes. The requests are built once with the
// library: one or twenty CertIDs (SHA-1) of the fixture leaf certificates under their
// intermediates, and a nonce request extension. The signed request (RSA, requestor name, two
// certificates) is decoded too: its shape is read by the BER runtime, not the DER fast path.
#include "alloc_counter.h"
#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <openssl/bio.h>
#include <openssl/ocsp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <pki/ocsp/algorithm_identifier_ex.h>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/cert_id.h>
#include <pki/ocsp/crypt_provider.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/request_message.h>
#include <string>
#include <unistd.h>
#include <vector>

using Velmor::CBlob;
using Velmor::CBlobList;
using Velmor::ASN1::CAlgorithmIdentifierEx;
using Velmor::ASN1::CExtension;
using Velmor::ASN1::CExtensions;
using Velmor::PKI::OCSP::CCertID;
using Velmor::PKI::OCSP::CReqCert;
using Velmor::PKI::OCSP::CRequestMessage;
using Velmor::PKI::OCSP::CSingleRequest;
using Velmor::PKI::OCSP::CSingleRequestList;
using namespace Velmor::Win32;
using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr const char* kSha1 = "1.3.14.3.2.26";
constexpr const char* kNonce = "1.3.6.1.5.5.7.48.1.2";
constexpr const char* kSha256WithRsa = "1.2.840.113549.1.1.11";
constexpr const char* kEcdsaWithSha256 = "1.2.840.10045.4.3.2";

// Stops the program when setup fails: a benchmark of a failing call measures nothing.
void Require(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "setup failed: %s (last error 0x%08X)\n", what, GetLastError());
        std::exit(2);
    }
}

CBlob Data(const std::string& relative) { return CBlob(velmor_bench::ReadData(relative)); }

Bytes BytesOf(const CBlob& blob) { return Bytes(blob.pbData(), blob.pbData() + blob.cbData()); }

// The nonce extension's value: an OCTET STRING of 16 octets.
CBlob NonceValue() {
    Bytes value{0x04, 0x10};
    for (std::uint8_t i = 0; i < 16; ++i) {
        value.push_back(static_cast<std::uint8_t>(0x5a ^ (i * 37)));
    }
    return CBlob(value);
}

// An unsigned request of `entries` CertIDs, cycling through the RSA and EC leaf
// certificates, with a nonce.
CRequestMessage BuildRequest(std::size_t entries) {
    static const char* const kLeaves[] = {"rsa/leaf.der", "rsa/leaf00.der", "rsa/leaf20.der",
                                          "ec/leaf.der",  "ec/leaf00.der",  "ec/leaf20.der"};
    const CBlob rsaIssuer = Data("pki/rsa/inter.der");
    const CBlob ecIssuer = Data("pki/ec/inter.der");
    CSingleRequestList list;
    for (std::size_t i = 0; i < entries; ++i) {
        const std::size_t leaf = i % 6;
        const CCertID id(CAlgorithmIdentifierEx(kSha1), Data(std::string("pki/") + kLeaves[leaf]),
                         leaf < 3 ? rsaIssuer : ecIssuer);
        list.push_back(CSingleRequest(CReqCert(id)));
    }
    CExtensions extensions;
    extensions.push_back(CExtension(kNonce, false, NonceValue()));
    CRequestMessage request;
    request.put_requestList(list);
    request.put_requestExtensions(&extensions);
    return request;
}

OCSP_REQUEST* OpenSslRequest(const Bytes& der) {
    const unsigned char* p = der.data();
    return d2i_OCSP_REQUEST(nullptr, &p, static_cast<long>(der.size()));
}

// OpenSSL reads the bytes completely and writes them back unchanged.
void CheckOpenSslAccepts(const Bytes& der) {
    const unsigned char* p = der.data();
    OCSP_REQUEST* request = d2i_OCSP_REQUEST(nullptr, &p, static_cast<long>(der.size()));
    Require(request != nullptr && p == der.data() + der.size(), "d2i_OCSP_REQUEST of our request");
    unsigned char* out = nullptr;
    const int length = i2d_OCSP_REQUEST(request, &out);
    Require(length == static_cast<int>(der.size()) && std::memcmp(out, der.data(), der.size()) == 0,
            "i2d_OCSP_REQUEST writes our request back unchanged");
    OPENSSL_free(out);
    OCSP_REQUEST_free(request);
}

// The DER of the unsigned request of `entries` entries (1 or 20), checked with OpenSSL.
const Bytes& RequestBytes(std::size_t entries) {
    static const Bytes one = [] {
        Bytes der = BytesOf(BuildRequest(1).encode());
        CheckOpenSslAccepts(der);
        return der;
    }();
    static const Bytes twenty = [] {
        Bytes der = BytesOf(BuildRequest(20).encode());
        CheckOpenSslAccepts(der);
        return der;
    }();
    return entries == 1 ? one : twenty;
}

// Like MeasureWithAllocations, with reset run after each body with the timer paused; its
// allocations are not counted. Both sides of a comparison pause equally often, so the cost
// of pausing falls on both alike.
template <class F, class R> void MeasureWithReset(benchmark::State& state, F&& body, R&& reset) {
    std::uint64_t allocations = 0;
    std::uint64_t iterations = 0;
    for (auto _ : state) {
        const std::uint64_t before = velmor_bench::AllocationCount();
        body();
        allocations += velmor_bench::AllocationCount() - before;
        ++iterations;
        state.PauseTiming();
        reset();
        state.ResumeTiming();
    }
    state.counters["allocs"] = static_cast<double>(allocations) / static_cast<double>(iterations);
}

// ---- encode of a decoded request

void Encode_Velmor(benchmark::State& state, std::size_t entries) {
    CRequestMessage message;
    message.decode(CBlob(RequestBytes(entries)));
    velmor_bench::MeasureWithAllocations(state, [&] {
        CBlob encoded = message.encode();
        benchmark::DoNotOptimize(encoded.pbData());
    });
}

// OpenSSL keeps no encoding of a request's tbsRequest, entries or extensions (unlike those
// of certificates and names): i2d_OCSP_REQUEST writes every field of these requests anew,
// the same work as ours. CheckComparisons makes sure of that on the OpenSSL at hand.
void Encode_OpenSSL(benchmark::State& state, std::size_t entries) {
    OCSP_REQUEST* request = OpenSslRequest(RequestBytes(entries));
    velmor_bench::MeasureWithAllocations(state, [&] {
        unsigned char* out = nullptr;
        const int length = i2d_OCSP_REQUEST(request, &out);
        benchmark::DoNotOptimize(length);
        OPENSSL_free(out);
    });
    OCSP_REQUEST_free(request);
}

// True when a serial number changed in a decoded OpenSSL request shows in its encoding, that
// is, when i2d_OCSP_REQUEST does not write cached octets.
bool RequestEncodeIsFresh() {
    const Bytes& der = RequestBytes(1);
    OCSP_REQUEST* request = OpenSslRequest(der);
    ASN1_INTEGER* serial = nullptr;
    OCSP_id_get0_info(nullptr, nullptr, nullptr, &serial,
                      OCSP_onereq_get0_id(OCSP_request_onereq_get0(request, 0)));
    const long original = ASN1_INTEGER_get(serial);
    ASN1_INTEGER_set(serial, original == 1 ? 2 : 1);
    unsigned char* out = nullptr;
    const int length = i2d_OCSP_REQUEST(request, &out);
    const bool fresh = length > 0 && (static_cast<std::size_t>(length) != der.size() ||
                                      std::memcmp(out, der.data(), der.size()) != 0);
    OPENSSL_free(out);
    OCSP_REQUEST_free(request);
    return fresh;
}

// ---- sign and encode

// The requestor's key and certificates, for both libraries. Both send the requestor's name
// (OCSP_request_sign sets it from the signer's subject) and the requestor's and the
// intermediate's certificates.
struct Requestor {
    Requestor(const char* folder, DWORD providerType, const char* algorithm)
        : algorithm(algorithm) {
        const std::string base = std::string("pki/") + folder;
        const Bytes keyPem = velmor_bench::ReadData(base + "/client.key.pem");
        const Bytes certificate = velmor_bench::ReadData(base + "/client.der");
        const Bytes intermediate = velmor_bench::ReadData(base + "/inter.der");

        // The provider's container is a file path, so the key's bytes go to a scratch file
        // for the time it takes to load them.
        char path[] = "/tmp/velmor-bench-key-XXXXXX";
        const int fd = mkstemp(path);
        Require(fd >= 0 &&
                    write(fd, keyPem.data(), keyPem.size()) == static_cast<ssize_t>(keyPem.size()),
                "write the key file");
        close(fd);
        const std::string location = path;
        const std::wstring container(location.begin(), location.end());
        const BOOL opened =
            CryptAcquireContextW(&provider, container.c_str(), nullptr, providerType, 0);
        unlink(path);
        Require(opened != FALSE, "open the key");
        certs.push_back(CBlob(certificate));
        certs.push_back(CBlob(intermediate));

        BIO* bio = BIO_new_mem_buf(keyPem.data(), static_cast<int>(keyPem.size()));
        key = PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr);
        BIO_free(bio);
        const unsigned char* p = certificate.data();
        signer = d2i_X509(nullptr, &p, static_cast<long>(certificate.size()));
        p = intermediate.data();
        X509* inter = d2i_X509(nullptr, &p, static_cast<long>(intermediate.size()));
        extra = sk_X509_new_null();
        Require(key != nullptr && signer != nullptr && inter != nullptr && extra != nullptr &&
                    sk_X509_push(extra, inter) > 0,
                "load the key and certificates into OpenSSL");

        unsigned char* name = nullptr;
        const int length = i2d_X509_NAME(X509_get_subject_name(signer), &name);
        Require(length > 0, "encode the requestor's name");
        requestorName = CBlob(name, static_cast<unsigned long>(length));
        OPENSSL_free(name);
    }
    ~Requestor() {
        CryptReleaseContext(provider, 0);
        EVP_PKEY_free(key);
        X509_free(signer);
        sk_X509_pop_free(extra, X509_free);
    }
    Requestor(const Requestor&) = delete;
    Requestor& operator=(const Requestor&) = delete;

    const char* algorithm;
    HCRYPTPROV provider = 0;
    CBlob requestorName;
    CBlobList certs;
    EVP_PKEY* key = nullptr;
    X509* signer = nullptr;
    STACK_OF(X509) * extra = nullptr;
};

// Our signature of the request in der, encoded.
Bytes SignVelmor(const Requestor& requestor, const Bytes& der) {
    CRequestMessage message;
    message.decode(CBlob(der));
    message.put_requestorName(&requestor.requestorName);
    message.sign(requestor.provider, AT_SIGNATURE, CAlgorithmIdentifierEx(requestor.algorithm),
                 &requestor.certs);
    return BytesOf(message.encode());
}

// OpenSSL's signature of the request in der, encoded.
Bytes SignOpenSsl(const Requestor& requestor, const Bytes& der) {
    OCSP_REQUEST* request = OpenSslRequest(der);
    Require(OCSP_request_sign(request, requestor.signer, requestor.key, EVP_sha256(),
                              requestor.extra, 0) == 1,
            "OCSP_request_sign");
    unsigned char* out = nullptr;
    const int length = i2d_OCSP_REQUEST(request, &out);
    Bytes encoded(out, out + length);
    OPENSSL_free(out);
    OCSP_REQUEST_free(request);
    return encoded;
}

// Both libraries make the same request: each verifies the other's signature, and the two
// encodings have the same length (ECDSA signatures may differ by a few octets).
void CheckSameSignedRequest(const Requestor& requestor) {
    const Bytes& der = RequestBytes(1);
    const Bytes ours = SignVelmor(requestor, der);
    const Bytes theirs = SignOpenSsl(requestor, der);

    OCSP_REQUEST* request = OpenSslRequest(ours);
    X509_STORE* store = X509_STORE_new();
    Require(request != nullptr && OCSP_request_verify(request, nullptr, store, OCSP_NOVERIFY) == 1,
            "OpenSSL verifies our signed request");
    X509_STORE_free(store);
    OCSP_REQUEST_free(request);

    CRequestMessage message;
    message.decode(CBlob(theirs));
    Require(message.verify(requestor.certs.front()), "we verify OpenSSL's signed request");
    const long difference = static_cast<long>(ours.size()) - static_cast<long>(theirs.size());
    Require(difference >= -4 && difference <= 4, "signed requests of the same size");
}

const Requestor& RsaRequestor() {
    static const Requestor requestor("rsa", PROV_RSA_FULL, kSha256WithRsa);
    return requestor;
}

const Requestor& EcRequestor() {
    static const Requestor requestor("ec", PROV_EC_ECDSA_FULL, kEcdsaWithSha256);
    return requestor;
}

// The client signs a request it holds: it names itself, signs with a provider opened once
// and encodes. Each iteration starts again from the unsigned request (with the timer
// paused), as OpenSSL's side must.
void SignEncode_Velmor(benchmark::State& state, const Requestor& (*requestorOf)(),
                       std::size_t entries) {
    const Requestor& requestor = requestorOf();
    CRequestMessage unsignedRequest;
    unsignedRequest.decode(CBlob(RequestBytes(entries)));
    const CAlgorithmIdentifierEx algorithm(requestor.algorithm);
    CRequestMessage message = unsignedRequest;
    MeasureWithReset(
        state,
        [&] {
            message.put_requestorName(&requestor.requestorName);
            message.sign(requestor.provider, AT_SIGNATURE, algorithm, &requestor.certs);
            CBlob encoded = message.encode();
            benchmark::DoNotOptimize(encoded.pbData());
        },
        [&] { message = unsignedRequest; });
}

// OCSP_request_sign on a request that is already signed replaces the signature without
// freeing the old one, so every iteration signs a newly decoded unsigned request (decoded
// with the timer paused).
void SignEncode_OpenSSL(benchmark::State& state, const Requestor& (*requestorOf)(),
                        std::size_t entries) {
    const Requestor& requestor = requestorOf();
    const Bytes& der = RequestBytes(entries);
    OCSP_REQUEST* request = OpenSslRequest(der);
    MeasureWithReset(
        state,
        [&] {
            const int ok = OCSP_request_sign(request, requestor.signer, requestor.key, EVP_sha256(),
                                             requestor.extra, 0);
            unsigned char* out = nullptr;
            const int length = i2d_OCSP_REQUEST(request, &out);
            Require(ok == 1 && length > 0, "OCSP_request_sign and i2d_OCSP_REQUEST");
            OPENSSL_free(out);
        },
        [&] {
            OCSP_REQUEST_free(request);
            request = OpenSslRequest(der);
        });
    OCSP_REQUEST_free(request);
}

const Bytes& OneEntry() { return RequestBytes(1); }
const Bytes& TwentyEntries() { return RequestBytes(20); }

// The one-entry request signed with RSA-2048, naming its requestor and carrying two
// certificates.
const Bytes& SignedOneEntry() {
    static const Bytes der = SignVelmor(RsaRequestor(), RequestBytes(1));
    return der;
}

// ---- decode: a new message per request (decode appends to the entries a message holds)

void Decode_Velmor(benchmark::State& state, const Bytes& (*bytesOf)()) {
    const CBlob encoded(bytesOf());
    velmor_bench::MeasureWithAllocations(state, [&] {
        CRequestMessage message;
        message.decode(encoded);
        benchmark::DoNotOptimize(message.get_requestList().size());
    });
}

void Decode_OpenSSL(benchmark::State& state, const Bytes& (*bytesOf)()) {
    const Bytes& bytes = bytesOf();
    velmor_bench::MeasureWithAllocations(state, [&] {
        OCSP_REQUEST* request = OpenSslRequest(bytes);
        benchmark::DoNotOptimize(request);
        OCSP_REQUEST_free(request);
    });
}

// What the comparisons rest on, checked before any benchmark runs: OpenSSL writes requests
// anew (otherwise the encode pair would not compare the same work), and both libraries make
// the same signed requests.
void CheckComparisons() {
    Require(RequestEncodeIsFresh(), "i2d_OCSP_REQUEST re-encodes a decoded request");
    CheckSameSignedRequest(RsaRequestor());
    CheckSameSignedRequest(EcRequestor());
}

} // namespace

BENCHMARK_CAPTURE(Decode_Velmor, one, OneEntry)->Name("RequestDecode_1/Velmor");
BENCHMARK_CAPTURE(Decode_OpenSSL, one, OneEntry)->Name("RequestDecode_1/OpenSSL");
BENCHMARK_CAPTURE(Decode_Velmor, twenty, TwentyEntries)->Name("RequestDecode_20/Velmor");
BENCHMARK_CAPTURE(Decode_OpenSSL, twenty, TwentyEntries)->Name("RequestDecode_20/OpenSSL");
BENCHMARK_CAPTURE(Decode_Velmor, signed, SignedOneEntry)->Name("RequestDecodeSigned_1/Velmor");
BENCHMARK_CAPTURE(Decode_OpenSSL, signed, SignedOneEntry)->Name("RequestDecodeSigned_1/OpenSSL");
BENCHMARK_CAPTURE(Encode_Velmor, one, 1)->Name("RequestEncode_1/Velmor");
BENCHMARK_CAPTURE(Encode_OpenSSL, one, 1)->Name("RequestEncode_1/OpenSSL");
BENCHMARK_CAPTURE(Encode_Velmor, twenty, 20)->Name("RequestEncode_20/Velmor");
BENCHMARK_CAPTURE(Encode_OpenSSL, twenty, 20)->Name("RequestEncode_20/OpenSSL");
BENCHMARK_CAPTURE(SignEncode_Velmor, rsa1, RsaRequestor, 1)
    ->Name("RequestSignEncodeRsa2048_1/Velmor");
BENCHMARK_CAPTURE(SignEncode_OpenSSL, rsa1, RsaRequestor, 1)
    ->Name("RequestSignEncodeRsa2048_1/OpenSSL");
BENCHMARK_CAPTURE(SignEncode_Velmor, rsa20, RsaRequestor, 20)
    ->Name("RequestSignEncodeRsa2048_20/Velmor");
BENCHMARK_CAPTURE(SignEncode_OpenSSL, rsa20, RsaRequestor, 20)
    ->Name("RequestSignEncodeRsa2048_20/OpenSSL");
BENCHMARK_CAPTURE(SignEncode_Velmor, ec1, EcRequestor, 1)->Name("RequestSignEncodeP256_1/Velmor");
BENCHMARK_CAPTURE(SignEncode_OpenSSL, ec1, EcRequestor, 1)->Name("RequestSignEncodeP256_1/OpenSSL");
BENCHMARK_CAPTURE(SignEncode_Velmor, ec20, EcRequestor, 20)
    ->Name("RequestSignEncodeP256_20/Velmor");
BENCHMARK_CAPTURE(SignEncode_OpenSSL, ec20, EcRequestor, 20)
    ->Name("RequestSignEncodeP256_20/OpenSSL");

int main(int argc, char** argv) {
    CheckComparisons();
    return velmor_bench::RunAndCompare(argc, argv);
}
