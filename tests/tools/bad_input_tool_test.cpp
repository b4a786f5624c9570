// Every command on files that are not what they should be, and on bad command lines: one
// line on stderr that names the file and what was wrong, the documented exit code, never a
// crash.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/test_support.h"
#include "tools/tool_runner.h"

using namespace velmor_test;

namespace {

const std::string kAsn1 = "CRYPT_E_ASN1_INTERNAL (0x80093101)";
const std::string kBadKeyset = "NTE_BAD_KEYSET (0x80090016)";

struct Files {
    std::string junk = WriteTempFile(FromHex("8d1f33c0e4a9016b77f2"), "junk.bin");
    std::string junkText = WriteTempFile(Text("hello world junk\n"), "junk.txt");
    std::string empty = WriteTempFile({}, "empty.der");
    std::string missing = ScratchPath("missing.der");
    std::string response = DataPath("ocsp/resp-good-rsa.der");
    std::string request = DataPath("ocsp/req-plain.der");
    std::string cutResponse = Cut(response, "cut-response.der");
    std::string cutRequest = Cut(request, "cut-request.der");
    std::string cutCertificate = Cut(Pki("rsa", "leaf.der"), "cut-leaf.der");
    std::string cutKey = Cut(Pki("rsa", "client.key.der"), "cut-key.der");
    std::string cutPem = CutPem(Pki("rsa", "leaf.pem"), "cut-leaf.pem");
    std::string leafPem = Pki("rsa", "leaf.pem");
    std::string keyPem = Pki("rsa", "client.key.pem");
    std::string inter = Pki("rsa", "inter.pem");

    static std::string Cut(const std::string& path, const std::string& name) {
        Bytes bytes = ReadFile(path);
        bytes.resize(bytes.size() / 2);
        return WriteTempFile(bytes, name);
    }
    static std::string CutPem(const std::string& path, const std::string& name) {
        Bytes bytes = ReadFile(path);
        bytes.resize(bytes.size() - 30); // into the END line
        return WriteTempFile(bytes, name);
    }
};

std::vector<std::string> Respond(const std::string& option, const std::string& value) {
    std::vector<std::string> args{"respond",
                                  "--index",
                                  Pki("rsa", "index.txt"),
                                  "--ca",
                                  Pki("rsa", "inter.pem"),
                                  "--rsigner",
                                  Pki("rsa", "ocsp.pem"),
                                  "--rkey",
                                  Pki("rsa", "ocsp.key.pem"),
                                  "--reqin",
                                  DataPath("ocsp/req-plain.der"),
                                  "--out",
                                  ScratchPath("bad-input.resp")};
    for (std::size_t i = 0; i + 1 < args.size(); ++i) {
        if (args[i] == option) {
            args[i + 1] = value;
            return args;
        }
    }
    args.push_back(option);
    args.push_back(value);
    return args;
}

} // namespace

TEST(BadInputTool, ShowSaysWhatIsWrongWithTheFile) {
    const Files f;
    const std::string badBody =
        WriteTempFile(FromHex("3014 0a0100 a00f 300d 06092b0601050507300101 0400"), "bad-body.der");
    const BadInput cases[] = {
        {{"show", f.junk}, 5, f.junk + ": is not an OCSP request or response (" + kAsn1 + ")"},
        {{"show", f.junkText}, 5, f.junkText + ": is not DER, PEM or valid base64"},
        {{"show", f.empty}, 5, f.empty + ": is empty"},
        {{"show", f.missing}, 5, f.missing + ": cannot open: No such file or directory"},
        {{"show", "/"}, 5, "/: cannot read: Is a directory"},
        {{"show", f.cutResponse},
         5,
         f.cutResponse + ": is not an OCSP request or response (" + kAsn1 + ")"},
        {{"show", f.cutRequest},
         5,
         f.cutRequest + ": is not an OCSP request or response (" + kAsn1 + ")"},
        {{"show", f.cutPem},
         5,
         f.cutPem + ": PEM block \"CERTIFICATE\" has no END line (truncated?)"},
        {{"show", f.leafPem},
         5,
         f.leafPem +
             ": holds a PEM \"CERTIFICATE\" block, not \"OCSP REQUEST\" or \"OCSP RESPONSE\""},
        {{"show", f.keyPem},
         5,
         f.keyPem +
             ": holds a PEM \"PRIVATE KEY\" block, not \"OCSP REQUEST\" or \"OCSP RESPONSE\""},
        {{"show", Pki("rsa", "leaf.der")},
         5,
         Pki("rsa", "leaf.der") + ": is not an OCSP request or response (" + kAsn1 + ")"},
        {{"show", badBody},
         5,
         badBody + ": holds a basic response that does not decode (E_INVALIDARG (0x80070057))"},
    };
    for (const BadInput& c : cases) {
        ExpectOneLine(c);
    }
}

