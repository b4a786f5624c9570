// The certificate identifiers made from DER certificates: CCertID (issuer name hash, issuer
// key hash, serial number) against OCSP_cert_to_id, and CCertIdWithSignature against the same
// fields taken from an X509. Our constructors always start from DER, so CCertID is compared
// twice: with OpenSSL parsing both certificates too, and with OCSP_cert_to_id alone on
// certificates OpenSSL parsed beforehand. Two pairs of the steps the constructors are made of
// (parsing a certificate, hashing a public key) show where the time goes.
#include "alloc_counter.h"
#include "bench_support.h"
#include "certid/algorithm_lookup.h"
#include "platform/crypt_api.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <openssl/evp.h>
#include <openssl/ocsp.h>
#include <openssl/x509.h>
#include <pki/ocsp/algorithm_identifier_ex.h>
#include <pki/ocsp/cert_id.h>
#include <pki/ocsp/cert_id_with_signature.h>
#include <string>
#include <vector>

using Velmor::CBlob;
using Velmor::ASN1::CAlgorithmIdentifierEx;
using Velmor::PKI::OCSP::CCertID;
using Velmor::PKI::OCSP::CCertIdWithSignature;
using namespace Velmor::Win32;
using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr const char* kSha1 = "1.3.14.3.2.26";

// A fixture leaf and its issuer, as DER and as OpenSSL's parsed certificates.
struct Pair {
    explicit Pair(const char* folder)
        : leaf(velmor_bench::ReadData(std::string("pki/") + folder + "/leaf.der")),
          issuer(velmor_bench::ReadData(std::string("pki/") + folder + "/inter.der")),
          leafX509(Parse(leaf)), issuerX509(Parse(issuer)) {
        if (leafX509 == nullptr || issuerX509 == nullptr) {
            std::fprintf(stderr, "setup failed: d2i_X509 of the %s fixtures\n", folder);
            std::exit(2);
        }
    }
    ~Pair() {
        X509_free(leafX509);
        X509_free(issuerX509);
    }
    static X509* Parse(const Bytes& der) {
        const unsigned char* p = der.data();
        return d2i_X509(nullptr, &p, static_cast<long>(der.size()));
    }

    Bytes leaf;
    Bytes issuer;
    X509* leafX509;
    X509* issuerX509;
};

const Pair& Rsa() {
    static const Pair pair("rsa");
    return pair;
}

const Pair& Ec() {
    static const Pair pair("ec");
    return pair;
}

// One algorithm object for the whole run, as a caller that names its hash once would keep it:
// its ALG_ID is resolved on the first call and cached.
void CertId_Velmor(benchmark::State& state, const Pair& (*pairOf)()) {
    const Pair& pair = pairOf();
    const CBlob leaf(pair.leaf);
    const CBlob issuer(pair.issuer);
    const CBlob null(Bytes{0x05, 0x00});
    const CAlgorithmIdentifierEx sha1(kSha1, &null);
    velmor_bench::MeasureWithAllocations(state, [&] {
        CCertID id(sha1, leaf, issuer);
        benchmark::DoNotOptimize(id.get_issuerKeyHash().pbData());
    });
}

void CertIdFromDer_OpenSSL(benchmark::State& state, const Pair& (*pairOf)()) {
    const Pair& pair = pairOf();
    velmor_bench::MeasureWithAllocations(state, [&] {
        X509* leaf = Pair::Parse(pair.leaf);
        X509* issuer = Pair::Parse(pair.issuer);
        OCSP_CERTID* id = OCSP_cert_to_id(EVP_sha1(), leaf, issuer);
        benchmark::DoNotOptimize(id);
        OCSP_CERTID_free(id);
        X509_free(issuer);
        X509_free(leaf);
    });
}

void CertIdOnParsedX509_OpenSSL(benchmark::State& state, const Pair& (*pairOf)()) {
    const Pair& pair = pairOf();
    velmor_bench::MeasureWithAllocations(state, [&] {
        OCSP_CERTID* id = OCSP_cert_to_id(EVP_sha1(), pair.leafX509, pair.issuerX509);
        benchmark::DoNotOptimize(id);
        OCSP_CERTID_free(id);
    });
}

void CertIdWithSignature_Velmor(benchmark::State& state, const Pair& (*pairOf)()) {
    const CBlob leaf(pairOf().leaf);
    velmor_bench::MeasureWithAllocations(state, [&] {
        CCertIdWithSignature id(leaf);
        benchmark::DoNotOptimize(id.get_tbsCertificateHash().pbData());
    });
}

// The octets of the first element inside the DER element at der[0]: a certificate's
// to-be-signed part, as received.
std::pair<const unsigned char*, std::size_t> FirstElement(const Bytes& der) {
    const auto headerAt = [&](std::size_t at) {
        return (der[at + 1] & 0x80) != 0 ? 2 + (der[at + 1] & 0x7f) : std::size_t{2};
    };
    const std::size_t at = headerAt(0);
    const std::size_t header = headerAt(at);
    std::size_t length = der[at + 1];
    if (header > 2) {
        length = 0;
        for (std::size_t i = at + 2; i < at + header; ++i) {
            length = length << 8 | der[i];
        }
    }
    return {der.data() + at, header + length};
}

