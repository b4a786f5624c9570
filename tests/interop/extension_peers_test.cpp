// The extension values against real peers: values that OpenSSL's library writes are read
// with their fields (and ours are the same bytes); the nonce that the openssl command sends is
// read as sent; the openssl command prints our extensions, placed in a request, with the
// values we gave; a nonce set with Python's cryptography goes through us and back.
#include <gtest/gtest.h>
#include <openssl/ocsp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/ocsp_extensions.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/response_message.h>

#include <cctype>
#include <memory>
#include <string>

#include "support/crypt_test_support.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using velmor_test::Bytes;
using velmor_test::DataPath;
using velmor_test::HexOf;
using velmor_test::ReadData;
using velmor_test::RunCommand;
using velmor_test::WriteTempFile;

namespace {

constexpr const char* kUrl = "http://crl.example/ca.crl";
constexpr const char* kOcspUrl = "http://ocsp.example/";
const CDateTime kTime(1704164645, 0); // 2024-01-02T03:04:05Z

using ExtensionPtr = std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)>;
using NamePtr = std::unique_ptr<X509_NAME, decltype(&X509_NAME_free)>;

// The value (extnValue contents) of an extension OpenSSL made.
CBlob ValueOf(X509_EXTENSION* made) {
    const ExtensionPtr extension(made, X509_EXTENSION_free);
    EXPECT_NE(extension, nullptr);
    if (!extension) {
        return CBlob();
    }
    const ASN1_OCTET_STRING* data = X509_EXTENSION_get_data(extension.get());
    return CBlob(ASN1_STRING_get0_data(data), static_cast<unsigned long>(ASN1_STRING_length(data)));
}

// CN=Test CA, O=Velmor, as OpenSSL encodes it.
CBlob IssuerName(X509_NAME** keep = nullptr) {
    X509_NAME* name = X509_NAME_new();
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>("Test CA"), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>("Velmor"), -1, -1, 0);
    unsigned char* der = nullptr;
    const int size = i2d_X509_NAME(name, &der);
    CBlob blob(der, static_cast<unsigned long>(size));
    OPENSSL_free(der);
    if (keep != nullptr) {
        *keep = name;
    } else {
        X509_NAME_free(name);
    }
    return blob;
}

CAuthorityInfoAccessSyntax OcspLocator() {
    CGeneralName uri;
    uri.put_uniformResourceIdentifier(kOcspUrl);
    CAuthorityInfoAccessSyntax locator;
    locator.push_back(CAccessDescription("1.3.6.1.5.5.7.48.1", uri));
    return locator;
}

Bytes BytesOf(const CBlob& blob) { return Bytes(blob.pbData(), blob.pbData() + blob.cbData()); }
CBlob Pki(const std::string& name) { return CBlob(ReadData("pki/rsa/" + name + ".der")); }

// A request for pki/rsa/leaf with the given request and entry extensions.
CRequestMessage RequestWith(const CExtensions& requestExtensions,
                            const CExtensions& entryExtensions) {
    const CBlob null(Bytes{0x05, 0x00});
    CSingleRequest entry(CReqCert(
        CCertID(CAlgorithmIdentifierEx("1.3.14.3.2.26", &null), Pki("leaf"), Pki("inter"))));
    entry.put_singleRequestExtensions(&entryExtensions);
    CSingleRequestList list;
    list.push_back(entry);
    CRequestMessage request;
    request.put_requestList(list);
    request.put_requestExtensions(&requestExtensions);
    return request;
}

// The line of text that follows the first line holding label, trimmed.
std::string LineAfter(const std::string& text, const std::string& label) {
    const auto at = text.find(label);
    if (at == std::string::npos) {
        return "(no " + label + ")";
    }
    const auto begin = text.find_first_not_of(" \n", text.find('\n', at));
    return text.substr(begin, text.find('\n', begin) - begin);
}

} // namespace

