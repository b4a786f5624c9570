// Signed basic responses against real peers, both ways. Responses we sign with every
// responder key of the fixture PKI (RSA-2048 and RSA-3072 with SHA-256 and SHA-384, P-256
// and P-384), by name and by key, with and without the responder certificate, are accepted
// by `openssl ocsp -VAfile`, by OpenSSL's OCSP_basic_verify with a chain to the root, and by
// Python cryptography's signature check over tbs_response_bytes. Responses signed by
// `openssl ocsp` and by Python cryptography, committed and made now with the larger keys,
// verify with ours.
#include <gtest/gtest.h>
#include <openssl/ocsp.h>
#include <openssl/x509.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/response_message.h>

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "support/crypt_test_support.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::DataPath;
using velmor_test::KeyProvider;
using velmor_test::ReadData;
using velmor_test::RunCommand;
using velmor_test::WriteTempFile;

namespace {

constexpr const char* kBasicType = "1.3.6.1.5.5.7.48.1.1";

// A responder of the fixture PKI and the signature algorithm it signs with.
struct Signer {
    const char* family; // pki/<family>
    const char* name;   // <name>.der, <name>.key.pem
    DWORD providerType;
    const char* signatureOid;
    const char* hash; // of the signature algorithm, as Python names it
    const char* label;
};
const Signer kSigners[] = {
    {"rsa", "ocsp", PROV_RSA_FULL, "1.2.840.113549.1.1.11", "sha256", "rsa2048-sha256"},
    {"rsa", "ocsp", PROV_RSA_FULL, "1.2.840.113549.1.1.12", "sha384", "rsa2048-sha384"},
    {"rsa", "ocsp3072", PROV_RSA_FULL, "1.2.840.113549.1.1.11", "sha256", "rsa3072-sha256"},
    {"rsa", "ocsp3072", PROV_RSA_FULL, "1.2.840.113549.1.1.12", "sha384", "rsa3072-sha384"},
    {"ec", "ocsp", PROV_EC_ECDSA_FULL, "1.2.840.10045.4.3.2", "sha256", "p256-sha256"},
    {"ec", "ocsp384", PROV_EC_ECDSA_FULL, "1.2.840.10045.4.3.3", "sha384", "p384-sha384"},
};

std::string PkiPath(const std::string& family, const std::string& file) {
    return DataPath("pki/" + family + "/" + file);
}
CBlob Pki(const std::string& family, const std::string& name) {
    return CBlob(ReadData("pki/" + family + "/" + name + ".der"));
}
Bytes BytesOf(const CBlob& blob) { return Bytes(blob.pbData(), blob.pbData() + blob.cbData()); }

// Now, to the second, and shifted by hours.
CDateTime Hours(int hours) {
    return CDateTime(static_cast<std::int64_t>(std::time(nullptr)) + hours * 3600LL, 0);
}

CExtensions Nonce() {
    CExtensions extensions;
    extensions.push_back(CExtension("1.3.6.1.5.5.7.48.1.2", false,
                                    CBlob(Bytes{0x04, 0x08, 1, 2, 3, 4, 5, 6, 7, 8})));
    return extensions;
}

// leaf good and leaf00 revoked for keyCompromise, valid from an hour ago for a day, with a
// nonce: the answer a responder gives for the fixture leaves.
CBasicResponse Answer(const Signer& signer, CResponderID::Type type, bool withCertificate) {
    const CAlgorithmIdentifierEx sha1("1.3.14.3.2.26");
    const CBlob issuer = Pki(signer.family, "inter");
    const CDateTime thisUpdate = Hours(-1);
    const CDateTime nextUpdate = Hours(24);
    const CrlReason reason = keyCompromise;
    CCertStatus good;
    good.put_good();
    CSingleResponseList entries;
    entries.push_back(
        CSingleResponse(CCertID(sha1, Pki(signer.family, "leaf"), issuer), good, thisUpdate));
    entries.push_back(CSingleResponse(CCertID(sha1, Pki(signer.family, "leaf00"), issuer),
                                      CCertStatus(Hours(-48), &reason), thisUpdate));
    for (CSingleResponse& entry : entries) {
        entry.put_nextUpdate(&nextUpdate);
    }
    const CBlob responder = Pki(signer.family, signer.name);
    CBasicResponse response(Hours(0), CResponderID::fromCert(type, responder));
    response.put_responses(entries);
    const CExtensions nonce = Nonce();
    response.put_responseExtensions(&nonce);
    if (withCertificate) {
        CBlobList certs;
        certs.push_back(responder);
        response.put_certs(&certs);
    }
    const KeyProvider key(
        ("pki/" + std::string(signer.family) + "/" + signer.name + ".key.pem").c_str(),
        signer.providerType);
    response.sign(key.get(), AT_SIGNATURE, CAlgorithmIdentifierEx(signer.signatureOid));
    return response;
}

// The request Answer() answers, with the same nonce, written to a file.
std::string RequestFile(const std::string& family) {
    const CAlgorithmIdentifierEx sha1("1.3.14.3.2.26");
    CSingleRequestList entries;
    for (const char* leaf : {"leaf", "leaf00"}) {
        entries.push_back(
            CSingleRequest(CReqCert(CCertID(sha1, Pki(family, leaf), Pki(family, "inter")))));
    }
    CRequestMessage request;
    request.put_requestList(entries);
    const CExtensions nonce = Nonce();
    request.put_requestExtensions(&nonce);
    return WriteTempFile(BytesOf(request.encode()), "request-" + family + ".der");
}

// The OCSPResponse that carries a basic response.
CBlob Message(const CBlob& basic) {
    CResponseMessage message;
    message.put_responseStatus(successful);
    message.put_response(kBasicType, &basic);
    return message.encode();
}

using X509Ptr = std::unique_ptr<X509, decltype(&X509_free)>;
X509Ptr OpensslCertificate(const CBlob& der) {
    const unsigned char* p = der.pbData();
    return X509Ptr(d2i_X509(nullptr, &p, static_cast<long>(der.cbData())), X509_free);
}

// OpenSSL's whole check of a basic response: the signer found among the response's
// certificates or the ones given, its chain to the fixture root, its authority for the
// entries' issuer, and the signature.
int OpensslBasicVerify(const CBlob& basic, const Signer& signer) {
    const unsigned char* p = basic.pbData();
    std::unique_ptr<OCSP_BASICRESP, decltype(&OCSP_BASICRESP_free)> response(
        d2i_OCSP_BASICRESP(nullptr, &p, static_cast<long>(basic.cbData())), OCSP_BASICRESP_free);
    if (!response) {
        return -2;
    }
    const X509Ptr root = OpensslCertificate(Pki(signer.family, "root"));
    const X509Ptr inter = OpensslCertificate(Pki(signer.family, "inter"));
    const X509Ptr responder = OpensslCertificate(Pki(signer.family, signer.name));
    std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(X509_STORE_new(),
                                                                  X509_STORE_free);
    X509_STORE_add_cert(store.get(), root.get());
    STACK_OF(X509)* others = sk_X509_new_null();
    sk_X509_push(others, inter.get());
    sk_X509_push(others, responder.get());
    const int verdict = OCSP_basic_verify(response.get(), others, store.get(), 0);
    sk_X509_free(others);
    return verdict;
}

// A response of ours, with where it was written.
struct Written {
    std::string label;
    const Signer* signer;
    CBlob basic;
    std::string file; // the whole OCSPResponse
};

std::vector<Written> SignEveryWay() {
    std::vector<Written> written;
    for (const Signer& signer : kSigners) {
        for (const auto type : {CResponderID::byName, CResponderID::byKey}) {
            for (const bool withCertificate : {true, false}) {
                const std::string label = std::string(signer.label) +
                                          (type == CResponderID::byName ? "-name" : "-key") +
                                          (withCertificate ? "-cert" : "-nocert");
                const CBlob basic = Answer(signer, type, withCertificate).encode();
                written.push_back({label, &signer, basic,
                                   WriteTempFile(BytesOf(Message(basic)), label + ".der")});
            }
        }
    }
    return written;
}

const std::vector<Written>& Ours() {
    static const std::vector<Written> written = SignEveryWay();
    return written;
}

} // namespace

