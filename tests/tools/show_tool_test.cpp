// velmor-ocsp show: the text it prints for a response openssl wrote, its JSON compared field
// by field with what Python's cryptography package reads from the same files, extensions by
// name, and every input form.
#include <gtest/gtest.h>
#include <pki/ocsp/ocsp.h>

#include <string>
#include <vector>

#include "support/test_support.h"
#include "tools/tool_runner.h"

using namespace velmor_test;

namespace {

const char* const kResponses[] = {
    "resp-100-rsa.der",     "resp-ec.der",         "resp-good-rsa.der",    "resp-keyid-ec.der",
    "resp-keyid-rsa.der",   "resp-mixed-rsa.der",  "resp-nocerts-rsa.der", "resp-plain-rsa.der",
    "resp-py-key-ec.der",   "resp-py-key-rsa.der", "resp-py-name-ec.der",  "resp-py-name-rsa.der",
    "resp-revoked-rsa.der", "resp-sha256-rsa.der", "resp-two-rsa.der",     "resp-unknown-rsa.der",
};

// The single-entry requests (Python reads no other).
const char* const kRequests[] = {
    "req-nonce.der",  "req-plain.der",     "req-python-nonce.der", "req-revoked.der",
    "req-sha256.der", "req-signed-ec.der", "req-signed-rsa.der",   "req-unknown.der",
};

std::string Show(const std::vector<std::string>& args) {
    std::vector<std::string> all{"show"};
    all.insert(all.end(), args.begin(), args.end());
    const ToolRun run = RunTool(all);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    return run.out;
}

std::string FileText(const std::string& path) {
    const Bytes bytes = ReadFile(path);
    return std::string(bytes.begin(), bytes.end());
}

// Compares the JSON of a response with what cryptography reads from its DER.
constexpr const char* kCompareResponse = R"(
import sys, json
from cryptography.x509 import ocsp
doc = json.load(open(sys.argv[1]))
r = ocsp.load_der_ocsp_response(open(sys.argv[2], 'rb').read())
def time(t):
    return t.strftime('%Y-%m-%dT%H:%M:%SZ') if t is not None else None
def name(n):
    return ', '.join(reversed(n.rfc4514_string().split(',')))
assert doc['message'] == 'response'
assert doc['responseStatus'] == r.response_status.value
assert doc['responseType'] == '1.3.6.1.5.5.7.48.1.1'
assert doc['version'] == 1
if r.responder_name is not None:
    assert doc['responderID'] == {'byName': name(r.responder_name)}, doc['responderID']
else:
    assert doc['responderID'] == {'byKey': r.responder_key_hash.hex()}
assert doc['producedAt'] == time(r.produced_at)
singles = list(r.responses)
assert len(doc['responses']) == len(singles)
for entry, single in zip(doc['responses'], singles):
    cid = entry['certID']
    assert cid['hashAlgorithm']['name'] == single.hash_algorithm.name
    assert cid['issuerNameHash'] == single.issuer_name_hash.hex()
    assert cid['issuerKeyHash'] == single.issuer_key_hash.hex()
    assert int(cid['serialNumber'], 16) == single.serial_number
    assert entry['certStatus'] == single.certificate_status.name.lower()
    assert entry.get('revocationTime') == time(single.revocation_time)
    reason = single.revocation_reason
    assert entry.get('revocationReason') == (reason.value if reason is not None else None)
    assert entry['thisUpdate'] == time(single.this_update)
    assert entry.get('nextUpdate') == time(single.next_update)
    assert 'singleExtensions' not in entry
extensions = doc.get('responseExtensions', [])
assert len(extensions) == len(r.extensions)
for shown, ext in zip(extensions, r.extensions):
    assert shown['extnID'] == ext.oid.dotted_string and shown['critical'] == ext.critical
    assert shown['nonce'] == ext.value.nonce.hex()
assert doc['signatureAlgorithm']['algorithm'] == r.signature_algorithm_oid.dotted_string
assert doc['signature'] == r.signature.hex()
certs = doc.get('certs', [])
assert len(certs) == len(r.certificates)
for shown, cert in zip(certs, r.certificates):
    assert shown['subject'] == name(cert.subject) and shown['issuer'] == name(cert.issuer)
    assert int(shown['serialNumber'], 16) == cert.serial_number
    assert shown['notBefore'] == time(cert.not_valid_before)
    assert shown['notAfter'] == time(cert.not_valid_after)
print('same')
)";

