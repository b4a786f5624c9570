// Encode()/Decode() entry points of the control classes.
#include "asn1/asn1_ctype.h"
#include "asn1/asn1_detail.h"

using Velmor::Asn1Rt::kNoOffset;
using Velmor::Asn1Rt::setError;

int ASN1CType::Encode() {
    if (!msgBuf_.isEncoding()) {
        return setError(getCtxtPtr(), RTERR_INVPARAM, "Encode on a decode buffer", nullptr,
                        kNoOffset);
    }
    return Velmor::Asn1Rt::encodeAtEnd(
        static_cast<ASN1BEREncodeBuffer&>(msgBuf_),
        [this](ASN1BEREncodeBuffer& buffer) { return encodeValue(buffer); });
}

int Velmor::Asn1Rt::failDecode(ASN1CTXT* ctxt, int st, std::size_t offset) noexcept {
    setError(ctxt, st, "value", nullptr, offset);
    return ctxt->status;
}

int ASN1CType::Decode() {
    if (msgBuf_.isEncoding()) {
        return setError(getCtxtPtr(), RTERR_INVPARAM, "Decode on an encode buffer", nullptr,
                        kNoOffset);
    }
    return Velmor::Asn1Rt::decodeAtPosition(
        getCtxtPtr(), [this](Velmor::Asn1Rt::BerReader& reader) { return decodeValue(reader); });
}
