// The request structures against Python's cryptography package: the requests that its
// OCSPRequestBuilder writes decode to the fields it reports and encode from those fields to
// the same octets. (That the peers read the requests we write is tested with the request
// message, in tests/interop.)
#include "asn1/ocsp_types.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <utility>

#include "support/asn1_test_support.h"
#include "support/test_support.h"

using velmor_test::Bytes;
using velmor_test::Decoded;
using velmor_test::FromHex;
using velmor_test::Hex;
using velmor_test::PrintedSerial;
using velmor_test::RunCommand;
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

pki = sys.argv[1]
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
              format(request.serial_number, "X"), request.hash_algorithm.name, nonce_of(request))
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

TEST(OcspRequestPeers, PythonRequestsDecodeAndEncodeFromFieldsToTheSameBytes) {
    ASSERT_TRUE(velmor_test::HavePythonCryptography());
    std::istringstream lines(RunPeer(velmor_test::DataPath("pki")));
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
        EXPECT_EQ(Hex(entry.reqCert.u.certID->hashAlgorithm.algorithm), HashOid(hash));
        ASSERT_EQ(tbs.m.requestExtensionsPresent, nonce != "-");
        if (nonce != "-") {
            const auto& ext =
                *static_cast<const ASN1T_Extension*>(tbs.requestExtensions.head->data);
            EXPECT_EQ(Hex(ext.extnValue).substr(4), nonce);
        }
        tbs.raw = {};
        EXPECT_EQ(velmor_test::EncodeHex(req.value), hex);
    }
    EXPECT_EQ(count, 6);
}

} // namespace