TEST(BadInputTool, RequestSaysWhichCertificateOrKeyIsWrong) {
    const Files f;
    const std::string out = ScratchPath("bad-input.req");
    const auto request = [&](const std::string& issuer, const std::string& cert) {
        return std::vector<std::string>{"request", "--issuer", issuer, "--cert",
                                        cert,      "--out",    out};
    };
    const auto signedRequest = [&](const std::string& key, const std::string& signer) {
        return std::vector<std::string>{"request", "--issuer",   f.inter, "--cert",
                                        f.leafPem, "--sign-key", key,     "--signer",
                                        signer,    "--out",      out};
    };
    const std::string notCertificate = ": is not an X.509 certificate (PEM or DER)";
    const std::string notKey = ": is not an unencrypted RSA or EC private key (" + kBadKeyset + ")";
    const BadInput cases[] = {
        {request(f.junk, f.leafPem), 5, f.junk + notCertificate},
        {request(f.inter, f.junkText), 5, f.junkText + ": is not DER, PEM or valid base64"},
        {request(f.inter, f.empty), 5, f.empty + ": is empty"},
        {request(f.inter, f.missing), 5, f.missing + ": cannot open: No such file or directory"},
        {request(f.inter, f.cutCertificate), 5, f.cutCertificate + notCertificate},
        {request(f.inter, f.cutPem), 5,
         f.cutPem + ": PEM block \"CERTIFICATE\" has no END line (truncated?)"},
        {request(f.inter, f.response), 5, f.response + notCertificate},
        {request(f.keyPem, f.leafPem), 5,
         f.keyPem + ": holds a PEM \"PRIVATE KEY\" block, not \"CERTIFICATE\""},
        {request(f.leafPem, f.inter), 5, f.inter + ": was not issued by " + f.leafPem},
        {request(Pki("ec", "inter.pem"), f.leafPem), 5,
         f.leafPem + ": was not issued by " + Pki("ec", "inter.pem")},
        {request(f.inter, Pki("rsa", "chain.pem")), 5,
         Pki("rsa", "chain.pem") + ": holds 2 certificates; exactly one was expected"},
        {signedRequest(f.leafPem, Pki("rsa", "client.pem")), 5, f.leafPem + notKey},
        {signedRequest(f.junk, Pki("rsa", "client.pem")), 5, f.junk + notKey},
        {signedRequest(f.cutKey, Pki("rsa", "client.pem")), 5, f.cutKey + notKey},
        {signedRequest(f.empty, Pki("rsa", "client.pem")), 5, f.empty + ": is empty"},
        {signedRequest(f.missing, Pki("rsa", "client.pem")), 5,
         f.missing + ": cannot open: No such file or directory"},
        {signedRequest(Pki("rsa", "leaf.key.pem"), Pki("rsa", "client.pem")), 5,
         Pki("rsa", "leaf.key.pem") + ": is not the key of the signer certificate " +
             Pki("rsa", "client.pem")},
        {signedRequest(Pki("ec", "client.key.pem"), Pki("rsa", "client.pem")), 5,
         Pki("ec", "client.key.pem") + ": is not the key of the signer certificate " +
             Pki("rsa", "client.pem")},
        {{"request", "--issuer", f.inter, "--cert", f.leafPem, "--out", "/nonexistent/dir/req.der"},
         5,
         "/nonexistent/dir/req.der: cannot create: No such file or directory"},
    };
    for (const BadInput& c : cases) {
        ExpectOneLine(c);
    }
}

TEST(BadInputTool, RespondSaysWhichFileIsWrong) {
    const Files f;
    int indexCount = 0;
    const auto index = [&indexCount](const std::string& text) {
        return WriteTempFile(Text(text), "index-" + std::to_string(++indexCount) + ".txt");
    };
    const std::string fiveFields = index("V\t361120063437Z\t\t1001\tunknown\n");
    const std::string badStatus = index(
        "V\t361120063437Z\t\t1001\tunknown\t/CN=a\nX\t361120063437Z\t\t1002\tunknown\t/CN=b\n");
    const std::string badTime =
        index("R\t361120063437Z\t2601010000Z,keyCompromise\t1001\tunknown\t/CN=a\n");
    const std::string badReason =
        index("R\t361120063437Z\t260101000000Z,stolen\t1001\tunknown\t/CN=a\n");
    const std::string badSerial = index("V\t361120063437Z\t\t10G1\tunknown\t/CN=a\n");
    const std::string notKey = ": is not an unencrypted RSA or EC private key (" + kBadKeyset + ")";
    const BadInput cases[] = {
        {Respond("--index", f.junkText), 5,
         f.junkText + ":1: not an OpenSSL CA index line (1 tab-separated fields, 6 expected)"},
        {Respond("--index", f.missing), 5, f.missing + ": cannot open: No such file or directory"},
        {Respond("--index", fiveFields), 5,
         fiveFields + ":1: not an OpenSSL CA index line (5 tab-separated fields, 6 expected)"},
        {Respond("--index", badStatus), 5, badStatus + ":2: status \"X\" is not V, R or E"},
        {Respond("--index", badTime), 5,
         badTime + ":1: revocation time \"2601010000Z\" is not YYMMDDHHMMSSZ"},
        {Respond("--index", badReason), 5,
         badReason + ":1: revocation reason \"stolen\" is not known"},
        {Respond("--index", badSerial), 5, badSerial + ":1: serial number \"10G1\" is not hex"},
        {Respond("--ca", f.request), 5, f.request + ": is not an X.509 certificate (PEM or DER)"},
        {Respond("--ca", f.empty), 5, f.empty + ": is empty"},
        {Respond("--rsigner", f.cutCertificate), 5,
         f.cutCertificate + ": is not an X.509 certificate (PEM or DER)"},
        {Respond("--rkey", f.leafPem), 5, f.leafPem + notKey},
        {Respond("--rkey", f.cutKey), 5, f.cutKey + notKey},
        {Respond("--rkey", Pki("ec", "ocsp.key.pem")), 5,
         Pki("ec", "ocsp.key.pem") + ": is not the key of the responder certificate " +
             Pki("rsa", "ocsp.pem")},
        {Respond("--rother", f.keyPem), 5,
         f.keyPem + ": holds a PEM \"PRIVATE KEY\" block, not \"CERTIFICATE\""},
        {Respond("--reqin", f.missing), 5, f.missing + ": cannot open: No such file or directory"},
    };
    for (const BadInput& c : cases) {
        ExpectOneLine(c);
    }
}

