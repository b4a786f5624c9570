// BER decode buffer over a caller's bytes, and the tag matcher used to find the exact
// octets of a signed part.
#include "asn1/asn1_buffer.h"
#include "asn1/asn1_detail.h"
#include "asn1/asn1_reader.h"

#include <climits>

using Velmor::Asn1Rt::BerReader;
using Velmor::Asn1Rt::ElementHeader;

std::size_t ASN1BERDecodeBuffer::arenaCapFor(std::size_t size) noexcept {
    constexpr std::size_t kBase = std::size_t{64} << 10;
    if (size > (SIZE_MAX - kBase) / 16) {
        return SIZE_MAX;
    }
    return kBase + 16 * size;
}

ASN1BERDecodeBuffer::ASN1BERDecodeBuffer() noexcept : ASN1MessageBuffer(arenaCapFor(0)) {}

ASN1BERDecodeBuffer::ASN1BERDecodeBuffer(const ASN1OCTET* data, std::size_t size) noexcept
    : ASN1MessageBuffer(arenaCapFor(data == nullptr ? 0 : size)) {
    ctxt_.decData = data;
    ctxt_.decLen = data == nullptr ? 0 : size;
}

int ASN1BERDecodeBuffer::setBuffer(const unsigned char* data, int size) noexcept {
    bool bad = size < 0 || (data == nullptr && size != 0);
    ctxt_.decData = bad ? nullptr : data;
    ctxt_.decLen = bad ? 0 : static_cast<std::size_t>(size);
    init();
    return bad ? RTERR_INVPARAM : ASN_OK;
}

int ASN1BERDecodeBuffer::init() noexcept {
    ctxt_.arena.release();
    ctxt_.arena.setCap(arenaCapFor(ctxt_.decLen));
    ctxt_.decPos = 0;
    ctxt_.status = ASN_OK;
    ctxt_.errOffset = 0;
    ctxt_.errText[0] = '\0';
    ctxt_.errReasonLen = 0;
    ctxt_.errPath[0] = '\0';
    ctxt_.ctypeDepth = 0;
    return ASN_OK;
}

namespace {

// A reader over the rest of ctxt's decode input, from the decode position.
BerReader readerAtPosition(ASN1CTXT* ctxt) {
    return BerReader(ctxt, ctxt->decData + ctxt->decPos, ctxt->decLen - ctxt->decPos, ctxt->decPos);
}

} // namespace

int xd_match1(ASN1CTXT* ctxt, ASN1OCTET tag, int* len) noexcept {
    if (ctxt == nullptr || len == nullptr || (tag & 0x1F) == 0x1F) {
        return Velmor::Asn1Rt::setError(ctxt, RTERR_INVPARAM, "xd_match1 arguments", nullptr,
                                        Velmor::Asn1Rt::kNoOffset);
    }
    if (ctxt->status != ASN_OK) {
        return ctxt->status;
    }
    BerReader r = readerAtPosition(ctxt);
    ElementHeader h;
    if (!r.peekHeader(h)) {
        return ctxt->status;
    }
    if (ctxt->decData[ctxt->decPos] != tag) {
        r.fail(RTERR_IDNOTFOU, "xd_match1 tag");
        return ctxt->status;
    }
    if (!h.indefinite && h.contentLen > static_cast<std::size_t>(INT_MAX)) {
        r.fail(RTERR_INVLEN, "length beyond int");
        return ctxt->status;
    }
    *len = h.indefinite ? ASN_K_INDEFLEN : static_cast<int>(h.contentLen);
    ctxt->decPos += h.headerLen;
    return ASN_OK;
}

int xd_elemExtent(ASN1CTXT* ctxt, std::size_t* offset, std::size_t* size) noexcept {
    if (ctxt == nullptr || offset == nullptr || size == nullptr) {
        return Velmor::Asn1Rt::setError(ctxt, RTERR_INVPARAM, "xd_elemExtent arguments", nullptr,
                                        Velmor::Asn1Rt::kNoOffset);
    }
    if (ctxt->status != ASN_OK) {
        return ctxt->status;
    }
    BerReader r = readerAtPosition(ctxt);
    std::size_t total = 0;
    if (!r.peekExtent(total)) {
        return ctxt->status;
    }
    *offset = ctxt->decPos;
    *size = total;
    return ASN_OK;
}
