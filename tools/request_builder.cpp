#include "request_builder.h"

#include "algorithms.h"
#include "certificate.h"
#include "exit_status.h"
#include "input.h"

#include <CLI/CLI.hpp>
#include <openssl/rand.h>
#include <pki/ocsp/atl_exception.h>

namespace VelmorTool {

namespace {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

constexpr unsigned char kDerNull[] = {0x05, 0x00};
constexpr std::size_t kNonceSize = 16;

// The nonce extension as OpenSSL and Python send it: random octets in an OCTET STRING.
ASN1::CExtension NonceExtension() {
    unsigned char value[2 + kNonceSize] = {0x04, kNonceSize};
    if (RAND_bytes(value + 2, static_cast<int>(kNonceSize)) != 1) {
        throw ToolError(kFileError, "no random octets for the nonce");
    }
    return ASN1::CExtension(kNonceOid, false, CBlob(value, sizeof value));
}

} // namespace

void AddAskedCertificateOptions(CLI::App& command, AskedCertificates& asked) {
    command.add_option("--issuer", asked.issuer, "Certificate of the issuer (PEM or DER)")
        ->required();
    command
        .add_option("--cert", asked.certificates,
                    "Certificate to ask about (PEM or DER); repeat for more")
        ->required();
}

void AddRequestContentOptions(CLI::App& command, RequestContent& content) {
    AddAskedCertificateOptions(command, content.asked);
    command.add_option("--hash", content.hash, "Hash of the certificate IDs")
        ->check(CLI::IsMember(HashNames()))
        ->capture_default_str();
    command.add_flag("--nonce,!--no-nonce", content.nonce,
                     "Add a nonce of 16 random octets (the default), or leave it out");
}

CRequestMessage BuildRequest(const RequestContent& content) {
    const AskedCertificates& asked = content.asked;
    const CBlob issuer = ReadCertificate(asked.issuer);
    const CBlob parameters(kDerNull, sizeof kDerNull);
    CSingleRequestList entries;
    for (const std::string& path : asked.certificates) {
        const CBlob certificate = ReadCertificate(path);
        if (!IsIssuerOf(issuer, certificate)) {
            FailFile(path, "was not issued by " + asked.issuer);
        }
        const ASN1::CAlgorithmIdentifierEx hash(HashOid(content.hash), &parameters);
        try {
            entries.push_back(CSingleRequest(CReqCert(CCertID(hash, certificate, issuer))));
        } catch (const ATL::CAtlException& e) {
            FailFile(path,
                     std::string("gives no certificate ID with ") + asked.issuer + ": " + e.what());
        }
    }
    CRequestMessage request;
    request.put_requestList(entries);
    if (content.nonce) {
        ASN1::CExtensions extensions;
        extensions.push_back(NonceExtension());
        request.put_requestExtensions(&extensions);
    }
    return request;
}

} // namespace VelmorTool