TEST(ExtensionPeers, ValuesOpensslWritesAreReadWithTheirFieldsAndAreOurBytes) {
    long number = 4242;
    char time[] = "20240102030405Z";
    const CBlob crlId = ValueOf(OCSP_crlID_new(kUrl, &number, time));
    const CExtCrlID crl(crlId);
    ASSERT_NE(crl.get_crlUrl(), nullptr);
    EXPECT_STREQ(crl.get_crlUrl(), kUrl);
    ASSERT_NE(crl.get_crlNum(), nullptr);
    EXPECT_EQ(*crl.get_crlNum(), 4242u);
    ASSERT_NE(crl.get_crlTime(), nullptr);
    EXPECT_EQ(*crl.get_crlTime(), kTime);
    CExtHistoricalRequest ours;
    ours.put_crlUrl(kUrl);
    const unsigned long ourNumber = 4242;
    ours.put_crlNum(&ourNumber);
    ours.put_crlTime(&kTime);
    EXPECT_EQ(HexOf(ours.get_value()), HexOf(crlId));

    long largest = 0xFFFFFFFFl;
    const CExtCrlID large(ValueOf(OCSP_crlID_new(nullptr, &largest, nullptr)));
    EXPECT_EQ(large.get_crlUrl(), nullptr);
    EXPECT_EQ(*large.get_crlNum(), 0xFFFFFFFFul);
    EXPECT_EQ(large.get_crlTime(), nullptr);

    const CBlob cutoff = ValueOf(OCSP_archive_cutoff_new(time));
    EXPECT_EQ(CExtArchiveCutoff(cutoff).get_archiveCutoff(), kTime);
    EXPECT_EQ(HexOf(CExtArchiveCutoff(kTime).get_value()), HexOf(cutoff));

    char basic[] = "basicOCSPResponse";
    char noCheck[] = "1.3.6.1.5.5.7.48.1.5";
    char* oids[] = {basic, noCheck, nullptr};
    const CBlob accepted = ValueOf(OCSP_accept_responses_new(oids));
    const CExtAcceptableResponses read(accepted);
    const CAcceptableResponses& list = read.get_acceptableResponses();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_STREQ(list.front().c_str(), "1.3.6.1.5.5.7.48.1.1");
    EXPECT_STREQ(list.back().c_str(), "1.3.6.1.5.5.7.48.1.5");
    EXPECT_EQ(HexOf(CExtAcceptableResponses(list).get_value()), HexOf(accepted));

    X509_NAME* name = nullptr;
    const CBlob issuer = IssuerName(&name);
    const NamePtr owned(name, X509_NAME_free);
    const char* urls[] = {kOcspUrl, nullptr};
    const CBlob serviceLocator = ValueOf(OCSP_url_svcloc_new(name, urls));
    const CExtServiceLocator locator(serviceLocator);
    EXPECT_EQ(HexOf(locator.get_issuer()), HexOf(issuer));
    ASSERT_NE(locator.get_locator(), nullptr);
    ASSERT_EQ(locator.get_locator()->size(), 1u);
    EXPECT_EQ(locator.get_locator()->front(), OcspLocator().front());
    EXPECT_EQ(HexOf(locator.get_value()), HexOf(serviceLocator));

    const std::string uri = std::string("URI:") + kUrl;
    const CBlob points =
        ValueOf(X509V3_EXT_conf_nid(nullptr, nullptr, NID_crl_distribution_points, uri.c_str()));
    const CExtCRLLocator crlLocator(points);
    ASSERT_EQ(crlLocator.get_distributionPoints().size(), 1u);
    const CGeneralNames* full = crlLocator.get_distributionPoints().front().get_fullName();
    ASSERT_NE(full, nullptr);
    EXPECT_STREQ(full->front().get_uniformResourceIdentifier(), kUrl);
    EXPECT_EQ(HexOf(CExtCRLLocator(crlLocator.get_distributionPoints()).get_value()),
              HexOf(points));
}

