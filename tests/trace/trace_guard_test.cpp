// The failure line of Trace::Guard in process: one line per failure whatever the nesting,
// the detail of the exception it belongs to only, and the same line for the frame that
// returns a status.
#include "asn1/ocsp_types.h"
#include "foundation/codec_frame.h"
#include "trace/trace_guard.h"

#include <gtest/gtest.h>
#include <new>
#include <string>

#include "support/test_support.h"

namespace {

using namespace Velmor;
using velmor_test::Bytes;
using velmor_test::FromHex;

class TraceGuardTest : public testing::Test {
  protected:
    void SetUp() override {
        m_entry = Trace::AddModule("libtrace-guard-test.so.1");
        Trace::SetModule(m_entry, 1, Trace::ModuleStatus::Enabled);
        Trace::SetOwnModule(m_entry);
        Trace::CaptureOutput(&m_captured);
    }
    void TearDown() override { Trace::CaptureOutput(nullptr); }

    std::size_t m_entry = 0;
    std::string m_captured;
};

TEST_F(TraceGuardTest, NestedMembersWriteOneLineNamingTheOutermost) {
    EXPECT_HRESULT_THROW(Trace::Guard("Outer::call",
                                      [] {
                                          Trace::Guard("Middle::call", [] {
                                              Trace::ThrowFrom("Inner::call", Win32::E_FAIL);
                                          });
                                      }),
                         Win32::E_FAIL);
    EXPECT_EQ(m_captured, "velmor-ocsp: Outer::call: E_FAIL (0x80004005)\n");

    // The count is back to none: the next failure of an inner member alone is its own line.
    m_captured.clear();
    EXPECT_HRESULT_THROW(Trace::ThrowFrom("Inner::call", Win32::E_INVALIDARG), Win32::E_INVALIDARG);
    EXPECT_EQ(m_captured, "velmor-ocsp: Inner::call: E_INVALIDARG (0x80070057)\n");
}

TEST_F(TraceGuardTest, DetailGoesWithItsOwnExceptionOnly) {
    EXPECT_HRESULT_THROW(Trace::Guard("Outer::call",
                                      [] {
                                          Trace::ThrowDetailed(Win32::CRYPT_E_ASN1_INTERNAL,
                                                               " at here, offset 3: why");
                                      }),
                         Win32::CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(m_captured, "velmor-ocsp: Outer::call: CRYPT_E_ASN1_INTERNAL (0x80093101) at "
                          "here, offset 3: why\n");

    // A detailed failure that no member reports (caught inside), then another failure of the
    // same code: the first one's detail must not be taken for the second's.
    m_captured.clear();
    try {
        Trace::ThrowDetailed(Win32::CRYPT_E_ASN1_INTERNAL, ": swallowed");
    } catch (const ATL::CAtlException&) {
    }
    EXPECT_HRESULT_THROW(Trace::ThrowFrom("Other::call", Win32::CRYPT_E_ASN1_INTERNAL),
                         Win32::CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(m_captured, "velmor-ocsp: Other::call: CRYPT_E_ASN1_INTERNAL (0x80093101)\n");
}

TEST_F(TraceGuardTest, NothingBelowLevelOneAndOnlyCAtlExceptionsAreReported) {
    Trace::SetModule(m_entry, 0, Trace::ModuleStatus::Enabled);
    EXPECT_HRESULT_THROW(Trace::ThrowFrom("Inner::call", Win32::E_FAIL), Win32::E_FAIL);
    Trace::SetModule(m_entry, 4, Trace::ModuleStatus::Disabled);
    EXPECT_HRESULT_THROW(Trace::ThrowFrom("Inner::call", Win32::E_FAIL), Win32::E_FAIL);
    EXPECT_EQ(m_captured, "");

    Trace::SetModule(m_entry, 1, Trace::ModuleStatus::Enabled);
    EXPECT_THROW(Trace::Guard("Outer::call", [] { throw std::bad_alloc(); }), std::bad_alloc);
    EXPECT_EQ(Trace::Guard("Outer::call", [] { return 7; }), 7);
    EXPECT_EQ(m_captured, "");
}

TEST_F(TraceGuardTest, FrameCallThatFailsWritesItsStatus) {
    // A SingleResponse whose certStatus carries [3], none of its alternatives.
    const Bytes thisUpdate = FromHex("180f 32303236303130323033303430355a");
    const Bytes entry = velmor_test::Tlv(
        0x30, velmor_test::Cat({FromHex("3014 3009 06052b0e03021a 0500 0401aa 0401bb 020101 8300"),
                                thisUpdate}));
    const std::size_t status = entry.size() - thisUpdate.size() - 2;
    ASN1BERDecodeBuffer buffer(entry.data(), entry.size());
    ASN1T_SingleResponse value{};
    using Frame = ASN1::CCodeClassT<ASN1T_SingleResponse, ASN1CTypeT<ASN1T_SingleResponse>>;
    EXPECT_EQ(Frame::decode(buffer, value), RTERR_IDNOTFOU);
    EXPECT_EQ(m_captured, "velmor-ocsp: CCodeClassT::decode: RTERR_IDNOTFOU (-3) at certStatus, "
                          "offset " +
                              std::to_string(status) +
                              ": RTERR_IDNOTFOU: CertStatus: unknown choice in SingleResponse, "
                              "unexpected tag 0x83\n");
}

} // namespace
