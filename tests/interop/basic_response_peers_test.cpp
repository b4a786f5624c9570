// Basic responses against real peers. Responses that `openssl ocsp` writes as a responder
// and that Python's cryptography package builds (committed in tests/data/ocsp, made by
// make-fixtures.sh and make-responses.sh) decode to the fields OpenSSL's own parser reads
// from the same bytes, and encode back to those bytes; the responder identifiers we derive
// from the responder certificates are the ones the peers wrote; responses we write are read
// by OpenSSL and Python with the fields we put in; and a tbsResponseData in BER is kept as
// received, so that its signature still checks, with OpenSSL's check and with ours.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/ocsp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/response_message.h>

#include <ctime>
#include <memory>
#include <sstream>
#include <string>

#include "response/response_traits.h"
#include "support/asn1_test_support.h"
#include "support/crypt_test_support.h"
#include "support/test_support.h"

using namespace Velmor;
using namespace Velmor::ASN1;
using namespace Velmor::PKI::OCSP;
using velmor_test::Bytes;
using velmor_test::Cat;
using velmor_test::DataPath;
using velmor_test::FromHex;
using velmor_test::HexOf;
using velmor_test::ReadData;
using velmor_test::RunCommand;
using velmor_test::Tlv;
using velmor_test::ToHex;
using velmor_test::WriteTempFile;

