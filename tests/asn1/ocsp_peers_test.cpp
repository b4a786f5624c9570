// The request structures against Python's cryptography package: the requests that its
// OCSPRequestBuilder writes decode to the fields it reports and encode from those fields to
// the same octets, and a request built here field by field is read by it as meant.
#include "asn1/ocsp_types.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>

#include "support/asn1_test_support.h"
#include "support/test_support.h"

using velmor_test::Bytes;
using velmor_test::Decoded;
using velmor_test::FromHex;
using velmor_test::RunCommand;
using velmor_test::ToHex;
using velmor_test::WriteTempFile;

namespace {

constexpr const char* kScript = R"(import sys
from cryptography import x509
from cryptography.x509 import ocsp
from cryptography.hazmat.primitives import hashes, serialization

def load(path):
    with open(path, "rb") as f:
        return x509.load_der_x509_certificate(f.read())

def nonce_of(request):
    for extension in request.extensions:
        if isinstance(extension.value, x509.OCSPNonce):
            return extension.value.nonce.hex()
    return "-"

if sys.argv[1] == "make":
    pki = sys.argv[2]
    cases = (("leaf", hashes.SHA1(), None), ("leaf00", hashes.SHA256(), bytes(range(16))),
             ("leaf20", hashes.SHA384(), b"velmor"))
    for kind in ("rsa", "ec"):
        issuer = load(pki + "/" + kind + "/inter.der")
        for name, algorithm, nonce in cases:
            cert = load(pki + "/" + kind + "/" + name + ".der")
            builder = ocsp.OCSPRequestBuilder().add_certificate(cert, issuer, algorithm)
            if nonce is not None:
                builder = builder.add_extension(x509.OCSPNonce(nonce), critical=False)
            request = builder.build()
            print(request.public_bytes(serialization.Encoding.DER).hex(),
                  format(request.serial_number, "X"), request.hash_algorithm.name,
                  nonce_of(request))
else:
    with open(sys.argv[2], "rb") as f:
        request = ocsp.load_der_ocsp_request(f.read())
    print(format(request.serial_number, "X"), request.hash_algorithm.name,
          request.issuer_name_hash.hex(), request.issuer_key_hash.hex(), nonce_of(request))
)";

std::string RunPeer(const std::string& arguments) {
    const std::string script =
        WriteTempFile(Bytes(kScript, kScript + std::strlen(kScript)), "ocsp_request_peer.py");
    std::string output;
    EXPECT_EQ(RunCommand(velmor_test::Python() + " " + script + " " + arguments + " 2>&1", &output),
              0)
        << output;
    return output;
}

// Contents octets of the hash algorithms' OBJECT IDENTIFIERs, by the name Python gives them.
std::string HashOid(const std::string& name) {
    return name == "sha1"     ? "2b0e03021a"
           : name == "sha256" ? "608648016503040201"
           : name == "sha384" ? "608648016503040202"
                              : "unknown " + name;
}

// The serial in Python's %X form: no "0x", no sign octets, upper case.
std::string PrintedSerial(const char* text) {
    std::string hex = std::string(text).substr(2);
    while (hex.size() > 2 && hex.compare(0, 2, "00") == 0) {
        hex.erase(0, 2);
    }
    for (char& c : hex) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return hex;
}

TEST(OcspRequestPeers, PythonRequestsDecodeAndEncodeFromFieldsToTheSameBytes) {
    ASSERT_TRUE(velmor_test::HavePythonCryptography());
    std::istringstream lines(RunPeer("make " + velmor_test::DataPath("pki")));
    std::string hex, serial, hash, nonce;
    int count = 0;
    while (lines >> hex >> serial >> hash >> nonce) {
        SCOPED_TRACE(hex);
        ++count;
        Decoded<ASN1T_OCSPRequest> req(FromHex(hex));
        ASSERT_EQ(req.status, 0) << req.buffer.getErrorText();
        ASN1T_TBSRequest& tbs = req.value.tbsRequest;
        ASSERT_EQ(tbs.requestList.count, 1u);
        const auto& entry = *static_cast<const ASN1T_Request*>(tbs.requestList.head->data);
        ASSERT_EQ(entry.reqCert.t, T_ReqCert_certID);
        EXPECT_EQ(PrintedSerial(entry.reqCert.u.certID->serialNumber), serial);
        EXPECT_EQ(ToHex(entry.reqCert.u.certID->hashAlgorithm.algorithm.data,
                        entry.reqCert.u.certID->hashAlgorithm.algorithm.numocts),
                  HashOid(hash));
        ASSERT_EQ(tbs.m.requestExtensionsPresent, nonce != "-");
        if (nonce != "-") {
            const auto& ext =
                *static_cast<const ASN1T_Extension*>(tbs.requestExtensions.head->data);
            EXPECT_EQ(ToHex(ext.extnValue.data, ext.extnValue.numocts).substr(4), nonce);
        }
        tbs.raw = {};
        ASN1BEREncodeBuffer out;
        ASN1C_OCSPRequest control(out, req.value);
        const int length = control.Encode();
        ASSERT_GT(length, 0);
        EXPECT_EQ(ToHex(out.getMsgPtr(), static_cast<std::size_t>(length)), hex);
    }
    EXPECT_EQ(count, 6);
}

TEST(OcspRequestPeers, PythonReadsARequestBuiltFieldByField) {
    ASSERT_TRUE(velmor_test::HavePythonCryptography());
    ASN1BEREncodeBuffer buffer;
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    static const ASN1OCTET sha256[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
    static const ASN1OCTET nonceOid[] = {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30, 0x01, 0x02};
    static const ASN1OCTET null[] = {0x05, 0x00};
    const Bytes nameHash(32, 0x11);
    const Bytes keyHash(32, 0x22);
    const Bytes nonce = FromHex("0408 0102030405060708");

    auto* id = rtMemNew<ASN1T_CertID>(ctxt);
    auto* request = rtMemNew<ASN1T_Request>(ctxt);
    auto* extension = rtMemNew<ASN1T_Extension>(ctxt);
    ASSERT_TRUE(id != nullptr && request != nullptr && extension != nullptr);
    id->hashAlgorithm.algorithm = {sizeof sha256, sha256};
    id->hashAlgorithm.m.parametersPresent = 1;
    id->hashAlgorithm.parameters = {sizeof null, null};
    id->issuerNameHash = {32, nameHash.data()};
    id->issuerKeyHash = {32, keyHash.data()};
    id->serialNumber = "0x008f3a5c11d2";
    request->reqCert.t = T_ReqCert_certID;
    request->reqCert.u.certID = id;
    extension->extnID = {sizeof nonceOid, nonceOid};
    extension->extnValue = {static_cast<OSUINT32>(nonce.size()), nonce.data()};

    ASN1T_OCSPRequest req{};
    ASSERT_EQ(rtDListAppend(ctxt, &req.tbsRequest.requestList, request), 0);
    req.tbsRequest.m.requestExtensionsPresent = 1;
    ASSERT_EQ(rtDListAppend(ctxt, &req.tbsRequest.requestExtensions, extension), 0);
    ASN1C_OCSPRequest control(buffer, req);
    const int length = control.Encode();
    ASSERT_GT(length, 0);

    const std::string path =
        WriteTempFile(Bytes(buffer.getMsgPtr(), buffer.getMsgPtr() + length), "built_request.der");
    EXPECT_EQ(RunPeer("read " + path), "8F3A5C11D2 sha256 " + ToHex(nameHash) + " " +
                                           ToHex(keyHash) + " 0102030405060708\n");
}

} // namespace
