// velmor-ocsp verify: about responses that openssl and Python's cryptography package wrote it
// prints what `openssl ocsp` prints about them (times written as the program writes them),
// with the exit code of the statuses; every check that fails is named and gives exit 3, an
// error status exit 4, and a file that is not what it should be one line and exit 5.
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "support/test_support.h"
#include "tools/tool_runner.h"

using namespace velmor_test;

namespace {

std::string Ocsp(const std::string& file) { return DataPath("ocsp/" + file); }

ToolRun Verify(const std::string& response, const std::string& family,
               const std::vector<std::string>& leaves, const std::vector<std::string>& more = {}) {
    std::vector<std::string> args{"verify", "--respin", response, "--issuer",
                                  Pki(family, "inter.pem")};
    for (const std::string& leaf : leaves) {
        args.push_back("--cert");
        args.push_back(Pki(family, leaf + ".pem"));
    }
    args.insert(args.end(), more.begin(), more.end());
    return RunTool(args);
}

// What `openssl ocsp` prints on stdout about the leaves in response, trusting the family's
// responder certificate; options go before the certificates (a digest option applies to the
// -cert options after it). openssl must accept the response. It checks a nonce only against
// a request it made itself (its -reqin does not count once -cert is given): the nonce is
// left to the tests of our --reqin.
std::string OpensslStatuses(const std::string& response, const std::string& family,
                            const std::vector<std::string>& leaves, const std::string& options) {
    std::string command = "openssl ocsp -respin " + response + " -issuer " +
                          Pki(family, "inter.pem") + " -VAfile " + Pki(family, "ocsp.pem") + " " +
                          options;
    for (const std::string& leaf : leaves) {
        command += " -cert " + Pki(family, leaf + ".pem");
    }
    const std::string errPath = ScratchPath("openssl-verify.err");
    std::string out;
    EXPECT_EQ(RunCommand(command + " 2>" + errPath, &out), 0) << command;
    const Bytes err = ReadFile(errPath);
    EXPECT_EQ(std::string(err.begin(), err.end()), "Response verify OK\n") << command;
    return out;
}

struct PeerCase {
    std::string response; // in tests/data/ocsp
    std::string family;
    std::vector<std::string> leaves;
    std::vector<std::string> ours;
    std::string theirs;
    int exitCode;
};

void ExpectSameAsOpenssl(const PeerCase& c) {
    SCOPED_TRACE(c.response);
    const std::string expected =
        WithIsoTimes(OpensslStatuses(Ocsp(c.response), c.family, c.leaves, c.theirs)) +
        "Response verify OK\n";
    const ToolRun run = Verify(Ocsp(c.response), c.family, c.leaves, c.ours);
    EXPECT_EQ(run.exitCode, c.exitCode) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, expected);
}

std::string Expected(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

} // namespace

TEST(VerifyTool, PrintsWhatOpensslPrintsAboutItsResponses) {
    ASSERT_TRUE(HaveOpenssl());
    const std::string reqNonce = Ocsp("req-nonce.der");
    const std::string reqTwo = Ocsp("req-two.der");
    const std::string reqEc = Ocsp("req-ec.der");
    const std::string reqSignedEc = Ocsp("req-signed-ec.der");
    const PeerCase cases[] = {
        {"resp-good-rsa.der", "rsa", {"leaf"}, {"--reqin", reqNonce}, "-no_nonce", 0},
        {"resp-revoked-rsa.der", "rsa", {"leaf00"}, {}, "-no_nonce", 1},
        {"resp-unknown-rsa.der", "rsa", {"client"}, {}, "-no_nonce", 2},
        {"resp-mixed-rsa.der", "rsa", {"leaf", "leaf00", "client", "leaf20"}, {}, "-no_nonce", 1},
        {"resp-two-rsa.der", "rsa", {"leaf", "leaf20"}, {"--reqin", reqTwo}, "-no_nonce", 0},
        {"resp-sha256-rsa.der", "rsa", {"leaf"}, {}, "-sha256 -no_nonce", 0},
        {"resp-keyid-rsa.der", "rsa", {"leaf"}, {}, "-no_nonce", 0},
        // No certificates in the response: the responder certificate comes from --CAfile.
        {"resp-nocerts-rsa.der",
         "rsa",
         {"leaf"},
         {"--CAfile", Pki("rsa", "ocsp.pem")},
         "-no_nonce",
         0},
        {"resp-ec.der", "ec", {"leaf", "leaf00"}, {"--reqin", reqEc}, "-sha256 -no_nonce", 1},
        {"resp-keyid-ec.der",
         "ec",
         {"leaf"},
         {"--reqin", reqSignedEc, "--CAfile", Pki("ec", "ocsp.pem")},
         "-no_nonce",
         0},
    };
    for (const PeerCase& c : cases) {
        ExpectSameAsOpenssl(c);
    }
}

