// velmor-ocsp presign: signs, ahead of time, the answer about every certificate of the CA's
// index and writes each to a file named by the GET path of the request it answers, so
// that any static web server can answer those GET requests.
#include "algorithms.h"
#include "ca_index.h"
#include "certificate.h"
#include "commands.h"
#include "exit_status.h"
#include "ocsp_get.h"
#include "output.h"
#include "responder.h"

#include <CLI/CLI.hpp>
#include <pki/ocsp/big_integer.h>
#include <pki/ocsp/request_message.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>

namespace VelmorTool {

namespace {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

struct PresignOptions {
    ResponderOptions responder;
    std::string out;
};

// The request a client sends about serial without a nonce: one SHA-1 CertID (parameters
// NULL), no requestor, no extensions; `openssl ocsp -issuer CA -serial S -no_nonce` sends
// these very bytes.
CRequestMessage RequestFor(const std::string& serial, const CBlob& ca) {
    const auto id = CertIdOf(ASN1::CBigInteger::FromHex(serial), ca, HashOid("sha1"));
    if (!id) {
        throw ToolError(kFileError, "cannot hash the CA certificate with SHA-1");
    }
    CSingleRequestList entries;
    entries.push_back(CSingleRequest(CReqCert(*id)));
    CRequestMessage request;
    request.put_requestList(entries);
    return request;
}

// Writes der to directory/name through a file beside it that is renamed when complete, so
// that a server never reads half a response; the file's time becomes the answer's
// thisUpdate.
void WriteAnswer(const std::filesystem::path& directory, const std::string& name, const CBlob& der,
                 std::int64_t thisUpdate) {
    const std::string path = (directory / name).string();
    const std::string partial = (directory / ("." + name + ".partial")).string();
    WriteMessage(partial, der, "OCSP RESPONSE", OutputForm::der);
    const timespec times[2] = {{static_cast<time_t>(thisUpdate), 0},
                               {static_cast<time_t>(thisUpdate), 0}};
    if (::utimensat(AT_FDCWD, partial.c_str(), times, 0) != 0 ||
        std::rename(partial.c_str(), path.c_str()) != 0) {
        const int error = errno;
        std::remove(partial.c_str());
        FailFile(path, std::string("cannot write: ") + std::strerror(error));
    }
}

int Run(const PresignOptions& options) {
    if (options.responder.nextUpdateDays.value_or(0) == 0) {
        FailUsage("--next-update: presigned answers need one day or more");
    }
    const CaIndex index(options.responder.index);
    const Responder responder(options.responder);
    const std::filesystem::path directory(options.out);
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error || !std::filesystem::is_directory(directory)) {
        FailFile(options.out, "cannot create the directory: " +
                                  (error ? error.message() : std::string("not a directory")));
    }
    const auto now = std::chrono::duration_cast<std::chrono::seconds>(
        std::chrono::system_clock::now().time_since_epoch());
    const CDateTime thisUpdate(now.count(), 0);
    for (const std::string& serial : index.serials()) {
        const CRequestMessage request = RequestFor(serial, responder.ca());
        const std::string name = GetPath(request.encode().to_vector());
        const Answer answer = responder.answer(request, index, thisUpdate);
        WriteAnswer(directory, name, answer.der, thisUpdate.seconds());
        std::printf("%s %s\n", serial.c_str(), name.c_str());
    }
    return kAllGood;
}

} // namespace

Command AddPresignCommand(CLI::App& application) {
    auto options = std::make_shared<PresignOptions>();
    options->responder.nextUpdateDays = 1;
    CLI::App* command = application.add_subcommand(
        "presign", "Sign the answer about every certificate of an OpenSSL CA index ahead of "
                   "time, one file each, named by its GET path");
    AddResponderOptions(*command, options->responder,
                        "Days until newer information is available (default 1)");
    command->add_option("--out", options->out, "Directory to write the answers to")->required();
    return Command{command, [options] { return Run(*options); }};
}

} // namespace VelmorTool
