// Helpers shared by the test suites: fixture files, hex text and HRESULT assertions.
#ifndef VELMOR_TESTS_SUPPORT_TEST_SUPPORT_H
#define VELMOR_TESTS_SUPPORT_TEST_SUPPORT_H

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/blob.h>
#include <string>
#include <string_view>
#include <vector>

namespace velmor_test {

using Bytes = std::vector<std::uint8_t>;

// Absolute path of a file below tests/data.
std::string DataPath(std::string_view relative);

// The whole content of a file; fails the test (and returns empty) when it cannot be read.
Bytes ReadFile(const std::string& path);
Bytes ReadData(std::string_view relative);

// Lower-case hex without separators, and back (spaces in the input are ignored).
std::string ToHex(const std::uint8_t* data, std::size_t size);
std::string ToHex(const Bytes& bytes);
Bytes FromHex(std::string_view hex);

// The same for a CBlob.
std::string HexOf(const Velmor::CBlob& blob);
Velmor::CBlob BlobOf(std::string_view hex);

// Octets built from pieces: their concatenation, the octets of a text, and one DER element
// (tag, minimal definite length, contents).
Bytes Cat(std::initializer_list<Bytes> parts);
Bytes Text(std::string_view text);
Bytes Tlv(std::uint8_t tag, const Bytes& contents);

// Runs a shell command; returns its exit status and fills its standard output.
int RunCommand(const std::string& command, std::string* output = nullptr);

// Writes bytes to a new file in a directory of this test process (removed when the process
// ends) and returns its path.
std::string WriteTempFile(const Bytes& bytes, std::string_view name);

// Peers: success when the program can be run; otherwise a failure that says which Debian
// package to install. A peer test asserts this first, so a missing peer fails the test.
::testing::AssertionResult HaveOpenssl();
::testing::AssertionResult HavePythonCryptography();

// The command prefix that runs the Python interpreter the build found.
std::string Python();

// OpenSSL's verdict on the signature of a DER request, with the signer's DER certificate
// given (the signature only, not the certificate's chain); false for bytes OpenSSL does not
// read as a request or certificate.
bool OpensslVerifiesRequest(const Velmor::CBlob& request, const Velmor::CBlob& signer);

} // namespace velmor_test

namespace velmor_test {
// Success when body throws ATL::CAtlException holding expected; a failure that says what
// happened otherwise.
::testing::AssertionResult ThrowsHResult(const std::function<void()>& body, std::uint32_t expected);
} // namespace velmor_test

// Expects that a statement throws ATL::CAtlException holding the given HRESULT. More text
// can be streamed into it, as into any EXPECT_ macro.
#define EXPECT_HRESULT_THROW(statement, expected)                                                  \
    EXPECT_TRUE(                                                                                   \
        ::velmor_test::ThrowsHResult([&] { statement; }, static_cast<std::uint32_t>(expected)))    \
        << #statement

#endif