TEST(VerifyTool, PrintsWhatOpensslPrintsAboutPythonResponses) {
    ASSERT_TRUE(HaveOpenssl());
    const PeerCase cases[] = {
        {"resp-py-name-rsa.der", "rsa", {"leaf"}, {}, "-no_nonce", 0},
        {"resp-py-key-rsa.der", "rsa", {"leaf00"}, {}, "-sha256 -no_nonce", 1},
        {"resp-py-name-ec.der",
         "ec",
         {"leaf20"},
         {"--CAfile", Pki("ec", "ocsp.pem")},
         "-sha256 -no_nonce",
         2},
        // Revoked without a reason: no Reason line.
        {"resp-py-key-ec.der", "ec", {"leaf00"}, {}, "-no_nonce", 1},
    };
    for (const PeerCase& c : cases) {
        ExpectSameAsOpenssl(c);
    }
}

TEST(VerifyTool, ReadsTheResponseAsDerPemOrBase64) {
    ASSERT_TRUE(HaveOpenssl());
    const std::string der = Ocsp("resp-revoked-rsa.der");
    std::string base64;
    ASSERT_EQ(RunCommand("openssl base64 -A -in " + der, &base64), 0);
    std::string lines;
    ASSERT_EQ(RunCommand("openssl base64 -in " + der, &lines), 0);
    const std::string pem = WriteTempFile(
        Text("-----BEGIN OCSP RESPONSE-----\n" + lines + "-----END OCSP RESPONSE-----\n"),
        "revoked.pem");
    const std::string leaf = Pki("rsa", "leaf00.pem");
    const std::string expected =
        Expected({leaf + ": revoked", "\tThis Update: 2026-11-23T06:34:39Z",
                  "\tNext Update: 2036-11-20T06:34:39Z", "\tReason: keyCompromise",
                  "\tRevocation Time: 2026-01-01T00:00:00Z", "Response verify OK"});
    for (const std::string& path : {der, pem, WriteTempFile(Text(base64), "revoked.b64")}) {
        SCOPED_TRACE(path);
        const ToolRun run = Verify(path, "rsa", {"leaf00"});
        EXPECT_EQ(run.exitCode, 1) << run.err;
        EXPECT_EQ(run.out, expected);
    }
}

