// The OCSP request against real peers: requests we build and sign are read by the openssl
// command and verified by OpenSSL's library; requests that openssl and Python's
// cryptography package write are read, written back unchanged and verified by us.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/ocsp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <pki/ocsp/crypt_provider.h>
#include <pki/ocsp/request_message.h>

#include <memory>
#include <string>

#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::Cat;
using velmor_test::DataPath;
using velmor_test::HexOf;
using velmor_test::OpensslVerifiesRequest;
using velmor_test::ReadData;
using velmor_test::RunCommand;
using velmor_test::Tlv;
using velmor_test::ToHex;
using velmor_test::WriteTempFile;

namespace {

constexpr const char* kSha1 = "1.3.14.3.2.26";
constexpr const char* kNonce = "1.3.6.1.5.5.7.48.1.2";
constexpr const char* kLeaves[] = {"leaf", "leaf00", "leaf20"};

struct Family {
    const char* dir;
    DWORD providerType;
    const char* signatureOid;
};
constexpr Family kRsa{"rsa", PROV_RSA_FULL, "1.2.840.113549.1.1.11"};
constexpr Family kEc{"ec", PROV_EC_ECDSA_FULL, "1.2.840.10045.4.3.2"};

Bytes BytesOf(const CBlob& blob) { return Bytes(blob.pbData(), blob.pbData() + blob.cbData()); }
CBlob Pki(const Family& family, const std::string& name) {
    return CBlob(ReadData(std::string("pki/") + family.dir + "/" + name + ".der"));
}

using X509Ptr = std::unique_ptr<X509, decltype(&X509_free)>;

X509Ptr OpensslCertificate(const CBlob& der) {
    const unsigned char* p = der.pbData();
    return X509Ptr(d2i_X509(nullptr, &p, der.cbData()), X509_free);
}

// The subject Name of a certificate, as OpenSSL encodes it.
CBlob SubjectOf(const CBlob& certificate) {
    const X509Ptr x509 = OpensslCertificate(certificate);
    unsigned char* der = nullptr;
    const int size = i2d_X509_NAME(X509_get_subject_name(x509.get()), &der);
    CBlob name(der, static_cast<unsigned long>(size));
    OPENSSL_free(der);
    return name;
}

// The CertID of each fixture leaf of a family, count entries in turn.
CSingleRequestList Entries(const Family& family, int count) {
    const CBlob null(Bytes{0x05, 0x00});
    CSingleRequestList list;
    for (int i = 0; i < count; ++i) {
        const CAlgorithmIdentifierEx sha1(kSha1, &null);
        list.push_back(CSingleRequest(
            CReqCert(CCertID(sha1, Pki(family, kLeaves[i % 3]), Pki(family, "inter")))));
    }
    return list;
}

CExtensions NonceExtension() {
    CExtensions extensions;
    // OCTET STRING of 16 octets, wrapped in the extension's own OCTET STRING.
    extensions.push_back(CExtension(
        kNonce, false,
        CBlob(Bytes{0x04, 0x10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16})));
    return extensions;
}

// A request from the family's client: count entries, requestor name, nonce, signed with
// the client key and carrying the client certificate.
CRequestMessage ClientRequest(const Family& family, int count) {
    const CBlob client = Pki(family, "client");
    CRequestMessage request;
    request.put_requestList(Entries(family, count));
    const CBlob requestor = SubjectOf(client);
    request.put_requestorName(&requestor);
    const CExtensions nonce = NonceExtension();
    request.put_requestExtensions(&nonce);

    const std::string keyPath = DataPath(std::string("pki/") + family.dir + "/client.key.pem");
    const std::wstring container(keyPath.begin(), keyPath.end());
    HCRYPTPROV provider = 0;
    EXPECT_TRUE(
        CryptAcquireContextW(&provider, container.c_str(), nullptr, family.providerType, 0));
    CBlobList certs;
    certs.push_back(client);
    request.sign(provider, AT_SIGNATURE, CAlgorithmIdentifierEx(family.signatureOid), &certs);
    CryptReleaseContext(provider, 0);
    return request;
}

std::size_t Count(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++count;
    }
    return count;
}

} // namespace