// The same fields from OpenSSL: parse, copy the issuer Name's DER, the serial number, the
// signature algorithm and value, and hash the to-be-signed octets with the signature's hash.
void CertIdWithSignature_OpenSSL(benchmark::State& state, const Pair& (*pairOf)()) {
    const Bytes& der = pairOf().leaf;
    velmor_bench::MeasureWithAllocations(state, [&] {
        X509* cert = Pair::Parse(der);
        const unsigned char* name = nullptr;
        std::size_t nameSize = 0;
        X509_NAME_get0_der(X509_get_issuer_name(cert), &name, &nameSize);
        Bytes issuer(name, name + nameSize);
        ASN1_INTEGER* serial = ASN1_INTEGER_dup(X509_get0_serialNumber(cert));
        const ASN1_BIT_STRING* signature = nullptr;
        const X509_ALGOR* algorithm = nullptr;
        X509_get0_signature(&signature, &algorithm, cert);
        X509_ALGOR* algorithmCopy = X509_ALGOR_dup(algorithm);
        Bytes signatureValue(signature->data, signature->data + signature->length);
        int digestNid = 0;
        X509_get_signature_info(cert, &digestNid, nullptr, nullptr, nullptr);
        const auto [tbs, tbsSize] = FirstElement(der);
        unsigned char hash[EVP_MAX_MD_SIZE];
        unsigned hashSize = 0;
        EVP_Digest(tbs, tbsSize, hash, &hashSize, EVP_get_digestbynid(digestNid), nullptr);
        benchmark::DoNotOptimize(hash);
        benchmark::DoNotOptimize(issuer.data());
        benchmark::DoNotOptimize(signatureValue.data());
        X509_ALGOR_free(algorithmCopy);
        ASN1_INTEGER_free(serial);
        X509_free(cert);
    });
}

// The steps: parsing one certificate, and hashing the issuer's public key with SHA-1.
void ParseCertificate_Velmor(benchmark::State& state, const Pair& (*pairOf)()) {
    const Bytes& der = pairOf().leaf;
    velmor_bench::MeasureWithAllocations(state, [&] {
        const PCCERT_CONTEXT context = CertCreateCertificateContext(
            X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()));
        benchmark::DoNotOptimize(context);
        CertFreeCertificateContext(context);
    });
}

void ParseCertificate_OpenSSL(benchmark::State& state, const Pair& (*pairOf)()) {
    const Bytes& der = pairOf().leaf;
    velmor_bench::MeasureWithAllocations(state, [&] {
        X509* cert = Pair::Parse(der);
        benchmark::DoNotOptimize(cert);
        X509_free(cert);
    });
}

Bytes IssuerKey(const Pair& pair) {
    const ASN1_BIT_STRING* key = X509_get0_pubkey_bitstr(pair.issuerX509);
    return Bytes(key->data, key->data + key->length);
}

void HashIssuerKey_Velmor(benchmark::State& state, const Pair& (*pairOf)()) {
    const CBlob key(IssuerKey(pairOf()));
    velmor_bench::MeasureWithAllocations(state, [&] {
        CBlob hash = Velmor::HashBlob(CALG_SHA1, key);
        benchmark::DoNotOptimize(hash.pbData());
    });
}

void HashIssuerKey_OpenSSL(benchmark::State& state, const Pair& (*pairOf)()) {
    const Bytes key = IssuerKey(pairOf());
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    velmor_bench::MeasureWithAllocations(state, [&] {
        EVP_Digest(key.data(), key.size(), hash, &size, EVP_sha1(), nullptr);
        benchmark::DoNotOptimize(hash);
    });
}

} // namespace

BENCHMARK_CAPTURE(CertId_Velmor, rsa, Rsa)->Name("CertIdSha1FromDerRsa/Velmor");
BENCHMARK_CAPTURE(CertIdFromDer_OpenSSL, rsa, Rsa)->Name("CertIdSha1FromDerRsa/OpenSSL");
BENCHMARK_CAPTURE(CertId_Velmor, rsa, Rsa)->Name("CertIdSha1OnParsedX509Rsa/Velmor");
BENCHMARK_CAPTURE(CertIdOnParsedX509_OpenSSL, rsa, Rsa)->Name("CertIdSha1OnParsedX509Rsa/OpenSSL");
BENCHMARK_CAPTURE(CertId_Velmor, ec, Ec)->Name("CertIdSha1FromDerP256/Velmor");
BENCHMARK_CAPTURE(CertIdFromDer_OpenSSL, ec, Ec)->Name("CertIdSha1FromDerP256/OpenSSL");
BENCHMARK_CAPTURE(CertId_Velmor, ec, Ec)->Name("CertIdSha1OnParsedX509P256/Velmor");
BENCHMARK_CAPTURE(CertIdOnParsedX509_OpenSSL, ec, Ec)->Name("CertIdSha1OnParsedX509P256/OpenSSL");
BENCHMARK_CAPTURE(CertIdWithSignature_Velmor, rsa, Rsa)->Name("CertIdWithSignatureRsa/Velmor");
BENCHMARK_CAPTURE(CertIdWithSignature_OpenSSL, rsa, Rsa)->Name("CertIdWithSignatureRsa/OpenSSL");
BENCHMARK_CAPTURE(CertIdWithSignature_Velmor, ec, Ec)->Name("CertIdWithSignatureP256/Velmor");
BENCHMARK_CAPTURE(CertIdWithSignature_OpenSSL, ec, Ec)->Name("CertIdWithSignatureP256/OpenSSL");
BENCHMARK_CAPTURE(ParseCertificate_Velmor, rsa, Rsa)->Name("ParseLeafRsa/Velmor");
BENCHMARK_CAPTURE(ParseCertificate_OpenSSL, rsa, Rsa)->Name("ParseLeafRsa/OpenSSL");
BENCHMARK_CAPTURE(HashIssuerKey_Velmor, rsa, Rsa)->Name("HashIssuerKeySha1Rsa/Velmor");
BENCHMARK_CAPTURE(HashIssuerKey_OpenSSL, rsa, Rsa)->Name("HashIssuerKeySha1Rsa/OpenSSL");

int main(int argc, char** argv) { return velmor_bench::RunAndCompare(argc, argv); }
