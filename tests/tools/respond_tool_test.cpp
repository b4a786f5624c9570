// velmor-ocsp respond: its responses are checked by the openssl command (signature,
// statuses, nonce) and read by Python's cryptography package; its error statuses and exit
// codes follow what the request asks.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/test_support.h"
#include "tools/tool_runner.h"

using namespace velmor_test;

namespace {

// A request of ours for leaves of a family; the file's path.
std::string MakeRequest(const std::string& family, const std::vector<std::string>& leaves,
                        const std::string& name, const std::vector<std::string>& more = {}) {
    const std::string path = ScratchPath(name);
    const ToolRun run = RunRequest(family, leaves, path, more);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    return path;
}

ToolRun Respond(const std::string& family, const std::string& request, const std::string& out,
                const std::vector<std::string>& more = {}, const std::string& index = "") {
    std::vector<std::string> args{"respond",
                                  "--index",
                                  index.empty() ? Pki(family, "index.txt") : index,
                                  "--ca",
                                  Pki(family, "inter.pem"),
                                  "--rsigner",
                                  Pki(family, "ocsp.pem"),
                                  "--rkey",
                                  Pki(family, "ocsp.key.pem"),
                                  "--reqin",
                                  request,
                                  "--out",
                                  out};
    args.insert(args.end(), more.begin(), more.end());
    return RunTool(args);
}

// openssl ocsp checking a response against the responder certificate and printing the
// status of each leaf; standard error is kept apart.
struct OpensslCheck {
    int exitCode;
    std::string out;
    std::string err;
};
OpensslCheck OpensslChecks(const std::string& family, const std::string& response,
                           const std::vector<std::string>& leaves, const std::string& extra) {
    std::string command =
        "openssl ocsp -respin " + response + " -VAfile " + Pki(family, "ocsp.pem");
    if (!leaves.empty()) {
        command += " -issuer " + Pki(family, "inter.pem");
    }
    for (const std::string& leaf : leaves) {
        command += " -cert " + Pki(family, leaf + ".pem");
    }
    const std::string errPath = ScratchPath("openssl.err");
    OpensslCheck check;
    check.exitCode = RunCommand(command + " " + extra + " 2>" + errPath, &check.out);
    const Bytes err = ReadFile(errPath);
    check.err.assign(err.begin(), err.end());
    return check;
}

std::string OpensslStatusLine(const std::string& family, const std::string& leaf,
                              const std::string& status) {
    return Pki(family, leaf + ".pem") + ": " + status + "\n";
}

} // namespace

TEST(RespondTool, OpensslVerifiesTheAnswerForEveryStatus) {
    ASSERT_TRUE(HaveOpenssl());
    const std::vector<std::string> leaves{"leaf", "leaf00", "client", "leaf20"};
    for (const std::string family : {"rsa", "ec"}) {
        SCOPED_TRACE(family);
        const std::string request = MakeRequest(family, leaves, "every-" + family + ".der");
        const std::string response = ScratchPath("every-" + family + ".resp");
        const ToolRun run = Respond(family, request, response, {"--next-update", "7"});
        EXPECT_EQ(run.exitCode, 1) << run.err; // one revoked
        EXPECT_EQ(run.err, "");

        // openssl asks about the leaves in a request of its own, here without a nonce.
        const OpensslCheck check = OpensslChecks(family, response, leaves, "-no_nonce");
        EXPECT_EQ(check.exitCode, 0) << check.err;
        EXPECT_EQ(check.err, "Response verify OK\n");
        EXPECT_NE(check.out.find(OpensslStatusLine(family, "leaf", "good")), std::string::npos)
            << check.out;
        EXPECT_NE(check.out.find(OpensslStatusLine(family, "leaf20", "good")), std::string::npos)
            << check.out;
        EXPECT_NE(check.out.find(OpensslStatusLine(family, "client", "unknown")), std::string::npos)
            << check.out;
        EXPECT_NE(
            check.out.find(OpensslStatusLine(family, "leaf00", "revoked") + "\tThis Update: "),
            std::string::npos)
            << check.out;
        EXPECT_NE(check.out.find("\tReason: keyCompromise\n"
                                 "\tRevocation Time: Jan  1 00:00:00 2026 GMT\n"),
                  std::string::npos)
            << check.out;
        EXPECT_NE(check.out.find("\tNext Update: "), std::string::npos) << check.out;
    }
}

