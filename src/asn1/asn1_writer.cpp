// DER encode buffer: backwards storage that starts inline and doubles on the heap,
// identifier and length octets, wrapping, and SET OF sorting.
#include "asn1/asn1_buffer.h"
#include "asn1/asn1_detail.h"
#include "asn1/asn1_reader.h"

#include <algorithm>
#include <cstring>
#include <new>

using Velmor::Asn1Rt::kNoOffset;

namespace Velmor::Asn1Rt {

std::size_t encodeHeader(ASN1TAG tag, std::size_t contentLen, ASN1OCTET* out) noexcept {
    std::size_t n = 0;
    auto first = static_cast<ASN1OCTET>(((tag >> 24) & 0xC0) | ((tag & TM_CONS) != 0 ? 0x20 : 0));
    ASN1TAG number = tag & TM_IDCODE_MASK;
    if (number < 31) {
        out[n++] = static_cast<ASN1OCTET>(first | number);
    } else {
        out[n++] = static_cast<ASN1OCTET>(first | 0x1F);
        int shift = 28;
        while ((number >> shift) == 0) {
            shift -= 7;
        }
        for (; shift >= 0; shift -= 7) {
            out[n++] = static_cast<ASN1OCTET>(((number >> shift) & 0x7F) | (shift != 0 ? 0x80 : 0));
        }
    }
    if (contentLen < 0x80) {
        out[n++] = static_cast<ASN1OCTET>(contentLen);
        return n;
    }
    std::size_t octets = 0;
    for (std::size_t v = contentLen; v != 0; v >>= 8) {
        ++octets;
    }
    out[n++] = static_cast<ASN1OCTET>(0x80 | octets);
    for (std::size_t i = octets; i > 0; --i) {
        out[n++] = static_cast<ASN1OCTET>(contentLen >> (8 * (i - 1)));
    }
    return n;
}

} // namespace Velmor::Asn1Rt

ASN1BEREncodeBuffer::ASN1BEREncodeBuffer() noexcept
    : ASN1MessageBuffer(kMaxSize), storage_(inline_), capacity_(kInlineSize) {}

ASN1BEREncodeBuffer::~ASN1BEREncodeBuffer() {
    if (storage_ != inline_) {
        ::operator delete(storage_);
    }
}

void ASN1BEREncodeBuffer::reset() noexcept {
    if (storage_ != inline_) {
        ::operator delete(storage_);
    }
    storage_ = inline_;
    capacity_ = kInlineSize;
    used_ = 0;
    ctxt_.arena.release();
    ctxt_.status = ASN_OK;
    ctxt_.errOffset = 0;
    ctxt_.errText[0] = '\0';
    ctxt_.errReasonLen = 0;
    ctxt_.errPath[0] = '\0';
    ctxt_.ctypeDepth = 0;
}

int ASN1BEREncodeBuffer::fail(int status, const char* what) noexcept {
    Velmor::Asn1Rt::setError(&ctxt_, status, what, nullptr, kNoOffset);
    return ctxt_.status;
}

// Makes room for 'more' octets in front of the content. Growth doubles the storage and
// moves the content to the end of the new storage: the only time content moves.
bool ASN1BEREncodeBuffer::reserve(std::size_t more) noexcept {
    if (capacity_ - used_ >= more) {
        return true;
    }
    if (more > kMaxSize - used_) {
        fail(RTERR_NOMEM, "encoding larger than the size limit");
        return false;
    }
    std::size_t need = used_ + more;
    std::size_t cap = capacity_;
    while (cap < need) {
        cap = cap > kMaxSize / 2 ? kMaxSize : cap * 2;
    }
    auto* bigger = static_cast<ASN1OCTET*>(::operator new(cap, std::nothrow));
    if (bigger == nullptr) {
        fail(RTERR_NOMEM, "encode buffer");
        return false;
    }
    if (used_ != 0) {
        std::memcpy(bigger + (cap - used_), front(), used_);
    }
    if (storage_ != inline_) {
        ::operator delete(storage_);
    }
    storage_ = bigger;
    capacity_ = cap;
    return true;
}

int ASN1BEREncodeBuffer::putBytesGeneral(const void* data, std::size_t size) noexcept {
    if (!ok()) {
        return ctxt_.status;
    }
    if (size == 0) {
        return 0;
    }
    if (data == nullptr) {
        return fail(RTERR_INVPARAM, "null data");
    }
    if (!reserve(size)) {
        return ctxt_.status;
    }
    used_ += size;
    std::memcpy(front(), data, size);
    return static_cast<int>(size);
}

int ASN1BEREncodeBuffer::putByte(ASN1OCTET octet) noexcept { return putBytes(&octet, 1); }

int ASN1BEREncodeBuffer::putTagLenGeneral(ASN1TAG tag, std::size_t contentLen) noexcept {
    ASN1OCTET header[Velmor::Asn1Rt::kMaxHeaderLen];
    return putBytes(header, Velmor::Asn1Rt::encodeHeader(tag, contentLen, header));
}

int ASN1BEREncodeBuffer::wrapLastGeneral(ASN1TAG tag, std::size_t n) noexcept {
    if (!ok()) {
        return ctxt_.status;
    }
    if (n > used_) {
        return fail(RTERR_INVPARAM, "wrap beyond the content");
    }
    const int header = putTagLen(tag, n);
    return header < 0 ? header : static_cast<int>(n) + header;
}

int ASN1BEREncodeBuffer::wrapGeneral(ASN1TAG tag, std::size_t mark) noexcept {
    if (!ok()) {
        return ctxt_.status;
    }
    if (mark > used_) {
        return fail(RTERR_INVPARAM, "wrap mark beyond the content");
    }
    return wrapLast(tag, used_ - mark);
}

int ASN1BEREncodeBuffer::wrapSetOf(ASN1TAG tag, std::size_t mark) noexcept {
    int st = sortElements(mark);
    return st < 0 ? st : wrap(tag, mark);
}

namespace {

struct Span {
    const ASN1OCTET* data;
    std::size_t size;
};

// DER SET OF order: octet-wise, a proper prefix before the longer encoding.
bool spanLess(const Span& a, const Span& b) {
    int c = std::memcmp(a.data, b.data, std::min(a.size, b.size));
    return c < 0 || (c == 0 && a.size < b.size);
}

} // namespace

int ASN1BEREncodeBuffer::sortElements(std::size_t mark) noexcept {
    if (!ok()) {
        return ctxt_.status;
    }
    if (mark > used_) {
        return fail(RTERR_INVPARAM, "sort mark beyond the content");
    }
    const std::size_t len = used_ - mark;
    Velmor::Asn1Rt::BerReader counter(&ctxt_, front(), len);
    std::size_t count = 0;
    while (counter.more() && counter.skip()) {
        ++count;
    }
    if (!ok() || count <= 1) {
        return ok() ? 0 : ctxt_.status;
    }
    // The elements are copied aside, sorted as spans of the copy and written back.
    auto* spans = static_cast<Span*>(rtMemHeapAlloc(&ctxt_, count * sizeof(Span)));
    ASN1OCTET* copy = rtMemCopy(&ctxt_, front(), len);
    if (spans == nullptr || copy == nullptr) {
        return fail(RTERR_NOMEM, "SET OF sort");
    }
    Velmor::Asn1Rt::BerReader r(&ctxt_, copy, len);
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t start = r.offset();
        r.skip();
        spans[i] = Span{copy + start, r.offset() - start};
    }
    std::sort(spans, spans + count, spanLess);
    ASN1OCTET* out = front();
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(out, spans[i].data, spans[i].size);
        out += spans[i].size;
    }
    return 0;
}
