#include "exit_status.h"

namespace VelmorTool {

const char* const kExitCodeHelp = "Exit codes:\n"
                                  "  0   every certificate good and every check passed\n"
                                  "  1   some certificate revoked\n"
                                  "  2   some certificate unknown, none revoked\n"
                                  "  3   a check failed\n"
                                  "  4   the responder answered with an error status\n"
                                  "  5   transport or file error (missing, unreadable or "
                                  "not what it should be)\n"
                                  "  64  usage error\n";

ToolError::ToolError(ExitCode code, const std::string& message)
    : std::runtime_error(message), m_code(code) {}

void FailFile(const std::string& path, const std::string& what) {
    throw ToolError(kFileError, path + ": " + what);
}

void FailUsage(const std::string& what) { throw ToolError(kUsage, what); }

void Outcome::add(Velmor::PKI::OCSP::CCertStatus::Type status) noexcept {
    using Velmor::PKI::OCSP::CCertStatus;
    if (status == CCertStatus::revoked) {
        m_revoked = true;
    } else if (status != CCertStatus::good) {
        m_unknown = true;
    }
}

ExitCode Outcome::code() const noexcept {
    if (m_checkFailed) {
        return kCheckFailed;
    }
    if (m_responderError) {
        return kResponderError;
    }
    if (m_revoked) {
        return kRevoked;
    }
    return m_unknown ? kUnknown : kAllGood;
}

} // namespace VelmorTool
