// Values that are not values of an extension's syntax: every structured class refuses them
// with CRYPT_E_ASN1_INTERNAL and makes no object; and the text copy of the CrlID encoder with
// the HRESULT of each of its codes.
#include <gtest/gtest.h>
#include <pki/ocsp/ocsp_extensions.h>

#include <functional>
#include <string>

#include "extensions/text_copy.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::FromHex;

namespace {

struct Syntax {
    const char* name;
    std::function<void(const CBlob&)> construct;
    const char* valid; // a DER value of the syntax
};

template <class C> std::function<void(const CBlob&)> Constructor() {
    return [](const CBlob& value) { const C extension(value); };
}

const Syntax kSyntaxes[] = {
    {"CrlID", Constructor<CExtCrlID>(),
     "3024 a00a1608687474703a2f2f78 a103020107 a211180f32303234303130323033303430355a"},
    {"historical CrlID", Constructor<CExtHistoricalRequest>(), "3005 a103020107"},
    {"ArchiveCutoff", Constructor<CExtArchiveCutoff>(), "180f32303234303130323033303430355a"},
    {"AcceptableResponses", Constructor<CExtAcceptableResponses>(),
     "3010 0603883701 06092b0601050507300101"},
    {"ServiceLocator", Constructor<CExtServiceLocator>(),
     "3029 300c310a300806035504030c0141"
     " 3019301706082b06010505073001860b687474703a2f2f6f2e6578"},
    {"CRLDistPointsSyntax", Constructor<CExtCRLLocator>(), "3010300ea00ca00a8608687474703a2f2f63"},
};

} // namespace

TEST(ExtensionBadInput, EmptyTruncatedMistaggedAndOverlongValuesAreRefused) {
    for (const Syntax& syntax : kSyntaxes) {
        SCOPED_TRACE(syntax.name);
        const Bytes valid = FromHex(syntax.valid);
        ASSERT_NO_THROW(syntax.construct(CBlob(valid)));
        for (std::size_t size = 0; size < valid.size(); ++size) {
            EXPECT_HRESULT_THROW(
                syntax.construct(CBlob(Bytes(valid.begin(), valid.begin() + size))),
                CRYPT_E_ASN1_INTERNAL)
                << "cut to " << size;
        }
        Bytes mistagged = valid;
        mistagged[0] = 0x04;
        EXPECT_HRESULT_THROW(syntax.construct(CBlob(mistagged)), CRYPT_E_ASN1_INTERNAL);
        Bytes trailing = valid;
        trailing.push_back(0x00);
        EXPECT_HRESULT_THROW(syntax.construct(CBlob(trailing)), CRYPT_E_ASN1_INTERNAL);
        Bytes longer = valid;
        longer[1] = static_cast<std::uint8_t>(longer[1] + 1);
        longer.push_back(0x05);
        EXPECT_HRESULT_THROW(syntax.construct(CBlob(longer)), CRYPT_E_ASN1_INTERNAL);
    }
    // Inner elements of the wrong type.
    for (const char* hex :
         {"3004a0020500", "3005a1030401ff", "3008a2061804323032345a", "300302010f", "3003040100"}) {
        EXPECT_HRESULT_THROW(CExtCrlID(CBlob(FromHex(hex))), CRYPT_E_ASN1_INTERNAL) << hex;
        EXPECT_HRESULT_THROW(CExtAcceptableResponses(CBlob(FromHex(hex))), CRYPT_E_ASN1_INTERNAL)
            << hex;
    }
    EXPECT_HRESULT_THROW(CExtArchiveCutoff(CBlob(FromHex("180432303234"))), CRYPT_E_ASN1_INTERNAL);
    EXPECT_HRESULT_THROW(CExtServiceLocator(CBlob(FromHex("30023100"))), CRYPT_E_ASN1_INTERNAL);
}

TEST(ExtensionTextCopy, EachCodeHasItsHresult) {
    char out[4];
    EXPECT_EQ(TextCopy::Copy(out, 3, "abc", 3), TextCopy::kRange);
    EXPECT_EQ(TextCopy::Copy(out, 3, "abc", TextCopy::kTruncate), TextCopy::kTruncated);
    EXPECT_STREQ(out, "ab");
    EXPECT_EQ(TextCopy::Copy(out, 4, nullptr, 1), TextCopy::kInvalid);
    EXPECT_NO_THROW(TextCopy::ThrowIfFailed(TextCopy::kOk));
    EXPECT_NO_THROW(TextCopy::ThrowIfFailed(TextCopy::kTruncated));
    EXPECT_HRESULT_THROW(TextCopy::ThrowIfFailed(TextCopy::kNoMemory), E_OUTOFMEMORY);
    EXPECT_HRESULT_THROW(TextCopy::ThrowIfFailed(TextCopy::kInvalid), E_INVALIDARG);
    EXPECT_HRESULT_THROW(TextCopy::ThrowIfFailed(TextCopy::kRange), E_INVALIDARG);
    EXPECT_HRESULT_THROW(TextCopy::ThrowIfFailed(5), E_FAIL);
    EXPECT_HRESULT_THROW(TextCopy::ThrowIfFailed(-1), E_FAIL);
}
