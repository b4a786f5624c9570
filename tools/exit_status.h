// What the program's exit code says, and the error that ends a command early.
//
// Every command reports through these: the status of each certificate it answered or read
// about, a check that failed, an error status from a responder. The code is worked out in
// one place, so that every command that answers with statuses says the same thing.
#ifndef VELMOR_TOOLS_EXIT_STATUS_H
#define VELMOR_TOOLS_EXIT_STATUS_H

#include <pki/ocsp/single_response.h>

#include <stdexcept>
#include <string>

namespace VelmorTool {

enum ExitCode : int {
    kAllGood = 0,        // every certificate good and every check passed
    kRevoked = 1,        // some certificate revoked
    kUnknown = 2,        // some certificate unknown, none revoked
    kCheckFailed = 3,    // a check failed
    kResponderError = 4, // the responder answered with an error status
    kFileError = 5, // a file (or the transport) failed: missing, unreadable, not what it should be
    kUsage = 64,    // the command line is wrong
};

// The exit codes as the help text and the README list them.
extern const char* const kExitCodeHelp;

// Ends a command with a code and one line for stderr. The line names what was wrong and,
// for a file, which file ("FILE: what").
class ToolError : public std::runtime_error {
  public:
    ToolError(ExitCode code, const std::string& message);
    ExitCode code() const noexcept { return m_code; }

  private:
    ExitCode m_code;
};

// A file that is missing, unreadable or not what it should be.
[[noreturn]] void FailFile(const std::string& path, const std::string& what);
// A command line that cannot work (options that contradict each other, a bad value).
[[noreturn]] void FailUsage(const std::string& what);

// Collects what a command found and gives the exit code: a failed check outranks an error
// status, which outranks a revoked certificate, which outranks an unknown one.
class Outcome {
  public:
    void add(Velmor::PKI::OCSP::CCertStatus::Type status) noexcept;
    void checkFailed() noexcept { m_checkFailed = true; }
    void responderError() noexcept { m_responderError = true; }
    ExitCode code() const noexcept;

  private:
    bool m_checkFailed = false;
    bool m_responderError = false;
    bool m_revoked = false;
    bool m_unknown = false;
};

} // namespace VelmorTool

#endif
