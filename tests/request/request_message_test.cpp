// The request classes on their own: exact DER of what they build, what decode keeps and
// replaces, and the signing rules (with the fixture client keys).
#include <gtest/gtest.h>
#include <pki/ocsp/crypt_provider.h>
#include <pki/ocsp/request_message.h>

#include "asn1/asn1_runtime.h"
#include "request/request_traits.h"
#include "support/crypt_test_support.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using namespace Velmor::Win32;
using velmor_test::KeyProvider;
using velmor_test::ReadData;

namespace {

constexpr const char* kSha256WithRsa = "1.2.840.113549.1.1.11";
constexpr const char* kEcdsaWithSha256 = "1.2.840.10045.4.3.2";

CBlob Hex(std::string_view hex) { return velmor_test::BlobOf(hex); }
CBlob Data(std::string_view relative) { return CBlob(ReadData(relative)); }
using velmor_test::HexOf;

// A CertID entry with a one-octet serial: SEQUENCE { SEQUENCE { sha1 NULL } 04 01 aa 04 01 bb
// 02 01 serial }.
CSingleRequest Entry(int serial) {
    const CBlob null = Hex("0500");
    return CSingleRequest(CReqCert(CCertID(CAlgorithmIdentifier("1.3.14.3.2.26", &null), Hex("aa"),
                                           Hex("bb"), CBigInteger::FromInt64(serial))));
}
std::string EntryHex(int serial) {
    return "3016 3014 3009 06052b0e03021a 0500 0401aa 0401bb 020" + std::to_string(1) + "0" +
           std::to_string(serial);
}

CRequestMessage WithEntries(std::initializer_list<int> serials) {
    CSingleRequestList list;
    for (int serial : serials) {
        list.push_back(Entry(serial));
    }
    CRequestMessage request;
    request.put_requestList(list);
    return request;
}

void SignWithRsaClient(CRequestMessage& request, const CBlobList* certs = nullptr) {
    KeyProvider key("pki/rsa/client.key.pem", PROV_RSA_FULL);
    request.sign(key.get(), AT_SIGNATURE, CAlgorithmIdentifierEx(kSha256WithRsa), certs);
}

} // namespace

TEST(CRequestMessage, BuildsExactDer) {
    // An empty request: OCSPRequest { TBSRequest { requestList {} } }.
    EXPECT_EQ(HexOf(CRequestMessage().encode()), "3004"
                                                 "3002"
                                                 "3000");

    // Two CertID entries: version v1 is not written.
    CRequestMessage two = WithEntries({1, 2});
    EXPECT_EQ(two.get_version(), v1);
    EXPECT_EQ(HexOf(two.encode()), HexOf(Hex("3034 3032 3030" + EntryHex(1) + EntryHex(2))));

    // A requestor name becomes [1] { directoryName [4] { Name } }; empty request extensions
    // and empty entry extensions are not written.
    CRequestMessage named = WithEntries({1});
    const CBlob name = Hex("300f310d300b06035504030c0474657374");
    const CExtensions none;
    named.put_requestorName(&name);
    named.put_requestExtensions(&none);
    EXPECT_EQ(
        HexOf(named.encode()),
        HexOf(Hex("3031 302f a113 a411 300f310d300b06035504030c0474657374 3018" + EntryHex(1))));
}

TEST(CRequestMessage, VersionFollowsTheKindOfCertificateReference) {
    CSingleRequestList list;
    list.push_back(Entry(1));
    list.push_back(CSingleRequest(CReqCert(CReqCert::attributeCertificate, Hex("3000"))));
    CRequestMessage request;
    request.put_requestList(list);
    EXPECT_EQ(request.get_version(), v2);
    // Setting an all-CertID list goes back to v1; the version is written as [0] { 1 }.
    request.put_requestList(WithEntries({3}).get_requestList());
    EXPECT_EQ(request.get_version(), v1);
    // The attribute certificate "3000" is not one: encoding fails, not put_requestList.
    request.put_requestList(list);
    EXPECT_HRESULT_THROW(request.encode(), CRYPT_E_ASN1_INTERNAL);

    // A v2 request read from the wire keeps its version and is written back unchanged.
    const CBlob withVersion = Hex("3021 301f a003020101 3018" + EntryHex(4));
    CRequestMessage decoded;
    decoded.decode(withVersion);
    EXPECT_EQ(decoded.get_version(), v2);
    EXPECT_EQ(HexOf(decoded.encode()), HexOf(withVersion));
}