TEST(VerifyTool, NamesEveryCheckThatFailsAndExitsThree) {
    const std::string leaf = Pki("rsa", "leaf.pem");
    const std::string responder = Pki("rsa", "ocsp.pem");
    const std::string good = Ocsp("resp-good-rsa.der");
    const std::vector<std::string> goodLines = {leaf + ": good",
                                                "\tThis Update: 2026-11-23T06:34:38Z",
                                                "\tNext Update: 2036-11-20T06:34:38Z"};
    const auto with = [](std::vector<std::string> lines, const std::vector<std::string>& more) {
        lines.insert(lines.end(), more.begin(), more.end());
        return Expected(lines);
    };
    // The same response without certificates, its last octet (in the signature) changed.
    Bytes bytes = ReadFile(Ocsp("resp-nocerts-rsa.der"));
    bytes.back() ^= 0x01;
    const std::string tampered = WriteTempFile(bytes, "tampered.der");

    struct Case {
        std::string what;
        std::string response;
        std::vector<std::string> options;
        std::string out;
        std::string issuer = Pki("rsa", "inter.pem");
    };
    const Case cases[] = {
        {"after nextUpdate and after the responder certificate expired",
         good,
         {"--at", "2037-01-01T00:00:00Z"},
         with(goodLines, {leaf + ": check failed: delegate-not-valid",
                          leaf + ": check failed: next-update-passed", "Response verify FAILED"})},
        {"after nextUpdate, the responder trusted",
         good,
         {"--at", "20370101000000Z", "--responder", responder},
         with(goodLines, {leaf + ": check failed: next-update-passed", "Response verify FAILED"})},
        {"301 seconds before thisUpdate: more than the default skew",
         good,
         {"--at", "2026-11-23T06:29:37Z", "--responder", responder},
         with(goodLines,
              {leaf + ": check failed: this-update-in-future", "Response verify FAILED"})},
        {"an issuer that issued neither the certificate nor the responder",
         good,
         {},
         Expected({leaf + ": check failed: delegate-not-issued-by-issuer",
                   leaf + ": check failed: no-entry", "Response verify FAILED"}),
         Pki("ec", "inter.pem")},
        {"a changed signature",
         tampered,
         {"--CAfile", responder},
         Expected({leaf + ": good", "\tThis Update: 2026-11-23T19:06:26Z",
                   "\tNext Update: 2036-11-20T19:06:26Z", leaf + ": check failed: signature",
                   "Response verify FAILED"})},
        {"no signer among the certificates",
         Ocsp("resp-nocerts-rsa.der"),
         {},
         Expected({leaf + ": good", "\tThis Update: 2026-11-23T19:06:26Z",
                   "\tNext Update: 2036-11-20T19:06:26Z", leaf + ": check failed: signer-not-found",
                   "Response verify FAILED"})},
        {"the nonce of another request",
         good,
         {"--reqin", Ocsp("req-two.der")},
         with(goodLines, {leaf + ": check failed: nonce-mismatch", "Response verify FAILED"})},
        {"no nonce in the response",
         Ocsp("resp-plain-rsa.der"),
         {"--reqin", Ocsp("req-nonce.der")},
         Expected({leaf + ": good", "\tThis Update: 2026-11-23T06:34:38Z",
                   "\tNext Update: 2036-11-20T06:34:38Z", leaf + ": check failed: nonce-missing",
                   "Response verify FAILED"})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<std::string> args{"verify", "--respin", c.response, "--issuer",
                                      c.issuer, "--cert",   leaf};
        args.insert(args.end(), c.options.begin(), c.options.end());
        const ToolRun run = RunTool(args);
        EXPECT_EQ(run.exitCode, 3) << run.err;
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out, c.out);
    }

    // The limits themselves pass: 299 seconds early is within the skew, and so is 301 with
    // a larger one.
    for (const std::vector<std::string>& options : std::vector<std::vector<std::string>>{
             {"--at", "2026-11-23T06:29:39Z"}, {"--at", "2026-11-23T06:29:37Z", "--skew", "301"}}) {
        std::vector<std::string> args = options;
        args.push_back("--responder");
        args.push_back(responder);
        const ToolRun run = Verify(good, "rsa", {"leaf"}, args);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.out, with(goodLines, {"Response verify OK"}));
    }
}

TEST(VerifyTool, AFailedCheckOutranksTheStatuses) {
    // Revoked, and a second certificate the response does not name.
    const std::string leaf00 = Pki("rsa", "leaf00.pem");
    const std::string foreign = Pki("ec", "leaf.pem");
    const ToolRun run = RunTool({"verify", "--respin", Ocsp("resp-revoked-rsa.der"), "--issuer",
                                 Pki("rsa", "inter.pem"), "--cert", leaf00, "--cert", foreign});
    EXPECT_EQ(run.exitCode, 3) << run.err;
    EXPECT_EQ(run.out, Expected({leaf00 + ": revoked", "\tThis Update: 2026-11-23T06:34:39Z",
                                 "\tNext Update: 2036-11-20T06:34:39Z", "\tReason: keyCompromise",
                                 "\tRevocation Time: 2026-01-01T00:00:00Z",
                                 foreign + ": check failed: no-entry", "Response verify FAILED"}));
}

