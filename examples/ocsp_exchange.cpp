// The end-to-end OCSP exchange: what a client and a responder do with the library.
//
// The client asks about the fixture leaf certificate: a request with two entries (the
// leaf's CertID with SHA-1 and with SHA-256), a nonce and the client's name as requestor,
// signed with the client's RSA key and carrying the client's certificate. The responder
// decodes the request, prints what it asks, verifies the signature against the client
// certificate, and answers: first "try later" (an error response without a body), then with
// the signed answer of a real OCSP responder, which the client checks arrived byte for byte.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <pki/ocsp/ocsp.h>
#include <string>
#include <vector>

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

namespace {

CBlob ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    return CBlob(std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {}));
}

std::string Hex(const CBlob& blob, std::size_t limit) {
    static const char* const digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < blob.cbData() && i < limit; ++i) {
        text += digits[blob.pbData()[i] >> 4];
        text += digits[blob.pbData()[i] & 15];
    }
    return blob.cbData() > limit ? text + "..." : text;
}

constexpr const char* kSha1 = "1.3.14.3.2.26";
constexpr const char* kSha256 = "2.16.840.1.101.3.4.2.1";
constexpr const char* kSha256WithRsa = "1.2.840.113549.1.1.11";
constexpr const char* kNonce = "1.3.6.1.5.5.7.48.1.2";

CBlob Fixture(const std::string& name) { return ReadFile(VELMOR_EXAMPLE_DATA_DIR "/" + name); }

// The element of der that starts at offset: its whole length (header included), or 0 when
// the bytes end too early.
std::size_t ElementSize(const CBlob& der, std::size_t offset) {
    const unsigned char* p = der.pbData() + offset;
    const std::size_t left = der.cbData() - offset;
    if (left < 2) {
        return 0;
    }
    std::size_t header = 2;
    std::size_t length = p[1];
    if ((p[1] & 0x80) != 0) {
        header += p[1] & 0x7f;
        length = 0;
        for (std::size_t i = 2; i < header && i < left; ++i) {
            length = (length << 8) | p[i];
        }
    }
    return header + length <= left ? header + length : 0;
}

// The subject Name of a DER certificate: the sixth element of TBSCertificate when it has a
// version, the fifth otherwise.
CBlob SubjectName(const CBlob& certificate) {
    std::size_t at = 4; // inside Certificate, at TBSCertificate
    at += certificate.pbData()[at + 1] & 0x80 ? 2 + (certificate.pbData()[at + 1] & 0x7f) : 2;
    const bool versioned = certificate.pbData()[at] == 0xa0;
    for (int skip = versioned ? 5 : 4; skip > 0; --skip) {
        at += ElementSize(certificate, at);
    }
    return CBlob(certificate.pbData() + at,
                 static_cast<unsigned long>(ElementSize(certificate, at)));
}

CRequestMessage BuildRequest(const CBlob& leaf, const CBlob& issuer, const CBlob& client) {
    const CBlob null(std::string_view("\x05\x00", 2));
    CSingleRequestList entries;
    for (const char* hash : {kSha1, kSha256}) {
        const ASN1::CAlgorithmIdentifierEx algorithm(hash, &null);
        entries.push_back(CSingleRequest(CReqCert(CCertID(algorithm, leaf, issuer))));
    }
    CRequestMessage request;
    request.put_requestList(entries);
    const CBlob requestor = SubjectName(client);
    request.put_requestorName(&requestor);
    ASN1::CExtensions extensions;
    extensions.push_back(
        ASN1::CExtension(kNonce, false, CBlob(std::string_view("\x04\x08velmor-1", 10))));
    request.put_requestExtensions(&extensions);
    return request;
}

void SignRequest(CRequestMessage& request, const CBlob& client) {
    // The provider holds the private key named by its container: here a PEM file.
    const std::string path = VELMOR_EXAMPLE_DATA_DIR "/pki/rsa/client.key.pem";
    const std::wstring key(path.begin(), path.end());
    Win32::HCRYPTPROV provider = 0;
    if (!Win32::CryptAcquireContextW(&provider, key.c_str(), nullptr, Win32::PROV_RSA_FULL, 0)) {
        ATL::AtlThrowLastWin32();
    }
    CBlobList certificates;
    certificates.push_back(client);
    try {
        request.sign(provider, Win32::AT_SIGNATURE, ASN1::CAlgorithmIdentifierEx(kSha256WithRsa),
                     &certificates);
    } catch (...) {
        Win32::CryptReleaseContext(provider, 0);
        throw;
    }
    Win32::CryptReleaseContext(provider, 0);
}