TEST(CRequestMessage, DecodeAppendsEntriesAndReplacesEverythingElse) {
    CRequestMessage signedRequest = WithEntries({1, 2});
    SignWithRsaClient(signedRequest);
    const CBlob twoEntries = WithEntries({5, 6}).encode();

    CRequestMessage request;
    request.decode(signedRequest.encode());
    ASSERT_NE(request.get_signature(), nullptr);
    request.decode(twoEntries);
    EXPECT_EQ(request.get_requestList().size(), 4u);
    EXPECT_EQ(request.get_signature(), nullptr);
    EXPECT_EQ(request.get_signatureAlgorithm(), nullptr);
    EXPECT_EQ(request.get_signatureCerts(), nullptr);
    // The entries of the first decoding stay in front.
    EXPECT_EQ(request.get_requestList().front().get_reqCert().get_certID()->get_serialNumber(),
              CBigInteger::FromInt64(1));
    EXPECT_EQ(request.get_requestList().back().get_reqCert().get_certID()->get_serialNumber(),
              CBigInteger::FromInt64(6));

    // Entry extensions that are present but empty are not written, so they come back absent.
    CSingleRequestList list;
    list.push_back(Entry(7));
    const CExtensions none;
    list.front().put_singleRequestExtensions(&none);
    CRequestMessage withEmpty;
    withEmpty.put_requestList(list);
    CRequestMessage back;
    back.decode(withEmpty.encode());
    EXPECT_EQ(back.get_requestList().front().get_singleRequestExtensions(), nullptr);
}

// A signed request with a requestor name and two entries, encoded.
CBlob SignedNamedTwoEntryRequest() {
    CRequestMessage source = WithEntries({1, 2});
    const CBlob name = Hex("300f310d300b06035504030c0474657374");
    source.put_requestorName(&name);
    SignWithRsaClient(source);
    return source.encode();
}

TEST(CRequestMessage, FailedDecodeLeavesTheObjectAsItWas) {
    const CBlob good = SignedNamedTwoEntryRequest();

    CRequestMessage request;
    request.decode(good);
    const std::string before = HexOf(request.encode());
    EXPECT_HRESULT_THROW(request.decode(CBlob()), E_INVALIDARG);
    for (unsigned long cut = 1; cut < good.cbData(); ++cut) {
        EXPECT_HRESULT_THROW(request.decode(CBlob(good.pbData(), cut)), CRYPT_E_ASN1_INTERNAL)
            << "cut at " << cut;
    }
    CBlob trailing = good;
    trailing.resize_to(good.cbData() + 1);
    EXPECT_HRESULT_THROW(request.decode(trailing), CRYPT_E_ASN1_INTERNAL);
    EXPECT_EQ(HexOf(request.encode()), before);
    EXPECT_EQ(request.get_requestList().size(), 2u);
    EXPECT_TRUE(request.verify(Data("pki/rsa/client.der")));
}

TEST(CRequestMessage, AnEmptyObjectIsStillEmptyAfterAFailedDecode) {
    // An object holding nothing is decoded into in place: every failure must empty it again.
    const CBlob good = SignedNamedTwoEntryRequest();
    const std::string empty = HexOf(CRequestMessage().encode());
    for (unsigned long cut = 1; cut < good.cbData(); ++cut) {
        CRequestMessage request;
        EXPECT_HRESULT_THROW(request.decode(CBlob(good.pbData(), cut)), CRYPT_E_ASN1_INTERNAL);
        EXPECT_TRUE(request.get_requestList().empty()) << "cut at " << cut;
        EXPECT_EQ(request.get_requestorName(), nullptr) << "cut at " << cut;
        EXPECT_EQ(request.get_signature(), nullptr) << "cut at " << cut;
        EXPECT_EQ(request.get_signatureCerts(), nullptr) << "cut at " << cut;
        EXPECT_EQ(HexOf(request.encode()), empty) << "cut at " << cut;
        // and it takes a good request afterwards as a new object would
        request.decode(good);
        EXPECT_EQ(HexOf(request.encode()), HexOf(good)) << "cut at " << cut;
    }
}

TEST(CRequestMessage, SignatureWithoutAlgorithmCannotBeEncoded) {
    // Only decode and sign set the signature, always with its algorithm; the converter
    // itself refuses the inconsistent state.
    Detail::Records::Record<CRequestMessage> record;
    record.signedPart.signature = std::make_unique<CBlob>(Hex("01"));
    ASN1BEREncodeBuffer buffer;
    ASN1T_OCSPRequest message;
    EXPECT_HRESULT_THROW(ASN1T_OCSPRequest_traits::set(buffer.getCtxtPtr(), message, record),
                         CRYPT_E_BAD_MSG);
}

TEST(CRequestMessage, EmptySignatureIsNotWrittenNorItsCertificates) {
    // A received request whose signature BIT STRING is empty, with one certificate.
    using velmor_test::Cat;
    using velmor_test::FromHex;
    using velmor_test::Tlv;
    const velmor_test::Bytes signature =
        Tlv(0x30, Cat({FromHex("300d06092a864886f70d01010b0500"), FromHex("030100"),
                       Tlv(0xA0, Tlv(0x30, ReadData("pki/rsa/client.der")))}));
    const velmor_test::Bytes der = Tlv(0x30, Cat({FromHex("30023000"), Tlv(0xA0, signature)}));
    CRequestMessage request;
    request.decode(CBlob(der));
    ASSERT_NE(request.get_signature(), nullptr);
    EXPECT_EQ(request.get_signature()->cbData(), 0u);
    ASSERT_NE(request.get_signatureCerts(), nullptr);
    EXPECT_EQ(request.get_signatureCerts()->size(), 1u);
    EXPECT_EQ(HexOf(request.encode()), "3004"
                                       "30023000");
}

