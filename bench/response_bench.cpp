// Decode and encode of a real OCSP response (made by `openssl ocsp`) and of a certificate:
// the library against OpenSSL's d2i/i2d on the same bytes.
#include "alloc_counter.h"
#include "asn1/pkix_types.h"
#include "bench_support.h"
#include "foundation/codec_frame.h"

#include <benchmark/benchmark.h>
#include <openssl/ocsp.h>
#include <openssl/x509.h>
#include <pki/ocsp/response_message.h>
#include <vector>

using Velmor::CBlob;
using Velmor::PKI::OCSP::CResponseMessage;

namespace {

const std::vector<std::uint8_t>& ResponseBytes() {
    static const auto bytes = velmor_bench::ReadData("ocsp/resp-good-rsa.der");
    return bytes;
}

const std::vector<std::uint8_t>& CertificateBytes() {
    static const auto bytes = velmor_bench::ReadData("pki/rsa/leaf.der");
    return bytes;
}

void ResponseDecode_Velmor(benchmark::State& state) {
    const CBlob encoded(ResponseBytes());
    CResponseMessage message;
    velmor_bench::MeasureWithAllocations(state, [&] {
        message.decode(encoded);
        benchmark::DoNotOptimize(message.get_response());
    });
}

// A new message per decode: the cost a caller pays when it does not reuse an object.
void ResponseDecodeFresh_Velmor(benchmark::State& state) {
    const CBlob encoded(ResponseBytes());
    velmor_bench::MeasureWithAllocations(state, [&] {
        CResponseMessage message;
        message.decode(encoded);
        benchmark::DoNotOptimize(message.get_response());
    });
}

void ResponseDecode_OpenSSL(benchmark::State& state) {
    const auto& bytes = ResponseBytes();
    velmor_bench::MeasureWithAllocations(state, [&] {
        const unsigned char* p = bytes.data();
        OCSP_RESPONSE* response = d2i_OCSP_RESPONSE(nullptr, &p, static_cast<long>(bytes.size()));
        benchmark::DoNotOptimize(response);
        OCSP_RESPONSE_free(response);
    });
}

void ResponseEncode_Velmor(benchmark::State& state) {
    CResponseMessage message;
    message.decode(CBlob(ResponseBytes()));
    velmor_bench::MeasureWithAllocations(state, [&] {
        CBlob encoded = message.encode();
        benchmark::DoNotOptimize(encoded.pbData());
    });
}

void ResponseEncode_OpenSSL(benchmark::State& state) {
    const auto& bytes = ResponseBytes();
    const unsigned char* p = bytes.data();
    OCSP_RESPONSE* response = d2i_OCSP_RESPONSE(nullptr, &p, static_cast<long>(bytes.size()));
    velmor_bench::MeasureWithAllocations(state, [&] {
        unsigned char* out = nullptr;
        const int length = i2d_OCSP_RESPONSE(response, &out);
        benchmark::DoNotOptimize(length);
        OPENSSL_free(out);
    });
    OCSP_RESPONSE_free(response);
}

void CertificateDecode_Velmor(benchmark::State& state) {
    const auto& bytes = CertificateBytes();
    velmor_bench::MeasureWithAllocations(state, [&] {
        ASN1BERDecodeBuffer buffer(bytes.data(), bytes.size());
        ASN1T_Certificate certificate;
        benchmark::DoNotOptimize(Velmor::Codec::DecodeStatus(buffer, certificate));
    });
}

void CertificateDecode_OpenSSL(benchmark::State& state) {
    const auto& bytes = CertificateBytes();
    velmor_bench::MeasureWithAllocations(state, [&] {
        const unsigned char* p = bytes.data();
        X509* certificate = d2i_X509(nullptr, &p, static_cast<long>(bytes.size()));
        benchmark::DoNotOptimize(certificate);
        X509_free(certificate);
    });
}

// Writes a decoded certificate out again: from the octets it kept (as OpenSSL writes an
// unmodified X509 from its cached encoding), or from its fields (the DER writer's work).
void EncodeDecodedCertificate(benchmark::State& state, bool fromFields) {
    const auto& bytes = CertificateBytes();
    ASN1BERDecodeBuffer decodeBuffer(bytes.data(), bytes.size());
    ASN1T_Certificate certificate;
    if (Velmor::Codec::DecodeStatus(decodeBuffer, certificate) < 0) {
        state.SkipWithError("fixture certificate does not decode");
        return;
    }
    if (fromFields) {
        certificate.raw = ASN1OpenType();
    }
    velmor_bench::MeasureWithAllocations(state, [&] {
        CBlob encoded = Velmor::Codec::Encode(certificate);
        benchmark::DoNotOptimize(encoded.pbData());
    });
}

// OpenSSL's counterpart: i2d_X509 writes the cached encoding; i2d_re_X509_tbs drops the
// cache and re-encodes the TBSCertificate from its fields, most of the same work as ours.
void EncodeDecodedX509(benchmark::State& state, bool fromFields) {
    const auto& bytes = CertificateBytes();
    const unsigned char* p = bytes.data();
    X509* certificate = d2i_X509(nullptr, &p, static_cast<long>(bytes.size()));
    velmor_bench::MeasureWithAllocations(state, [&] {
        unsigned char* out = nullptr;
        const int length =
            fromFields ? i2d_re_X509_tbs(certificate, &out) : i2d_X509(certificate, &out);
        benchmark::DoNotOptimize(length);
        OPENSSL_free(out);
    });
    X509_free(certificate);
}

} // namespace

BENCHMARK(ResponseDecode_Velmor)->Name("ResponseDecode/Velmor");
BENCHMARK(ResponseDecode_OpenSSL)->Name("ResponseDecode/OpenSSL");
BENCHMARK(ResponseDecodeFresh_Velmor)->Name("ResponseDecodeFresh/Velmor");
BENCHMARK(ResponseDecode_OpenSSL)->Name("ResponseDecodeFresh/OpenSSL");
BENCHMARK(ResponseEncode_Velmor)->Name("ResponseEncode/Velmor");
BENCHMARK(ResponseEncode_OpenSSL)->Name("ResponseEncode/OpenSSL");
BENCHMARK(CertificateDecode_Velmor)->Name("CertificateDecode/Velmor");
BENCHMARK(CertificateDecode_OpenSSL)->Name("CertificateDecode/OpenSSL");
BENCHMARK_CAPTURE(EncodeDecodedCertificate, kept, false)->Name("CertificateEncode/Velmor");
BENCHMARK_CAPTURE(EncodeDecodedX509, cached, false)->Name("CertificateEncode/OpenSSL");
BENCHMARK_CAPTURE(EncodeDecodedCertificate, fields, true)
    ->Name("CertificateEncodeFromFields/Velmor");
BENCHMARK_CAPTURE(EncodeDecodedX509, fields, true)->Name("CertificateEncodeFromFields/OpenSSL");

int main(int argc, char** argv) { return velmor_bench::RunAndCompare(argc, argv); }
