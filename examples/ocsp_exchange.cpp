// The end-to-end OCSP exchange: what a client and a responder do with the library.
// It grows step by step as the message classes land; for now it exercises the error model
// that every step of the exchange reports through.
#include <cstdio>
#include <pki/ocsp/ocsp.h>

int main() {
    std::printf("velmor-ocsp %d.%d.%d\n", VELMOR_OCSP_VERSION_MAJOR, VELMOR_OCSP_VERSION_MINOR,
                VELMOR_OCSP_VERSION_PATCH);
    try {
        ATL::AtlThrow(Velmor::Win32::E_INVALIDARG);
    } catch (const ATL::CAtlException& e) {
        std::printf("errors are reported as CAtlException: %s\n", e.what());
    }
    return 0;
}
