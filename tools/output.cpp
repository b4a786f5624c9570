#include "output.h"

#include "armour.h"
#include "exit_status.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace VelmorTool {

OutputForm OutputOptions::form() const noexcept {
    return pem ? OutputForm::pem : base64 ? OutputForm::base64 : OutputForm::der;
}

void AddOutputOptions(CLI::App& command, OutputOptions& options) {
    CLI::Option* pem = command.add_flag("--pem", options.pem, "Write the message as PEM");
    CLI::Option* base64 =
        command.add_flag("--base64", options.base64, "Write the message as base64 on one line");
    pem->excludes(base64);
}

void WriteMessage(const std::string& path, const Velmor::CBlob& der, const std::string& pemLabel,
                  OutputForm form) {
    const Bytes bytes = der.to_vector();
    std::string text;
    if (form == OutputForm::pem) {
        text = Pem(pemLabel, bytes);
    } else if (form == OutputForm::base64) {
        text = Base64(bytes) + "\n";
    } else {
        text.assign(bytes.begin(), bytes.end());
    }
    const bool standardOutput = path == "-";
    FILE* file = standardOutput ? stdout : std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        FailFile(path, std::string("cannot create: ") + std::strerror(errno));
    }
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    const int error = written ? 0 : errno;
    const bool closed = standardOutput ? std::fflush(file) == 0 : std::fclose(file) == 0;
    if (!written || !closed) {
        FailFile(path, std::string("cannot write: ") + std::strerror(error != 0 ? error : errno));
    }
}

} // namespace VelmorTool
