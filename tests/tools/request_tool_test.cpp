// velmor-ocsp request: what it writes is read by the openssl command and by Python's
// cryptography package, and names the same certificates as their own requests do.
#include <gtest/gtest.h>
#include <string>

#include "support/test_support.h"
#include "tools/tool_runner.h"

using namespace velmor_test;

namespace {

// Appended to a command: its output as lower-case hex on one line.
const std::string kHexDump = " | od -An -v -tx1 | tr -d ' \\n'";

// The text openssl prints for a request file (DER).
std::string OpensslRequestText(const std::string& path) {
    std::string text;
    EXPECT_EQ(RunCommand("openssl ocsp -reqin " + path + " -req_text 2>&1", &text), 0) << text;
    return text;
}

// The "Certificate ID:" blocks of openssl's text of a request, joined.
std::string CertIdBlocks(const std::string& text) {
    std::string blocks;
    for (const std::string& line : Lines(text)) {
        if (line.find("Certificate ID:") != std::string::npos ||
            line.find("Hash Algorithm:") != std::string::npos ||
            line.find("Issuer Name Hash:") != std::string::npos ||
            line.find("Issuer Key Hash:") != std::string::npos ||
            line.find("Serial Number:") != std::string::npos) {
            blocks += line + "\n";
        }
    }
    return blocks;
}

// The request openssl writes itself for the same certificates, without a nonce.
std::string OpensslOwnRequest(const std::string& family, const std::vector<std::string>& leaves,
                              const std::string& hash) {
    const std::string path = ScratchPath("openssl-own-" + family + hash + ".der");
    std::string command =
        "openssl ocsp -no_nonce -" + hash + " -issuer " + Pki(family, "inter.pem");
    for (const std::string& leaf : leaves) {
        command += " -cert " + Pki(family, leaf + ".pem");
    }
    EXPECT_EQ(RunCommand(command + " -reqout " + path + " >/dev/null 2>&1"), 0) << command;
    return path;
}

// The 16 nonce octets in upper-case hex after "OCSP Nonce:" and its OCTET STRING header
// (0410), or "" when the text has no such line. (Not std::regex: GCC 12 warns inside
// <regex> when building with the sanitizers.)
std::string NonceOf(const std::string& opensslText) {
    const std::size_t label = opensslText.find("OCSP Nonce:");
    const std::size_t header = opensslText.find("0410", label);
    if (label == std::string::npos || header == std::string::npos ||
        opensslText.find_first_not_of(" \n", label + 11) != header) {
        return "";
    }
    const std::string nonce = opensslText.substr(header + 4, 32);
    const bool hex = nonce.size() == 32 &&
                     nonce.find_first_not_of("0123456789ABCDEF") == std::string::npos &&
                     opensslText.compare(header + 36, 1, "\n") == 0;
    return hex ? nonce : "";
}

} // namespace

TEST(RequestTool, OpensslReadsTheSameCertificateIdsAsInItsOwnRequest) {
    ASSERT_TRUE(HaveOpenssl());
    const std::vector<std::string> leaves{"leaf", "leaf00", "leaf20", "client"};
    for (const std::string family : {"rsa", "ec"}) {
        for (const std::string hash : {"sha1", "sha256", "sha384", "sha512"}) {
            SCOPED_TRACE(family + " " + hash);
            const std::string ours = ScratchPath("ours-" + family + hash + ".der");
            const ToolRun run = RunRequest(family, leaves, ours, {"--hash", hash});
            ASSERT_EQ(run.exitCode, 0) << run.err;
            EXPECT_EQ(run.out + run.err, "");
            const std::string text = OpensslRequestText(ours);
            EXPECT_EQ(CertIdBlocks(text),
                      CertIdBlocks(OpensslRequestText(OpensslOwnRequest(family, leaves, hash))));
            EXPECT_NE(text.find("Hash Algorithm: " + hash), std::string::npos) << text;
        }
    }
}

TEST(RequestTool, NonceIsSixteenFreshRandomOctetsUnlessTurnedOff) {
    ASSERT_TRUE(HaveOpenssl());
    const std::string first = ScratchPath("nonce-1.der");
    const std::string second = ScratchPath("nonce-2.der");
    ASSERT_EQ(RunRequest("rsa", {"leaf"}, first).exitCode, 0);
    ASSERT_EQ(RunRequest("rsa", {"leaf"}, second, {"--nonce"}).exitCode, 0);
    const std::string nonce1 = NonceOf(OpensslRequestText(first));
    const std::string nonce2 = NonceOf(OpensslRequestText(second));
    EXPECT_EQ(nonce1.size(), 32u);
    EXPECT_EQ(nonce2.size(), 32u);
    EXPECT_NE(nonce1, nonce2);

    const std::string none = ScratchPath("no-nonce.der");
    ASSERT_EQ(RunRequest("rsa", {"leaf"}, none, {"--no-nonce"}).exitCode, 0);
    const std::string text = OpensslRequestText(none);
    EXPECT_EQ(text.find("Request Extensions"), std::string::npos) << text;
    // Without a nonce the request is the one openssl writes, byte for byte.
    EXPECT_EQ(ReadFile(none), ReadFile(OpensslOwnRequest("rsa", {"leaf"}, "sha1")));
}

