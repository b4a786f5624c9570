#include "validation/validation_builders.h"

#include <cstdio>
#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace velmor_test {

namespace {

template <class T, void (*Free)(T*)> struct OpenSslDeleter {
    void operator()(T* object) const noexcept { Free(object); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, OpenSslDeleter<EVP_PKEY, EVP_PKEY_free>>;
using X509Ptr = std::unique_ptr<X509, OpenSslDeleter<X509, X509_free>>;

KeyPtr ReadKey(const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        ADD_FAILURE() << "cannot read " << path;
        return nullptr;
    }
    KeyPtr key(PEM_read_PrivateKey(file, nullptr, nullptr, nullptr));
    std::fclose(file);
    return key;
}

X509Ptr ReadCertificate(const CBlob& der) {
    const unsigned char* p = der.pbData();
    return X509Ptr(d2i_X509(nullptr, &p, static_cast<long>(der.cbData())));
}

} // namespace

std::string FailureText(std::uint32_t failures) {
    std::string text;
    for (const std::string& name : CValidationResult::FailureNames(failures)) {
        text += (text.empty() ? "" : ",") + name;
    }
    return text.empty() ? "none" : text;
}

CBasicResponse SignedResponse(const std::string& family, const std::string& keyPath,
                              const CResponderID& responderId, const CSingleResponseList& entries,
                              const CBlobList* certs, const ASN1::CExtensions* extensions) {
    const bool ec = family == "ec";
    CBasicResponse response(At(-60), responderId);
    response.put_responses(entries);
    response.put_certs(certs);
    response.put_responseExtensions(extensions);

    const std::wstring container(keyPath.begin(), keyPath.end());
    Win32::HCRYPTPROV provider = 0;
    EXPECT_TRUE(Win32::CryptAcquireContextW(&provider, container.c_str(), nullptr,
                                            ec ? Win32::PROV_EC_ECDSA_FULL : Win32::PROV_RSA_FULL,
                                            0))
        << keyPath;
    response.sign(
        provider, Win32::AT_SIGNATURE,
        ASN1::CAlgorithmIdentifierEx(ec ? "1.2.840.10045.4.3.2" : "1.2.840.113549.1.1.11"));
    Win32::CryptReleaseContext(provider, 0);

    CBasicResponse received;
    received.decode(response.encode());
    return received;
}

CBlob MakeDelegate(const DelegateProfile& profile) {
    const KeyPtr subjectKey = ReadKey(profile.keyPath);
    const KeyPtr signingKey = ReadKey(KeyPath(profile.family, profile.signingKey));
    const X509Ptr issuer = ReadCertificate(Pki(profile.family, profile.issuerName));
    if (!subjectKey || !signingKey || !issuer) {
        ADD_FAILURE() << "delegate inputs missing";
        return CBlob();
    }
    X509Ptr certificate(X509_new());
    X509* x = certificate.get();
    X509_set_version(x, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(x), 0x5001);
    X509_NAME* subject = X509_get_subject_name(x);
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("Velmor Test Delegate"), -1,
                               -1, 0);
    X509_set_issuer_name(x, X509_get_subject_name(issuer.get()));
    ASN1_TIME_set(X509_getm_notBefore(x), static_cast<time_t>(profile.notBefore));
    ASN1_TIME_set(X509_getm_notAfter(x), static_cast<time_t>(profile.notAfter));
    X509_set_pubkey(x, subjectKey.get());
    if (profile.ocspSigning) {
        X509V3_CTX context;
        X509V3_set_ctx(&context, issuer.get(), x, nullptr, nullptr, 0);
        X509_EXTENSION* usage =
            X509V3_EXT_conf_nid(nullptr, &context, NID_ext_key_usage, "OCSPSigning");
        X509_add_ext(x, usage, -1);
        X509_EXTENSION_free(usage);
    }
    EXPECT_GT(X509_sign(x, signingKey.get(), EVP_sha256()), 0);
    unsigned char* der = nullptr;
    const int size = i2d_X509(x, &der);
    CBlob blob(der, static_cast<unsigned long>(size));
    OPENSSL_free(der);
    return blob;
}

} // namespace velmor_test
