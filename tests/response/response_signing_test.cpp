// CBasicResponse::sign and verify with the fixture responders: what signing stores and
// leaves alone, what verify hashes, the codes of every failure, and that no changed octet of
// the signed data or of the signature verifies.
#include <gtest/gtest.h>
#include <pki/ocsp/basic_response.h>

#include <functional>

#include "response/response_traits.h"
#include "support/crypt_test_support.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::Bytes;
using velmor_test::HexOf;
using velmor_test::KeyProvider;
using velmor_test::ReadData;

namespace {

constexpr const char* kSha256WithRsa = "1.2.840.113549.1.1.11";
constexpr const char* kSha384WithRsa = "1.2.840.113549.1.1.12";
constexpr const char* kEcdsaWithSha256 = "1.2.840.10045.4.3.2";

CBlob Pki(const std::string& name) { return CBlob(ReadData("pki/" + name + ".der")); }

// Two entries about the family's leaf certificates, one good, one revoked, signed by the
// family's responder with its certificate attached.
CBasicResponse Unsigned(const std::string& family, CResponderID::Type type) {
    const CAlgorithmIdentifierEx sha1("1.3.14.3.2.26");
    CCertStatus good;
    good.put_good();
    const CrlReason reason = keyCompromise;
    CSingleResponseList entries;
    entries.push_back(CSingleResponse(CCertID(sha1, Pki(family + "/leaf"), Pki(family + "/inter")),
                                      good, CDateTime(1767323045, 0)));
    entries.push_back(
        CSingleResponse(CCertID(sha1, Pki(family + "/leaf00"), Pki(family + "/inter")),
                        CCertStatus(CDateTime(1767225600, 0), &reason), CDateTime(1767323045, 0)));
    CBasicResponse response(CDateTime(1767323046, 0),
                            CResponderID::fromCert(type, Pki(family + "/ocsp")));
    response.put_responses(entries);
    CBlobList certs;
    certs.push_back(Pki(family + "/ocsp"));
    response.put_certs(&certs);
    return response;
}

CBasicResponse Signed(const std::string& family, const char* algorithm) {
    CBasicResponse response = Unsigned(family, CResponderID::byKey);
    const KeyProvider key(("pki/" + family + "/ocsp.key.pem").c_str(),
                          family == "rsa" ? PROV_RSA_FULL : PROV_EC_ECDSA_FULL);
    response.sign(key.get(), AT_SIGNATURE, CAlgorithmIdentifierEx(algorithm));
    return response;
}

// Where the octets of needle start in haystack.
std::size_t Find(const Bytes& haystack, const CBlob& needle) {
    const auto at = std::search(haystack.begin(), haystack.end(), needle.pbData(),
                                needle.pbData() + needle.cbData());
    return static_cast<std::size_t>(at - haystack.begin());
}

} // namespace

TEST(CBasicResponseSigning, SignedResponsesVerifyAfterTheRoundTrip) {
    for (const auto& [family, algorithm, size] :
         {std::tuple<std::string, const char*, unsigned long>{"rsa", kSha256WithRsa, 256},
          {"ec", kEcdsaWithSha256, 0}}) {
        SCOPED_TRACE(family);
        const CBasicResponse response = Signed(family, algorithm);
        EXPECT_EQ(std::string(response.get_signatureAlgorithm()->get_algorithm()), algorithm);
        if (size != 0) {
            EXPECT_EQ(response.get_signature()->cbData(), size);
        }
        const CBlob responder = Pki(family + "/ocsp");
        EXPECT_TRUE(response.verify(responder));
        // Another key is a mismatch; bytes that are no certificate are an error.
        EXPECT_FALSE(response.verify(Pki(family + "/client")));
        EXPECT_HRESULT_THROW(response.verify(velmor_test::BlobOf("3000")), CRYPT_E_ASN1_BADTAG);

        CBasicResponse decoded;
        decoded.decode(response.encode());
        EXPECT_TRUE(decoded.verify(responder));
        EXPECT_EQ(HexOf(decoded.encode()), HexOf(response.encode()));
    }
}

