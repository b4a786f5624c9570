// The outer OCSP response against real peers: responses written by `openssl ocsp` acting as
// a responder pass through CResponseMessage unchanged, and the responses we encode are
// read back by the openssl command and by Python's cryptography package.
#include <gtest/gtest.h>
#include <pki/ocsp/response_message.h>

#include <string>

#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::PKI::OCSP;
using velmor_test::Bytes;
using velmor_test::ReadData;
using velmor_test::RunCommand;
using velmor_test::ToHex;
using velmor_test::WriteTempFile;

namespace {

constexpr const char* kBasicType = "1.3.6.1.5.5.7.48.1.1";

const char* const kOpensslResponses[] = {
    "ocsp/resp-good-rsa.der",    "ocsp/resp-plain-rsa.der",   "ocsp/resp-two-rsa.der",
    "ocsp/resp-revoked-rsa.der", "ocsp/resp-unknown-rsa.der", "ocsp/resp-sha256-rsa.der",
    "ocsp/resp-ec.der",          "ocsp/resp-keyid-ec.der",
};

std::string HexOf(const CBlob& blob) { return ToHex(blob.pbData(), blob.cbData()); }

Bytes BytesOf(const CBlob& blob) { return Bytes(blob.pbData(), blob.pbData() + blob.cbData()); }

// The length in the header of the DER element that starts at data[0].
std::size_t ContentLength(const std::uint8_t* data, std::size_t* headerSize) {
    if ((data[1] & 0x80) == 0) {
        *headerSize = 2;
        return data[1];
    }
    const std::size_t count = data[1] & 0x7f;
    std::size_t length = 0;
    for (std::size_t i = 0; i < count; ++i) {
        length = (length << 8) | data[2 + i];
    }
    *headerSize = 2 + count;
    return length;
}

TEST(ResponseMessagePeers, OpensslResponsesPassThroughUnchanged) {
    for (const char* path : kOpensslResponses) {
        const Bytes der = ReadData(path);
        CResponseMessage message;
        message.decode(CBlob(der));
        EXPECT_EQ(message.get_responseStatus(), successful) << path;
        ASSERT_NE(message.get_responseType(), nullptr) << path;
        EXPECT_STREQ(message.get_responseType(), kBasicType) << path;
        ASSERT_NE(message.get_response(), nullptr) << path;

        // The body is the BasicOCSPResponse SEQUENCE, the last element of the message.
        const CBlob& body = *message.get_response();
        std::size_t header = 0;
        ASSERT_GT(body.cbData(), 4u);
        EXPECT_EQ(body.pbData()[0], 0x30) << path;
        EXPECT_EQ(ContentLength(body.pbData(), &header) + header, body.cbData()) << path;
        EXPECT_EQ(ToHex(der.data() + der.size() - body.cbData(), body.cbData()), HexOf(body))
            << path;

        EXPECT_EQ(HexOf(message.encode()), ToHex(der)) << path;
    }
}

TEST(ResponseMessagePeers, OpensslReadsOurErrorResponses) {
    ASSERT_TRUE(velmor_test::HaveOpenssl());
    const struct {
        ResponseStatus status;
        const char* text;
    } cases[] = {
        {malformedRequest, "malformedrequest (1)"},
        {internalError, "internalerror (2)"},
        {tryLater, "trylater (3)"},
        {sigRequired, "sigrequired (5)"},
        {unauthorized, "unauthorized (6)"},
    };
    for (const auto& c : cases) {
        CResponseMessage message;
        message.put_responseStatus(c.status);
        const std::string file = WriteTempFile(BytesOf(message.encode()), "error.der");
        std::string output;
        RunCommand("openssl ocsp -respin " + file + " -resp_text 2>&1", &output);
        EXPECT_NE(output.find(std::string("Responder Error: ") + c.text), std::string::npos)
            << output;
    }
}

TEST(ResponseMessagePeers, OpensslVerifiesAResponseWeReencoded) {
    ASSERT_TRUE(velmor_test::HaveOpenssl());
    CResponseMessage original;
    original.decode(CBlob(ReadData("ocsp/resp-revoked-rsa.der")));
    CResponseMessage rebuilt;
    rebuilt.put_response(original.get_responseType(), original.get_response());
    rebuilt.put_responseStatus(successful);

    const std::string file = WriteTempFile(BytesOf(rebuilt.encode()), "revoked.der");
    std::string output;
    const int status = RunCommand("openssl ocsp -respin " + file + " -CAfile " +
                                      velmor_test::DataPath("pki/rsa/chain.pem") + " -issuer " +
                                      velmor_test::DataPath("pki/rsa/inter.pem") + " -cert " +
                                      velmor_test::DataPath("pki/rsa/leaf00.pem") + " 2>&1",
                                  &output);
    EXPECT_EQ(status, 0) << output;
    EXPECT_NE(output.find("Response verify OK"), std::string::npos) << output;
    EXPECT_NE(output.find("revoked"), std::string::npos) << output;
}

TEST(ResponseMessagePeers, PythonCryptographyReadsOurResponses) {
    ASSERT_TRUE(velmor_test::HavePythonCryptography());
    CResponseMessage good;
    good.decode(CBlob(ReadData("ocsp/resp-ec.der")));
    CResponseMessage later;
    later.put_responseStatus(tryLater);
    const std::string goodFile = WriteTempFile(BytesOf(good.encode()), "good.der");
    const std::string laterFile = WriteTempFile(BytesOf(later.encode()), "later.der");

    const std::string script = "import sys\n"
                               "from cryptography.x509 import ocsp\n"
                               "for path in sys.argv[1:]:\n"
                               "    r = ocsp.load_der_ocsp_response(open(path, 'rb').read())\n"
                               "    if r.response_status == ocsp.OCSPResponseStatus.SUCCESSFUL:\n"
                               "        serials = [s.serial_number for s in r.responses]\n"
                               "        print(r.response_status.name, *serials)\n"
                               "    else:\n"
                               "        print(r.response_status.name)\n";
    const std::string scriptFile = WriteTempFile(Bytes(script.begin(), script.end()), "read.py");
    std::string output;
    const int status = RunCommand(velmor_test::Python() + " " + scriptFile + " " + goodFile + " " +
                                      laterFile + " 2>&1",
                                  &output);
    EXPECT_EQ(status, 0) << output;
    // resp-ec.der answers for the EC leaf (serial 0x1001) and leaf00 (0x8F3A5C11D2).
    EXPECT_EQ(output, "SUCCESSFUL 4097 615159435730\nTRY_LATER\n");
}

} // namespace
