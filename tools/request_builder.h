// The request a client sends about certificates of one issuer: what `request` writes and
// what `query` sends. The options that choose its content are added to either command the
// same way.
#ifndef VELMOR_TOOLS_REQUEST_BUILDER_H
#define VELMOR_TOOLS_REQUEST_BUILDER_H

#include <pki/ocsp/request_message.h>

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace VelmorTool {

// The certificates asked about, all of one issuer (paths of PEM or DER files).
struct AskedCertificates {
    std::string issuer;
    std::vector<std::string> certificates;
};
// --issuer and --cert (repeatable), both required.
void AddAskedCertificateOptions(CLI::App& command, AskedCertificates& asked);

struct RequestContent {
    AskedCertificates asked;
    std::string hash = "sha1";
    bool nonce = true;
};
// The options above, --hash and --nonce/--no-nonce.
void AddRequestContentOptions(CLI::App& command, RequestContent& content);

// One entry per certificate, its CertID hashed with content.hash (parameters NULL), and a
// nonce of 16 random octets unless content.nonce is off. A certificate that the issuer did
// not issue is refused (a file error naming it).
Velmor::PKI::OCSP::CRequestMessage BuildRequest(const RequestContent& content);

} // namespace VelmorTool

#endif