TEST(VerifyTool, MaxAgeLimitsAnEntryWithoutNextUpdate) {
    ASSERT_TRUE(HaveOpenssl());
    // Our responder writes no nextUpdate unless told to.
    const std::string request = ScratchPath("max-age.req");
    ASSERT_EQ(RunRequest("rsa", {"leaf"}, request).exitCode, 0);
    const std::string response = ScratchPath("max-age.resp");
    const ToolRun answered =
        RunTool({"respond", "--index", Pki("rsa", "index.txt"), "--ca", Pki("rsa", "inter.pem"),
                 "--rsigner", Pki("rsa", "ocsp.pem"), "--rkey", Pki("rsa", "ocsp.key.pem"),
                 "--reqin", request, "--out", response});
    ASSERT_EQ(answered.exitCode, 0) << answered.err;
    const std::string status =
        WithIsoTimes(OpensslStatuses(response, "rsa", {"leaf"}, "-no_nonce"));
    ASSERT_EQ(status.find("Next Update"), std::string::npos) << status;

    const std::string inAnHour = IsoTime(std::time(nullptr) + 3600);
    const std::vector<std::string> base{"--reqin", request, "--at", inAnHour};
    const auto verify = [&](const std::vector<std::string>& more) {
        std::vector<std::string> options = base;
        options.insert(options.end(), more.begin(), more.end());
        return Verify(response, "rsa", {"leaf"}, options);
    };
    const ToolRun tooOld = verify({"--max-age", "60"});
    EXPECT_EQ(tooOld.exitCode, 3) << tooOld.err;
    EXPECT_EQ(tooOld.out, status + Pki("rsa", "leaf.pem") +
                              ": check failed: too-old\nResponse verify FAILED\n");
    for (const std::vector<std::string>& more :
         std::vector<std::vector<std::string>>{{}, {"--max-age", "7200"}}) {
        const ToolRun run = verify(more);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.out, status + "Response verify OK\n");
    }
}

TEST(VerifyTool, AnErrorStatusExitsFour) {
    struct Case {
        std::string hex;
        std::string said;
    };
    const Case cases[] = {
        {"30030a0101", "malformedRequest (1)"},
        {"30030a0103", "tryLater (3)"},
        {"30030a0106", "unauthorized (6)"},
        {"30030a0104", "4"}, // a value no status has
    };
    for (const Case& c : cases) {
        const std::string path = WriteTempFile(FromHex(c.hex), "status-" + c.hex + ".der");
        const ToolRun run = Verify(path, "rsa", {"leaf"});
        EXPECT_EQ(run.exitCode, 4) << c.hex;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "velmor-ocsp: " + path + ": the responder answered " + c.said + "\n");
    }
}

