#include "certificate.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <ctime>
#include <memory>

namespace VelmorTool {

using Velmor::CBlob;

namespace {

struct Free {
    void operator()(X509* p) const noexcept { X509_free(p); }
    void operator()(X509_NAME* p) const noexcept { X509_NAME_free(p); }
    void operator()(BIO* p) const noexcept { BIO_free(p); }
    void operator()(ASN1_OBJECT* p) const noexcept { ASN1_OBJECT_free(p); }
    void operator()(BIGNUM* p) const noexcept { BN_free(p); }
};
template <class T> using Owned = std::unique_ptr<T, Free>;

Owned<X509> ParseCertificate(const CBlob& der) {
    const unsigned char* p = der.pbData();
    Owned<X509> certificate(d2i_X509(nullptr, &p, static_cast<long>(der.cbData())));
    if (certificate && p != der.pbData() + der.cbData()) {
        certificate.reset();
    }
    return certificate;
}

std::string Print(const X509_NAME* name) {
    const Owned<BIO> bio(BIO_new(BIO_s_mem()));
    // One line, ", " between attributes, "=" without spaces, UTF-8 kept as it is.
    const unsigned long flags = (XN_FLAG_ONELINE & ~XN_FLAG_SPC_EQ & ~ASN1_STRFLGS_ESC_MSB);
    X509_NAME_print_ex(bio.get(), name, 0, flags);
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<std::size_t>(size));
}

CBlob NameDer(const X509_NAME* name) {
    const unsigned char* der = nullptr;
    std::size_t size = 0;
    X509_NAME_get0_der(const_cast<X509_NAME*>(name), &der, &size); // the bytes as read
    return CBlob(der, static_cast<unsigned long>(size));
}

std::string TimeText(const ASN1_TIME* time) {
    std::tm parts{};
    if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) {
        return "";
    }
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

std::string SerialText(const ASN1_INTEGER* serial) {
    const Owned<BIGNUM> number(ASN1_INTEGER_to_BN(serial, nullptr));
    if (!number) {
        return "";
    }
    char* hex = BN_bn2hex(number.get());
    std::string text = hex != nullptr ? hex : "";
    OPENSSL_free(hex);
    // BN_bn2hex writes whole octets ("0F"); CBigInteger::ToHex drops the leading zero.
    const std::size_t sign = !text.empty() && text[0] == '-' ? 1 : 0;
    while (text.size() > sign + 1 && text[sign] == '0') {
        text.erase(sign, 1);
    }
    return text;
}

std::optional<CBlob> Hash(const EVP_MD* md, const unsigned char* data, std::size_t size) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(data, size, out, &length, md, nullptr) != 1) {
        return std::nullopt;
    }
    return CBlob(out, length);
}

} // namespace

std::optional<IssuerHashes> IssuerHashesOf(const CBlob& issuerCertificate, const char* hashOid) {
    const Owned<X509> issuer = ParseCertificate(issuerCertificate);
    const Owned<ASN1_OBJECT> oid(OBJ_txt2obj(hashOid, 1));
    const EVP_MD* md = oid ? EVP_get_digestbyobj(oid.get()) : nullptr;
    const ASN1_BIT_STRING* key = issuer ? X509_get0_pubkey_bitstr(issuer.get()) : nullptr;
    if (key == nullptr || md == nullptr) {
        return std::nullopt;
    }
    const CBlob name = NameDer(X509_get_subject_name(issuer.get()));
    auto nameHash = Hash(md, name.pbData(), name.cbData());
    auto keyHash = Hash(md, key->data, static_cast<std::size_t>(key->length));
    if (!nameHash || !keyHash) {
        return std::nullopt;
    }
    return IssuerHashes{std::move(*nameHash), std::move(*keyHash)};
}

std::optional<std::string> NameText(const CBlob& der) {
    const unsigned char* p = der.pbData();
    const Owned<X509_NAME> name(d2i_X509_NAME(nullptr, &p, static_cast<long>(der.cbData())));
    if (!name || p != der.pbData() + der.cbData()) {
        return std::nullopt;
    }
    return Print(name.get());
}

std::optional<CertificateFacts> ReadCertificateFacts(const CBlob& der) {
    const Owned<X509> certificate = ParseCertificate(der);
    if (!certificate) {
        return std::nullopt;
    }
    CertificateFacts facts;
    facts.subject = Print(X509_get_subject_name(certificate.get()));
    facts.issuer = Print(X509_get_issuer_name(certificate.get()));
    facts.serialNumber = SerialText(X509_get0_serialNumber(certificate.get()));
    facts.notBefore = TimeText(X509_get0_notBefore(certificate.get()));
    facts.notAfter = TimeText(X509_get0_notAfter(certificate.get()));
    facts.subjectName = NameDer(X509_get_subject_name(certificate.get()));
    facts.issuerName = NameDer(X509_get_issuer_name(certificate.get()));
    return facts;
}

std::optional<std::string> OcspUrlOf(const CBlob& der) {
    const Owned<X509> certificate = ParseCertificate(der);
    if (!certificate) {
        return std::nullopt;
    }
    STACK_OF(OPENSSL_STRING)* urls = X509_get1_ocsp(certificate.get());
    std::optional<std::string> first;
    if (sk_OPENSSL_STRING_num(urls) > 0) {
        first = sk_OPENSSL_STRING_value(urls, 0);
    }
    X509_email_free(urls); // frees a list of strings, whatever they hold
    return first;
}

bool IsIssuerOf(const CBlob& issuerCertificate, const CBlob& certificate) {
    const Owned<X509> issuer = ParseCertificate(issuerCertificate);
    const Owned<X509> subject = ParseCertificate(certificate);
    return issuer && subject && X509_check_issued(issuer.get(), subject.get()) == X509_V_OK;
}

bool NamesIssuer(const Velmor::PKI::OCSP::CCertID& id, const CBlob& issuerCertificate) {
    const auto hashes = IssuerHashesOf(issuerCertificate, id.get_hashAlgorithm().get_algorithm());
    return hashes && hashes->name == id.get_issuerNameHash() &&
           hashes->key == id.get_issuerKeyHash();
}

std::optional<Velmor::PKI::OCSP::CCertID> CertIdOf(const Velmor::ASN1::CBigInteger& serial,
                                                   const CBlob& issuerCertificate,
                                                   const char* hashOid) {
    static constexpr unsigned char kDerNull[] = {0x05, 0x00};
    auto hashes = IssuerHashesOf(issuerCertificate, hashOid);
    if (!hashes) {
        return std::nullopt;
    }
    const CBlob parameters(kDerNull, sizeof kDerNull);
    return Velmor::PKI::OCSP::CCertID(Velmor::ASN1::CAlgorithmIdentifier(hashOid, &parameters),
                                      std::move(hashes->name), std::move(hashes->key), serial);
}

} // namespace VelmorTool
