// Walks arbitrary bytes with the BER reader of the ASN.1 runtime: every element is entered
// (constructed) or read as raw contents (primitive), then read again by its universal type.
// When the walk succeeds, the element tree is written back as DER, and that DER must read
// back and write to the same octets.
#include "asn1/asn1_runtime.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

using Velmor::Asn1Rt::BerReader;
using Velmor::Asn1Rt::ElementHeader;

namespace {

// Reads every element of r; constructed ones are entered (the reader limits the depth).
void Walk(BerReader& r) {
    while (r.more()) {
        ElementHeader h;
        if (!r.peekHeader(h)) {
            return;
        }
        if ((h.tag & TM_CONS) != 0) {
            BerReader inner;
            if (r.enter(h.tag, inner)) {
                Walk(inner);
                r.leave(inner);
            }
        } else {
            ASN1TDynOctStr raw;
            r.readString(raw, h.tag);
        }
    }
}

// Reads the next element with the reader of its universal type (raw contents otherwise).
void ReadTyped(BerReader& r, ASN1TAG tag) {
    OSBOOL b;
    OSINT32 i;
    ASN1TDynBigInt big;
    ASN1OBJID oid;
    ASN1TDynOctStr oct;
    ASN1TDynBitStr bits;
    const char* text;
    switch (tag & ~TM_CONS) {
    case ASN1TAG_BOOLEAN:
        r.readBool(b);
        break;
    case ASN1TAG_INTEGER:
        r.readBigInt(big);
        break;
    case ASN1TAG_ENUMERATED:
        r.readEnum(i);
        break;
    case ASN1TAG_NULL:
        r.readNull();
        break;
    case ASN1TAG_OBJID:
        r.readOid(oid);
        break;
    case ASN1TAG_BITSTRING:
        r.readBitStr(bits);
        break;
    case ASN1TAG_UTCTIME:
    case ASN1TAG_GENERALIZEDTIME:
        r.readTime(text, tag & ~TM_CONS);
        break;
    case ASN1TAG_PRINTABLESTRING:
    case ASN1TAG_IA5STRING:
    case ASN1TAG_UTF8STRING:
        r.readString(text, tag & ~TM_CONS);
        break;
    default:
        r.readOctStr(oct, tag);
        break;
    }
}

// Like Walk, with typed readers; the first malformed value ends it.
void WalkTyped(BerReader& r) {
    while (r.more()) {
        ASN1TAG tag = r.peekTag();
        // Constructed universal types other than SEQUENCE and SET are BER string forms.
        bool container = (tag & TM_CONS) != 0 && ((tag & TM_CLASS_MASK) != TM_UNIV ||
                                                  tag == ASN1TAG_SEQUENCE || tag == ASN1TAG_SET);
        if (!container) {
            ReadTyped(r, tag);
            continue;
        }
        BerReader inner;
        if (r.enter(tag, inner)) {
            WalkTyped(inner);
            r.leave(inner);
        }
    }
}

// Writes the DER form of the elements left in r, the last first; depth bounds the recursion.
bool Rewrite(BerReader& r, ASN1BEREncodeBuffer& out, unsigned depth) {
    std::vector<ASN1OpenType> items;
    ASN1OpenType item;
    while (r.more() && r.readOpenType(item)) {
        items.push_back(item);
    }
    for (auto it = items.rbegin(); it != items.rend() && r.ok(); ++it) {
        BerReader one(r.ctxt(), it->data, it->numocts);
        ElementHeader h;
        if (!one.peekHeader(h) || depth > Velmor::Asn1Rt::kMaxDepth) {
            return false;
        }
        if ((h.tag & TM_CONS) != 0) {
            BerReader inner;
            const std::size_t mark = out.getMsgLen();
            one.enter(h.tag, inner);
            Rewrite(inner, out, depth + 1);
            one.leave(inner);
            out.wrap(h.tag, mark);
        } else {
            const ASN1OCTET* p = nullptr;
            std::size_t n = 0;
            one.readPrimitive(h.tag, p, n);
            out.putOctStr(p, n, h.tag);
        }
    }
    return r.ok() && out.ok();
}

// DER of the element tree in data, or empty when it does not read.
std::vector<std::uint8_t> Der(const std::uint8_t* data, std::size_t size) {
    ASN1BERDecodeBuffer in(data, size);
    BerReader r(in.getCtxtPtr(), data, size);
    ASN1BEREncodeBuffer out;
    if (!Rewrite(r, out, 1)) {
        return {};
    }
    return {out.getMsgPtr(), out.getMsgPtr() + out.getMsgLen()};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ASN1BERDecodeBuffer buffer(data, size);
    BerReader r(buffer.getCtxtPtr(), data, size);
    Walk(r);
    if (!r.ok()) {
        return 0;
    }
    buffer.init();
    BerReader typed(buffer.getCtxtPtr(), data, size);
    WalkTyped(typed);

    const std::vector<std::uint8_t> first = Der(data, size);
    if (first.empty() && size != 0) {
        std::abort(); // what walks must rewrite
    }
    const std::vector<std::uint8_t> second = Der(first.data(), first.size());
    if (first != second) {
        std::abort();
    }
    return 0;
}