constexpr const char* kCompareRequest = R"(
import sys, json
from cryptography.x509 import ocsp
doc = json.load(open(sys.argv[1]))
q = ocsp.load_der_ocsp_request(open(sys.argv[2], 'rb').read())
assert doc['message'] == 'request' and doc['version'] == 1
[entry] = doc['requestList']
cid = entry['certID']
assert cid['hashAlgorithm']['name'] == q.hash_algorithm.name
assert cid['issuerNameHash'] == q.issuer_name_hash.hex()
assert cid['issuerKeyHash'] == q.issuer_key_hash.hex()
assert int(cid['serialNumber'], 16) == q.serial_number
extensions = doc.get('requestExtensions', [])
assert len(extensions) == len(q.extensions)
for shown, ext in zip(extensions, q.extensions):
    assert shown['extnID'] == ext.oid.dotted_string and shown['critical'] == ext.critical
    assert shown['nonce'] == ext.value.nonce.hex()
print('same')
)";

// A request for pki/rsa/leaf carrying the given request extensions, written to a file.
std::string RequestFileWith(const Velmor::ASN1::CExtensions& extensions, const char* name) {
    using namespace Velmor;
    using namespace Velmor::PKI::OCSP;
    const CBlob null(BlobOf("0500"));
    CSingleRequestList entries;
    entries.push_back(CSingleRequest(CReqCert(
        CCertID(ASN1::CAlgorithmIdentifierEx("1.3.14.3.2.26", &null),
                CBlob(ReadData("pki/rsa/leaf.der")), CBlob(ReadData("pki/rsa/inter.der"))))));
    CRequestMessage request;
    request.put_requestList(entries);
    request.put_requestExtensions(&extensions);
    const CBlob der = request.encode();
    return WriteTempFile(Bytes(der.begin(), der.end()), name);
}

} // namespace

TEST(ShowTool, PrintsEveryFieldOfAResponseOpensslWrote) {
    EXPECT_EQ(Show({DataPath("ocsp/resp-revoked-rsa.der")}),
              FileText(std::string(VELMOR_TOOLS_TEST_DIR) + "/show-resp-revoked-rsa.txt"));
}

TEST(ShowTool, JsonOfEveryResponseAndRequestSaysWhatPythonReads) {
    ASSERT_TRUE(HavePythonCryptography());
    const auto compare = [](const char* script, const char* name) {
        SCOPED_TRACE(name);
        const std::string path = DataPath(std::string("ocsp/") + name);
        const std::string json = WriteTempFile(Text(Show({"--json", path})), "show.json");
        std::string output;
        EXPECT_EQ(RunPython(script, {json, path}, &output), 0) << output;
        EXPECT_EQ(output, "same\n");
    };
    for (const char* name : kResponses) {
        compare(kCompareResponse, name);
    }
    for (const char* name : kRequests) {
        compare(kCompareRequest, name);
    }
}

TEST(ShowTool, SignedRequestShowsRequestorSignatureAndCertificates) {
    const std::string text = Show({DataPath("ocsp/req-signed-ec.der")});
    const std::vector<std::string> lines = Lines(text);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "OCSP request");
    EXPECT_EQ(lines[1], "  version: 1");
    const std::string expected[] = {
        "  requestor name: C=DE, O=Velmor Test PKI, CN=Velmor ECDSA OCSP Client\n",
        "  signature algorithm: ecdsa-with-SHA256 (1.2.840.10045.4.3.2)\n",
        "  certificate 1:\n"
        "    subject: C=DE, O=Velmor Test PKI, CN=Velmor ECDSA OCSP Client\n"
        "    issuer: C=DE, O=Velmor Test PKI, CN=Velmor ECDSA Intermediate CA\n",
    };
    for (const std::string& part : expected) {
        EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
    }
}

TEST(ShowTool, ReadsDerPemBase64AndStandardInputAlike) {
    const std::string der = DataPath("ocsp/resp-mixed-rsa.der");
    const std::string expected = Show({der});
    const Bytes bytes = ReadFile(der);
    std::string base64;
    ASSERT_EQ(RunCommand("openssl base64 -A -in " + der, &base64), 0);
    const std::string pem = WriteTempFile(
        Text("text before the block is ignored\n-----BEGIN OCSP RESPONSE-----\n" +
             base64.substr(0, 64) + "\n" + base64.substr(64) + "\n-----END OCSP RESPONSE-----\n"),
        "mixed.pem");
    const std::string oneLine = WriteTempFile(Text(base64 + "\n"), "mixed.b64");
    EXPECT_EQ(Show({pem}), expected);
    EXPECT_EQ(Show({oneLine}), expected);
    std::string piped;
    EXPECT_EQ(RunCommand(std::string(VELMOR_TOOL) + " show - < " + der, &piped), 0);
    EXPECT_EQ(piped, expected);
}

