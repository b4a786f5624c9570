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

#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::DataPath;
using velmor_test::HexOf;
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
// Every issued fixture with its issuer.
constexpr Pair kPairs[] = {{"leaf", "inter"}, {"leaf00", "inter"}, {"leaf20", "inter"},
                           {"ocsp", "inter"}, {"client", "inter"}, {"inter", "root"}};

const CBlob kNull(Bytes{0x05, 0x00});

std::string Fixture(const std::string& family, const std::string& name, const char* ext) {
    return "pki/" + family + "/" + name + ext;
}
CBlob Der(const std::string& family, const std::string& name) {
    return CBlob(ReadData(Fixture(family, name, ".der")));
}

// The CertID in the request `openssl ocsp -no_nonce -reqout` writes: OCSPRequest, tbsRequest,
// requestList and Request each hold only the next, so it follows their four headers.
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
    std::size_t at = 0;
    for (int header = 0; header < 4 && at + 1 < request.size(); ++header) {
        at += 2 + ((request[at + 1] & 0x80) != 0 ? request[at + 1] & 0x7f : 0);
    }
    return at < request.size()
               ? Bytes(request.begin() + static_cast<std::ptrdiff_t>(at), request.end())
               : Bytes();
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
                CCertID decoded;
                decoded.decode(CBlob(expected));
                EXPECT_EQ(decoded, ours);
            }
        }
    }
}

TEST(CertIdPeers, ParametersAreCarriedAndUnknownHashesFail) {
    const CBlob leaf = Der("rsa", "leaf");
    const CBlob inter = Der("rsa", "inter");
    const CCertID bySha1(CAlgorithmIdentifierEx(kSha1, &kNull), leaf, inter);
    // Without parameters the hashes stay the same, but the CertID differs.
    const CCertID bare(CAlgorithmIdentifierEx(kSha1), leaf, inter);
    EXPECT_EQ(bare.get_issuerNameHash(), bySha1.get_issuerNameHash());
    EXPECT_EQ(bare.get_issuerKeyHash(), bySha1.get_issuerKeyHash());
    EXPECT_EQ(bare.get_hashAlgorithm().get_parameters().cbData(), 0u);
    EXPECT_NE(bare, bySha1);
    EXPECT_HRESULT_THROW(CCertID(CAlgorithmIdentifierEx("1.2.3.4"), leaf, inter), NTE_BAD_ALGID);
}

TEST(CertIdPeers, BadCertificatesThrowTheIssuersErrorFirst) {
    const CBlob good = Der("ec", "leaf");
    const CBlob malformed(Bytes{0x04, 0x03, 0x01, 0x02, 0x03});
    const CBlob truncated(good.pbData(), good.cbData() - 10);
    const CAlgorithmIdentifierEx sha1(kSha1, &kNull);
    EXPECT_HRESULT_THROW(CCertID(sha1, good, malformed), CRYPT_E_ASN1_BADTAG);
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

TEST(CertIdWithSignaturePeers, BadCertificatesThrowTheDecodeError) {
    const CBlob good = Der("ec", "leaf");
    EXPECT_HRESULT_THROW(CCertIdWithSignature(CBlob(Bytes{0x04, 0x01, 0x00})), CRYPT_E_ASN1_BADTAG);
    EXPECT_HRESULT_THROW(CCertIdWithSignature(CBlob(good.pbData(), good.cbData() - 1)),
                         CRYPT_E_ASN1_EOD);
}

} // namespace