TEST(VerifyTool, SaysWhichFileIsWrong) {
    const std::string asn1 = "CRYPT_E_ASN1_INTERNAL (0x80093101)";
    const std::string inter = Pki("rsa", "inter.pem");
    const std::string leaf = Pki("rsa", "leaf.pem");
    const std::string good = Ocsp("resp-good-rsa.der");
    const std::string junk = WriteTempFile(FromHex("8d1f33c0e4a9016b77f2"), "v-junk.bin");
    const std::string junkText = WriteTempFile(Text("hello world junk\n"), "v-junk.txt");
    const std::string empty = WriteTempFile({}, "v-empty.der");
    const std::string missing = ScratchPath("v-missing.der");
    Bytes cutBytes = ReadFile(good);
    cutBytes.resize(cutBytes.size() / 2);
    const std::string cut = WriteTempFile(cutBytes, "v-cut.der");
    const std::string noBody = WriteTempFile(FromHex("30030a0100"), "v-no-body.der");
    const std::string otherType =
        WriteTempFile(FromHex("3010 0a0100 a00b 3009 06032a0304 0402 0500"), "v-other-type.der");
    const std::string badBasic = WriteTempFile(
        FromHex("3014 0a0100 a00f 300d 06092b0601050507300101 0400"), "v-bad-basic.der");
    const auto verify = [&](const std::string& response, const std::vector<std::string>& more) {
        std::vector<std::string> args{"verify", "--respin", response, "--issuer",
                                      inter,    "--cert",   leaf};
        args.insert(args.end(), more.begin(), more.end());
        return args;
    };
    const BadInput cases[] = {
        {verify(junk, {}), 5, junk + ": is not an OCSP response (" + asn1 + ")"},
        {verify(junkText, {}), 5, junkText + ": is not DER, PEM or valid base64"},
        {verify(empty, {}), 5, empty + ": is empty"},
        {verify(missing, {}), 5, missing + ": cannot open: No such file or directory"},
        {verify(cut, {}), 5, cut + ": is not an OCSP response (" + asn1 + ")"},
        {verify(Ocsp("req-nonce.der"), {}), 5,
         Ocsp("req-nonce.der") + ": is not an OCSP response (" + asn1 + ")"},
        {verify(leaf, {}), 5, leaf + ": holds a PEM \"CERTIFICATE\" block, not \"OCSP RESPONSE\""},
        {verify(noBody, {}), 5, noBody + ": is a successful OCSP response without a response body"},
        {verify(otherType, {}), 5,
         otherType + ": holds a response of type 1.2.3.4, not a basic OCSP response"},
        {verify(badBasic, {}), 5,
         badBasic + ": holds a basic response that does not decode (E_INVALIDARG (0x80070057))"},
        {verify(good, {"--reqin", good}), 5, good + ": is not an OCSP request (" + asn1 + ")"},
        {verify(good, {"--reqin", leaf}), 5,
         leaf + ": holds a PEM \"CERTIFICATE\" block, not \"OCSP REQUEST\""},
        {verify(good, {"--reqin", missing}), 5,
         missing + ": cannot open: No such file or directory"},
        {verify(good, {"--cert", cut}), 5, cut + ": is not an X.509 certificate (PEM or DER)"},
        {verify(good, {"--responder", Pki("rsa", "ocsp.key.pem")}), 5,
         Pki("rsa", "ocsp.key.pem") + ": holds a PEM \"PRIVATE KEY\" block, not \"CERTIFICATE\""},
        {verify(good, {"--CAfile", empty}), 5, empty + ": is empty"},
        // The files are read before the response: a missing one is no error status.
        {verify(WriteTempFile(FromHex("30030a0103"), "v-try-later.der"), {"--cert", missing}), 5,
         missing + ": cannot open: No such file or directory"},
    };
    for (const BadInput& c : cases) {
        ExpectOneLine(c);
    }
}

TEST(VerifyTool, BadCommandLinesAreUsageErrors) {
    const std::string inter = Pki("rsa", "inter.pem");
    const std::string leaf = Pki("rsa", "leaf.pem");
    const std::string good = Ocsp("resp-good-rsa.der");
    const auto verify = [&](const std::vector<std::string>& more) {
        std::vector<std::string> args{"verify", "--respin", good, "--issuer",
                                      inter,    "--cert",   leaf};
        args.insert(args.end(), more.begin(), more.end());
        return args;
    };
    const BadInput cases[] = {
        {{"verify", "--issuer", inter, "--cert", leaf},
         64,
         "--respin is required (see velmor-ocsp --help)"},
        {{"verify", "--respin", good, "--issuer", inter},
         64,
         "--cert is required (see velmor-ocsp --help)"},
        {verify({"--at", "tomorrow"}), 64,
         "--at: \"tomorrow\" is no time (2026-01-31T12:00:00Z or 20260131120000Z)"},
        {verify({"--at", "2026-02-30T00:00:00Z"}), 64,
         "--at: \"2026-02-30T00:00:00Z\" is no time (2026-01-31T12:00:00Z or 20260131120000Z)"},
        {verify({"--skew", "-1"}), 64,
         "--skew: Value -1 not in range 0 to 3162240000 (see velmor-ocsp --help)"},
        {verify({"--max-age", "soon"}), 64,
         "--max-age: Value soon not in range 0 to 3162240000 (see velmor-ocsp --help)"},
    };
    for (const BadInput& c : cases) {
        ExpectOneLine(c);
    }
}
