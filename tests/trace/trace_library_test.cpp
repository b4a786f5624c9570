// The trace as an administrator switches it on: a program linked against the shared library,
// run with its own registry file, writes (or does not write) the library's lines.
#include <array>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

namespace {

// The child's standard output and error together.
std::string RunChild(const std::string& registry, const std::string& argument = "") {
    const std::string command =
        "VELMOR_REGISTRY='" + registry + "' '" VELMOR_TRACE_CHILD "' " + argument + " 2>&1";
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        return output;
    }
    std::array<char, 512> buffer{};
    while (std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) {
        output += buffer.data();
    }
    EXPECT_EQ(pclose(pipe), 0);
    return output;
}

std::string WriteRegistry(const std::string& name, const std::string& values) {
    const std::string path = testing::TempDir() + name;
    std::ofstream(path) << "Windows Registry Editor Version 5.00\r\n\r\n"
                           "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmor\\Trace]\r\n"
                        << values;
    return path;
}

TEST(TraceInTheSharedLibrary, QuietWithoutSettings) {
    const std::string output = RunChild(testing::TempDir() + "no-such-registry.reg");
    EXPECT_EQ(output, "failed 80093101\n");
}

TEST(TraceInTheSharedLibrary, LevelOneNamesTheFailedElementAndOffset) {
    const std::string registry =
        WriteRegistry("trace-level1.reg", "\"libvelmor-ocsp.so.1\"=\"1\"\r\n");
    const std::string output = RunChild(registry);
    EXPECT_NE(output.find("velmor-ocsp: decode failed: CRYPT_E_ASN1_INTERNAL (0x80093101): "),
              std::string::npos)
        << output;
    EXPECT_NE(output.find("offset"), std::string::npos) << output;
    EXPECT_NE(output.find("failed 80093101\n"), std::string::npos);
    std::remove(registry.c_str());
}

TEST(TraceInTheSharedLibrary, LevelFourTracesEveryMessageWithFileAndLine) {
    const std::string registry = WriteRegistry(
        "trace-level4.reg", "\"libvelmor-ocsp.so.1\"=\"4\"\r\n\"ProcessFlags\"=dword:00000002\r\n");
    std::ifstream in(VELMOR_TEST_DATA_DIR "/ocsp/req-plain.der", std::ios::binary);
    const std::string request((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    ASSERT_FALSE(request.empty());
    std::string hex;
    for (unsigned char c : request) {
        hex += "0123456789abcdef"[c >> 4];
        hex += "0123456789abcdef"[c & 15];
    }
    const std::string output = RunChild(registry, hex);
    const std::string decoded = "decoded " + std::to_string(request.size()) + " octets";
    EXPECT_NE(output.find(decoded), std::string::npos) << output;
    EXPECT_NE(output.find("codec_frame.cpp:"), std::string::npos) << output; // file:line shown
    EXPECT_NE(output.find("decoded\n"), std::string::npos);
    std::remove(registry.c_str());
}

} // namespace