namespace {

// Every peer-written response, with the family of its responder.
const struct {
    const char* file;
    const char* family;
} kPeerResponses[] = {
    {"ocsp/resp-good-rsa.der", "rsa"},    {"ocsp/resp-plain-rsa.der", "rsa"},
    {"ocsp/resp-two-rsa.der", "rsa"},     {"ocsp/resp-revoked-rsa.der", "rsa"},
    {"ocsp/resp-unknown-rsa.der", "rsa"}, {"ocsp/resp-sha256-rsa.der", "rsa"},
    {"ocsp/resp-ec.der", "ec"},           {"ocsp/resp-keyid-ec.der", "ec"},
    {"ocsp/resp-keyid-rsa.der", "rsa"},   {"ocsp/resp-mixed-rsa.der", "rsa"},
    {"ocsp/resp-nocerts-rsa.der", "rsa"}, {"ocsp/resp-100-rsa.der", "rsa"},
    {"ocsp/resp-py-name-rsa.der", "rsa"}, {"ocsp/resp-py-key-rsa.der", "rsa"},
    {"ocsp/resp-py-name-ec.der", "ec"},   {"ocsp/resp-py-key-ec.der", "ec"},
};

Bytes BytesOf(const CBlob& blob) { return Bytes(blob.pbData(), blob.pbData() + blob.cbData()); }

CBlob Pki(const std::string& family, const std::string& name) {
    return CBlob(ReadData("pki/" + family + "/" + name + ".der"));
}

// The BasicOCSPResponse inside an OCSPResponse fixture.
CBlob BasicBody(const std::string& file) {
    CResponseMessage message;
    message.decode(CBlob(ReadData(file)));
    return message.get_response() != nullptr ? *message.get_response() : CBlob();
}

// ---- One text for a basic response, from our object or from OpenSSL's parse of the bytes

std::string Hex(const unsigned char* data, std::size_t size) { return ToHex(data, size); }

std::string Serial(std::string hex) {
    hex.erase(0, std::min(hex.find_first_not_of('0'), hex.size() - 1));
    return hex;
}

std::string Time(const ASN1_GENERALIZEDTIME* time) {
    if (time == nullptr) {
        return "-";
    }
    std::tm tm{};
    ASN1_TIME_to_tm(time, &tm);
    return std::to_string(timegm(&tm));
}
std::string Time(const CDateTime* time) {
    return time == nullptr ? "-" : std::to_string(time->seconds());
}

std::string Oid(const ASN1_OBJECT* object) {
    char text[128];
    OBJ_obj2txt(text, sizeof text, object, 1);
    return text;
}

template <class Der> std::string DerHex(const Der* value, int (*i2d)(const Der*, unsigned char**)) {
    unsigned char* out = nullptr;
    const int size = i2d(value, &out);
    std::string hex = Hex(out, static_cast<std::size_t>(size));
    OPENSSL_free(out);
    return hex;
}

std::string OpensslView(const CBlob& der) {
    const unsigned char* p = der.pbData();
    std::unique_ptr<OCSP_BASICRESP, decltype(&OCSP_BASICRESP_free)> bs(
        d2i_OCSP_BASICRESP(nullptr, &p, static_cast<long>(der.cbData())), OCSP_BASICRESP_free);
    if (!bs) {
        return "OpenSSL cannot read it";
    }
    std::ostringstream out;
    const ASN1_OCTET_STRING* keyHash = nullptr;
    const X509_NAME* name = nullptr;
    OCSP_resp_get0_id(bs.get(), &keyHash, &name);
    out << (name != nullptr ? "name " + DerHex(name, i2d_X509_NAME)
                            : "key " + Hex(keyHash->data, keyHash->length))
        << "\nproduced " << Time(OCSP_resp_get0_produced_at(bs.get())) << "\n";
    for (int i = 0; i < OCSP_resp_count(bs.get()); ++i) {
        OCSP_SINGLERESP* single = OCSP_resp_get0(bs.get(), i);
        ASN1_OCTET_STRING* nameHash = nullptr;
        ASN1_OBJECT* algorithm = nullptr;
        ASN1_OCTET_STRING* issuerKeyHash = nullptr;
        ASN1_INTEGER* serial = nullptr;
        OCSP_id_get0_info(&nameHash, &algorithm, &issuerKeyHash, &serial,
                          const_cast<OCSP_CERTID*>(OCSP_SINGLERESP_get0_id(single)));
        BIGNUM* number = ASN1_INTEGER_to_BN(serial, nullptr);
        char* serialHex = BN_bn2hex(number);
        int reason = -1;
        ASN1_GENERALIZEDTIME *revoked = nullptr, *thisUpdate = nullptr, *nextUpdate = nullptr;
        const int status =
            OCSP_single_get0_status(single, &reason, &revoked, &thisUpdate, &nextUpdate);
        out << "entry " << Oid(algorithm) << " " << Hex(nameHash->data, nameHash->length) << " "
            << Hex(issuerKeyHash->data, issuerKeyHash->length) << " " << Serial(serialHex)
            << " status " << status << " " << Time(revoked) << " " << reason << " "
            << Time(thisUpdate) << " " << Time(nextUpdate) << " extensions "
            << OCSP_SINGLERESP_get_ext_count(single) << "\n";
        OPENSSL_free(serialHex);
        BN_free(number);
    }
    for (int i = 0; i < OCSP_BASICRESP_get_ext_count(bs.get()); ++i) {
        X509_EXTENSION* extension = OCSP_BASICRESP_get_ext(bs.get(), i);
        const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(extension);
        out << "extension " << Oid(X509_EXTENSION_get_object(extension)) << " "
            << X509_EXTENSION_get_critical(extension) << " " << Hex(value->data, value->length)
            << "\n";
    }
    const ASN1_OBJECT* signatureOid = nullptr;
    X509_ALGOR_get0(&signatureOid, nullptr, nullptr, OCSP_resp_get0_tbs_sigalg(bs.get()));
    const ASN1_OCTET_STRING* signature = OCSP_resp_get0_signature(bs.get());
    out << "signature " << Oid(signatureOid) << " " << Hex(signature->data, signature->length)
        << "\n";
    const STACK_OF(X509)* certs = OCSP_resp_get0_certs(bs.get());
    for (int i = 0; i < sk_X509_num(certs); ++i) {
        out << "cert " << DerHex(sk_X509_value(certs, i), i2d_X509) << "\n";
    }
    return out.str();
}

std::string OurView(const CBasicResponse& response) {
    std::ostringstream out;
    const CResponderID& id = response.get_responderID();
    out << (id.get_type() == CResponderID::byName ? "name " : "key ") << HexOf(id.get_value())
        << "\nproduced " << response.get_producedAt().seconds() << "\n";
    // OpenSSL's codes: good 0, revoked 1, unknown 2; no reason -1.
    for (const CSingleResponse& entry : response.get_responses()) {
        const CCertID& certId = *entry.get_reqCert().get_certID();
        const CCertStatus& status = entry.get_certStatus();
        const CrlReason* reason = status.get_revocationReason();
        const CExtensions* extensions = entry.get_singleExtensions();
        out << "entry " << certId.get_hashAlgorithm().get_algorithm() << " "
            << HexOf(certId.get_issuerNameHash()) << " " << HexOf(certId.get_issuerKeyHash()) << " "
            << Serial(certId.get_serialNumber().ToHex()) << " status " << status.get_type() << " "
            << Time(status.get_revocationTime()) << " "
            << (reason != nullptr ? static_cast<int>(*reason) : -1) << " "
            << Time(&entry.get_thisUpdate()) << " " << Time(entry.get_nextUpdate())
            << " extensions " << (extensions != nullptr ? extensions->size() : 0) << "\n";
    }
    if (const CExtensions* extensions = response.get_responseExtensions()) {
        for (const CExtension& extension : *extensions) {
            out << "extension " << extension.get_extnID() << " " << extension.get_critical() << " "
                << HexOf(extension.get_extnValue()) << "\n";
        }
    }
    out << "signature " << response.get_signatureAlgorithm()->get_algorithm() << " "
        << HexOf(*response.get_signature()) << "\n";
    if (const CBlobList* certs = response.get_certs()) {
        for (const CBlob& certificate : *certs) {
            out << "cert " << HexOf(certificate) << "\n";
        }
    }
    return out.str();
}

// A response of our own making, of four entries of every status with and without the
// optional fields, two certificates and a nonce, signed by the RSA responder.
CBasicResponse OurResponse(CResponderID::Type type) {
    const CBlob null(Bytes{0x05, 0x00});
    const CAlgorithmIdentifierEx sha1("1.3.14.3.2.26", &null);
    const CDateTime thisUpdate(1767323045, 0);
    const CDateTime nextUpdate(1767928800, 0);
    const CrlReason superseded = ASN1::superseded;
    const auto entry = [&](const char* leaf, const CCertStatus& status) {
        return CSingleResponse(CCertID(sha1, Pki("rsa", leaf), Pki("rsa", "inter")), status,
                               thisUpdate);
    };
    CSingleResponseList entries;
    CCertStatus good;
    good.put_good();
    entries.push_back(entry("leaf", good));
    entries.push_back(entry("leaf00", CCertStatus(CDateTime(1764547200, 0), &superseded)));
    entries.push_back(entry("client", CCertStatus()));
    entries.back().put_nextUpdate(&nextUpdate);
    entries.push_back(entry("leaf20", CCertStatus(CDateTime(1764547200, 0), nullptr)));

    CBasicResponse response(CDateTime(1767323046, 0),
                            CResponderID::fromCert(type, Pki("rsa", "ocsp")));
    response.put_responses(entries);
    CBlobList certs;
    certs.push_back(Pki("rsa", "ocsp"));
    certs.push_back(Pki("rsa", "inter"));
    response.put_certs(&certs);
    CExtensions nonce;
    nonce.push_back(CExtension("1.3.6.1.5.5.7.48.1.2", false, CBlob(FromHex("0404cafef00d"))));
    response.put_responseExtensions(&nonce);
    const velmor_test::KeyProvider key("pki/rsa/ocsp.key.pem", Win32::PROV_RSA_FULL);
    response.sign(key.get(), Win32::AT_SIGNATURE,
                  CAlgorithmIdentifierEx("1.2.840.113549.1.1.11", &null));
    return response;
}

} // namespace

