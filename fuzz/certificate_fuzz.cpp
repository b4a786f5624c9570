// Feeds arbitrary bytes to the certificate decoder. A certificate that decodes is encoded
// again from its fields (not from its kept octets); that DER must decode, and encoding it
// once more must give the same bytes.
#include "asn1/pkix_types.h"
#include "foundation/codec_frame.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// The DER of a certificate encoded from its fields, or empty when it cannot be encoded
// (a field the encoder refuses, such as an INTEGER that BER allowed).
std::vector<std::uint8_t> EncodeFields(ASN1T_Certificate certificate) {
    certificate.raw = ASN1OpenType();
    ASN1BEREncodeBuffer buffer;
    const int length = Velmor::Codec::EncodeStatus(buffer, certificate);
    if (length <= 0) {
        return {};
    }
    return {buffer.getMsgPtr(), buffer.getMsgPtr() + length};
}

bool Decode(const std::uint8_t* data, std::size_t size, ASN1BERDecodeBuffer& buffer,
            ASN1T_Certificate& certificate) {
    buffer.setBuffer(data, static_cast<int>(size));
    return Velmor::Codec::DecodeStatus(buffer, certificate) >= 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ASN1BERDecodeBuffer buffer;
    ASN1T_Certificate certificate;
    if (size > 1 << 20 || !Decode(data, size, buffer, certificate)) {
        return 0;
    }
    const std::vector<std::uint8_t> first = EncodeFields(certificate);
    if (first.empty()) {
        return 0;
    }
    ASN1BERDecodeBuffer secondBuffer;
    ASN1T_Certificate second;
    if (!Decode(first.data(), first.size(), secondBuffer, second) ||
        EncodeFields(second) != first) {
        std::abort();
    }
    return 0;
}