// The responder side: what a received request asks.
void DescribeRequest(const CRequestMessage& request) {
    std::printf("responder: request v%d, %llu entries", request.get_version() + 1,
                static_cast<unsigned long long>(request.get_requestList().size()));
    if (request.get_requestorName() != nullptr) {
        std::printf(", requestor name of %lu octets", request.get_requestorName()->cbData());
    }
    if (request.get_requestExtensions() != nullptr) {
        for (const ASN1::CExtension& extension : *request.get_requestExtensions()) {
            std::printf(", extension %s", extension.get_extnID());
        }
    }
    std::printf("\n");
    for (const CSingleRequest& entry : request.get_requestList()) {
        const CCertID* id = entry.get_reqCert().get_certID();
        if (id != nullptr) {
            std::printf("responder:   serial %s, hash %s, issuer key hash %s\n",
                        id->get_serialNumber().ToHex().c_str(),
                        id->get_hashAlgorithm().get_algorithm(),
                        Hex(id->get_issuerKeyHash(), 8).c_str());
        }
    }
    if (request.get_signatureAlgorithm() != nullptr) {
        std::printf("responder:   signed with %s, %lu signature octets, %llu certificates\n",
                    request.get_signatureAlgorithm()->get_algorithm(),
                    request.get_signature()->cbData(),
                    static_cast<unsigned long long>(
                        request.get_signatureCerts() ? request.get_signatureCerts()->size() : 0));
    }
}

const char* StatusName(ResponseStatus status) {
    switch (status) {
    case successful:
        return "successful";
    case malformedRequest:
        return "malformedRequest";
    case internalError:
        return "internalError";
    case tryLater:
        return "tryLater";
    case sigRequired:
        return "sigRequired";
    case unauthorized:
        return "unauthorized";
    }
    return "unknown";
}

// The client side: what a received response says.
void Describe(const char* label, const CBlob& wire) {
    CResponseMessage received;
    received.decode(wire);
    std::printf("client: %s: status %s", label, StatusName(received.get_responseStatus()));
    if (received.get_response() != nullptr) {
        std::printf(", body of type %s, %lu octets", received.get_responseType(),
                    received.get_response()->cbData());
    }
    std::printf("\n");
}

} // namespace

int main() {
    std::printf("velmor-ocsp %d.%d.%d\n", VELMOR_OCSP_VERSION_MAJOR, VELMOR_OCSP_VERSION_MINOR,
                VELMOR_OCSP_VERSION_PATCH);
    try {
        // Client: build, sign and encode the request.
        const CBlob leaf = Fixture("pki/rsa/leaf.der");
        const CBlob client = Fixture("pki/rsa/client.der");
        CRequestMessage request = BuildRequest(leaf, Fixture("pki/rsa/inter.der"), client);
        SignRequest(request, client);
        const CBlob requestWire = request.encode();
        std::printf("client: signed request, %lu octets -> %s\n", requestWire.cbData(),
                    Hex(requestWire, 16).c_str());

        // Responder: decode, read and verify it.
        CRequestMessage received;
        received.decode(requestWire);
        DescribeRequest(received);
        const bool verified = received.verify(client);
        std::printf("responder: signature %s\n", verified ? "verified" : "DOES NOT VERIFY");

        // Responder: busy, so it answers without a body.
        CResponseMessage busy;
        busy.put_responseStatus(tryLater);
        const CBlob busyWire = busy.encode();
        std::printf("responder: tryLater -> %s\n", Hex(busyWire, 16).c_str());
        Describe("first answer", busyWire);

        // Responder: forwards the signed basic response of a real OCSP responder.
        const CBlob upstream = ReadFile(VELMOR_EXAMPLE_DATA_DIR "/ocsp/resp-good-rsa.der");
        CResponseMessage forwarded;
        forwarded.decode(upstream);
        const CBlob forwardedWire = forwarded.encode();
        std::printf("responder: forwards %lu octets -> %s\n", forwardedWire.cbData(),
                    Hex(forwardedWire, 16).c_str());
        Describe("second answer", forwardedWire);
        const bool same = forwardedWire == upstream;
        std::printf("client: the answer arrived %s\n", same ? "unchanged" : "CHANGED");

        // A client that receives garbage gets an exception with a code, never a crash.
        try {
            Describe("garbage", CBlob(std::string_view("\x30\x05\x0a\x01", 4)));
        } catch (const ATL::CAtlException& e) {
            std::printf("client: garbage rejected with %s\n", e.what());
        }
        return same && verified ? 0 : 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "exchange failed: %s\n", e.what());
        return 1;
    }
}
