// Run by the trace tests with its own VELMOR_REGISTRY: links the shared library as an
// application does, decodes the request given as hex on the command line (or a malformed
// one) and reports how the decode ended on standard output.
#include <pki/ocsp/ocsp.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    std::string bytes = "\x30\x03\x02\x01"; // cut short
    if (argc > 1) {
        bytes.clear();
        for (const char* p = argv[1]; p[0] != '\0' && p[1] != '\0'; p += 2) {
            bytes += static_cast<char>(std::stoi(std::string(p, 2), nullptr, 16));
        }
    }
    try {
        Velmor::PKI::OCSP::CRequestMessage request;
        request.decode(Velmor::CBlob(bytes));
        std::printf("decoded\n");
    } catch (const ATL::CAtlException& e) {
        std::printf("failed %08x\n", static_cast<unsigned>(e.m_hr));
    }
    return 0;
}
