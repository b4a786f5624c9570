// Encode()/Decode() entry points of the control classes.
#include "asn1/asn1_ctype.h"
#include "asn1/asn1_detail.h"

using Velmor::Asn1Rt::kNoOffset;
using Velmor::Asn1Rt::setError;

namespace {

// Counts one level of Encode()/Decode() nesting for the life of the object.
class NestingGuard {
  public:
    explicit NestingGuard(ASN1CTXT* ctxt) : ctxt_(ctxt) { ++ctxt_->ctypeDepth; }
    ~NestingGuard() { --ctxt_->ctypeDepth; }
    NestingGuard(const NestingGuard&) = delete;
    NestingGuard& operator=(const NestingGuard&) = delete;

  private:
    ASN1CTXT* ctxt_;
};

} // namespace

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

int ASN1CType::Decode() {
    ASN1CTXT* ctxt = getCtxtPtr();
    if (msgBuf_.isEncoding()) {
        return setError(ctxt, RTERR_INVPARAM, "Decode on an encode buffer", nullptr, kNoOffset);
    }
    if (ctxt->status != ASN_OK) {
        return ctxt->status;
    }
    const bool outermost = ctxt->ctypeDepth == 0;
    Velmor::Asn1Rt::BerReader reader(ctxt, ctxt->decData + ctxt->decPos,
                                     ctxt->decLen - ctxt->decPos, ctxt->decPos);
    int st = 0;
    {
        NestingGuard guard(ctxt);
        st = decodeValue(reader);
    }
    if (st < 0) {
        return setError(ctxt, st, "value", nullptr, reader.offset()), ctxt->status;
    }
    if (!reader.ok()) {
        return reader.status();
    }
    if (outermost && reader.offset() != ctxt->decLen) {
        reader.fail(RTERR_TRAILING, "octets after the value");
        return ctxt->status;
    }
    ctxt->decPos = reader.offset();
    return ASN_OK;
}
