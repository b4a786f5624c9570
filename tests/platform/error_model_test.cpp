#include <cstring>
#include <gtest/gtest.h>
#include <pki/ocsp/atl_exception.h>
#include <thread>

#include "support/test_support.h"

using namespace Velmor::Win32;

TEST(LastError, IsPerThread) {
    SetLastError(ERROR_MORE_DATA);
    DWORD seenByOtherThread = 12345;
    std::thread([&] { seenByOtherThread = GetLastError(); }).join();
    EXPECT_EQ(seenByOtherThread, ERROR_SUCCESS);
    EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
}

TEST(ErrorMapping, Win32ErrorsBecomeHResults) {
    EXPECT_EQ(HResultFromWin32(5), static_cast<HRESULT>(0x80070005u));
    EXPECT_EQ(HResultFromWin32(ERROR_INVALID_PARAMETER), E_INVALIDARG);
    // Only the low 16 bits of a positive error survive.
    EXPECT_EQ(HResultFromWin32(0x0001'0005u), static_cast<HRESULT>(0x80070005u));
    EXPECT_EQ(HResultFromWin32(0), 0);
    // A value that is already an HRESULT (negative as signed) is left alone.
    EXPECT_EQ(HResultFromWin32(static_cast<DWORD>(NTE_BAD_SIGNATURE)), NTE_BAD_SIGNATURE);
}

TEST(ErrorMapping, ThrowLastWin32UsesTheMapping) {
    SetLastError(5);
    EXPECT_EQ(ATL::AtlHresultFromLastError(), static_cast<HRESULT>(0x80070005u));
    EXPECT_HRESULT_THROW(ATL::AtlThrowLastWin32(), 0x80070005u);

    SetLastError(0);
    EXPECT_EQ(ATL::AtlHresultFromLastError(), 0);
    EXPECT_HRESULT_THROW(ATL::AtlThrowLastWin32(), 0u);

    SetLastError(static_cast<DWORD>(CRYPT_E_NOT_FOUND));
    EXPECT_HRESULT_THROW(ATL::AtlThrowLastWin32(), 0x80092004u);
}

TEST(CAtlException, HoldsItsCodeAndNamesIt) {
    try {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "CRYPT_E_ASN1_INTERNAL (0x80093101)");
        const auto* atl = dynamic_cast<const ATL::CAtlException*>(&e);
        ASSERT_NE(atl, nullptr);
        EXPECT_EQ(static_cast<HRESULT>(*atl), CRYPT_E_ASN1_INTERNAL);
    }
    EXPECT_STREQ(ATL::CAtlException(0x12345678).what(), "HRESULT 0x12345678");
    EXPECT_STREQ(ATL::CAtlException(HResultFromWin32(ERROR_MORE_DATA)).what(),
                 "HRESULT_FROM_WIN32(ERROR_MORE_DATA) (0x800700EA)");
    EXPECT_EQ(ATL::CAtlException().m_hr, E_FAIL);
}