TEST(CBasicResponseSigning, SigningReplacesOnlyTheSignatureFields) {
    CBasicResponse response = Signed("rsa", kSha256WithRsa);
    const CBlob responder = Pki("rsa/ocsp");
    // The argument's cache is filled by signing, although it is const.
    const CAlgorithmIdentifierEx sha384(kSha384WithRsa);
    ASSERT_EQ(sha384.get_cachedAlgId(), 0u);
    {
        const KeyProvider key("pki/rsa/ocsp.key.pem", PROV_RSA_FULL);
        response.sign(key.get(), AT_SIGNATURE, sha384);
    }
    EXPECT_EQ(sha384.get_cachedAlgId(), CALG_SHA_384);
    EXPECT_EQ(std::string(response.get_signatureAlgorithm()->get_algorithm()), kSha384WithRsa);
    EXPECT_EQ(response.get_signatureAlgorithm()->get_cachedAlgId(), CALG_SHA_384);
    ASSERT_NE(response.get_certs(), nullptr);
    EXPECT_EQ(HexOf(response.get_certs()->front()), HexOf(responder));
    EXPECT_TRUE(response.verify(responder));

    // Failures leave the signature as it was: provider 0 fails at hash creation, and an OID
    // without a hash has no error of its own, the hash creation refuses ALG_ID 0.
    const std::string before = HexOf(response.encode());
    EXPECT_HRESULT_THROW(response.sign(0, AT_SIGNATURE, CAlgorithmIdentifierEx(kSha256WithRsa)),
                         NTE_BAD_UID);
    {
        const KeyProvider key("pki/rsa/ocsp.key.pem", PROV_RSA_FULL);
        EXPECT_HRESULT_THROW(
            response.sign(key.get(), AT_SIGNATURE, CAlgorithmIdentifierEx("1.2.3.4")),
            NTE_BAD_ALGID);
    }
    EXPECT_EQ(HexOf(response.encode()), before);

    // Unsigned: E_FAIL, where an unsigned request gives E_INVALIDARG.
    EXPECT_HRESULT_THROW(Unsigned("rsa", CResponderID::byName).verify(responder), E_FAIL);
}

TEST(CBasicResponseSigning, DecodedResponsesHashWhatTheyReceivedAndCopiesAFreshEncoding) {
    const CBlob responder = Pki("rsa/ocsp");
    CBasicResponse decoded;
    decoded.decode(Signed("rsa", kSha256WithRsa).encode());
    // Changed and signed again: the decoded object still hashes the octets it received, so
    // the new signature does not match them; a copy hashes its fields and matches.
    decoded.put_responses(CSingleResponseList());
    {
        const KeyProvider key("pki/rsa/ocsp.key.pem", PROV_RSA_FULL);
        decoded.sign(key.get(), AT_SIGNATURE, CAlgorithmIdentifierEx(kSha256WithRsa));
    }
    EXPECT_FALSE(decoded.verify(responder));
    const CBasicResponse copy = decoded;
    EXPECT_TRUE(copy.verify(responder));
}

TEST(CBasicResponseSigning, NoChangedOctetOfTheSignedDataOrTheSignatureVerifies) {
    for (const auto& [family, algorithm] :
         {std::pair<std::string, const char*>{"rsa", kSha256WithRsa}, {"ec", kEcdsaWithSha256}}) {
        SCOPED_TRACE(family);
        const CBasicResponse original = Signed(family, algorithm);
        const CBlob responder = Pki(family + "/ocsp");
        const CBlob wire = original.encode();
        const Bytes der(wire.pbData(), wire.pbData() + wire.cbData());
        const CBlob tbs = Detail::Records::Of(original).EncodeTbsResponseData();
        const std::size_t tbsAt = Find(der, tbs);
        const std::size_t signatureAt = Find(der, *original.get_signature());
        ASSERT_LT(signatureAt, der.size());
        std::vector<std::size_t> offsets;
        for (std::size_t i = 0; i < tbs.cbData(); ++i) {
            offsets.push_back(tbsAt + i);
        }
        for (std::size_t i = 0; i < original.get_signature()->cbData(); ++i) {
            offsets.push_back(signatureAt + i);
        }
        int verified = 0;
        int rejectedByDecode = 0;
        for (const std::size_t at : offsets) {
            Bytes changed = der;
            changed[at] ^= 0x01;
            CBasicResponse response;
            try {
                response.decode(CBlob(changed));
            } catch (const ATL::CAtlException&) {
                ++rejectedByDecode;
                continue;
            }
            // A decoded response says false: a changed octet is never an error of verify.
            try {
                verified += response.verify(responder) ? 1 : 0;
            } catch (const ATL::CAtlException& e) {
                ADD_FAILURE() << "verify threw 0x" << std::hex << e.m_hr << " at offset " << at;
            }
        }
        EXPECT_EQ(verified, 0);
        // Most changes still decode: the test reaches verify for them.
        EXPECT_LT(rejectedByDecode, static_cast<int>(offsets.size()) / 4);
    }
}