TEST(RequestPeers, OpensslReadsAndVerifiesOurSignedRequests) {
    ASSERT_TRUE(velmor_test::HaveOpenssl());
    for (const Family& family : {kRsa, kEc}) {
        for (int count : {1, 20}) {
            SCOPED_TRACE(std::string(family.dir) + ", " + std::to_string(count) + " entries");
            const CRequestMessage request = ClientRequest(family, count);
            const CBlob der = request.encode();
            const std::string file = WriteTempFile(BytesOf(der), "request.der");
            std::string text;
            ASSERT_EQ(RunCommand("openssl ocsp -reqin " + file + " -req_text 2>&1", &text), 0)
                << text;
            EXPECT_EQ(Count(text, "Certificate ID:"), static_cast<std::size_t>(count));
            EXPECT_NE(text.find("Requestor Name: DirName:"), std::string::npos) << text;
            EXPECT_NE(text.find("OCSP Nonce"), std::string::npos) << text;
            // Every CertID as openssl prints it: the key hash and each serial number.
            const CCertID& first = *request.get_requestList().front().get_reqCert().get_certID();
            std::string keyHash = HexOf(first.get_issuerKeyHash());
            for (char& c : keyHash) {
                c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            }
            EXPECT_EQ(Count(text, "Issuer Key Hash: " + keyHash), static_cast<std::size_t>(count));
            EXPECT_NE(text.find("Serial Number: " + first.get_serialNumber().ToHex()),
                      std::string::npos);

            EXPECT_TRUE(OpensslVerifiesRequest(der, Pki(family, "client")));
            EXPECT_FALSE(OpensslVerifiesRequest(der, Pki(family, "leaf")));
        }
    }
}

TEST(RequestPeers, OpensslRequestsRoundTripAndVerify) {
    const struct {
        const char* file;
        std::size_t entries;
        const char* signer; // null for an unsigned request
    } cases[] = {
        {"ocsp/req-plain.der", 1, nullptr},
        {"ocsp/req-nonce.der", 1, nullptr},
        {"ocsp/req-sha256.der", 1, nullptr},
        {"ocsp/req-two.der", 2, nullptr},
        {"ocsp/req-ec.der", 2, nullptr},
        {"ocsp/req-signed-rsa.der", 1, "pki/rsa/client.der"},
        {"ocsp/req-signed-ec.der", 1, "pki/ec/client.der"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const Bytes der = ReadData(c.file);
        CRequestMessage request;
        request.decode(CBlob(der));
        EXPECT_EQ(request.get_requestList().size(), c.entries);
        EXPECT_EQ(HexOf(request.encode()), ToHex(der));
        if (c.signer == nullptr) {
            EXPECT_EQ(request.get_signature(), nullptr);
            continue;
        }
        ASSERT_NE(request.get_signatureCerts(), nullptr);
        ASSERT_NE(request.get_requestorName(), nullptr);
        EXPECT_EQ(HexOf(*request.get_requestorName()), HexOf(SubjectOf(CBlob(ReadData(c.signer)))));
        EXPECT_TRUE(request.verify(CBlob(ReadData(c.signer))));
    }
    // The CertID openssl wrote for leaf/inter is the one we compute.
    CRequestMessage plain;
    plain.decode(CBlob(ReadData("ocsp/req-plain.der")));
    EXPECT_EQ(*plain.get_requestList().front().get_reqCert().get_certID(),
              *Entries(kRsa, 1).front().get_reqCert().get_certID());
}

TEST(RequestPeers, PythonCryptographyRequestsBothWays) {
    ASSERT_TRUE(velmor_test::HavePythonCryptography());
    const CRequestMessage ours = ClientRequest(kRsa, 1);
    const std::string oursFile = WriteTempFile(BytesOf(ours.encode()), "ours.der");
    const std::string theirsFile = WriteTempFile({}, "theirs.der");
    const std::string script = R"(
import sys
from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.x509 import ocsp
pki = sys.argv[1]
load = lambda n: x509.load_pem_x509_certificate(open(pki + n, 'rb').read())
ours = ocsp.load_der_ocsp_request(open(sys.argv[2], 'rb').read())
print('serial', format(ours.serial_number, 'X'))
print('keyhash', ours.issuer_key_hash.hex())
print('nonce', ours.extensions.get_extension_for_class(x509.OCSPNonce).value.nonce.hex())
builder = ocsp.OCSPRequestBuilder().add_certificate(load('leaf20.pem'), load('inter.pem'),
                                                    hashes.SHA256())
builder = builder.add_extension(x509.OCSPNonce(bytes(range(32))), critical=False)
open(sys.argv[3], 'wb').write(builder.build().public_bytes(serialization.Encoding.DER))
)";
    const std::string scriptFile = WriteTempFile(Bytes(script.begin(), script.end()), "req.py");
    std::string output;
    ASSERT_EQ(RunCommand(velmor_test::Python() + " " + scriptFile + " " + DataPath("pki/rsa/") +
                             " " + oursFile + " " + theirsFile + " 2>&1",
                         &output),
              0)
        << output;
    const CCertID& id = *ours.get_requestList().front().get_reqCert().get_certID();
    EXPECT_NE(output.find("serial " + id.get_serialNumber().ToHex()), std::string::npos) << output;
    EXPECT_NE(output.find("keyhash " + HexOf(id.get_issuerKeyHash())), std::string::npos) << output;
    EXPECT_NE(output.find("nonce 0102030405060708090a0b0c0d0e0f10"), std::string::npos) << output;

    const Bytes theirs = velmor_test::ReadFile(theirsFile);
    CRequestMessage request;
    request.decode(CBlob(theirs));
    EXPECT_EQ(HexOf(request.encode()), ToHex(theirs));
    const CBlob null(Bytes{0x05, 0x00});
    const CAlgorithmIdentifierEx sha256("2.16.840.1.101.3.4.2.1", &null);
    const CCertID expected(sha256, Pki(kRsa, "leaf20"), Pki(kRsa, "inter"));
    ASSERT_EQ(request.get_requestList().size(), 1u);
    const CCertID& decoded = *request.get_requestList().front().get_reqCert().get_certID();
    EXPECT_EQ(HexOf(decoded.encode()), HexOf(expected.encode()));
    ASSERT_NE(request.get_requestExtensions(), nullptr);
    EXPECT_EQ(request.get_requestExtensions()->size(), 1u);
}

