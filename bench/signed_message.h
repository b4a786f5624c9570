// A signed OCSP request or basic response taken apart with OpenSSL alone, for the
// benchmarks that set the library's verify beside a bare EVP_DigestVerify of the same
// octets: the to-be-signed element, the signature in wire order and the signer's key, made
// once.
#ifndef VELMOR_BENCH_SIGNED_MESSAGE_H
#define VELMOR_BENCH_SIGNED_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <vector>

namespace velmor_bench {

struct SignedParts {
    std::vector<std::uint8_t> tbs;
    std::vector<std::uint8_t> signature; // wire order
    EVP_PKEY* key = nullptr;             // the signer's, owned

    SignedParts() = default;
    SignedParts(const SignedParts&) = delete;
    SignedParts& operator=(const SignedParts&) = delete;
    ~SignedParts() { EVP_PKEY_free(key); }
};

// The two layouts: OCSPRequest ::= SEQUENCE { tbsRequest, optionalSignature [0] EXPLICIT
// SEQUENCE { signatureAlgorithm, signature BIT STRING, certs [0] OPTIONAL } }, and
// BasicOCSPResponse ::= SEQUENCE { tbsResponseData, signatureAlgorithm, signature BIT
// STRING, certs [0] OPTIONAL }.
enum class Layout { request, basicResponse };

// False when der or the certificate cannot be read as the layout says.
inline bool SplitSigned(const std::vector<std::uint8_t>& der,
                        const std::vector<std::uint8_t>& signerCertificate, Layout layout,
                        SignedParts& parts) {
    struct Element {
        std::size_t start;
        std::size_t contents;
        std::size_t end;
    };
    bool ok = true;
    const auto at = [&](std::size_t start) {
        if (start >= der.size()) {
            ok = false;
            return Element{0, 0, 0};
        }
        const unsigned char* p = der.data() + start;
        long length = 0;
        int tag = 0;
        int tagClass = 0;
        ok = ok &&
             (ASN1_get_object(&p, &length, &tag, &tagClass, static_cast<long>(der.size() - start)) &
              0x80) == 0;
        const auto contents = static_cast<std::size_t>(p - der.data());
        return Element{start, contents, contents + static_cast<std::size_t>(length)};
    };
    const Element tbs = at(at(0).contents);
    const Element algorithm =
        layout == Layout::request ? at(at(at(tbs.end).contents).contents) : at(tbs.end);
    const Element bits = at(algorithm.end);
    if (!ok || bits.contents >= bits.end || bits.end > der.size()) {
        return false;
    }
    parts.tbs.assign(der.begin() + static_cast<std::ptrdiff_t>(tbs.start),
                     der.begin() + static_cast<std::ptrdiff_t>(tbs.end));
    // The first contents octet counts the unused bits, none in a signature.
    parts.signature.assign(der.begin() + static_cast<std::ptrdiff_t>(bits.contents + 1),
                           der.begin() + static_cast<std::ptrdiff_t>(bits.end));
    const unsigned char* p = signerCertificate.data();
    X509* x509 = d2i_X509(nullptr, &p, static_cast<long>(signerCertificate.size()));
    parts.key = x509 != nullptr ? X509_get_pubkey(x509) : nullptr;
    X509_free(x509);
    return parts.key != nullptr;
}

// One bare check as a caller with the key at hand makes it: a context, EVP_DigestVerify.
inline bool DigestVerify(const SignedParts& parts, const EVP_MD* md) {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    const bool ok = EVP_DigestVerifyInit(context, nullptr, md, nullptr, parts.key) == 1 &&
                    EVP_DigestVerify(context, parts.signature.data(), parts.signature.size(),
                                     parts.tbs.data(), parts.tbs.size()) == 1;
    EVP_MD_CTX_free(context);
    return ok;
}

} // namespace velmor_bench

#endif
