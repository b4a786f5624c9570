// velmor-ocsp request: builds the request a client sends for one or more certificates of
// one issuer, with a fresh nonce unless told otherwise, signed when given a key.
#include "algorithms.h"
#include "certificate.h"
#include "commands.h"
#include "exit_status.h"
#include "input.h"
#include "output.h"

#include <CLI/CLI.hpp>
#include <openssl/rand.h>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/crypt_provider.h>
#include <pki/ocsp/request_message.h>

#include <memory>
#include <string>
#include <vector>

namespace VelmorTool {

namespace {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

constexpr unsigned char kDerNull[] = {0x05, 0x00};
constexpr std::size_t kNonceSize = 16;

struct RequestOptions {
    std::string issuer;
    std::vector<std::string> certificates;
    std::string hash = "sha1";
    bool nonce = true;
    std::string signKey;
    std::string signer;
    std::string out;
    OutputOptions output;
};

// The nonce extension as OpenSSL and Python send it: random octets in an OCTET STRING.
ASN1::CExtension NonceExtension() {
    unsigned char value[2 + kNonceSize] = {0x04, kNonceSize};
    if (RAND_bytes(value + 2, static_cast<int>(kNonceSize)) != 1) {
        throw ToolError(kFileError, "no random octets for the nonce");
    }
    return ASN1::CExtension(kNonceOid, false, CBlob(value, sizeof value));
}

void Sign(CRequestMessage& request, const RequestOptions& options) {
    const CBlob signer = ReadCertificate(options.signer);
    const SigningKey key(options.signKey);
    const auto facts = ReadCertificateFacts(signer);
    request.put_requestorName(&facts->subjectName);
    CBlobList certificates;
    certificates.push_back(signer);
    try {
        request.sign(key.provider(), Win32::AT_SIGNATURE,
                     ASN1::CAlgorithmIdentifierEx(SignatureOid(key.type(), "sha256")),
                     &certificates);
    } catch (const ATL::CAtlException& e) {
        FailFile(options.signKey, std::string("cannot sign: ") + e.what());
    }
    if (!request.verify(signer)) {
        FailFile(options.signKey, "is not the key of the signer certificate " + options.signer);
    }
}

int Run(const RequestOptions& options) {
    const CBlob issuer = ReadCertificate(options.issuer);
    const CBlob parameters(kDerNull, sizeof kDerNull);
    CSingleRequestList entries;
    for (const std::string& path : options.certificates) {
        const CBlob certificate = ReadCertificate(path);
        if (!IsIssuerOf(issuer, certificate)) {
            FailFile(path, "was not issued by " + options.issuer);
        }
        const ASN1::CAlgorithmIdentifierEx hash(HashOid(options.hash), &parameters);
        try {
            entries.push_back(CSingleRequest(CReqCert(CCertID(hash, certificate, issuer))));
        } catch (const ATL::CAtlException& e) {
            FailFile(path, std::string("gives no certificate ID with ") + options.issuer + ": " +
                               e.what());
        }
    }
    CRequestMessage request;
    request.put_requestList(entries);
    if (options.nonce) {
        ASN1::CExtensions extensions;
        extensions.push_back(NonceExtension());
        request.put_requestExtensions(&extensions);
    }
    if (!options.signKey.empty()) {
        Sign(request, options);
    }
    WriteMessage(options.out, request.encode(), "OCSP REQUEST", options.output.form());
    return kAllGood;
}

} // namespace

Command AddRequestCommand(CLI::App& application) {
    auto options = std::make_shared<RequestOptions>();
    CLI::App* command = application.add_subcommand(
        "request", "Build an OCSP request for certificates of one issuer");
    command->add_option("--issuer", options->issuer, "Certificate of the issuer (PEM or DER)")
        ->required();
    command
        ->add_option("--cert", options->certificates,
                     "Certificate to ask about (PEM or DER); repeat for more")
        ->required();
    command->add_option("--hash", options->hash, "Hash of the certificate IDs")
        ->check(CLI::IsMember(HashNames()))
        ->capture_default_str();
    command->add_flag("--nonce,!--no-nonce", options->nonce,
                      "Add a nonce of 16 random octets (the default), or leave it out");
    CLI::Option* key = command->add_option(
        "--sign-key", options->signKey,
        "Private key that signs the request: a PEM or DER file, or an OpenSSL store URI");
    CLI::Option* signer = command->add_option(
        "--signer", options->signer, "Certificate of the signing key, sent with the request");
    key->needs(signer);
    signer->needs(key);
    command->add_option("--out", options->out, "File to write (- for standard output)")->required();
    AddOutputOptions(*command, options->output);
    return Command{command, [options] { return Run(*options); }};
}

} // namespace VelmorTool
