// Feeds arbitrary bytes to the certificate identifiers: CCertID::decode and
// CCertIdWithSignature::decode (what decodes must encode to a fixed point), and the
// constructors that parse the bytes as certificates.
#include <cstdint>
#include <cstdlib>
#include <pki/ocsp/algorithm_identifier_ex.h>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/cert_id.h>
#include <pki/ocsp/cert_id_with_signature.h>

using Velmor::CBlob;
using Velmor::ASN1::CAlgorithmIdentifierEx;
using Velmor::PKI::OCSP::CCertID;
using Velmor::PKI::OCSP::CCertIdWithSignature;

namespace {

// decode(x), then encode and decode again: the two objects and the two encodings agree.
template <class T> void CheckFixedPoint(const CBlob& input) {
    T first;
    try {
        first.decode(input);
    } catch (const ATL::CAtlException&) {
        return;
    }
    const CBlob encoded = first.encode();
    T second;
    second.decode(encoded);
    if (first != second || !(second.encode() == encoded)) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const CBlob input(data, static_cast<unsigned long>(size));
    CheckFixedPoint<CCertID>(input);
    CheckFixedPoint<CCertIdWithSignature>(input);
    try {
        const CCertIdWithSignature fromCertificate(input);
        const CCertID byHash(CAlgorithmIdentifierEx("1.3.14.3.2.26"), input, input);
    } catch (const ATL::CAtlException&) {
    }
    return 0;
}