TEST(CRequestMessage, SignAndVerifyWithBothKeyTypes) {
    const CBlob rsaClient = Data("pki/rsa/client.der");
    const CBlob ecClient = Data("pki/ec/client.der");
    CBlobList certs;
    certs.push_back(rsaClient);

    CRequestMessage request = WithEntries({1});
    SignWithRsaClient(request, &certs);
    EXPECT_EQ(std::string(request.get_signatureAlgorithm()->get_algorithm()), kSha256WithRsa);
    EXPECT_EQ(request.get_signature()->cbData(), 256u);
    EXPECT_TRUE(request.verify(rsaClient));
    EXPECT_FALSE(request.verify(Data("pki/rsa/leaf.der")));
    EXPECT_HRESULT_THROW(request.verify(Hex("3000")), CRYPT_E_ASN1_BADTAG);

    // A null list keeps the certificates; a decoded copy verifies over the received octets.
    CRequestMessage ec = request;
    KeyProvider key("pki/ec/client.key.pem", PROV_EC_ECDSA_FULL);
    ec.sign(key.get(), AT_SIGNATURE, CAlgorithmIdentifierEx(kEcdsaWithSha256), nullptr);
    ASSERT_NE(ec.get_signatureCerts(), nullptr);
    EXPECT_EQ(ec.get_signatureCerts()->size(), 1u);
    CRequestMessage decoded;
    decoded.decode(ec.encode());
    EXPECT_TRUE(decoded.verify(ecClient));

    // One changed signature octet is a mismatch, not an error.
    std::string wire = HexOf(ec.encode());
    const std::size_t at = wire.find(HexOf(*ec.get_signature())) + 10;
    wire[at] = wire[at] == '0' ? '1' : '0';
    CRequestMessage tampered;
    tampered.decode(Hex(wire));
    EXPECT_FALSE(tampered.verify(ecClient));
}

TEST(CRequestMessage, KeptBehavioursOfSigning) {
    const CBlob client = Data("pki/rsa/client.der");
    CRequestMessage original = WithEntries({1});
    SignWithRsaClient(original);

    // Re-signing a decoded request that was changed: verify still hashes the octets first
    // received, so the new signature does not match them. A copy has no kept octets.
    CRequestMessage decoded;
    decoded.decode(original.encode());
    const CBlob name = Hex("300f310d300b06035504030c0474657374");
    decoded.put_requestorName(&name);
    SignWithRsaClient(decoded);
    EXPECT_FALSE(decoded.verify(client));
    const CRequestMessage copy = decoded;
    EXPECT_TRUE(copy.verify(client));

    // Provider 0 fails at hash creation and leaves the signature fields alone; an OID that
    // is not a signature algorithm is not found.
    const std::string before = HexOf(*original.get_signature());
    EXPECT_HRESULT_THROW(
        original.sign(0, AT_SIGNATURE, CAlgorithmIdentifierEx(kSha256WithRsa), nullptr),
        NTE_BAD_UID);
    EXPECT_HRESULT_THROW(
        original.sign(0, AT_SIGNATURE, CAlgorithmIdentifierEx("1.3.14.3.2.26"), nullptr),
        CRYPT_E_NOT_FOUND);
    EXPECT_EQ(HexOf(*original.get_signature()), before);
    EXPECT_HRESULT_THROW(CRequestMessage().verify(client), E_INVALIDARG);
}

TEST(CRequestMessage, CertificatesAreCheckedWhenEncodedUntilReplaced) {
    // Certificates given to sign() are read when the request is encoded; a decoded list is
    // known good and copies of it too. A new list is read again, and a blob that is not a
    // certificate fails every encoding until the list is replaced.
    CBlobList good;
    good.push_back(Data("pki/rsa/client.der"));
    CRequestMessage request = WithEntries({1});
    SignWithRsaClient(request, &good);
    const CBlob wire = request.encode();
    CRequestMessage decoded;
    decoded.decode(wire);
    const CRequestMessage copy = decoded;
    EXPECT_EQ(HexOf(copy.encode()), HexOf(wire));

    CBlobList bad = good;
    bad.push_back(Hex("3000"));
    SignWithRsaClient(decoded, &bad);
    EXPECT_HRESULT_THROW(decoded.encode(), CRYPT_E_ASN1_INTERNAL);
    EXPECT_HRESULT_THROW(decoded.encode(), CRYPT_E_ASN1_INTERNAL);
    SignWithRsaClient(decoded, &good);
    EXPECT_EQ(decoded.encode().cbData(), wire.cbData());
}
