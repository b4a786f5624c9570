// The certificate identifiers made from fixture certificates against independent peers: each
// CertID is the one `openssl ocsp -reqout` writes for the same pair, and each certificate ID
// with signature holds the fields, and encodes to the DER, that Python's cryptography package
// reads from the same certificate.
#include <gtest/gtest.h>
#include <pki/ocsp/algorithm_identifier_ex.h>
#include <pki/ocsp/cert_id.h>
#include <pki/ocsp/cert_id_with_signature.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::DataPath;
using velmor_test::ReadData;
using velmor_test::RunCommand;
using velmor_test::ToHex;
using velmor_test::WriteTempFile;

namespace {

constexpr const char* kSha1 = "1.3.14.3.2.26";
constexpr const char* kSha256 = "2.16.840.1.101.3.4.2.1";
constexpr const char* kFamilies[] = {"rsa", "ec"};
constexpr const char* kCertificates[] = {"root",   "inter", "leaf",  "leaf00",
                                         "leaf20", "ocsp",  "client"};

struct Pair {
    const char* certificate;
    const char* issuer;
};
// Every issued fixture with its issuer, the self-signed root, and one pair given the wrong
// way round (openssl hashes whatever it is handed, as we do).
constexpr Pair kPairs[] = {{"leaf", "inter"}, {"leaf00", "inter"}, {"leaf20", "inter"},
                           {"ocsp", "inter"}, {"client", "inter"}, {"inter", "root"},
                           {"root", "root"},  {"inter", "leaf"}};

const CBlob kNull(Bytes{0x05, 0x00});

std::string HexOf(const CBlob& blob) { return ToHex(blob.pbData(), blob.cbData()); }
std::string Fixture(const std::string& family, const std::string& name, const char* ext) {
    return "pki/" + family + "/" + name + ext;
}
CBlob Der(const std::string& family, const std::string& name) {
    return CBlob(ReadData(Fixture(family, name, ".der")));
}

// The elements directly inside the DER element that starts at der[0].
std::vector<Bytes> Children(const Bytes& der) {
    std::vector<Bytes> out;
    const auto elementSize = [&](std::size_t at) {
        std::size_t header = 2;
        std::size_t length = der.at(at + 1);
        if ((length & 0x80) != 0) {
            header += length & 0x7f;
            length = 0;
            for (std::size_t i = at + 2; i < at + header; ++i) {
                length = (length << 8) | der.at(i);
            }
        }
        return std::pair{header, header + length};
    };
    const auto [header, total] = elementSize(0);
    for (std::size_t at = header; at < total;) {
        const std::size_t size = elementSize(at).second;
        if (at + size > der.size()) {
            ADD_FAILURE() << "element overruns the DER at offset " << at;
            break;
        }
        out.emplace_back(der.begin() + static_cast<std::ptrdiff_t>(at),
                         der.begin() + static_cast<std::ptrdiff_t>(at + size));
        at += size;
    }
    return out;
}

Bytes Contents(const Bytes& element) {
    const std::size_t header = (element.at(1) & 0x80) != 0 ? 2 + (element[1] & 0x7f) : 2;
    return Bytes(element.begin() + static_cast<std::ptrdiff_t>(header), element.end());
}

// OCSPRequest -> tbsRequest -> requestList -> first Request -> CertID, as openssl writes it.
Bytes OpensslCertId(const std::string& family, const Pair& pair, bool sha256) {
    const std::string out = WriteTempFile({}, "request.der");
    std::string log;
    const int status =
        RunCommand("openssl ocsp -issuer " + DataPath(Fixture(family, pair.issuer, ".pem")) +
                       (sha256 ? " -sha256" : "") + " -cert " +
                       DataPath(Fixture(family, pair.certificate, ".pem")) + " -no_nonce -reqout " +
                       out + " 2>&1",
                   &log);
    EXPECT_EQ(status, 0) << log;
    const Bytes request = velmor_test::ReadFile(out);
    if (request.size() < 2) {
        return {};
    }
    const Bytes tbs = Children(request).at(0);
    const Bytes requestList = Children(tbs).at(0); // -no_nonce: no version, name or extensions
    return Children(Children(requestList).at(0)).at(0);
}

TEST(CertIdPeers, EqualsTheCertIdOpensslWritesForEveryFixturePair) {
    ASSERT_TRUE(velmor_test::HaveOpenssl());
    for (const char* family : kFamilies) {
        for (const Pair& pair : kPairs) {
            for (const bool sha256 : {false, true}) {
                SCOPED_TRACE(std::string(family) + " " + pair.certificate + " issued by " +
                             pair.issuer + (sha256 ? " SHA-256" : " SHA-1"));
                const Bytes expected = OpensslCertId(family, pair, sha256);
                ASSERT_FALSE(expected.empty());
                const CAlgorithmIdentifierEx hash(sha256 ? kSha256 : kSha1, &kNull);
                const CCertID ours(hash, Der(family, pair.certificate), Der(family, pair.issuer));
                EXPECT_EQ(HexOf(ours.encode()), ToHex(expected));

                // Field by field, against openssl's elements.
                const std::vector<Bytes> fields = Children(expected);
                ASSERT_EQ(fields.size(), 4u);
                EXPECT_STREQ(ours.get_hashAlgorithm().get_algorithm(), hash.get_algorithm());
                EXPECT_EQ(HexOf(ours.get_hashAlgorithm().get_parameters()), "0500");
                EXPECT_EQ(HexOf(ours.get_issuerNameHash()), ToHex(Contents(fields[1])));
                EXPECT_EQ(HexOf(ours.get_issuerKeyHash()), ToHex(Contents(fields[2])));
                EXPECT_EQ(HexOf(ours.get_serialNumber().get_content()), ToHex(Contents(fields[3])));

                CCertID decoded;
                decoded.decode(CBlob(expected));
                EXPECT_EQ(decoded, ours);
            }
        }
    }
}

TEST(CertIdPeers, ArgumentsHashAlgorithmAndParametersAllCount) {
    const CBlob leaf = Der("rsa", "leaf");
    const CBlob inter = Der("rsa", "inter");
    const CAlgorithmIdentifierEx sha1(kSha1, &kNull);
    const CAlgorithmIdentifierEx sha256(kSha256, &kNull);
    EXPECT_EQ(sha1.get_cachedAlgId(), 0u);
    EXPECT_EQ(sha256.get_cachedAlgId(), 0u);
    const CCertID bySha1(sha1, leaf, inter);
    const CCertID bySha256(sha256, leaf, inter);
    EXPECT_EQ(sha1.get_cachedAlgId(), 0x8004u);   // CALG_SHA1
    EXPECT_EQ(sha256.get_cachedAlgId(), 0x800cu); // CALG_SHA_256

    EXPECT_NE(bySha1, bySha256);
    EXPECT_EQ(bySha256.get_issuerKeyHash().cbData(), 32u);
    const CCertID swapped(sha1, inter, leaf);
    EXPECT_NE(swapped, bySha1);
    EXPECT_NE(swapped.get_issuerNameHash(), bySha1.get_issuerNameHash());
    EXPECT_NE(swapped.get_issuerKeyHash(), bySha1.get_issuerKeyHash());

    // Parameters are carried, not interpreted: without them the hashes stay the same.
    const CCertID bare(CAlgorithmIdentifierEx(kSha1), leaf, inter);
    EXPECT_EQ(bare.get_issuerNameHash(), bySha1.get_issuerNameHash());
    EXPECT_EQ(bare.get_issuerKeyHash(), bySha1.get_issuerKeyHash());
    EXPECT_EQ(bare.get_hashAlgorithm().get_parameters().cbData(), 0u);
    EXPECT_NE(bare, bySha1);

    // An OID without a hash behind it fails in the hashing, and caches nothing.
    const CAlgorithmIdentifierEx unknown("1.2.3.4");
    EXPECT_HRESULT_THROW(CCertID(unknown, leaf, inter), NTE_BAD_ALGID);
    EXPECT_EQ(unknown.get_cachedAlgId(), 0u);
}

TEST(CertIdPeers, BadCertificatesThrowTheIssuersErrorFirst) {
    const CBlob good = Der("ec", "leaf");
    const CBlob malformed(Bytes{0x04, 0x03, 0x01, 0x02, 0x03});
    const CBlob truncated(good.pbData(), good.cbData() - 10);
    const CAlgorithmIdentifierEx sha1(kSha1, &kNull);
    EXPECT_HRESULT_THROW(CCertID(sha1, good, malformed), CRYPT_E_ASN1_BADTAG);
    EXPECT_HRESULT_THROW(CCertID(sha1, good, truncated), CRYPT_E_ASN1_EOD);
    EXPECT_HRESULT_THROW(CCertID(sha1, good, CBlob()), CRYPT_E_ASN1_EOD);
    EXPECT_HRESULT_THROW(CCertID(sha1, truncated, malformed), CRYPT_E_ASN1_BADTAG);
    EXPECT_HRESULT_THROW(CCertID(sha1, malformed, truncated), CRYPT_E_ASN1_EOD);
    EXPECT_HRESULT_THROW(CCertID(sha1, malformed, good), CRYPT_E_ASN1_BADTAG);
    EXPECT_HRESULT_THROW(CCertID(sha1, truncated, good), CRYPT_E_ASN1_EOD);
}

// Per certificate, what Python's cryptography reads from it: the issuer Name's DER, the
// serial's content octets, the signature OID and parameters, the signature, the hash of the
// to-be-signed part, and the CertIdWithSignature DER assembled from these. The parameters
// follow a 'p', so that absent ones still make a field of the line.
const char* const kPythonReader = R"(import sys, hashlib
from cryptography import x509
def tlv(tag, body):
    n = len(body)
    size = bytes([n]) if n < 128 else bytes([0x80 | (n.bit_length() + 7) // 8]) + n.to_bytes((n.bit_length() + 7) // 8, 'big')
    return bytes([tag]) + size + body
for path in sys.argv[1:]:
    der = open(path, 'rb').read()
    cert = x509.load_der_x509_certificate(der)
    tbs = cert.tbs_certificate_bytes
    after = der[der.index(tbs) + len(tbs):]
    algorithm = after[:2 + after[1]]
    serial = cert.serial_number.to_bytes(cert.serial_number.bit_length() // 8 + 1, 'big')
    digest = hashlib.new(cert.signature_hash_algorithm.name, tbs).digest()
    issuer = cert.issuer.public_bytes()
    whole = tlv(0x30, issuer + tlv(2, serial) + tlv(3, b'\0' + digest) + algorithm + tlv(3, b'\0' + cert.signature))
    print(issuer.hex(), serial.hex(), cert.signature_algorithm_oid.dotted_string,
          'p' + algorithm[4 + algorithm[3]:].hex(), cert.signature.hex(), digest.hex(), whole.hex())
)";

TEST(CertIdWithSignaturePeers, HoldsWhatPythonCryptographyReadsFromEachCertificate) {
    ASSERT_TRUE(velmor_test::HavePythonCryptography());
    const std::string script = kPythonReader;
    std::string command =
        velmor_test::Python() + " " + WriteTempFile(Bytes(script.begin(), script.end()), "read.py");
    for (const char* family : kFamilies) {
        for (const char* name : kCertificates) {
            command.append(" ").append(DataPath(Fixture(family, name, ".der")));
        }
    }
    std::string output;
    ASSERT_EQ(RunCommand(command + " 2>&1", &output), 0) << output;
    std::istringstream lines(output);
    for (const char* family : kFamilies) {
        for (const char* name : kCertificates) {
            SCOPED_TRACE(std::string(family) + "/" + name);
            std::string issuer, serial, oid, parameters, signature, tbsHash, whole;
            ASSERT_TRUE(lines >> issuer >> serial >> oid >> parameters >> signature >> tbsHash >>
                        whole)
                << output;
            const CCertIdWithSignature id(Der(family, name));
            EXPECT_EQ(HexOf(id.get_issuer()), issuer);
            EXPECT_EQ(HexOf(id.get_serialNumber().get_content()), serial);
            EXPECT_STREQ(id.get_signatureAlgorithm().get_algorithm(), oid.c_str());
            EXPECT_EQ(HexOf(id.get_signatureAlgorithm().get_parameters()), parameters.substr(1));
            EXPECT_EQ(HexOf(id.get_signatureValue()), signature);
            EXPECT_EQ(HexOf(id.get_tbsCertificateHash()), tbsHash);
            EXPECT_EQ(HexOf(id.encode()), whole);

            CCertIdWithSignature decoded;
            decoded.decode(id.encode());
            EXPECT_EQ(decoded, id);
        }
    }
}

TEST(CertIdWithSignaturePeers, TheSignatureCountsAndBadCertificatesThrowTheLastError) {
    for (const char* family : kFamilies) {
        SCOPED_TRACE(family);
        const CBlob good = Der(family, "leaf");
        CBlob changed = good;
        changed.pbData()[changed.cbData() - 1] ^= 0x01; // the signature's last octet
        const CCertIdWithSignature original(good);
        const CCertIdWithSignature altered(changed);
        EXPECT_NE(altered, original);
        EXPECT_NE(altered.get_signatureValue(), original.get_signatureValue());
        EXPECT_EQ(altered.get_tbsCertificateHash(), original.get_tbsCertificateHash());
        EXPECT_EQ(altered.get_issuer(), original.get_issuer());
        EXPECT_EQ(altered.get_serialNumber(), original.get_serialNumber());

        EXPECT_HRESULT_THROW(CCertIdWithSignature(CBlob(Bytes{0x04, 0x01, 0x00})),
                             CRYPT_E_ASN1_BADTAG);
        EXPECT_HRESULT_THROW(CCertIdWithSignature(CBlob(good.pbData(), good.cbData() - 1)),
                             CRYPT_E_ASN1_EOD);
    }
}

} // namespace
