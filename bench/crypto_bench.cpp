// The CryptoAPI layer against bare OpenSSL: HashBlob (a provider search, a hash object and
// its value per call) against EVP_Digest of the same bytes, and CryptVerifySignatureA
// against EVP_PKEY_verify with the fixture RSA-2048 and P-256 keys. A pair measures a whole
// verification from a certificate, as the response and request verification do it, and the
// last pair CRequestMessage::verify of a signed fixture request, given its signer's
// certificate, against EVP_DigestVerify of the same to-be-signed octets with a key made
// beforehand: what the message class adds to a bare signature check. The key import pairs
// measure what a key seen for the first time costs (the cache of imported keys left out):
// the key made from its numbers against d2i_PUBKEY of the same SubjectPublicKeyInfo.
#include "bench_support.h"
#include "certid/algorithm_lookup.h"
#include "platform/crypt_api.h"
#include "platform/crypt_keys.h"
#include "signed_message.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <pki/ocsp/request_message.h>
#include <string>
#include <unistd.h>
#include <vector>

using namespace Velmor::Win32;
using Bytes = std::vector<std::uint8_t>;

namespace {

// Stops the program when setup fails: a benchmark of a failing call measures nothing.
void Require(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "setup failed: %s (last error 0x%08X)\n", what, GetLastError());
        std::exit(2);
    }
}

const Bytes& Kilobyte() {
    static const Bytes data = [] {
        Bytes bytes(1024);
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<std::uint8_t>(i * 131 + 7);
        }
        return bytes;
    }();
    return data;
}

void HashBlob_Velmor(benchmark::State& state, ALG_ID algId) {
    const Velmor::CBlob data(Kilobyte());
    for (auto _ : state) {
        Velmor::CBlob hash = Velmor::HashBlob(algId, data);
        benchmark::DoNotOptimize(hash.pbData());
    }
}

void HashBlob_OpenSSL(benchmark::State& state, const char* name) {
    EVP_MD* md = EVP_MD_fetch(nullptr, name, nullptr);
    const Bytes& data = Kilobyte();
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    for (auto _ : state) {
        EVP_Digest(data.data(), data.size(), hash, &size, md, nullptr);
        benchmark::DoNotOptimize(hash);
    }
    EVP_MD_free(md);
}

// A provider holding a fixture key. The container is a file path, so the key's bytes are
// written to a scratch file for the time it takes to load them.
HCRYPTPROV OpenFixtureKey(const char* folder, DWORD providerType) {
    const Bytes key = velmor_bench::ReadData(std::string("pki/") + folder + "/leaf.key.pem");
    char path[] = "/tmp/velmor-bench-key-XXXXXX";
    const int fd = mkstemp(path);
    Require(fd >= 0 && write(fd, key.data(), key.size()) == static_cast<ssize_t>(key.size()),
            "write the key file");
    close(fd);
    const std::string location = path;
    const std::wstring container(location.begin(), location.end());
    HCRYPTPROV provider = 0;
    const BOOL opened =
        CryptAcquireContextW(&provider, container.c_str(), nullptr, providerType, 0);
    unlink(path);
    Require(opened != FALSE, "open the key");
    return provider;
}

