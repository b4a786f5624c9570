// Run by the trace tests with its own VELMOR_REGISTRY: links the shared library as an
// application does, performs one call and reports how it ended on standard output, so that
// the library's trace lines are all that goes to standard error.
//
//   trace_child                        decodes a request cut short
//   trace_child request FILE           CRequestMessage::decode of the file's octets
//   trace_child basic FILE             CBasicResponse::decode
//   trace_child verify-request FILE CERT   decode, then CRequestMessage::verify with CERT
//   trace_child verify-basic FILE CERT     the basic response of an OCSPResponse, then
//                                          CBasicResponse::verify with CERT
//   trace_child datetime TEXT          CDateTime from GeneralizedTime text
#include <pki/ocsp/ocsp.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

Velmor::CBlob ReadFile(const char* path) {
    std::ifstream in(path, std::ios::binary);
    return Velmor::CBlob(
        std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
}

template <class Message> void Decode(const char* path) {
    Message message;
    message.decode(ReadFile(path));
    std::printf("decoded\n");
}

template <class Message> void Verify(const Velmor::CBlob& der, const char* certificate) {
    Message message;
    message.decode(der);
    std::printf("verified %s\n", message.verify(ReadFile(certificate)) ? "true" : "false");
}

Velmor::CBlob BasicResponseOf(const char* path) {
    Velmor::PKI::OCSP::CResponseMessage outer;
    outer.decode(ReadFile(path));
    return outer.get_response() != nullptr ? *outer.get_response() : Velmor::CBlob();
}

void Run(int argc, char** argv) {
    using namespace Velmor::PKI::OCSP;
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode.empty()) {
        CRequestMessage request;
        request.decode(Velmor::CBlob(std::string("\x30\x03\x02\x01"))); // cut short
    } else if (mode == "request" && argc == 3) {
        Decode<CRequestMessage>(argv[2]);
    } else if (mode == "basic" && argc == 3) {
        Decode<CBasicResponse>(argv[2]);
    } else if (mode == "verify-request" && argc == 4) {
        Verify<CRequestMessage>(ReadFile(argv[2]), argv[3]);
    } else if (mode == "verify-basic" && argc == 4) {
        Verify<CBasicResponse>(BasicResponseOf(argv[2]), argv[3]);
    } else if (mode == "datetime" && argc == 3) {
        Velmor::CDateTime time(argv[2]);
        std::printf("parsed\n");
    } else {
        std::printf("usage\n");
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        Run(argc, argv);
    } catch (const ATL::CAtlException& e) {
        std::printf("failed %08x\n", static_cast<unsigned>(e.m_hr));
    }
    return 0;
}
