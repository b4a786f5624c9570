// Feeds arbitrary bytes to CResponderID::decode. What decodes must encode, decode back to an
// identifier of the same type and value and encode to the same bytes; comparing it (names
// through the platform's name comparison) must not crash.
#include <cstdint>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/responder_id.h>

using Velmor::CBlob;
using Velmor::PKI::OCSP::CResponderID;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CResponderID id;
    try {
        id.decode(CBlob(data, static_cast<unsigned long>(size)));
    } catch (const ATL::CAtlException&) {
        return 0;
    }
    CBlob first;
    CResponderID again;
    try {
        first = id.encode();
        again.decode(first);
    } catch (const ATL::CAtlException&) {
        __builtin_trap(); // a decoded identifier is always written and read back
    }
    if (!(again.encode() == first) || again.get_type() != id.get_type() ||
        !(again.get_value() == id.get_value())) {
        __builtin_trap();
    }
    // Names are compared by the platform, which may refuse a Name the decoder read; either
    // way the two answers agree.
    if ((again == id) == (again != id)) {
        __builtin_trap();
    }
    return 0;
}