TEST(RespondTool, EchoesTheNonceOfTheRequestItAnswers) {
    ASSERT_TRUE(HaveOpenssl());
    const std::string request = MakeRequest("rsa", {"leaf"}, "nonce-a.der");
    const std::string other = MakeRequest("rsa", {"leaf"}, "nonce-b.der");
    const std::string response = ScratchPath("nonce.resp");
    ASSERT_EQ(Respond("rsa", request, response).exitCode, 0);

    // With -reqin and no -cert, openssl checks the response against that request: the
    // signature and the nonce.
    const OpensslCheck same = OpensslChecks("rsa", response, {}, "-reqin " + request);
    EXPECT_EQ(same.exitCode, 0) << same.err;
    EXPECT_EQ(same.err, "Response verify OK\n");
    const OpensslCheck mismatch = OpensslChecks("rsa", response, {}, "-reqin " + other);
    EXPECT_EQ(mismatch.exitCode, 1);
    EXPECT_NE(mismatch.err.find("Nonce Verify error"), std::string::npos) << mismatch.err;

    // A request without a nonce gets a response without one.
    const std::string plain = MakeRequest("rsa", {"leaf"}, "nonce-none.der", {"--no-nonce"});
    ASSERT_EQ(Respond("rsa", plain, response).exitCode, 0);
    const OpensslCheck none = OpensslChecks("rsa", response, {}, "-reqin " + request);
    EXPECT_EQ(none.exitCode, 0) << none.err;
    EXPECT_EQ(none.err, "WARNING: no nonce in response\nResponse verify OK\n");
}

TEST(RespondTool, ExitCodeSaysWhatWasAnswered) {
    struct Case {
        std::vector<std::string> leaves;
        int exitCode;
    };
    const Case cases[] = {
        {{"leaf"}, 0},           {{"leaf", "leaf20"}, 0},
        {{"leaf", "client"}, 2}, {{"client", "leaf00"}, 1},
        {{"leaf00"}, 1},
    };
    for (const Case& c : cases) {
        const std::string request = MakeRequest("ec", c.leaves, "exit.der");
        const ToolRun run = Respond("ec", request, ScratchPath("exit.resp"));
        EXPECT_EQ(run.exitCode, c.exitCode) << c.leaves.front() << " " << run.err;
    }
}