TEST(ResponseSigningPeers, OpensslLibraryAcceptsWhatWeSign) {
    for (const Written& response : Ours()) {
        SCOPED_TRACE(response.label);
        EXPECT_EQ(OpensslBasicVerify(response.basic, *response.signer), 1);
        // And ours agrees, with the same certificate.
        CBasicResponse decoded;
        decoded.decode(response.basic);
        EXPECT_TRUE(decoded.verify(Pki(response.signer->family, response.signer->name)));
    }
}

TEST(ResponseSigningPeers, OpensslCommandAcceptsWhatWeSign) {
    ASSERT_TRUE(velmor_test::HaveOpenssl());
    for (const Written& response : Ours()) {
        SCOPED_TRACE(response.label);
        const std::string family = response.signer->family;
        const std::string common = "openssl ocsp -respin " + response.file + " -VAfile " +
                                   PkiPath(family, std::string(response.signer->name) + ".pem") +
                                   " -issuer " + PkiPath(family, "inter.pem");
        // The statuses, as openssl reads them for the certificates it is given.
        std::string output;
        EXPECT_EQ(RunCommand(common + " -no_nonce -cert " + PkiPath(family, "leaf.pem") +
                                 " -cert " + PkiPath(family, "leaf00.pem") + " 2>&1",
                             &output),
                  0)
            << output;
        EXPECT_NE(output.find("Response verify OK"), std::string::npos) << output;
        EXPECT_NE(output.find("leaf.pem: good"), std::string::npos) << output;
        EXPECT_NE(output.find("leaf00.pem: revoked"), std::string::npos) << output;
        EXPECT_NE(output.find("Reason: keyCompromise"), std::string::npos) << output;
        EXPECT_EQ(output.find("WARNING"), std::string::npos) << output;
        // The nonce, checked against the request it answers.
        std::string nonceChecked;
        EXPECT_EQ(RunCommand(common + " -reqin " + RequestFile(family) + " 2>&1", &nonceChecked), 0)
            << nonceChecked;
        EXPECT_EQ(nonceChecked, "Response verify OK\n");
    }
}

