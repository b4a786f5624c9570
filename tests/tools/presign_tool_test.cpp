// velmor-ocsp presign: one file per certificate of the index, which openssl verifies, named by
// the GET path of the very request openssl sends without a nonce, and answered the same way
// by serve.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "support/test_support.h"
#include "tools/http_peer.h"
#include "tools/tool_runner.h"

using namespace velmor_test;

namespace {

ToolRun Presign(const std::string& family, const std::string& out,
                const std::vector<std::string>& more = {}) {
    std::vector<std::string> args{"presign"};
    for (const std::string& arg : ServeArgs(family, more)) {
        args.push_back(arg);
    }
    args.push_back("--out");
    args.push_back(out);
    return RunTool(args);
}

struct IndexEntry {
    std::string serial;
    std::string status;
};
const std::vector<IndexEntry> kEntries = {
    {"1001", "good"},
    {"2001", "good"},
    {"7E1D2C3B4A59687786950A1B2C3D4E5F60718293", "good"},
    {"8F3A5C11D2", "revoked"},
};

} // namespace

TEST(PresignTool, WritesOneAnswerPerIndexEntryNamedByItsGetPath) {
    ASSERT_TRUE(HaveOpenssl());
    for (const std::string family : {"rsa", "ec"}) {
        SCOPED_TRACE(family);
        const std::string out = ScratchPath("presigned-" + family);
        const ToolRun run = Presign(family, out, {"--next-update", "2"});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(run.err, "");
        std::vector<std::string> expectedLines;
        for (const IndexEntry& entry : kEntries) {
            SCOPED_TRACE(entry.serial);
            // The request openssl sends about the serial without a nonce: its GET path names
            // the file.
            const std::string request = ScratchPath("openssl-" + entry.serial + ".der");
            ASSERT_EQ(RunCommand("openssl ocsp -issuer " + Pki(family, "inter.pem") +
                                 " -serial 0x" + entry.serial + " -no_nonce -reqout " + request +
                                 " >/dev/null"),
                      0);
            const std::string name = GetPathOf(ReadFile(request)).substr(1);
            expectedLines.push_back(entry.serial + " " + name);
            const std::string file = out + "/" + name;
            ASSERT_TRUE(std::filesystem::is_regular_file(file)) << file;

            const std::string errPath = ScratchPath("presign-openssl.err");
            std::string text;
            EXPECT_EQ(RunCommand("openssl ocsp -respin '" + file + "' -VAfile " +
                                     Pki(family, "ocsp.pem") + " -issuer " +
                                     Pki(family, "inter.pem") + " -serial 0x" + entry.serial +
                                     " -no_nonce 2>" + errPath,
                                 &text),
                      0)
                << text;
            const Bytes err = ReadFile(errPath);
            EXPECT_EQ(std::string(err.begin(), err.end()), "Response verify OK\n");
            EXPECT_NE(text.find(": " + entry.status + "\n"), std::string::npos) << text;

            const ResponseFacts facts = ReadResponse(ReadFile(file), family);
            EXPECT_TRUE(facts.verified);
            EXPECT_EQ(facts.entries, (std::vector<std::pair<std::string, std::string>>{
                                         {entry.serial, entry.status}}));
            ASSERT_TRUE(facts.nextUpdate);
            EXPECT_EQ(*facts.nextUpdate - facts.thisUpdate, 2 * 86400);
            // A static server's Last-Modified is the file's time: thisUpdate.
            struct stat status {};
            ASSERT_EQ(::stat(file.c_str(), &status), 0);
            EXPECT_EQ(status.st_mtime, facts.thisUpdate);
        }
        EXPECT_EQ(Lines(run.out), expectedLines);
        std::size_t files = 0;
        for ([[maybe_unused]] const auto& file : std::filesystem::directory_iterator(out)) {
            ++files;
        }
        EXPECT_EQ(files, kEntries.size()); // and no partial file left behind
    }
}

TEST(PresignTool, ServeAnswersTheSamePathsAndPresignReplacesItsFiles) {
    const std::string out = ScratchPath("presigned-again");
    ASSERT_EQ(Presign("ec", out).exitCode, 0);
    const ToolRun again = Presign("ec", out);
    ASSERT_EQ(again.exitCode, 0) << again.err;
    // The name of leaf's file, from the list presign prints.
    const std::string line = Lines(again.out).front();
    ASSERT_EQ(line.rfind("1001 ", 0), 0u) << line;
    const std::string path = "/" + line.substr(5);
    const ResponseFacts presigned = ReadResponse(ReadFile(out + path), "ec");

    ServerProcess server(ServeArgs("ec"));
    ASSERT_NE(server.port(), 0);
    HttpConnection connection(server.port());
    const HttpReply reply = connection.exchange(Get(path));
    ASSERT_EQ(reply.status, 200);
    const ResponseFacts served = ReadResponse(reply.body, "ec");
    EXPECT_TRUE(served.verified);
    EXPECT_EQ(served.entries, presigned.entries);
    EXPECT_EQ(server.stop(SIGTERM), 0);
}

TEST(PresignTool, RefusesWhatCannotWork) {
    const std::string file = WriteTempFile(Text("x"), "presign-not-a-directory");
    const ToolRun onFile = Presign("rsa", file);
    EXPECT_EQ(onFile.exitCode, 5);
    EXPECT_EQ(onFile.err,
              "velmor-ocsp: " + file + ": cannot create the directory: Not a directory\n");
    const ToolRun noNextUpdate =
        Presign("rsa", ScratchPath("presign-zero"), {"--next-update", "0"});
    EXPECT_EQ(noNextUpdate.exitCode, 64);
    EXPECT_EQ(noNextUpdate.err,
              "velmor-ocsp: --next-update: presigned answers need one day or more\n");
    const ToolRun wrongKey =
        RunTool({"presign", "--index", Pki("rsa", "index.txt"), "--ca", Pki("rsa", "inter.pem"),
                 "--rsigner", Pki("rsa", "ocsp.pem"), "--rkey", Pki("ec", "ocsp.key.pem"), "--out",
                 ScratchPath("presign-key")});
    EXPECT_EQ(wrongKey.exitCode, 5);
    EXPECT_EQ(wrongKey.err, "velmor-ocsp: " + Pki("ec", "ocsp.key.pem") +
                                ": is not the key of the responder certificate " +
                                Pki("rsa", "ocsp.pem") + "\n");
}