TEST(RespondTool, PythonCryptographyReadsAndVerifiesTheAnswer) {
    ASSERT_TRUE(HavePythonCryptography());
    // Prints what the response says; checks the signature with the responder's key and the
    // responder ID against the responder certificate.
    const std::string script = R"(
import sys
from cryptography import x509
from cryptography.hazmat.primitives.asymmetric import ec, padding, rsa
from cryptography.x509 import ocsp
resp = ocsp.load_der_ocsp_response(open(sys.argv[1], 'rb').read())
responder = x509.load_pem_x509_certificate(open(sys.argv[2], 'rb').read())
key = responder.public_key()
if isinstance(key, rsa.RSAPublicKey):
    key.verify(resp.signature, resp.tbs_response_bytes, padding.PKCS1v15(), resp.signature_hash_algorithm)
else:
    key.verify(resp.signature, resp.tbs_response_bytes, ec.ECDSA(resp.signature_hash_algorithm))
if resp.responder_name is not None:
    assert resp.responder_name == responder.subject
    print('by name')
else:
    assert resp.responder_key_hash == x509.SubjectKeyIdentifier.from_public_key(key).digest
    print('by key')
print(resp.signature_hash_algorithm.name, len(resp.certificates))
for single in resp.responses:
    line = '%X %s' % (single.serial_number, single.certificate_status.name)
    if single.revocation_time is not None:
        line += ' ' + single.revocation_time.isoformat()
    if single.revocation_reason is not None:
        line += ' ' + single.revocation_reason.name
    if single.next_update is not None:
        line += ' next+%s' % (single.next_update - single.this_update)
    print(line)
nonce = resp.extensions.get_extension_for_class(x509.OCSPNonce)
print('nonce', len(nonce.value.nonce))
)";
    ASSERT_TRUE(HaveOpenssl());
    const std::string request =
        MakeRequest("rsa", {"leaf", "leaf00", "client", "leaf20"}, "python-rsa.der");
    const std::string response = ScratchPath("python.resp");
    ASSERT_EQ(Respond("rsa", request, response,
                      {"--by-key", "--next-update", "2", "--digest", "sha512", "--rother",
                       Pki("rsa", "chain.pem")})
                  .exitCode,
              1);
    std::string output;
    EXPECT_EQ(RunPython(script, {response, Pki("rsa", "ocsp.pem")}, &output), 0) << output;
    EXPECT_EQ(output, "by key\n"
                      "sha512 3\n"
                      "1001 GOOD next+2 days, 0:00:00\n"
                      "8F3A5C11D2 REVOKED 2026-01-01T00:00:00 key_compromise next+2 days, 0:00:00\n"
                      "3001 UNKNOWN next+2 days, 0:00:00\n"
                      "7E1D2C3B4A59687786950A1B2C3D4E5F60718293 GOOD next+2 days, 0:00:00\n"
                      "nonce 16\n");

    const std::string ecRequest = MakeRequest("ec", {"leaf"}, "python-ec.der");
    ASSERT_EQ(Respond("ec", ecRequest, response, {"--no-certs", "--digest", "sha384"}).exitCode, 0);
    output.clear();
    EXPECT_EQ(RunPython(script, {response, Pki("ec", "ocsp.pem")}, &output), 0) << output;
    EXPECT_EQ(output, "by name\n"
                      "sha384 0\n"
                      "1001 GOOD\n"
                      "nonce 16\n");
}

TEST(RespondTool, AnswersUnauthorizedWhenNoEntryIsOfItsCa) {
    ASSERT_TRUE(HaveOpenssl());
    // EC certificates asked of the RSA CA's responder.
    const std::string request = MakeRequest("ec", {"leaf", "leaf20"}, "foreign.der");
    const std::string response = ScratchPath("foreign.resp");
    const ToolRun run = Respond("rsa", request, response);
    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.err, "velmor-ocsp: " + request + ": asks about no certificate issued by " +
                           Pki("rsa", "inter.pem") + "; answered unauthorized\n");
    EXPECT_EQ(ToHex(ReadFile(response)), "30030a0106");
    std::string text;
    RunCommand("openssl ocsp -respin " + response + " -resp_text -noverify 2>&1", &text);
    EXPECT_NE(text.find("Responder Error: unauthorized (6)"), std::string::npos) << text;
}

TEST(RespondTool, EntriesOfAnotherCaBesideOursAreUnknown) {
    ASSERT_TRUE(HaveOpenssl());
    // One request: the RSA leaf under the RSA intermediate, and the RSA intermediate under
    // the RSA root (another CA for this responder).
    const std::string path = ScratchPath("two-cas.der");
    ASSERT_EQ(RunCommand("openssl ocsp -no_nonce -issuer " + Pki("rsa", "inter.pem") + " -cert " +
                         Pki("rsa", "leaf.pem") + " -issuer " + Pki("rsa", "root.pem") + " -cert " +
                         Pki("rsa", "inter.pem") + " -reqout " + path + " >/dev/null 2>&1"),
              0);
    const std::string response = ScratchPath("two-cas.resp");
    EXPECT_EQ(Respond("rsa", path, response).exitCode, 2);
    std::string text;
    RunCommand("openssl ocsp -respin " + response + " -resp_text -noverify 2>/dev/null", &text);
    EXPECT_NE(text.find("Serial Number: 1001\n    Cert Status: good"), std::string::npos) << text;
    EXPECT_NE(text.find("Serial Number: 02\n    Cert Status: unknown"), std::string::npos) << text;
}