TEST(ShowTool, NamesTheExtensionsItKnowsAndDumpsTheOthers) {
    using namespace Velmor;
    using namespace Velmor::PKI::OCSP;
    CExtCrlID crl;
    crl.put_crlUrl("http://crl.velmor.test/inter.crl");
    const unsigned long number = 42;
    crl.put_crlNum(&number);
    const CDateTime crlTime("20260102030405Z");
    crl.put_crlTime(&crlTime);
    CAcceptableResponses types;
    types.push_back(CStringProxy("1.3.6.1.5.5.7.48.1.1"));
    types.push_back(CStringProxy("1.2.3.4"));
    CExtServiceLocator locator;
    locator.put_issuer(BlobOf("300f310d300b06035504030c0454657374")); // CN=Test
    ASN1::CGeneralName uri;
    uri.put_uniformResourceIdentifier("http://ocsp.velmor.test/");
    ASN1::CAuthorityInfoAccessSyntax places;
    places.push_back(ASN1::CAccessDescription("1.3.6.1.5.5.7.48.1", uri));
    locator.put_locator(&places);

    ASN1::CExtensions extensions;
    extensions.push_back(ASN1::CExtension(CExtNonce(BlobOf("0102030405")), false));
    extensions.push_back(ASN1::CExtension(crl, false));
    extensions.push_back(ASN1::CExtension(CExtArchiveCutoff(CDateTime("20250101000000Z")), false));
    extensions.push_back(ASN1::CExtension(CExtAcceptableResponses(types), true));
    extensions.push_back(ASN1::CExtension(locator, false));
    extensions.push_back(ASN1::CExtension("1.2.3.4.5", true, BlobOf("0102")));
    extensions.push_back(ASN1::CExtension("1.3.6.1.5.5.7.48.1.3", false, BlobOf("0500")));
    const std::string path = RequestFileWith(extensions, "extensions.der");

    const std::string text = Show({path});
    const std::string extensionsText = text.substr(text.find("  extension 1:"));
    EXPECT_EQ(extensionsText, "  extension 1: nonce (1.3.6.1.5.5.7.48.1.2)\n"
                              "    critical: no\n"
                              "    nonce: 0102030405\n"
                              "  extension 2: CrlID (1.3.6.1.5.5.7.48.1.3)\n"
                              "    critical: no\n"
                              "    CRL URL: http://crl.velmor.test/inter.crl\n"
                              "    CRL number: 42\n"
                              "    CRL time: 2026-01-02T03:04:05Z\n"
                              "  extension 3: archive cutoff (1.3.6.1.5.5.7.48.1.6)\n"
                              "    critical: no\n"
                              "    archive cutoff: 2025-01-01T00:00:00Z\n"
                              "  extension 4: acceptable responses (1.3.6.1.5.5.7.48.1.4)\n"
                              "    critical: yes\n"
                              "    response type 1: basic (1.3.6.1.5.5.7.48.1.1)\n"
                              "    response type 2: 1.2.3.4\n"
                              "  extension 5: service locator (1.3.6.1.5.5.7.48.1.7)\n"
                              "    critical: no\n"
                              "    issuer: CN=Test\n"
                              "    locator 1:\n"
                              "      access method: ocsp (1.3.6.1.5.5.7.48.1)\n"
                              "      access location: URI:http://ocsp.velmor.test/\n"
                              "  extension 6: 1.2.3.4.5\n"
                              "    critical: yes\n"
                              "    value: 0102\n"
                              "  extension 7: CrlID (1.3.6.1.5.5.7.48.1.3)\n"
                              "    critical: no\n"
                              "    error: the value does not decode\n"
                              "    value: 0500\n");

    ASSERT_TRUE(HavePythonCryptography());
    const std::string json = WriteTempFile(Text(Show({"--json", path})), "extensions.json");
    std::string output;
    EXPECT_EQ(RunPython(R"(
import sys, json
doc = json.load(open(sys.argv[1]))
print(json.dumps(doc['requestExtensions'], sort_keys=True))
)",
                        {json}, &output),
              0)
        << output;
    EXPECT_EQ(
        output,
        R"([{"critical": false, "extnID": "1.3.6.1.5.5.7.48.1.2", "name": "nonce", "nonce": "0102030405"}, )"
        R"({"critical": false, "crlNum": 42, "crlTime": "2026-01-02T03:04:05Z", "crlUrl": "http://crl.velmor.test/inter.crl", "extnID": "1.3.6.1.5.5.7.48.1.3", "name": "CrlID"}, )"
        R"({"archiveCutoff": "2025-01-01T00:00:00Z", "critical": false, "extnID": "1.3.6.1.5.5.7.48.1.6", "name": "archive cutoff"}, )"
        R"({"acceptableResponses": ["1.3.6.1.5.5.7.48.1.1", "1.2.3.4"], "critical": true, "extnID": "1.3.6.1.5.5.7.48.1.4", "name": "acceptable responses"}, )"
        R"({"critical": false, "extnID": "1.3.6.1.5.5.7.48.1.7", "issuer": "CN=Test", "locator": [{"accessLocation": "URI:http://ocsp.velmor.test/", "accessMethod": "1.3.6.1.5.5.7.48.1"}], "name": "service locator"}, )"
        R"({"critical": true, "extnID": "1.2.3.4.5", "value": "0102"}, )"
        R"({"critical": false, "error": "the value does not decode", "extnID": "1.3.6.1.5.5.7.48.1.3", "name": "CrlID", "value": "0500"}])"
        "\n");
}

