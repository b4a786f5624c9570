// Assertions for the CryptoAPI layer, which reports failures as FALSE and a last error.
#ifndef VELMOR_TESTS_SUPPORT_CRYPT_TEST_SUPPORT_H
#define VELMOR_TESTS_SUPPORT_CRYPT_TEST_SUPPORT_H

#include "platform/crypt_api.h"

#include <gtest/gtest.h>

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

} // namespace velmor_test

#endif