TEST(RespondTool, ReadsEveryFormOfTheIndex) {
    ASSERT_TRUE(HaveOpenssl());
    // Expired counts as good; revocation times as UTCTime or GeneralizedTime; reasons in
    // any case, holdInstruction and keyTime standing for the reasons they imply.
    const std::string index =
        WriteTempFile(Text("E\t250101000000Z\t\t1001\tunknown\t/CN=expired\n"
                           "\n"
                           "R\t361120063437Z\t20270203040506Z\t8f3a5c11d2\tunknown\t/CN=late\n"
                           "R\t361120063437Z\t990101000000Z,cacompromise\t7E1D2C3B4A59687786950A1B2"
                           "C3D4E5F60718293\tunknown\t/CN=old\n"
                           "R\t361120063437Z\t260101000000Z,keyTime,20251231000000Z\t3001\tunknown"
                           "\t/CN=client\n"),
                      "forms-index.txt");
    const std::vector<std::string> leaves{"leaf", "leaf00", "leaf20", "client"};
    const std::string request = MakeRequest("rsa", leaves, "forms.der", {"--no-nonce"});
    const std::string response = ScratchPath("forms.resp");
    const ToolRun run = Respond("rsa", request, response, {}, index);
    EXPECT_EQ(run.exitCode, 1) << run.err;
    const OpensslCheck check = OpensslChecks("rsa", response, leaves, "-no_nonce");
    EXPECT_EQ(check.exitCode, 0) << check.err;
    const std::string expected[] = {
        OpensslStatusLine("rsa", "leaf", "good"),
        OpensslStatusLine("rsa", "leaf00", "revoked"),
        "\tRevocation Time: Feb  3 04:05:06 2027 GMT\n",
        "\tReason: cACompromise\n\tRevocation Time: Jan  1 00:00:00 1999 GMT\n",
        "\tReason: keyCompromise\n\tRevocation Time: Jan  1 00:00:00 2026 GMT\n",
    };
    for (const std::string& line : expected) {
        EXPECT_NE(check.out.find(line), std::string::npos) << line << "\n" << check.out;
    }
    // leaf00's entry has no reason: the line after its time is the next certificate's.
    EXPECT_NE(check.out.find("Feb  3 04:05:06 2027 GMT\n" + Pki("rsa", "leaf20.pem")),
              std::string::npos)
        << check.out;
}

TEST(RespondTool, PemAndBase64RequestsAndOutput) {
    const std::string pem = MakeRequest("rsa", {"leaf"}, "forms.pem", {"--pem", "--no-nonce"});
    const std::string base64 =
        MakeRequest("rsa", {"leaf"}, "forms.b64", {"--base64", "--no-nonce"});
    const std::string der = ScratchPath("forms-out.der");
    const std::string pemOut = ScratchPath("forms-out.pem");
    ASSERT_EQ(Respond("rsa", pem, der).exitCode, 0);
    ASSERT_EQ(Respond("rsa", base64, pemOut, {"--pem"}).exitCode, 0);
    // The response's times differ between runs: compare what show makes of both.
    const ToolRun fromDer = RunTool({"show", der});
    const ToolRun fromPem = RunTool({"show", pemOut});
    ASSERT_EQ(fromDer.exitCode, 0) << fromDer.err;
    ASSERT_EQ(fromPem.exitCode, 0) << fromPem.err;
    const Bytes pemText = ReadFile(pemOut);
    EXPECT_EQ(std::string(pemText.begin(), pemText.begin() + 29), "-----BEGIN OCSP RESPONSE-----");
    EXPECT_NE(fromDer.out.find("serial number: 1001\n    status: good\n"), std::string::npos)
        << fromDer.out;
    EXPECT_NE(fromPem.out.find("serial number: 1001\n    status: good\n"), std::string::npos)
        << fromPem.out;
}
