// Feeds arbitrary bytes to CResponseMessage::decode. What decodes must encode, and its
// encoding must decode back to the same encoding (DER is a fixed point).
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/response_message.h>

using Velmor::CBlob;
using Velmor::PKI::OCSP::CResponseMessage;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CResponseMessage message;
    try {
        message.decode(CBlob(data, static_cast<unsigned long>(size)));
    } catch (const ATL::CAtlException&) {
        return 0;
    }
    const CBlob first = message.encode();
    CResponseMessage again;
    again.decode(first);
    const CBlob second = again.encode();
    if (!(first == second)) {
        std::abort();
    }
    return 0;
}
