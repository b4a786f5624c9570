// A program that uses the installed library the way an application would.
#include <cstdio>
#include <pki/ocsp/ocsp.h>

int main() {
    try {
        ATL::AtlThrow(Velmor::Win32::E_INVALIDARG);
    } catch (const ATL::CAtlException& e) {
        if (e.m_hr != Velmor::Win32::E_INVALIDARG) {
            std::puts("wrong code");
            return 1;
        }
    }
    std::puts("consumer ok");
    return 0;
}
