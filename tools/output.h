// Writing the messages the commands make: DER, or PEM or base64 on request.
#ifndef VELMOR_TOOLS_OUTPUT_H
#define VELMOR_TOOLS_OUTPUT_H

#include <pki/ocsp/blob.h>

#include <string>

namespace CLI {
class App;
}

namespace VelmorTool {

enum class OutputForm { der, pem, base64 };

// The --pem and --base64 flags of a command that writes a message; they exclude each other.
struct OutputOptions {
    bool pem = false;
    bool base64 = false;
    OutputForm form() const noexcept;
};
void AddOutputOptions(CLI::App& command, OutputOptions& options);

// Writes der to path ("-" is standard output) in the form asked for; a PEM block carries
// pemLabel ("OCSP REQUEST", "OCSP RESPONSE"). Base64 is one line with a line end.
void WriteMessage(const std::string& path, const Velmor::CBlob& der, const std::string& pemLabel,
                  OutputForm form);

} // namespace VelmorTool

#endif