TEST(BasicResponsePeers, PeerResponsesDecodeAsOpensslReadsThemAndEncodeUnchanged) {
    // Every response is also decoded into one object that held the previous one.
    CBasicResponse reused;
    for (const auto& peer : kPeerResponses) {
        SCOPED_TRACE(peer.file);
        const CBlob der = BasicBody(peer.file);
        CBasicResponse response;
        response.decode(der);
        EXPECT_EQ(response.get_version(), v1);
        EXPECT_EQ(OurView(response), OpensslView(der));
        EXPECT_EQ(HexOf(response.encode()), HexOf(der));
        reused.decode(der);
        EXPECT_EQ(OurView(reused), OurView(response));

        // The responder identifier the peer wrote is the one we derive from its certificate.
        const CResponderID& id = response.get_responderID();
        const CResponderID derived =
            CResponderID::fromCert(id.get_type(), Pki(peer.family, "ocsp"));
        EXPECT_EQ(derived, id);
        EXPECT_EQ(HexOf(derived.get_value()), HexOf(id.get_value()));
        EXPECT_NE(CResponderID::fromCert(id.get_type(), Pki(peer.family, "client")), id);
    }
}

TEST(BasicResponsePeers, EntriesAsThePeersWereAskedToWriteThem) {
    // Not resting on OpenSSL's parser: serial, status, reason, nextUpdate of each entry, and
    // the number of certificates, as make-responses.sh asked for them.
    const auto statuses = [](const char* file) {
        CBasicResponse response;
        response.decode(BasicBody(file));
        std::string text;
        for (const CSingleResponse& entry : response.get_responses()) {
            const CCertStatus& status = entry.get_certStatus();
            const CrlReason* reason = status.get_revocationReason();
            text += entry.get_reqCert().get_certID()->get_serialNumber().ToHex() + " " +
                    std::to_string(status.get_type()) +
                    (reason != nullptr ? "(" + std::to_string(*reason) + ")" : "") +
                    (entry.get_nextUpdate() != nullptr ? "+next;" : ";");
        }
        return text + std::to_string(response.get_certs() ? response.get_certs()->size() : 0);
    };
    EXPECT_EQ(statuses("ocsp/resp-mixed-rsa.der"),
              "1001 0+next;8F3A5C11D2 1(1)+next;3001 2+next;"
              "7E1D2C3B4A59687786950A1B2C3D4E5F60718293 0+next;2");
    EXPECT_EQ(statuses("ocsp/resp-py-key-ec.der"), "8F3A5C11D2 1+next;1");
}

