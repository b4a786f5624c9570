#include "algorithms.h"

namespace VelmorTool {

namespace {

struct Named {
    const char* oid;
    const char* name;
};

constexpr Named kNames[] = {
    {"1.3.14.3.2.26", "sha1"},
    {"2.16.840.1.101.3.4.2.4", "sha224"},
    {"2.16.840.1.101.3.4.2.1", "sha256"},
    {"2.16.840.1.101.3.4.2.2", "sha384"},
    {"2.16.840.1.101.3.4.2.3", "sha512"},
    {"1.2.840.113549.2.5", "md5"},
    {"1.2.840.113549.1.1.1", "rsaEncryption"},
    {"1.2.840.113549.1.1.4", "md5WithRSAEncryption"},
    {"1.2.840.113549.1.1.5", "sha1WithRSAEncryption"},
    {"1.2.840.113549.1.1.10", "rsassaPss"},
    {"1.2.840.113549.1.1.11", "sha256WithRSAEncryption"},
    {"1.2.840.113549.1.1.12", "sha384WithRSAEncryption"},
    {"1.2.840.113549.1.1.13", "sha512WithRSAEncryption"},
    {"1.2.840.113549.1.1.14", "sha224WithRSAEncryption"},
    {"1.2.840.10045.2.1", "ecPublicKey"},
    {"1.2.840.10045.4.1", "ecdsa-with-SHA1"},
    {"1.2.840.10045.4.3.1", "ecdsa-with-SHA224"},
    {"1.2.840.10045.4.3.2", "ecdsa-with-SHA256"},
    {"1.2.840.10045.4.3.3", "ecdsa-with-SHA384"},
    {"1.2.840.10045.4.3.4", "ecdsa-with-SHA512"},
    {"1.3.101.112", "ED25519"},
    {"1.3.101.113", "ED448"},
    {"1.3.6.1.5.5.7.48.1", "ocsp"},
    {"1.3.6.1.5.5.7.48.2", "caIssuers"},
    {kBasicResponseOid, "basic"},
    {kNonceOid, "nonce"},
    {kCrlIdOid, "CrlID"},
    {kAcceptableResponsesOid, "acceptable responses"},
    {"1.3.6.1.5.5.7.48.1.5", "no check"},
    {kArchiveCutoffOid, "archive cutoff"},
    {kServiceLocatorOid, "service locator"},
    {"1.3.6.1.5.5.7.48.1.8", "preferred signature algorithms"},
    {"1.3.6.1.5.5.7.48.1.9", "extended revoke"},
    {kCrlLocatorOid, "CRL locator"},
    {kInstantRevocationOid, "instant revocation indicator"},
    {kRevocationAnnouncementOid, "revocation announcement reference"},
    {kHistoricalRequestOid, "historical request"},
};

struct HashChoice {
    const char* name;
    const char* oid;
    const char* withRsa;
    const char* withEcdsa;
};

constexpr HashChoice kHashes[] = {
    {"sha1", "1.3.14.3.2.26", "1.2.840.113549.1.1.5", "1.2.840.10045.4.1"},
    {"sha256", "2.16.840.1.101.3.4.2.1", "1.2.840.113549.1.1.11", "1.2.840.10045.4.3.2"},
    {"sha384", "2.16.840.1.101.3.4.2.2", "1.2.840.113549.1.1.12", "1.2.840.10045.4.3.3"},
    {"sha512", "2.16.840.1.101.3.4.2.3", "1.2.840.113549.1.1.13", "1.2.840.10045.4.3.4"},
};

const HashChoice& Hash(const std::string& name) {
    for (const HashChoice& hash : kHashes) {
        if (name == hash.name) {
            return hash;
        }
    }
    return kHashes[1]; // the options accept only the names above
}

} // namespace

const char* OidName(const std::string& oid) {
    for (const Named& named : kNames) {
        if (oid == named.oid) {
            return named.name;
        }
    }
    return nullptr;
}

const std::vector<std::string>& HashNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const HashChoice& hash : kHashes) {
            list.emplace_back(hash.name);
        }
        return list;
    }();
    return names;
}

const char* HashOid(const std::string& name) { return Hash(name).oid; }

const char* SignatureOid(KeyType type, const std::string& hashName) {
    const HashChoice& hash = Hash(hashName);
    return type == KeyType::rsa ? hash.withRsa : hash.withEcdsa;
}

} // namespace VelmorTool