// One signer: the fixture leaf's key and certificate, a signature over the kilobyte in
// CryptoAPI order and in wire order, and everything verification needs prepared.
struct Signer {
    Signer(const char* folder, DWORD providerType) : folder(folder), providerType(providerType) {
        certificate = velmor_bench::ReadData(std::string("pki/") + folder + "/leaf.der");
        const HCRYPTPROV signing = OpenFixtureKey(folder, providerType);
        HCRYPTHASH hash = 0;
        Require(CryptCreateHash(signing, CALG_SHA_256, 0, 0, &hash) &&
                    CryptHashData(hash, Kilobyte().data(), 1024, 0),
                "hash");
        DWORD size = 0;
        Require(CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, nullptr, &size), "sign");
        reversed.resize(size);
        Require(CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, reversed.data(), &size), "sign");
        wire.assign(reversed.rbegin(), reversed.rend());
        CryptDestroyHash(hash);
        CryptReleaseContext(signing, 0);

        const unsigned char* p = certificate.data();
        x509 = d2i_X509(nullptr, &p, static_cast<long>(certificate.size()));
        digest.resize(32);
        unsigned digestSize = 0;
        EVP_Digest(Kilobyte().data(), Kilobyte().size(), digest.data(), &digestSize, EVP_sha256(),
                   nullptr);
    }
    ~Signer() { X509_free(x509); }

    const char* folder;
    DWORD providerType;
    Bytes certificate;
    Bytes reversed;
    Bytes wire;
    Bytes digest;
    X509* x509 = nullptr;
};

const Signer& RsaSigner() {
    static const Signer signer("rsa", PROV_RSA_FULL);
    return signer;
}

const Signer& EcSigner() {
    static const Signer signer("ec", PROV_EC_ECDSA_FULL);
    return signer;
}

void Verify_Velmor(benchmark::State& state, const Signer& (*signerOf)()) {
    const Signer& signer = signerOf();
    const PCCERT_CONTEXT cert =
        CertCreateCertificateContext(X509_ASN_ENCODING, signer.certificate.data(),
                                     static_cast<DWORD>(signer.certificate.size()));
    HCRYPTPROV provider = 0;
    HCRYPTKEY key = 0;
    HCRYPTHASH hash = 0;
    Require(cert != nullptr &&
                CryptAcquireContextW(&provider, nullptr, nullptr, signer.providerType,
                                     CRYPT_VERIFYCONTEXT) &&
                CryptImportPublicKeyInfo(provider, X509_ASN_ENCODING,
                                         &cert->pCertInfo->SubjectPublicKeyInfo, &key) &&
                CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash) &&
                CryptHashData(hash, Kilobyte().data(), 1024, 0),
            "prepare verification");
    for (auto _ : state) {
        const BOOL ok =
            CryptVerifySignatureA(hash, signer.reversed.data(),
                                  static_cast<DWORD>(signer.reversed.size()), key, nullptr, 0);
        Require(ok != FALSE, "verify");
    }
    CryptDestroyHash(hash);
    CryptDestroyKey(key);
    CryptReleaseContext(provider, 0);
    CertFreeCertificateContext(cert);
}

void Verify_OpenSSL(benchmark::State& state, const Signer& (*signerOf)()) {
    const Signer& signer = signerOf();
    EVP_PKEY* key = X509_get0_pubkey(signer.x509);
    EVP_MD* md = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    for (auto _ : state) {
        EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr);
        EVP_PKEY_verify_init(context);
        if (EVP_PKEY_is_a(key, "RSA") == 1) {
            EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING);
        }
        EVP_PKEY_CTX_set_signature_md(context, md);
        const int ok = EVP_PKEY_verify(context, signer.wire.data(), signer.wire.size(),
                                       signer.digest.data(), signer.digest.size());
        EVP_PKEY_CTX_free(context);
        Require(ok == 1, "EVP_PKEY_verify");
    }
    EVP_MD_free(md);
}

// The whole check the message classes make: parse the signer's certificate, find a provider
// for its key algorithm, hash, import the key, verify, release everything.
void VerifyFromCertificate_Velmor(benchmark::State& state, const Signer& (*signerOf)()) {
    const Signer& signer = signerOf();
    for (auto _ : state) {
        const PCCERT_CONTEXT cert =
            CertCreateCertificateContext(X509_ASN_ENCODING, signer.certificate.data(),
                                         static_cast<DWORD>(signer.certificate.size()));
        const HCRYPTPROV provider = Velmor::AcquireContextForAlgId(
            CertOIDToAlgId(cert->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId));
        HCRYPTHASH hash = 0;
        HCRYPTKEY key = 0;
        const BOOL ok =
            CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash) &&
            CryptHashData(hash, Kilobyte().data(), 1024, 0) &&
            CryptImportPublicKeyInfo(provider, X509_ASN_ENCODING,
                                     &cert->pCertInfo->SubjectPublicKeyInfo, &key) &&
            CryptVerifySignatureA(hash, signer.reversed.data(),
                                  static_cast<DWORD>(signer.reversed.size()), key, nullptr, 0);
        Require(ok != FALSE, "verify from certificate");
        CryptDestroyKey(key);
        CryptDestroyHash(hash);
        CryptReleaseContext(provider, 0);
        CertFreeCertificateContext(cert);
    }
}

