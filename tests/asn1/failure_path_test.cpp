// Where a decode failed, as the runtime records it for the failure line: the path of the
// fields being read from the outermost value, the SEQUENCE OF items by index, a CHOICE's
// alternative by name, and the reason without the offset.
#include "asn1/ocsp_types.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/asn1_test_support.h"
#include "support/test_support.h"

namespace {

using velmor_test::BasicResponseOf;
using velmor_test::Bytes;
using velmor_test::Cat;
using velmor_test::Decoded;
using velmor_test::FromHex;
using velmor_test::Tlv;

struct Failure {
    int status;
    std::string path;
    std::size_t offset;
    std::string reason;
};

template <class T> Failure FailureOf(const Bytes& der) {
    Decoded<T> decoded(der);
    const ASN1CTXT& ctxt = *decoded.buffer.getCtxtPtr();
    return {decoded.status, ctxt.errPath, ctxt.errOffset,
            std::string(ctxt.errText, ctxt.errReasonLen)};
}

// Offset of the nth (from 0) occurrence of pattern in der.
std::size_t Find(const Bytes& der, const Bytes& pattern, int nth) {
    auto at = der.begin();
    for (int i = 0;; ++i, ++at) {
        at = std::search(at, der.end(), pattern.begin(), pattern.end());
        if (at == der.end() || i == nth) {
            break;
        }
    }
    EXPECT_NE(at, der.end());
    return static_cast<std::size_t>(at - der.begin());
}

TEST(DecodeFailurePath, FieldsAndItemsFromTheOutermostValue) {
    // Two good entries; the second certStatus (80 00, then thisUpdate) retagged [3].
    Bytes response = BasicResponseOf("ocsp/resp-two-rsa.der");
    const std::size_t status = Find(response, FromHex("8000 180f"), 1);
    response.at(status) = 0x83;

    const Failure failure = FailureOf<ASN1T_BasicOCSPResponse>(response);
    EXPECT_EQ(failure.status, RTERR_IDNOTFOU);
    EXPECT_EQ(failure.path, "tbsResponseData.responses[1].certStatus");
    EXPECT_EQ(failure.offset, status);
    EXPECT_EQ(failure.reason,
              "RTERR_IDNOTFOU: CertStatus: unknown choice in SingleResponse, unexpected tag 0x83");
}

TEST(DecodeFailurePath, ExplicitAlternativeIsAStepOfThePath) {
    // byName [1] { Name }: the second RDN is a SEQUENCE where a SET belongs.
    const Bytes rdn = FromHex("310a 3008 0603550403 0c0141"); // CN=A
    const Bytes notRdn = FromHex("300a 3008 0603550403 0c0142");
    const Bytes id = Tlv(0xA1, Tlv(0x30, Cat({rdn, notRdn})));

    const Failure failure = FailureOf<ASN1T_ResponderID>(id);
    EXPECT_EQ(failure.status, RTERR_IDNOTFOU);
    EXPECT_EQ(failure.path, "byName[1]");
    EXPECT_EQ(failure.offset, id.size() - notRdn.size());
    EXPECT_EQ(failure.reason, "RTERR_IDNOTFOU: RelativeDistinguishedName in RDNSequence, "
                              "unexpected tag 0x30");
}

TEST(DecodeFailurePath, UnreadContentsNameTheElementNotItsLastField) {
    // responses: the second entry has a NULL after thisUpdate.
    const Bytes entry = Tlv(0x30, Cat({Tlv(0x30, FromHex("3009 06052b0e03021a 0500 0401aa "
                                                         "0401bb 020101")),
                                       FromHex("8000 180f 32303236303130323033303430355a")}));
    const Bytes padded =
        Tlv(0x30, Cat({std::vector(entry.begin() + 2, entry.end()), FromHex("0500")}));
    const Bytes responses = Tlv(0x30, Cat({entry, padded}));

    const Failure failure = FailureOf<ASN1T__SeqOfSingleResponse>(responses);
    EXPECT_EQ(failure.status, RTERR_TRAILING);
    EXPECT_EQ(failure.path, "[1]");
    EXPECT_EQ(failure.offset, responses.size() - 2);
    EXPECT_EQ(failure.reason, "RTERR_TRAILING: unread contents in SingleResponse");
}

TEST(DecodeFailurePath, WrongContentsAreReportedWhereTheirElementBegins) {
    // The INTEGER of crlNum has a redundant leading octet; the time of thisUpdate has a
    // character no time has. Both are read whole before they are refused.
    const Bytes crlNum = FromHex("0203 000001");
    const Bytes crlId = Tlv(0x30, Tlv(0xA1, crlNum));
    const Failure number = FailureOf<ASN1T_CrlID>(crlId);
    EXPECT_EQ(number.status, RTERR_BADVALUE);
    EXPECT_EQ(number.path, "crlNum");
    EXPECT_EQ(number.offset, crlId.size() - crlNum.size());
    EXPECT_EQ(number.reason, "RTERR_BADVALUE: INTEGER out of 0 .. 2^32 - 1 in crlNum");

    Bytes badTime = FromHex("180f 32303236303130323033303430355a"); // 20260102030405Z
    badTime.at(10) = 'X';
    const Bytes entry = Tlv(0x30, Cat({FromHex("3014 3009 06052b0e03021a 0500 0401aa 0401bb "
                                               "020101 8000"),
                                       badTime}));
    const Failure time = FailureOf<ASN1T_SingleResponse>(entry);
    EXPECT_EQ(time.status, RTERR_BADVALUE);
    EXPECT_EQ(time.path, "thisUpdate");
    EXPECT_EQ(time.offset, entry.size() - badTime.size());
    EXPECT_EQ(time.reason, "RTERR_BADVALUE: character in a time in SingleResponse");
}

TEST(DecodeFailurePath, NoPathBeforeTheFirstNamedField) {
    // Cut short inside the outermost SEQUENCE's header: no reader named anything yet.
    const Failure failure = FailureOf<ASN1T_OCSPRequest>(FromHex("3003 0201"));
    EXPECT_EQ(failure.status, RTERR_ENDOFBUF);
    EXPECT_EQ(failure.path, "");
    EXPECT_EQ(failure.offset, 0u);
    EXPECT_EQ(failure.reason, "RTERR_ENDOFBUF: element overruns its parent");
}

} // namespace