TEST(RequestPeers, SignatureOverABerTbsRequestVerifies) {
    // tbsRequest with a long-form length where DER wants the short form, signed as it is by
    // OpenSSL with the client key.
    CRequestMessage unsigned_;
    unsigned_.put_requestList(Entries(kRsa, 1));
    const Bytes der = BytesOf(unsigned_.encode());
    ASSERT_EQ(der[0], 0x30);
    ASSERT_LT(der[1], 0x80);
    ASSERT_LT(der[3], 0x80);
    Bytes tbs(der.begin() + 1, der.end());
    tbs[0] = 0x30;
    tbs[1] = 0x81; // the long form of the same short length that follows

    FILE* keyFile = std::fopen(DataPath("pki/rsa/client.key.pem").c_str(), "rb");
    ASSERT_NE(keyFile, nullptr);
    EVP_PKEY* key = PEM_read_PrivateKey(keyFile, nullptr, nullptr, nullptr);
    std::fclose(keyFile);
    ASSERT_NE(key, nullptr);
    EVP_MD_CTX* md = EVP_MD_CTX_new();
    std::size_t size = 256;
    Bytes signature(size);
    ASSERT_EQ(EVP_DigestSignInit(md, nullptr, EVP_sha256(), nullptr, key), 1);
    ASSERT_EQ(EVP_DigestSign(md, signature.data(), &size, tbs.data(), tbs.size()), 1);
    EVP_MD_CTX_free(md);
    EVP_PKEY_free(key);
    ASSERT_EQ(size, 256u);

    // OCSPRequest { tbsRequest, [0] { SEQUENCE { sha256WithRSAEncryption NULL, BIT STRING } } }.
    const Bytes algorithm = velmor_test::FromHex("300d06092a864886f70d01010b0500");
    const Bytes bits = Tlv(0x03, Cat({Bytes{0x00}, signature}));
    const Bytes message = Tlv(0x30, Cat({tbs, Tlv(0xa0, Tlv(0x30, Cat({algorithm, bits})))}));

    CRequestMessage request;
    request.decode(CBlob(message));
    const CBlob client = Pki(kRsa, "client");
    EXPECT_TRUE(request.verify(client));
    // A copy keeps no received octets and hashes the DER it would send, which was not signed.
    const CRequestMessage copy = request;
    EXPECT_FALSE(copy.verify(client));
}