TEST(ShowTool, NamesThePrivateExtensions) {
    using namespace Velmor;
    using namespace Velmor::PKI::OCSP;
    CExtHistoricalRequest historical;
    historical.put_crlUrl("http://crl.velmor.test/old.crl");
    const CDateTime crlTime("20250601000000Z");
    historical.put_crlTime(&crlTime);
    ASN1::CGeneralName uri;
    uri.put_uniformResourceIdentifier("http://crl.velmor.test/inter.crl");
    ASN1::CGeneralNames names;
    names.push_back(uri);
    ASN1::CDistributionPoint point;
    point.put_fullName(&names);
    const unsigned reasons = (1u << 1) | (1u << 2) | (1u << 9); // two flags and an unnamed bit
    point.put_reasons(&reasons);
    ASN1::CCRLDistPointsSyntax points;
    points.push_back(point);

    ASN1::CExtensions extensions;
    extensions.push_back(ASN1::CExtension(historical, false));
    extensions.push_back(ASN1::CExtension(CExtCRLLocator(points), false));
    extensions.push_back(ASN1::CExtension("1.2.643.2.2.47.3", false, BlobOf("0500")));
    extensions.push_back(ASN1::CExtension("1.2.643.2.2.47.4", true, BlobOf("0101ff")));
    const std::string path = RequestFileWith(extensions, "private.der");

    const std::string text = Show({path});
    EXPECT_EQ(text.substr(text.find("  extension 1:")),
              "  extension 1: historical request (1.2.643.2.2.47.5)\n"
              "    critical: no\n"
              "    CRL URL: http://crl.velmor.test/old.crl\n"
              "    CRL time: 2025-06-01T00:00:00Z\n"
              "  extension 2: CRL locator (1.2.643.2.2.47.2)\n"
              "    critical: no\n"
              "    distribution point 1:\n"
              "      full name 1: URI:http://crl.velmor.test/inter.crl\n"
              "      reasons: keyCompromise, cACompromise, bit 9\n"
              "  extension 3: instant revocation indicator (1.2.643.2.2.47.3)\n"
              "    critical: no\n"
              "    value: 0500\n"
              "  extension 4: revocation announcement reference (1.2.643.2.2.47.4)\n"
              "    critical: yes\n"
              "    value: 0101ff\n");
}

TEST(ShowTool, ErrorStatusResponseHasNoBody) {
    const std::string path = WriteTempFile(FromHex("30030a0103"), "try-later.der");
    EXPECT_EQ(Show({path}), "OCSP response\n  status: tryLater (3)\n");
    EXPECT_EQ(Show({"--json", path}),
              "{\n  \"message\": \"response\",\n  \"responseStatus\": 3\n}\n");
}
