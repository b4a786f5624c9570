// Small basic responses of known DER for the response tests: CertID entries with one-octet
// fields, fixed times, and a stand-in signature of known octets (the tests reach the record
// to give a response the signature that encode() requires without a key, and with octets
// that do not change from one run to the next as ECDSA signatures do).
#ifndef VELMOR_TESTS_RESPONSE_BASIC_RESPONSE_BUILDERS_H
#define VELMOR_TESTS_RESPONSE_BASIC_RESPONSE_BUILDERS_H

#include <memory>
#include <pki/ocsp/basic_response.h>
#include <string>

#include "response/response_traits.h"
#include "support/test_support.h"

namespace velmor_test {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;

// 2026-01-02T03:04:05Z, and its GeneralizedTime element.
inline const CDateTime kTime(1767323045, 0);
inline const std::string kTimeHex = "180f 32303236303130323033303430355a";
// The zero date, and its element.
inline const std::string kZeroTimeHex = "180f 31393730303130313030303030305a";

// CertID { sha1 NULL, issuerNameHash aa, issuerKeyHash bb, serial } (22 octets).
inline CReqCert CertIdOf(int serial) {
    const CBlob null = BlobOf("0500");
    return CReqCert(CCertID(ASN1::CAlgorithmIdentifier("1.3.14.3.2.26", &null), BlobOf("aa"),
                            BlobOf("bb"), ASN1::CBigInteger::FromInt64(serial)));
}
inline std::string CertIdHex(int serial) {
    return "3014 3009 06052b0e03021a 0500 0401aa 0401bb 0201" + ToHex({std::uint8_t(serial)});
}

// A response by key hash 01 02 produced at the zero date, with the stand-in signature:
// ecdsa-with-SHA256 and the bits ab cd.
inline CBasicResponse ByKeyResponse() {
    CBasicResponse response(CDateTime(0, 0), CResponderID(CResponderID::byKey, BlobOf("0102")));
    auto& part = Detail::Records::Of(response).signedPart;
    part.algorithm = std::make_unique<ASN1::CAlgorithmIdentifierEx>("1.2.840.10045.4.3.2");
    part.signature = std::make_unique<CBlob>(BlobOf("abcd"));
    return response;
}

// The DER of ByKeyResponse() with the given responses (contents of the SEQUENCE OF), and an
// optional [0] version and [1] extensions before and after them.
inline std::string ByKeyResponseHex(const std::string& responses, const std::string& version = "",
                                    const std::string& extensions = "") {
    const Bytes tbs =
        Tlv(0x30, Cat({FromHex(version), FromHex("a204 0402 0102"), FromHex(kZeroTimeHex),
                       Tlv(0x30, FromHex(responses)), FromHex(extensions)}));
    return ToHex(
        Tlv(0x30, Cat({tbs, FromHex("300a 06082a8648ce3d040302"), FromHex("0303 00abcd")})));
}

} // namespace velmor_test

#endif