void VerifyFromCertificate_OpenSSL(benchmark::State& state, const Signer& (*signerOf)()) {
    const Signer& signer = signerOf();
    for (auto _ : state) {
        const unsigned char* p = signer.certificate.data();
        X509* cert = d2i_X509(nullptr, &p, static_cast<long>(signer.certificate.size()));
        EVP_MD_CTX* context = EVP_MD_CTX_new();
        const int ok = EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr,
                                            X509_get0_pubkey(cert)) == 1 &&
                       EVP_DigestVerify(context, signer.wire.data(), signer.wire.size(),
                                        Kilobyte().data(), Kilobyte().size()) == 1;
        EVP_MD_CTX_free(context);
        X509_free(cert);
        Require(ok, "EVP_DigestVerify");
    }
}

// One DER element inside bytes: where its header starts, where its contents start and where
// it ends.
// A signed fixture request, decoded once, and its parts for the bare check.
struct SignedRequest {
    SignedRequest(const char* request, const char* signer) {
        const Bytes der = velmor_bench::ReadData(std::string("ocsp/") + request);
        certificate = velmor_bench::ReadData(std::string("pki/") + signer);
        Require(velmor_bench::SplitSigned(der, certificate, velmor_bench::Layout::request, parts),
                "split the request");
        message.decode(Velmor::CBlob(der));
    }

    Bytes certificate;
    velmor_bench::SignedParts parts;
    Velmor::PKI::OCSP::CRequestMessage message;
};

const SignedRequest& RsaRequest() {
    static const SignedRequest request("req-signed-rsa.der", "rsa/client.der");
    return request;
}

const SignedRequest& EcRequest() {
    static const SignedRequest request("req-signed-ec.der", "ec/client.der");
    return request;
}

// The message decoded once; each call verifies it from the certificate's DER.
void RequestVerify_Velmor(benchmark::State& state, const SignedRequest& (*requestOf)()) {
    const SignedRequest& request = requestOf();
    const Velmor::CBlob certificate(request.certificate);
    velmor_bench::MeasureWithAllocations(state, [&] {
        const bool ok = request.message.verify(certificate);
        Require(ok, "CRequestMessage::verify");
    });
}

// A context per call, as one verification needs; the digest fetched beforehand.
void RequestVerify_OpenSSL(benchmark::State& state, const SignedRequest& (*requestOf)()) {
    const SignedRequest& request = requestOf();
    EVP_MD* md = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    velmor_bench::MeasureWithAllocations(
        state, [&] { Require(velmor_bench::DigestVerify(request.parts, md), "EVP_DigestVerify"); });
    EVP_MD_free(md);
}

void KeyImport_Velmor(benchmark::State& state, const Signer& (*signerOf)()) {
    const Signer& signer = signerOf();
    const PCCERT_CONTEXT cert =
        CertCreateCertificateContext(X509_ASN_ENCODING, signer.certificate.data(),
                                     static_cast<DWORD>(signer.certificate.size()));
    Require(cert != nullptr, "parse the certificate");
    const CERT_PUBLIC_KEY_INFO& info = cert->pCertInfo->SubjectPublicKeyInfo;
    const ALG_ID algId = CertOIDToAlgId(info.Algorithm.pszObjId);
    velmor_bench::MeasureWithAllocations(state, [&] {
        const Detail::PkeyPtr key = Detail::KeyFromParameters(info, algId);
        Require(key != nullptr, "KeyFromParameters");
    });
    CertFreeCertificateContext(cert);
}