TEST(BadInputTool, RespondAnswersMalformedRequestForARequestItCannotRead) {
    const Files f;
    const std::string emptyList = WriteTempFile(FromHex("3004 3002 3000"), "empty-list.der");
    const BadInput cases[] = {
        {Respond("--reqin", f.junk), 4,
         f.junk + ": is not an OCSP request (" + kAsn1 + "); answered malformedRequest"},
        {Respond("--reqin", f.junkText), 4,
         f.junkText + ": is not DER, PEM or valid base64; answered malformedRequest"},
        {Respond("--reqin", f.empty), 4, f.empty + ": is empty; answered malformedRequest"},
        {Respond("--reqin", f.cutRequest), 4,
         f.cutRequest + ": is not an OCSP request (" + kAsn1 + "); answered malformedRequest"},
        {Respond("--reqin", f.response), 4,
         f.response + ": is not an OCSP request (" + kAsn1 + "); answered malformedRequest"},
        {Respond("--reqin", f.leafPem), 4,
         f.leafPem + ": holds a PEM \"CERTIFICATE\" block, not \"OCSP REQUEST\"; answered "
                     "malformedRequest"},
        {Respond("--reqin", emptyList), 4,
         emptyList + ": asks about no certificate; answered malformedRequest"},
    };
    for (const BadInput& c : cases) {
        ExpectOneLine(c);
        EXPECT_EQ(ToHex(ReadFile(c.args[12])), "30030a0101"); // what --out names
    }
}

TEST(BadInputTool, BadCommandLinesAreUsageErrors) {
    const std::string out = ScratchPath("usage.der");
    const std::string leaf = Pki("rsa", "leaf.pem");
    const std::string inter = Pki("rsa", "inter.pem");
    const BadInput cases[] = {
        {{}, 64, "A subcommand is required (see velmor-ocsp --help)"},
        {{"request", "--cert", leaf, "--out", out},
         64,
         "--issuer is required (see velmor-ocsp --help)"},
        {{"request", "--issuer", inter, "--cert", leaf, "--out", out, "--hash", "md5"},
         64,
         "--hash: md5 not in {sha1,sha256,sha384,sha512} (see velmor-ocsp --help)"},
        {{"request", "--issuer", inter, "--cert", leaf, "--out", out, "--pem", "--base64"},
         64,
         "--pem excludes --base64 (see velmor-ocsp --help)"},
        {{"request", "--issuer", inter, "--cert", leaf, "--out", out, "--sign-key", leaf},
         64,
         "--sign-key requires --signer (see velmor-ocsp --help)"},
        {{"request", "--issuer", inter, "--cert", leaf, "--out", out, "--frob"},
         64,
         "The following argument was not expected: --frob (see velmor-ocsp --help)"},
        {Respond("--next-update", "soon"), 64,
         "--next-update: Value soon not in range 0 to 36500 (see velmor-ocsp --help)"},
        {Respond("--next-update", "40000"), 64,
         "--next-update: Value 40000 not in range 0 to 36500 (see velmor-ocsp --help)"},
        {{"show"}, 64, "FILE is required (see velmor-ocsp --help)"},
    };
    for (const BadInput& c : cases) {
        ExpectOneLine(c);
    }
}

TEST(BadInputTool, HelpListsTheExitCodes) {
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{"--help"},
                                               {"request", "--help"},
                                               {"respond", "--help"},
                                               {"show", "--help"},
                                               {"verify", "--help"},
                                               {"query", "--help"},
                                               {"serve", "--help"},
                                               {"presign", "--help"}}) {
        const ToolRun run = RunTool(args);
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_NE(run.out.find("Exit codes:\n"
                               "  0   every certificate good and every check passed\n"
                               "  1   some certificate revoked\n"
                               "  2   some certificate unknown, none revoked\n"
                               "  3   a check failed\n"
                               "  4   the responder answered with an error status\n"),
                  std::string::npos)
            << run.out;
        EXPECT_NE(run.out.find("  64  usage error\n"), std::string::npos) << run.out;
    }
}