TEST(ResponseSigningPeers, PythonCryptographyAcceptsWhatWeSign) {
    ASSERT_TRUE(velmor_test::HavePythonCryptography());
    // Each argument: response file, responder certificate. Prints one verdict per response.
    const std::string script = R"(
import sys
from cryptography import x509
from cryptography.exceptions import InvalidSignature
from cryptography.x509 import ocsp
from cryptography.hazmat.primitives.asymmetric import ec, padding
args = sys.argv[1:]
for response_file, cert_file in zip(args[0::2], args[1::2]):
    r = ocsp.load_der_ocsp_response(open(response_file, 'rb').read())
    key = x509.load_der_x509_certificate(open(cert_file, 'rb').read()).public_key()
    h = r.signature_hash_algorithm
    try:
        if isinstance(key, ec.EllipticCurvePublicKey):
            key.verify(r.signature, r.tbs_response_bytes, ec.ECDSA(h))
        else:
            key.verify(r.signature, r.tbs_response_bytes, padding.PKCS1v15(), h)
        print('ok', h.name, ','.join(s.certificate_status.name for s in r.responses))
    except InvalidSignature:
        print('bad signature')
)";
    const std::string scriptFile = WriteTempFile(Bytes(script.begin(), script.end()), "check.py");
    std::string command = velmor_test::Python() + " " + scriptFile;
    std::string expected;
    for (const Written& response : Ours()) {
        command += " " + response.file + " " +
                   PkiPath(response.signer->family, std::string(response.signer->name) + ".der");
        expected += std::string("ok ") + response.signer->hash + " GOOD,REVOKED\n";
    }
    std::string output;
    ASSERT_EQ(RunCommand(command + " 2>&1", &output), 0) << output;
    EXPECT_EQ(output, expected);
}

TEST(ResponseSigningPeers, WhatPeersSignVerifiesWithOurs) {
    // Committed responses of `openssl ocsp` and Python cryptography, RSA-2048 and P-256.
    const struct {
        const char* file;
        const char* family;
    } committed[] = {
        {"ocsp/resp-good-rsa.der", "rsa"},   {"ocsp/resp-plain-rsa.der", "rsa"},
        {"ocsp/resp-two-rsa.der", "rsa"},    {"ocsp/resp-revoked-rsa.der", "rsa"},
        {"ocsp/resp-sha256-rsa.der", "rsa"}, {"ocsp/resp-ec.der", "ec"},
        {"ocsp/resp-keyid-ec.der", "ec"},    {"ocsp/resp-keyid-rsa.der", "rsa"},
        {"ocsp/resp-100-rsa.der", "rsa"},    {"ocsp/resp-py-name-rsa.der", "rsa"},
        {"ocsp/resp-py-key-rsa.der", "rsa"}, {"ocsp/resp-py-name-ec.der", "ec"},
        {"ocsp/resp-py-key-ec.der", "ec"},
    };
    for (const auto& peer : committed) {
        SCOPED_TRACE(peer.file);
        CResponseMessage message;
        message.decode(CBlob(ReadData(peer.file)));
        ASSERT_NE(message.get_response(), nullptr);
        CBasicResponse response;
        response.decode(*message.get_response());
        EXPECT_TRUE(response.verify(Pki(peer.family, "ocsp")));
        EXPECT_FALSE(response.verify(Pki(peer.family, "client")));
    }
}