void KeyImport_OpenSSL(benchmark::State& state, const Signer& (*signerOf)()) {
    const Signer& signer = signerOf();
    unsigned char* der = nullptr;
    const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(signer.x509), &der);
    Require(size > 0, "i2d_X509_PUBKEY");
    velmor_bench::MeasureWithAllocations(state, [&] {
        const unsigned char* p = der;
        EVP_PKEY* key = d2i_PUBKEY(nullptr, &p, size);
        Require(key != nullptr, "d2i_PUBKEY");
        EVP_PKEY_free(key);
    });
    OPENSSL_free(der);
}

} // namespace

BENCHMARK_CAPTURE(HashBlob_Velmor, sha1, CALG_SHA1)->Name("HashBlobSha1_1KB/Velmor");
BENCHMARK_CAPTURE(HashBlob_OpenSSL, sha1, "SHA1")->Name("HashBlobSha1_1KB/OpenSSL");
BENCHMARK_CAPTURE(HashBlob_Velmor, sha256, CALG_SHA_256)->Name("HashBlobSha256_1KB/Velmor");
BENCHMARK_CAPTURE(HashBlob_OpenSSL, sha256, "SHA256")->Name("HashBlobSha256_1KB/OpenSSL");
BENCHMARK_CAPTURE(Verify_Velmor, rsa, RsaSigner)->Name("VerifyRsa2048/Velmor");
BENCHMARK_CAPTURE(Verify_OpenSSL, rsa, RsaSigner)->Name("VerifyRsa2048/OpenSSL");
BENCHMARK_CAPTURE(Verify_Velmor, ec, EcSigner)->Name("VerifyP256/Velmor");
BENCHMARK_CAPTURE(Verify_OpenSSL, ec, EcSigner)->Name("VerifyP256/OpenSSL");
BENCHMARK_CAPTURE(VerifyFromCertificate_Velmor, rsa, RsaSigner)
    ->Name("VerifyFromCertRsa2048/Velmor");
BENCHMARK_CAPTURE(VerifyFromCertificate_OpenSSL, rsa, RsaSigner)
    ->Name("VerifyFromCertRsa2048/OpenSSL");
BENCHMARK_CAPTURE(VerifyFromCertificate_Velmor, ec, EcSigner)->Name("VerifyFromCertP256/Velmor");
BENCHMARK_CAPTURE(VerifyFromCertificate_OpenSSL, ec, EcSigner)->Name("VerifyFromCertP256/OpenSSL");
BENCHMARK_CAPTURE(KeyImport_Velmor, rsa, RsaSigner)->Name("KeyImportRsa2048/Velmor");
BENCHMARK_CAPTURE(KeyImport_OpenSSL, rsa, RsaSigner)->Name("KeyImportRsa2048/OpenSSL");
BENCHMARK_CAPTURE(KeyImport_Velmor, ec, EcSigner)->Name("KeyImportP256/Velmor");
BENCHMARK_CAPTURE(KeyImport_OpenSSL, ec, EcSigner)->Name("KeyImportP256/OpenSSL");
BENCHMARK_CAPTURE(RequestVerify_Velmor, rsa, RsaRequest)->Name("RequestVerifyRsa2048/Velmor");
BENCHMARK_CAPTURE(RequestVerify_OpenSSL, rsa, RsaRequest)->Name("RequestVerifyRsa2048/OpenSSL");
BENCHMARK_CAPTURE(RequestVerify_Velmor, ec, EcRequest)->Name("RequestVerifyP256/Velmor");
BENCHMARK_CAPTURE(RequestVerify_OpenSSL, ec, EcRequest)->Name("RequestVerifyP256/OpenSSL");

int main(int argc, char** argv) { return velmor_bench::RunAndCompare(argc, argv); }