TEST(BasicResponsePeers, OpensslReadsWhatWeWrite) {
    for (const auto type : {CResponderID::byName, CResponderID::byKey}) {
        const CBasicResponse response = OurResponse(type);
        EXPECT_EQ(OpensslView(response.encode()), OurView(response));
    }
}

TEST(BasicResponsePeers, PythonCryptographyReadsWhatWeWrite) {
    ASSERT_TRUE(velmor_test::HavePythonCryptography());
    CResponseMessage message;
    message.put_responseStatus(successful);
    const CBlob der = OurResponse(CResponderID::byKey).encode();
    message.put_response("1.3.6.1.5.5.7.48.1.1", &der);
    const std::string file = WriteTempFile(BytesOf(message.encode()), "ours.der");
    const std::string script = R"(
import sys
from cryptography.x509 import ocsp
r = ocsp.load_der_ocsp_response(open(sys.argv[1], 'rb').read())
print(r.responder_key_hash.hex(), r.produced_at_utc.isoformat(), len(r.certificates))
for s in r.responses:
    print(format(s.serial_number, 'X'), s.certificate_status.name,
          s.revocation_reason.name if s.revocation_reason else '-',
          s.next_update_utc.isoformat() if s.next_update_utc else '-')
print([e.oid.dotted_string for e in r.extensions])
)";
    const std::string scriptFile = WriteTempFile(Bytes(script.begin(), script.end()), "read.py");
    std::string output;
    ASSERT_EQ(RunCommand(velmor_test::Python() + " " + scriptFile + " " + file + " 2>&1", &output),
              0)
        << output;
    const CResponderID key = CResponderID::fromCert(CResponderID::byKey, Pki("rsa", "ocsp"));
    EXPECT_EQ(output, HexOf(key.get_value()) +
                          " 2026-01-02T03:04:06+00:00 2\n"
                          "1001 GOOD - -\n"
                          "8F3A5C11D2 REVOKED superseded -\n"
                          "3001 UNKNOWN - 2026-01-09T03:20:00+00:00\n"
                          "7E1D2C3B4A59687786950A1B2C3D4E5F60718293 REVOKED - -\n"
                          "['1.3.6.1.5.5.7.48.1.2']\n");
}

