// velmor-ocsp: OCSP requests and responses on the command line, built on the library.
#include "commands.h"
#include "exit_status.h"

#include <CLI/CLI.hpp>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/config.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

constexpr const char* kProgram = "velmor-ocsp";

std::string VersionText() {
    return std::string(kProgram) + " " + std::to_string(VELMOR_OCSP_VERSION_MAJOR) + "." +
           std::to_string(VELMOR_OCSP_VERSION_MINOR) + "." +
           std::to_string(VELMOR_OCSP_VERSION_PATCH);
}

int Fail(int code, const std::string& message) {
    std::fprintf(stderr, "%s: %s\n", kProgram, message.c_str());
    return code;
}

} // namespace

int main(int argc, char** argv) {
    using namespace VelmorTool;
    CLI::App application("OCSP requests and responses: build, answer and show them", kProgram);
    application.set_version_flag("--version", VersionText());
    application.footer(kExitCodeHelp);
    application.require_subcommand(1);
    const std::vector<Command> commands = {
        AddRequestCommand(application), AddRespondCommand(application),
        AddShowCommand(application),    AddVerifyCommand(application),
        AddQueryCommand(application),   AddServeCommand(application),
        AddPresignCommand(application)};
    for (const Command& command : commands) {
        command.app->footer(kExitCodeHelp);
    }
    try {
        application.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return application.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return application.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return application.exit(e);
    } catch (const CLI::ParseError& e) {
        return Fail(kUsage, std::string(e.what()) + " (see " + kProgram + " --help)");
    }
    try {
        for (const Command& command : commands) {
            if (command.app->parsed()) {
                return command.run();
            }
        }
        return Fail(kUsage, "no command given (see --help)");
    } catch (const ToolError& e) {
        return Fail(e.code(), e.what());
    } catch (const ATL::CAtlException& e) {
        return Fail(kFileError, e.what());
    } catch (const std::exception& e) {
        return Fail(kFileError, e.what());
    }
}