TEST(ExtensionPeers, TheNonceOpensslSendsIsReadAsSent) {
    ASSERT_TRUE(velmor_test::HaveOpenssl());
    const std::string out = WriteTempFile({}, "nonce-request.der");
    std::string text;
    ASSERT_EQ(RunCommand("openssl ocsp -issuer " + DataPath("pki/rsa/inter.pem") + " -cert " +
                             DataPath("pki/rsa/leaf.pem") + " -nonce -reqout " + out +
                             " -req_text 2>&1",
                         &text),
              0)
        << text;
    CRequestMessage request;
    request.decode(CBlob(velmor_test::ReadFile(out)));
    ASSERT_NE(request.get_requestExtensions(), nullptr);
    const CExtension* sent = request.get_requestExtensions()->find("1.3.6.1.5.5.7.48.1.2");
    ASSERT_NE(sent, nullptr);
    const CExtNonce nonce(sent->get_extnValue());
    std::string printed = LineAfter(text, "OCSP Nonce:");
    for (char& c : printed) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    EXPECT_EQ(HexOf(nonce.get_nonce()), printed);
    // An OCTET STRING of 16 random octets, which the class neither strips nor checks.
    EXPECT_EQ(nonce.get_nonce().cbData(), 18u);
    EXPECT_EQ(HexOf(nonce.get_nonce()).substr(0, 4), "0410");
}

TEST(ExtensionPeers, OpensslPrintsOurExtensionsInARequest) {
    ASSERT_TRUE(velmor_test::HaveOpenssl());
    CExtCrlID crl;
    crl.put_crlUrl(kUrl);
    const unsigned long number = 0x1092;
    crl.put_crlNum(&number);
    crl.put_crlTime(&kTime);
    CExtServiceLocator locator;
    const CAuthorityInfoAccessSyntax aia = OcspLocator();
    locator.put_locator(&aia);
    locator.put_issuer(IssuerName());
    CExtensions entry;
    entry.push_back(CExtension(locator, false));
    entry.push_back(CExtension(crl, false));

    CAcceptableResponses responses;
    responses.push_back(CStringProxy("1.3.6.1.5.5.7.48.1.1"));
    responses.push_back(CStringProxy("1.2.3.4"));
    CExtensions message;
    message.push_back(CExtension(CExtNonce(velmor_test::BlobOf("0408 0102030405060708")), false));
    message.push_back(CExtension(CExtAcceptableResponses(responses), false));
    message.push_back(CExtension(CExtArchiveCutoff(kTime), false));

    const std::string file =
        WriteTempFile(BytesOf(RequestWith(message, entry).encode()), "extensions.der");
    std::string text;
    ASSERT_EQ(RunCommand("openssl ocsp -reqin " + file + " -req_text 2>&1", &text), 0) << text;
    SCOPED_TRACE(text);
    EXPECT_EQ(LineAfter(text, "OCSP Service Locator:"), "Issuer: CN = Test CA, O = Velmor");
    EXPECT_EQ(LineAfter(text, "Issuer: CN = Test CA"), "OCSP - URI:http://ocsp.example/");
    EXPECT_EQ(LineAfter(text, "OCSP CRL ID:"), "crlUrl: http://crl.example/ca.crl");
    EXPECT_EQ(LineAfter(text, "crlUrl:"), "crlNum: 1092"); // printed in hex
    EXPECT_EQ(LineAfter(text, "crlNum:"), "crlTime: Jan  2 03:04:05 2024 GMT");
    EXPECT_EQ(LineAfter(text, "OCSP Nonce:"), "04080102030405060708");
    EXPECT_EQ(LineAfter(text, "Acceptable OCSP Responses:"), "Basic OCSP Response, 1.2.3.4");
    EXPECT_EQ(LineAfter(text, "OCSP Archive Cutoff:"), "Jan  2 03:04:05 2024 GMT");
}

