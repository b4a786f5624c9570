// Control classes (ASN1CType, ASN1CTypeT), list control classes (ASN1CSeqOfList) and the
// list writer shared by generated encoders.
#ifndef VELMOR_SRC_ASN1_ASN1_CTYPE_H
#define VELMOR_SRC_ASN1_ASN1_CTYPE_H

#include "asn1/asn1_base.h"
#include "asn1/asn1_buffer.h"
#include "asn1/asn1_reader.h"

// Base of every ASN1C_<Type>: binds one message buffer and one ASN1T_<Type> value.
class ASN1CType {
  public:
    virtual ~ASN1CType() = default;
    ASN1CType(const ASN1CType&) = delete;
    ASN1CType& operator=(const ASN1CType&) = delete;

    // Encodes the value into the encode buffer: the length of this value's encoding (> 0),
    // or a negative status (RTERR_INVPARAM on a decode buffer; the context's failure when
    // it had already failed, for instance in an arena allocation while it was filled).
    int Encode();
    // Decodes one value from the decode buffer's position and advances past it. The
    // outermost call fails with RTERR_TRAILING when input remains after the value.
    // 0 or a negative status; RTERR_INVPARAM on an encode buffer.
    int Decode();

    ASN1MessageBuffer& getMsgBuf() noexcept { return msgBuf_; }
    ASN1CTXT* getCtxtPtr() noexcept { return msgBuf_.getCtxtPtr(); }

  protected:
    explicit ASN1CType(ASN1MessageBuffer& msgBuf) noexcept : msgBuf_(msgBuf) {}
    // Writes the value (DER); its length or a negative status.
    virtual int encodeValue(ASN1BEREncodeBuffer& buffer) = 0;
    // Reads one value; 0 or a negative status.
    virtual int decodeValue(Velmor::Asn1Rt::BerReader& reader) = 0;

  private:
    ASN1MessageBuffer& msgBuf_;
};

// A control class for T made from the free functions found by argument-dependent lookup:
//     int asn1E(ASN1BEREncodeBuffer&, const T&)          (tag parameter defaulted)
//     int asn1D(Velmor::Asn1Rt::BerReader&, T&)           (tag parameter defaulted)
// so that a generated control class is one line:
//     using ASN1C_AlgorithmIdentifier = ASN1CTypeT<ASN1T_AlgorithmIdentifier>;
template <class T> class ASN1CTypeT : public ASN1CType {
  public:
    ASN1CTypeT(ASN1MessageBuffer& msgBuf, T& data) noexcept : ASN1CType(msgBuf), data_(data) {}
    T& getData() noexcept { return data_; }

  protected:
    int encodeValue(ASN1BEREncodeBuffer& buffer) override {
        return asn1E(buffer, static_cast<const T&>(data_));
    }
    int decodeValue(Velmor::Asn1Rt::BerReader& reader) override { return asn1D(reader, data_); }

  private:
    T& data_;
};

// Walks the data pointers of a list. Owned by the ASN1CSeqOfList that made it.
class ASN1CSeqOfListIterator {
  public:
    // The next element's data pointer, or null at the end.
    void* next() noexcept;
    bool hasNext() const noexcept { return node_ != nullptr; }

  private:
    friend class ASN1CSeqOfList;
    OSRTDListNode* node_ = nullptr;
};

// Control class over a list whose nodes live in the buffer's arena.
class ASN1CSeqOfList {
  public:
    ASN1CSeqOfList(ASN1MessageBuffer& msgBuf, ASN1TSeqOfList& list) noexcept
        : ctxt_(msgBuf.getCtxtPtr()), list_(list) {}

    // Appends data. When the arena refuses the node, the list is unchanged and
    // RTERR_NOMEM is recorded in the context, so the next Encode() fails.
    void append(void* data) noexcept;
    // The iterator of this list object, rewound to the first element. Every call returns
    // the same iterator (valid while this object lives), rewound again.
    ASN1CSeqOfListIterator* iterator() noexcept;
    OSUINT32 size() const noexcept { return list_.count; }

  private:
    ASN1CTXT* ctxt_;
    ASN1TSeqOfList& list_;
    ASN1CSeqOfListIterator iter_;
};

namespace Velmor::Asn1Rt {

// Counts one level of Encode()/Decode() nesting for the life of the object.
class NestingGuard {
  public:
    explicit NestingGuard(ASN1CTXT* ctxt) noexcept : ctxt_(ctxt) { ++ctxt_->ctypeDepth; }
    ~NestingGuard() { --ctxt_->ctypeDepth; }
    NestingGuard(const NestingGuard&) = delete;
    NestingGuard& operator=(const NestingGuard&) = delete;

  private:
    ASN1CTXT* ctxt_;
};

// Writes one value into buffer with encodeValue(ASN1BEREncodeBuffer&) (a length or a negative
// status): the length of what it wrote, or a negative status (the context's failure when it
// had already failed or failed meanwhile, for instance in an arena allocation). Inline, so
// that an encode whose type is known reaches its writer without a virtual call.
template <class F> int encodeAtEnd(ASN1BEREncodeBuffer& buffer, F&& encodeValue) {
    ASN1CTXT* ctxt = buffer.getCtxtPtr();
    if (ctxt->status != ASN_OK) {
        return ctxt->status;
    }
    const std::size_t before = buffer.getMsgLen();
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

// Records a reader's negative status st, at input offset offset, as the context's failure
// (unless one is recorded already) and returns the context's status.
[[gnu::cold]] int failDecode(ASN1CTXT* ctxt, int st, std::size_t offset) noexcept;

// Reads one value from the decode position of ctxt with decodeValue(BerReader&) (0 or a
// negative status) and advances past it; the outermost read fails with RTERR_TRAILING when
// input remains after the value. 0 or a negative status. Inline, so that a decode whose type
// is known reaches its reader without a virtual call.
template <class F> int decodeAtPosition(ASN1CTXT* ctxt, F&& decodeValue) {
    if (ctxt->status != ASN_OK) {
        return ctxt->status;
    }
    const bool outermost = ctxt->ctypeDepth == 0;
    BerReader reader(ctxt, ctxt->decData + ctxt->decPos, ctxt->decLen - ctxt->decPos, ctxt->decPos);
    int st = 0;
    {
        NestingGuard guard(ctxt);
        st = decodeValue(reader);
    }
    if (st < 0) {
        return failDecode(ctxt, st, reader.offset());
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

// Encodes the elements of a list of T, last first (the buffer is written backwards), with
// encodeElem(ASN1BEREncodeBuffer&, const T&) returning a length or a negative status.
// The octets written, or a negative status. The caller wraps them (or uses wrapSetOf).
template <class T, class F>
int writeList(ASN1BEREncodeBuffer& buffer, const OSRTDList& list, F&& encodeElem) {
    std::size_t mark = buffer.getMsgLen();
    for (const OSRTDListNode* n = list.tail; n != nullptr; n = n->prev) {
        int st = encodeElem(buffer, *static_cast<const T*>(n->data));
        if (st < 0) {
            return buffer.fail(st, "SEQUENCE OF element");
        }
    }
    return buffer.ok() ? static_cast<int>(buffer.getMsgLen() - mark) : buffer.getStatus();
}

} // namespace Velmor::Asn1Rt

#endif
