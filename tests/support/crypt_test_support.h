// Assertions for the CryptoAPI layer, which reports failures as FALSE and a last error.
#ifndef VELMOR_TESTS_SUPPORT_CRYPT_TEST_SUPPORT_H
#define VELMOR_TESTS_SUPPORT_CRYPT_TEST_SUPPORT_H

#include "platform/crypt_api.h"

#include <gtest/gtest.h>
#include <string>

#include "support/test_support.h"

namespace velmor_test {

// A call that must fail with the given last error (an HRESULT or a Win32 error).
template <class Code>
::testing::AssertionResult FailsWith(Velmor::Win32::BOOL result, Code expected) {
    const auto wanted = static_cast<Velmor::Win32::DWORD>(expected);
    const Velmor::Win32::DWORD error = Velmor::Win32::GetLastError();
    if (result) {
        return ::testing::AssertionFailure() << "succeeded";
    }
    if (error != wanted) {
        return ::testing::AssertionFailure()
               << std::hex << "last error 0x" << error << ", expected 0x" << wanted;
    }
    return ::testing::AssertionSuccess();
}

// An open provider holding a fixture private key (a path under tests/data), released at the
// end of the scope.
class KeyProvider {
  public:
    KeyProvider(const char* key, Velmor::Win32::DWORD type) {
        const std::string path = DataPath(key);
        const std::wstring container(path.begin(), path.end());
        EXPECT_TRUE(
            Velmor::Win32::CryptAcquireContextW(&m_handle, container.c_str(), nullptr, type, 0))
            << "cannot open " << path;
    }
    KeyProvider(const KeyProvider&) = delete;
    KeyProvider& operator=(const KeyProvider&) = delete;
    ~KeyProvider() { Velmor::Win32::CryptReleaseContext(m_handle, 0); }
    Velmor::Win32::HCRYPTPROV get() const { return m_handle; }

  private:
    Velmor::Win32::HCRYPTPROV m_handle = 0;
};

} // namespace velmor_test

#endif