TEST(ExtensionPeers, OpensslPrintsOurExtensionsInASignedResponse) {
    ASSERT_TRUE(velmor_test::HaveOpenssl());
    // The entry carries the CRL reference and the archive cutoff, the response the nonce.
    CExtCrlID crl;
    crl.put_crlUrl(kUrl);
    crl.put_crlTime(&kTime);
    CExtensions entryExtensions;
    entryExtensions.push_back(CExtension(crl, false));
    entryExtensions.push_back(CExtension(CExtArchiveCutoff(kTime), false));
    CCertStatus good;
    good.put_good();
    CSingleResponse entry(
        CCertID(CAlgorithmIdentifierEx("1.3.14.3.2.26"), Pki("leaf"), Pki("inter")), good, kTime);
    entry.put_singleExtensions(&entryExtensions);
    CSingleResponseList entries;
    entries.push_back(entry);
    CBasicResponse basic(kTime, CResponderID::fromCert(CResponderID::byName, Pki("ocsp")));
    basic.put_responses(entries);
    CExtensions nonce;
    nonce.push_back(CExtension(CExtNonce(velmor_test::BlobOf("0408 0102030405060708")), false));
    basic.put_responseExtensions(&nonce);
    {
        const velmor_test::KeyProvider key("pki/rsa/ocsp.key.pem", Win32::PROV_RSA_FULL);
        basic.sign(key.get(), Win32::AT_SIGNATURE, CAlgorithmIdentifierEx("1.2.840.113549.1.1.11"));
    }
    const CBlob body = basic.encode();
    CResponseMessage message;
    message.put_responseStatus(successful);
    message.put_response("1.3.6.1.5.5.7.48.1.1", &body);

    const std::string file = WriteTempFile(BytesOf(message.encode()), "signed-extensions.der");
    std::string text;
    ASSERT_EQ(RunCommand("openssl ocsp -respin " + file + " -resp_text -VAfile " +
                             DataPath("pki/rsa/ocsp.pem") + " 2>&1",
                         &text),
              0)
        << text;
    SCOPED_TRACE(text);
    EXPECT_NE(text.find("Response verify OK"), std::string::npos);
    EXPECT_EQ(LineAfter(text, "Response Extensions:"), "OCSP Nonce: ");
    EXPECT_EQ(LineAfter(text, "OCSP Nonce:"), "04080102030405060708");
    EXPECT_EQ(LineAfter(text, "OCSP CRL ID:"), "crlUrl: http://crl.example/ca.crl");
    EXPECT_EQ(LineAfter(text, "crlUrl:"), "crlTime: Jan  2 03:04:05 2024 GMT");
    EXPECT_EQ(LineAfter(text, "OCSP Archive Cutoff:"), "Jan  2 03:04:05 2024 GMT");
}

TEST(ExtensionPeers, APythonNonceGoesThroughUsAndBack) {
    ASSERT_TRUE(velmor_test::HavePythonCryptography());
    const std::string theirs = WriteTempFile({}, "python-nonce.der");
    const std::string script = R"(
import sys
from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.x509 import ocsp
if sys.argv[1] == 'write':
    load = lambda n: x509.load_pem_x509_certificate(open(sys.argv[2] + n, 'rb').read())
    builder = ocsp.OCSPRequestBuilder().add_certificate(load('leaf.pem'), load('inter.pem'),
                                                        hashes.SHA1())
    builder = builder.add_extension(x509.OCSPNonce(bytes(range(100, 132))), critical=False)
    open(sys.argv[3], 'wb').write(builder.build().public_bytes(serialization.Encoding.DER))
else:
    request = ocsp.load_der_ocsp_request(open(sys.argv[2], 'rb').read())
    print('nonce', request.extensions.get_extension_for_class(x509.OCSPNonce).value.nonce.hex())
)";
    const std::string scriptFile = WriteTempFile(Bytes(script.begin(), script.end()), "nonce.py");
    const std::string python = velmor_test::Python() + " " + scriptFile;
    std::string output;
    ASSERT_EQ(
        RunCommand(python + " write " + DataPath("pki/rsa/") + " " + theirs + " 2>&1", &output), 0)
        << output;

    CRequestMessage received;
    received.decode(CBlob(velmor_test::ReadFile(theirs)));
    const CExtension* sent = received.get_requestExtensions()->find("1.3.6.1.5.5.7.48.1.2");
    ASSERT_NE(sent, nullptr);
    const CExtNonce nonce(sent->get_extnValue());
    std::string expected;
    for (int i = 100; i < 132; ++i) {
        expected += velmor_test::ToHex(Bytes{static_cast<std::uint8_t>(i)});
    }
    EXPECT_EQ(HexOf(nonce.get_nonce()), "0420" + expected);

    CExtensions extensions;
    extensions.push_back(CExtension(CExtNonce(nonce.get_nonce()), false));
    const CRequestMessage answer = RequestWith(extensions, CExtensions());
    const std::string file = WriteTempFile(BytesOf(answer.encode()), "our-nonce.der");
    ASSERT_EQ(RunCommand(python + " read " + file + " 2>&1", &output), 0) << output;
    EXPECT_EQ(output, "nonce " + expected + "\n");
}