TEST(BasicResponsePeers, BerTbsResponseDataKeptAsReceivedAndWrittenAsDer) {
    // resp-nocerts-rsa with tbsResponseData and the whole response re-headed in two BER
    // forms, its tbsResponseData signed anew by OpenSSL with the responder key.
    const Bytes der = BytesOf(BasicBody("ocsp/resp-nocerts-rsa.der"));
    FILE* keyFile = std::fopen(DataPath("pki/rsa/ocsp.key.pem").c_str(), "rb");
    ASSERT_NE(keyFile, nullptr);
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        PEM_read_PrivateKey(keyFile, nullptr, nullptr, nullptr), EVP_PKEY_free);
    std::fclose(keyFile);
    ASSERT_TRUE(key);

    CBasicResponse original;
    original.decode(CBlob(der));
    const Bytes derTbs = BytesOf(Detail::Records::Of(original).signedPart.received);
    const Bytes sha256WithRsa = FromHex("300d06092a864886f70d01010b0500");

    for (const auto form : {velmor_test::BerForm::indefinite, velmor_test::BerForm::longLength}) {
        velmor_test::Decoded<ASN1T_BasicOCSPResponse> parts(velmor_test::Reheaded(der, form));
        ASSERT_EQ(parts.status, 0);
        const ASN1OpenType& tbsRaw = parts.value.tbsResponseData.raw;
        const Bytes tbs(tbsRaw.data, tbsRaw.data + tbsRaw.numocts);
        ASSERT_NE(tbs, derTbs);

        std::size_t size = 256;
        Bytes signature(size);
        std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> md(EVP_MD_CTX_new(),
                                                                   EVP_MD_CTX_free);
        ASSERT_EQ(EVP_DigestSignInit(md.get(), nullptr, EVP_sha256(), nullptr, key.get()), 1);
        ASSERT_EQ(EVP_DigestSign(md.get(), signature.data(), &size, tbs.data(), tbs.size()), 1);
        const Bytes bits = Tlv(0x03, Cat({Bytes{0x00}, signature}));
        const Bytes message = Tlv(0x30, Cat({tbs, sha256WithRsa, bits}));

        CBasicResponse response;
        response.decode(CBlob(message));
        EXPECT_EQ(HexOf(Detail::Records::Of(response).signedPart.received), ToHex(tbs));
        // What we keep is what OpenSSL signed: the signature checks over it with the
        // responder's public key.
        const Bytes kept = BytesOf(Detail::Records::Of(response).signedPart.received);
        std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> check(EVP_MD_CTX_new(),
                                                                      EVP_MD_CTX_free);
        ASSERT_EQ(EVP_DigestVerifyInit(check.get(), nullptr, EVP_sha256(), nullptr, key.get()), 1);
        EXPECT_EQ(EVP_DigestVerify(check.get(), response.get_signature()->pbData(),
                                   response.get_signature()->cbData(), kept.data(), kept.size()),
                  1);

        // Written out, it is DER again: the original tbsResponseData, the new signature.
        EXPECT_EQ(HexOf(response.encode()), ToHex(Tlv(0x30, Cat({derTbs, sha256WithRsa, bits}))));
        EXPECT_EQ(HexOf(Detail::Records::Of(response).EncodeTbsResponseData()), ToHex(derTbs));
        // Ours checks the signature over the BER it received, where most peers re-encode
        // and fail. A copy keeps no received octets and hashes the DER, which was not signed.
        EXPECT_TRUE(response.verify(Pki("rsa", "ocsp")));
        const CBasicResponse copy = response;
        EXPECT_EQ(Detail::Records::Of(copy).signedPart.received.cbData(), 0u);
        EXPECT_FALSE(copy.verify(Pki("rsa", "ocsp")));
    }
}
