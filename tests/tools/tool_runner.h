// Runs the built velmor-ocsp program as a child process and collects what it did.
#ifndef VELMOR_TESTS_TOOLS_TOOL_RUNNER_H
#define VELMOR_TESTS_TOOLS_TOOL_RUNNER_H

#include <ctime>
#include <string>
#include <sys/types.h>
#include <vector>

#include "support/test_support.h"

namespace velmor_test {

struct ToolRun {
    int exitCode = -1; // -1 when the program did not exit normally (a crash)
    std::string out;
    std::string err;
};

// Starts argv (argv[0] a path, or a program found on PATH) with standard input from
// /dev/null and standard output and error written to the two files; 0 when it cannot start.
pid_t Spawn(std::vector<std::string> argv, const std::string& outPath, const std::string& errPath);

// Runs velmor-ocsp with args, standard input from /dev/null.
ToolRun RunTool(const std::vector<std::string>& args);

// A command that must fail: its exit code and the one line it writes on stderr.
struct BadInput {
    std::vector<std::string> args;
    int exitCode;
    std::string message; // the whole line, without "velmor-ocsp: " and the line end
};
// Runs c.args and expects c.exitCode, that line and nothing else on stderr.
void ExpectOneLine(const BadInput& c);

// velmor-ocsp request about leaves of a family ("rsa" or "ec", the DER files) under the
// family's intermediate CA, with more options, written to out.
ToolRun RunRequest(const std::string& family, const std::vector<std::string>& leaves,
                   const std::string& out, const std::vector<std::string>& more = {});

// A path for a file in a directory of this test process (removed when the process ends).
std::string ScratchPath(const std::string& name);

// The fixture PKI files of a family ("rsa" or "ec").
std::string Pki(const std::string& family, const std::string& file);

// The lines of a text, without their line ends.
std::vector<std::string> Lines(const std::string& text);

// A time as the program prints it: 2026-01-31T12:00:00Z.
std::string IsoTime(std::time_t time);
// The text with every time that `openssl ocsp` prints ("Jan  1 00:00:00 2026 GMT") written
// as the program prints times.
std::string WithIsoTimes(const std::string& opensslText);

// Runs a Python script (given as text) with the interpreter the build found; returns its
// exit status and fills its standard output (its standard error goes there too).
int RunPython(const std::string& script, const std::vector<std::string>& args, std::string* output);

} // namespace velmor_test

#endif
