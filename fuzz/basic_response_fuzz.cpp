// Feeds arbitrary bytes to CBasicResponse::decode, twice: into a new object, and into a copy
// of a full response (signature, certificates, extensions, entries), which a failure may
// leave partly replaced. Whatever is left must encode or throw, never crash. What decodes
// and encodes must decode again and encode to the same bytes (DER is a fixed point). Every
// response that decodes is verified with an RSA and an ECDSA responder certificate: verify
// answers or throws ATL::CAtlException, whatever the algorithm, signature or signed bytes.
#include <cstdint>
#include <fstream>
#include <iterator>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/basic_response.h>
#include <stdexcept>
#include <string>
#include <vector>

using Velmor::CBlob;
using Velmor::PKI::OCSP::CBasicResponse;

namespace {

// False when the bytes are not a basic response.
bool Decode(const CBlob& encoded, CBasicResponse& response) {
    try {
        response.decode(encoded);
    } catch (const ATL::CAtlException&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
    return true;
}

// The encoding, or an empty blob when the response cannot be written (an entry naming an
// X.509 certificate in full, a response left without signature).
CBlob Encode(const CBasicResponse& response) {
    try {
        return response.encode();
    } catch (const ATL::CAtlException&) {
        return CBlob();
    }
}

// True, false, or false after an exception: only a crash or another exception is a fault.
bool Verify(const CBasicResponse& response, const CBlob& certificate) {
    try {
        return response.verify(certificate);
    } catch (const ATL::CAtlException&) {
        return false;
    }
}

CBlob ReadCertificate(const char* name) {
    std::ifstream in(std::string(VELMOR_FUZZ_DATA_DIR "/pki/") + name, std::ios::binary);
    const std::vector<std::uint8_t> bytes(std::istreambuf_iterator<char>(in), {});
    if (bytes.empty()) {
        throw std::runtime_error(std::string("fuzz data missing: ") + name);
    }
    return CBlob(bytes.data(), static_cast<unsigned long>(bytes.size()));
}

void VerifyWithBothResponders(const CBasicResponse& response) {
    static const CBlob rsa = ReadCertificate("rsa/ocsp.der");
    static const CBlob ec = ReadCertificate("ec/ocsp.der");
    static_cast<void>(Verify(response, rsa));
    static_cast<void>(Verify(response, ec));
}

// A response that uses every field, decoded once from the first input that has them all.
CBasicResponse& Full() {
    static CBasicResponse full;
    return full;
}

bool HasEveryField(const CBasicResponse& response) {
    return response.get_certs() != nullptr && response.get_responseExtensions() != nullptr &&
           !response.get_responses().empty();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const CBlob input(data, static_cast<unsigned long>(size));
    CBasicResponse into = Full();
    const bool decodedInto = Decode(input, into);
    static_cast<void>(Encode(into));

    CBasicResponse response;
    if (Decode(input, response) != decodedInto) {
        __builtin_trap(); // whether bytes decode does not depend on the object
    }
    if (!decodedInto) {
        return 0;
    }
    VerifyWithBothResponders(response);
    VerifyWithBothResponders(into);
    if (!HasEveryField(Full()) && HasEveryField(response)) {
        Full() = response;
    }
    const CBlob first = Encode(response);
    if (first.cbData() == 0) {
        return 0;
    }
    CBasicResponse again;
    if (!Decode(first, again) || !(Encode(again) == first) || !(Encode(into) == first)) {
        __builtin_trap();
    }
    return 0;
}
