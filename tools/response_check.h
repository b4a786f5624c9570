// Checking a response as a client does before it believes it: `verify` checks a response
// from a file, `query` the one a responder sent back. Both print the same report and exit
// with the same codes.
#ifndef VELMOR_TOOLS_RESPONSE_CHECK_H
#define VELMOR_TOOLS_RESPONSE_CHECK_H

#include "request_builder.h"

#include <pki/ocsp/blob.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/response_validator.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace VelmorTool {

// What the response validator is given besides the response and the certificates.
struct CheckSettings {
    std::vector<std::string> responders; // trusted responder certificates, files of one or more
    std::string candidates;              // a file of further certificates that may have signed
    std::int64_t skew = 300;             // seconds
    std::optional<std::int64_t> maxAge;  // seconds
    std::string at;                      // the validation time; empty for now
};
// --responder (repeatable), --CAfile, --skew, --max-age and --at.
void AddCheckOptions(CLI::App& command, CheckSettings& settings);

// The files a check reads, read before the response is looked at, so that a missing file is
// reported as such whatever the response says.
class ResponseCheck {
  public:
    // Reads the certificates and parses the time; request (null for none) gives the nonce the
    // response must carry.
    ResponseCheck(const AskedCertificates& asked, const CheckSettings& settings,
                  const Velmor::PKI::OCSP::CRequestMessage* request);

    // Checks der, the OCSPResponse that source (a file or a URL) gave, about every
    // certificate; prints the status of each and every check that failed on standard output
    // and returns the exit code. An error status or a message that is no basic response ends
    // the command (ToolError).
    int run(const std::string& source, const Velmor::CBlob& der) const;

  private:
    struct Certificate {
        std::string path;
        Velmor::CBlob der;
    };
    Velmor::CBlob m_issuer;
    std::vector<Certificate> m_certificates;
    Velmor::PKI::OCSP::CResponseValidator m_validator;
};

} // namespace VelmorTool

#endif