TEST(RequestTool, SignedRequestsCarryTheSignerAndVerifyWithOpenssl) {
    ASSERT_TRUE(HaveOpenssl());
    for (const std::string family : {"rsa", "ec"}) {
        SCOPED_TRACE(family);
        // The key once as a PEM path, once as a DER file named by a file: URI.
        for (const std::string& key :
             {Pki(family, "client.key.pem"), "file:" + Pki(family, "client.key.der")}) {
            const std::string out = ScratchPath("signed-" + family + ".der");
            const ToolRun run = RunRequest(
                family, {"leaf"}, out, {"--sign-key", key, "--signer", Pki(family, "client.pem")});
            ASSERT_EQ(run.exitCode, 0) << run.err;
            const std::string text = OpensslRequestText(out);
            const std::string requestor = "Requestor Name: DirName:C = DE, O = Velmor Test PKI, "
                                          "CN = Velmor " +
                                          std::string(family == "rsa" ? "RSA" : "ECDSA") +
                                          " OCSP Client\n";
            EXPECT_NE(text.find(requestor), std::string::npos) << text;
            EXPECT_NE(text.find(family == "rsa" ? "Signature Algorithm: sha256WithRSAEncryption"
                                                : "Signature Algorithm: ecdsa-with-SHA256"),
                      std::string::npos)
                << text;
            const Velmor::CBlob der(ReadFile(out));
            EXPECT_TRUE(
                OpensslVerifiesRequest(der, Velmor::CBlob(ReadFile(Pki(family, "client.der")))));
            EXPECT_FALSE(
                OpensslVerifiesRequest(der, Velmor::CBlob(ReadFile(Pki(family, "leaf.der")))));
        }
    }
}

TEST(RequestTool, PythonCryptographyReadsOurRequest) {
    ASSERT_TRUE(HavePythonCryptography());
    // Python builds its own request for the same certificate and compares every field.
    const std::string script = R"(
import sys
from cryptography import x509
from cryptography.hazmat.primitives import hashes
from cryptography.x509 import ocsp
ours = ocsp.load_der_ocsp_request(open(sys.argv[1], 'rb').read())
cert = x509.load_pem_x509_certificate(open(sys.argv[2], 'rb').read())
issuer = x509.load_pem_x509_certificate(open(sys.argv[3], 'rb').read())
hash = {'sha1': hashes.SHA1(), 'sha256': hashes.SHA256()}[sys.argv[4]]
theirs = ocsp.OCSPRequestBuilder().add_certificate(cert, issuer, hash).build()
for field in ('serial_number', 'issuer_name_hash', 'issuer_key_hash'):
    assert getattr(ours, field) == getattr(theirs, field), field
assert ours.hash_algorithm.name == sys.argv[4]
nonce = ours.extensions.get_extension_for_class(x509.OCSPNonce)
assert not nonce.critical and len(nonce.value.nonce) == 16
print('same')
)";
    for (const std::string family : {"rsa", "ec"}) {
        for (const std::string leaf : {"leaf", "leaf00", "leaf20"}) {
            for (const std::string hash : {"sha1", "sha256"}) {
                SCOPED_TRACE(family + " " + leaf + " " + hash);
                const std::string out = ScratchPath("python-" + family + leaf + hash + ".der");
                ASSERT_EQ(RunRequest(family, {leaf}, out, {"--hash", hash}).exitCode, 0);
                std::string output;
                EXPECT_EQ(
                    RunPython(script,
                              {out, Pki(family, leaf + ".pem"), Pki(family, "inter.pem"), hash},
                              &output),
                    0)
                    << output;
                EXPECT_EQ(output, "same\n");
            }
        }
    }
}

TEST(RequestTool, PemAndBase64OutputHoldTheSameDer) {
    const std::string der = ScratchPath("form.der");
    const std::string pem = ScratchPath("form.pem");
    const std::string base64 = ScratchPath("form.b64");
    const std::vector<std::string> leaves{"leaf", "leaf20"};
    ASSERT_EQ(RunRequest("ec", leaves, der, {"--no-nonce"}).exitCode, 0);
    ASSERT_EQ(RunRequest("ec", leaves, pem, {"--no-nonce", "--pem"}).exitCode, 0);
    ASSERT_EQ(RunRequest("ec", leaves, base64, {"--no-nonce", "--base64"}).exitCode, 0);

    const Bytes pemText = ReadFile(pem);
    const std::string pemString(pemText.begin(), pemText.end());
    EXPECT_EQ(pemString.rfind("-----BEGIN OCSP REQUEST-----\n", 0), 0u) << pemString;
    EXPECT_EQ(pemString.substr(pemString.size() - 27), "-----END OCSP REQUEST-----\n");
    for (const std::string& line : Lines(pemString)) {
        EXPECT_LE(line.size(), 64u);
    }
    std::string decoded;
    ASSERT_EQ(RunCommand("grep -v -- ----- " + pem + " | openssl base64 -d" + kHexDump, &decoded),
              0);
    EXPECT_EQ(decoded, ToHex(ReadFile(der)));
    const Bytes base64Text = ReadFile(base64);
    EXPECT_EQ(std::count(base64Text.begin(), base64Text.end(), '\n'), 1);
    decoded.clear();
    ASSERT_EQ(RunCommand("openssl base64 -d -A -in " + base64 + kHexDump, &decoded), 0);
    EXPECT_EQ(decoded, ToHex(ReadFile(der)));
}

TEST(RequestTool, WritesToStandardOutput) {
    const std::string der = ScratchPath("stdout.der");
    ASSERT_EQ(RunRequest("rsa", {"leaf"}, der, {"--no-nonce"}).exitCode, 0);
    const ToolRun run = RunRequest("rsa", {"leaf"}, "-", {"--no-nonce", "--base64"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::string decoded;
    const std::string path = WriteTempFile(Text(run.out), "stdout.b64");
    ASSERT_EQ(RunCommand("openssl base64 -d -A -in " + path + kHexDump, &decoded), 0);
    EXPECT_EQ(decoded, ToHex(ReadFile(der)));
}
