// The trace as an administrator switches it on: a program linked against the shared library,
// run with its own registry file, writes (or does not write) the library's lines. Every file
// a test writes lives in a directory of its own process, as ctest runs tests in parallel.
#include <array>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>

#include "support/test_support.h"

namespace {

using velmor_test::Bytes;
using velmor_test::Cat;
using velmor_test::DataPath;
using velmor_test::FromHex;
using velmor_test::Tlv;
using velmor_test::WriteTempFile;

// What the child wrote: its report (standard output) and the library's lines (standard
// error), apart.
struct ChildOutput {
    std::string report;
    std::string trace;
};

std::string ReadText(const std::string& path) {
    const Bytes bytes = velmor_test::ReadFile(path);
    return std::string(bytes.begin(), bytes.end());
}

ChildOutput RunChild(const std::string& registry, const std::string& arguments = "") {
    const std::string errors = WriteTempFile({}, "child-stderr.txt");
    const std::string command = "VELMOR_REGISTRY='" + registry + "' '" VELMOR_TRACE_CHILD "' " +
                                arguments + " 2>'" + errors + "'";
    ChildOutput output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot run " << command;
        return output;
    }
    std::array<char, 512> buffer{};
    while (std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) {
        output.report += buffer.data();
    }
    EXPECT_EQ(pclose(pipe), 0);
    output.trace = ReadText(errors);
    return output;
}

// A registry file of that name whose trace key holds values (regedit lines).
std::string Registry(const std::string& values, const std::string& name = "registry.reg") {
    const std::string text = "Windows Registry Editor Version 5.00\r\n\r\n"
                             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmor\\Trace]\r\n" +
                             values;
    return WriteTempFile(Bytes(text.begin(), text.end()), name);
}

std::string RegistryAtLevel(char level) {
    return Registry(std::string("\"libvelmor-ocsp.so.1\"=\"") + level + "\"\r\n",
                    std::string("level") + level + ".reg");
}

// ---- Inputs built here, so that each test knows where its fault lies.

const Bytes kSha1CertIdStart = FromHex("3009 06052b0e03021a 0500 0401aa 0401bb");
const Bytes kThisUpdate = FromHex("180f 32303236303130323033303430355a"); // 2026-01-02T03:04:05Z
const Bytes kSignatureAlgorithm = FromHex("300a 06082a8648ce3d040302");
const Bytes kSignature = FromHex("0303 00abcd");

// A request for two certificates, the second CertID with serial (an element) as given.
Bytes TwoEntryRequest(const Bytes& secondSerial) {
    const Bytes first = Tlv(0x30, Tlv(0x30, Cat({kSha1CertIdStart, FromHex("020101")})));
    const Bytes second = Tlv(0x30, Tlv(0x30, Cat({kSha1CertIdStart, secondSerial})));
    return Tlv(0x30, Tlv(0x30, Tlv(0x30, Cat({first, second}))));
}

// A basic response by key with two entries (serials 1 and 2), the second with certStatus and
// thisUpdate (elements) as given.
Bytes TwoEntryResponse(const Bytes& secondStatus, const Bytes& secondThisUpdate) {
    const Bytes first = Tlv(0x30, Cat({Tlv(0x30, Cat({kSha1CertIdStart, FromHex("020101")})),
                                       FromHex("8000"), kThisUpdate}));
    const Bytes second = Tlv(0x30, Cat({Tlv(0x30, Cat({kSha1CertIdStart, FromHex("020102")})),
                                        secondStatus, secondThisUpdate}));
    const Bytes tbs =
        Tlv(0x30, Cat({FromHex("a204 0402 0102"), kThisUpdate, Tlv(0x30, Cat({first, second}))}));
    return Tlv(0x30, Cat({tbs, kSignatureAlgorithm, kSignature}));
}

const char* const kDecodeFailed = "failed 80093101\n";

// ---- Failures of public members: one level-1 line each

TEST(TraceFailureLine, BasicResponseDecodeNamesPathOffsetAndReason) {
    const Bytes status = FromHex("8300"); // [3]: none of good, revoked, unknown
    const Bytes input = TwoEntryResponse(status, kThisUpdate);
    // Everything after the bad certStatus: its own two octets, then thisUpdate and the
    // signature fields.
    const std::size_t offset =
        input.size() - Cat({status, kThisUpdate, kSignatureAlgorithm, kSignature}).size();
    ASSERT_EQ(input.at(offset), 0x83);

    const ChildOutput output =
        RunChild(RegistryAtLevel('1'), "basic '" + WriteTempFile(input, "response.der") + "'");
    EXPECT_EQ(output.report, kDecodeFailed);
    EXPECT_EQ(output.trace, "velmor-ocsp: CBasicResponse::decode: CRYPT_E_ASN1_INTERNAL "
                            "(0x80093101) at tbsResponseData.responses[1].certStatus, offset " +
                                std::to_string(offset) +
                                ": RTERR_IDNOTFOU: CertStatus: unknown choice in SingleResponse, "
                                "unexpected tag 0x83\n");
}

TEST(TraceFailureLine, RequestDecodeNamesPathOffsetAndReason) {
    const Bytes serial = FromHex("040102"); // an OCTET STRING where the INTEGER belongs
    const Bytes input = TwoEntryRequest(serial);
    const std::size_t offset = input.size() - serial.size();

    const ChildOutput output =
        RunChild(RegistryAtLevel('1'), "request '" + WriteTempFile(input, "request.der") + "'");
    EXPECT_EQ(output.report, kDecodeFailed);
    EXPECT_EQ(output.trace, "velmor-ocsp: CRequestMessage::decode: CRYPT_E_ASN1_INTERNAL "
                            "(0x80093101) at tbsRequest.requestList[1].reqCert.serialNumber, "
                            "offset " +
                                std::to_string(offset) +
                                ": RTERR_IDNOTFOU: INTEGER in CertID, unexpected tag 0x04\n");
}