TEST(ResponseSigningPeers, WhatPeersSignNowWithTheLargerKeysVerifiesWithOurs) {
    ASSERT_TRUE(velmor_test::HaveOpenssl());
    ASSERT_TRUE(velmor_test::HavePythonCryptography());
    std::vector<std::pair<std::string, std::string>> made; // file, family/responder
    for (const auto& [family, responder, request, digest] :
         {std::tuple<std::string, std::string, std::string, std::string>{
              "rsa", "ocsp3072", "ocsp/req-two.der", "sha384"},
          {"ec", "ocsp384", "ocsp/req-ec.der", "sha384"}}) {
        const std::string out = WriteTempFile({}, "openssl-" + responder + ".der");
        std::string output;
        ASSERT_EQ(RunCommand("openssl ocsp -index " + PkiPath(family, "index.txt") + " -CA " +
                                 PkiPath(family, "inter.pem") + " -rsigner " +
                                 PkiPath(family, responder + ".pem") + " -rkey " +
                                 PkiPath(family, responder + ".key.pem") + " -rmd " + digest +
                                 " -reqin " + DataPath(request) + " -respout " + out +
                                 " -ndays 1 2>&1",
                             &output),
                  0)
            << output;
        made.emplace_back(out, family + "/" + responder);
    }
    const std::string script = R"(
import sys, datetime
from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.x509 import ocsp
family, responder, out = sys.argv[1:4]
pki = lambda name: open(f'{sys.argv[4]}/pki/{family}/{name}', 'rb').read()
cert = x509.load_der_x509_certificate(pki('leaf.der'))
issuer = x509.load_der_x509_certificate(pki('inter.der'))
signer = x509.load_der_x509_certificate(pki(responder + '.der'))
key = serialization.load_pem_private_key(pki(responder + '.key.pem'), None)
now = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)
builder = ocsp.OCSPResponseBuilder().add_response(
    cert=cert, issuer=issuer, algorithm=hashes.SHA256(), cert_status=ocsp.OCSPCertStatus.GOOD,
    this_update=now, next_update=now + datetime.timedelta(days=1),
    revocation_time=None, revocation_reason=None).responder_id(
    ocsp.OCSPResponderEncoding.HASH, signer).certificates([signer])
open(out, 'wb').write(builder.sign(key, hashes.SHA384()).public_bytes(serialization.Encoding.DER))
)";
    const std::string scriptFile = WriteTempFile(Bytes(script.begin(), script.end()), "sign.py");
    for (const auto& [family, responder] :
         {std::pair<std::string, std::string>{"rsa", "ocsp3072"}, {"ec", "ocsp384"}}) {
        const std::string out = WriteTempFile({}, "python-" + responder + ".der");
        std::string output;
        ASSERT_EQ(RunCommand(velmor_test::Python() + " " + scriptFile + " " + family + " " +
                                 responder + " " + out + " " + DataPath("") + " 2>&1",
                             &output),
                  0)
            << output;
        made.emplace_back(out, family + "/" + responder);
    }
    for (const auto& [file, responder] : made) {
        SCOPED_TRACE(file);
        CResponseMessage message;
        message.decode(CBlob(velmor_test::ReadFile(file)));
        ASSERT_NE(message.get_response(), nullptr);
        CBasicResponse response;
        response.decode(*message.get_response());
        EXPECT_EQ(std::string(response.get_signatureAlgorithm()->get_algorithm()).back(),
                  responder.front() == 'r' ? '2' : '3'); // sha384WithRSA, ecdsa-with-SHA384
        EXPECT_TRUE(response.verify(CBlob(ReadData("pki/" + responder + ".der"))));
    }
}
