// Encode()/Decode() entry points of the control classes.
#include "asn1/asn1_ctype.h"
#include "asn1/asn1_detail.h"

using Velmor::Asn1Rt::kNoOffset;
using Velmor::Asn1Rt::NestingGuard;
using Velmor::Asn1Rt::setError;

int ASN1CType::Encode() {
    ASN1CTXT* ctxt = getCtxtPtr();
    if (!msgBuf_.isEncoding()) {
        return setError(ctxt, RTERR_INVPARAM, "Encode on a decode buffer", nullptr, kNoOffset);
    }
    if (ctxt->status != ASN_OK) {
        return ctxt->status;
    }
    auto& buffer = static_cast<ASN1BEREncodeBuffer&>(msgBuf_);
    std::size_t before = buffer.getMsgLen();
    int st = 0;
    {
        NestingGuard guard(ctxt);
        st = encodeValue(buffer);
    }
    if (st < 0) {
        return buffer.fail(st);
    }
    if (ctxt->status != ASN_OK) {
        return ctxt->status;
    }
    return static_cast<int>(buffer.getMsgLen() - before);
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