TEST(TraceFailureLine, InputCutShortHasNoFieldToName) {
    // 30 03 02 01: the outermost SEQUENCE claims more octets than follow.
    const ChildOutput output = RunChild(RegistryAtLevel('1'));
    EXPECT_EQ(output.report, kDecodeFailed);
    EXPECT_EQ(output.trace, "velmor-ocsp: CRequestMessage::decode: CRYPT_E_ASN1_INTERNAL "
                            "(0x80093101) at offset 0: RTERR_ENDOFBUF: element overruns its "
                            "parent\n");
}

TEST(TraceFailureLine, NestedMemberFailureIsOneLineOfTheOuterMember) {
    // Month 13 passes the decoder's character check; the CDateTime that the basic response
    // converts thisUpdate with refuses it, inside CBasicResponse::decode.
    const Bytes badTime = FromHex("180f 32303236313330323033303430355a");
    const std::string path =
        WriteTempFile(TwoEntryResponse(FromHex("8000"), badTime), "response.der");
    const std::string registry = RegistryAtLevel('1');

    const ChildOutput nested = RunChild(registry, "basic '" + path + "'");
    EXPECT_EQ(nested.report, kDecodeFailed);
    EXPECT_EQ(nested.trace,
              "velmor-ocsp: CBasicResponse::decode: CRYPT_E_ASN1_INTERNAL (0x80093101)\n");

    // Called on its own, the inner member writes its own line.
    const ChildOutput alone = RunChild(registry, "datetime 20261302030405Z");
    EXPECT_EQ(alone.report, kDecodeFailed);
    EXPECT_EQ(alone.trace,
              "velmor-ocsp: CDateTime::CDateTime: CRYPT_E_ASN1_INTERNAL (0x80093101)\n");
}

// ---- Signatures that do not match: level 2

TEST(TraceVerifyLine, MismatchIsWrittenAtLevelTwoOnly) {
    const std::string response = "'" + DataPath("ocsp/resp-good-rsa.der") + "'";
    const std::string request = "'" + DataPath("ocsp/req-signed-rsa.der") + "'";
    const std::string stranger = " '" + DataPath("pki/rsa/leaf.der") + "'";

    const std::string levelTwo = RegistryAtLevel('2');
    const ChildOutput basic = RunChild(levelTwo, "verify-basic " + response + stranger);
    EXPECT_EQ(basic.report, "verified false\n");
    EXPECT_EQ(basic.trace, "velmor-ocsp: CBasicResponse::verify: the signature does not match\n");
    const ChildOutput signedRequest = RunChild(levelTwo, "verify-request " + request + stranger);
    EXPECT_EQ(signedRequest.report, "verified false\n");
    EXPECT_EQ(signedRequest.trace,
              "velmor-ocsp: CRequestMessage::verify: the signature does not match\n");

    // The signers' own certificates match: nothing to say.
    const ChildOutput good =
        RunChild(levelTwo, "verify-basic " + response + " '" + DataPath("pki/rsa/ocsp.der") + "'");
    EXPECT_EQ(good.report, "verified true\n");
    EXPECT_EQ(good.trace, "");

    // A mismatch is an outcome, not an error: level 1 does not show it.
    const ChildOutput levelOne =
        RunChild(RegistryAtLevel('1'), "verify-basic " + response + stranger);
    EXPECT_EQ(levelOne.report, "verified false\n");
    EXPECT_EQ(levelOne.trace, "");
}

// ---- Switched off

TEST(TraceSwitchedOff, NothingWithoutRegistryAtLevelZeroOrDisabled) {
    const std::string failing =
        "basic '" + WriteTempFile(TwoEntryResponse(FromHex("8300"), kThisUpdate), "bad.der") + "'";
    const std::string mismatch = "verify-basic '" + DataPath("ocsp/resp-good-rsa.der") + "' '" +
                                 DataPath("pki/rsa/leaf.der") + "'";
    const std::string registries[] = {
        testing::TempDir() + "velmor-no-such-registry.reg",
        RegistryAtLevel('0'),
        // The key without the module's value: the module is disabled.
        Registry("\"ProcessFlags\"=dword:00000003\r\n", "flags-only.reg"),
    };
    for (const std::string& registry : registries) {
        const ChildOutput failed = RunChild(registry, failing);
        EXPECT_EQ(failed.report, kDecodeFailed) << registry;
        EXPECT_EQ(failed.trace, "") << registry;
        const ChildOutput mismatched = RunChild(registry, mismatch);
        EXPECT_EQ(mismatched.report, "verified false\n") << registry;
        EXPECT_EQ(mismatched.trace, "") << registry;
    }
}

// ---- Level 4

TEST(TraceMessageSizes, LevelFourTracesEveryMessageWithFileAndLine) {
    const std::string registry =
        Registry("\"libvelmor-ocsp.so.1\"=\"4\"\r\n\"ProcessFlags\"=dword:00000002\r\n");
    const Bytes request = velmor_test::ReadData("ocsp/req-plain.der");
    ASSERT_FALSE(request.empty());
    const ChildOutput output =
        RunChild(registry, "request '" + DataPath("ocsp/req-plain.der") + "'");
    EXPECT_EQ(output.report, "decoded\n");
    const std::string decoded = "decoded " + std::to_string(request.size()) + " octets\n";
    EXPECT_NE(output.trace.find(decoded), std::string::npos) << output.trace;
    EXPECT_NE(output.trace.find("codec_frame.cpp:"), std::string::npos) << output.trace;
}

} // namespace
