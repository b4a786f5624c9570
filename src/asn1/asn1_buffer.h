// Message buffers of the BER/DER runtime: the common base that owns the context, the DER
// encode buffer (written backwards) with its value writers, and the BER decode buffer.
#ifndef VELMOR_SRC_ASN1_ASN1_BUFFER_H
#define VELMOR_SRC_ASN1_ASN1_BUFFER_H

#include "asn1/asn1_base.h"

#include <cstring>

// Owns one ASN1CTXT; memory taken from it lives until the buffer is destroyed.
class ASN1MessageBuffer {
  public:
    virtual ~ASN1MessageBuffer() = default;
    ASN1MessageBuffer(const ASN1MessageBuffer&) = delete;
    ASN1MessageBuffer& operator=(const ASN1MessageBuffer&) = delete;

    ASN1CTXT* getCtxtPtr() noexcept { return &ctxt_; }
    const ASN1CTXT* getCtxtPtr() const noexcept { return &ctxt_; }
    // The first failure recorded in the context (0 when none).
    int getStatus() const noexcept { return ctxt_.status; }
    // Diagnostic text of that failure ("" when none).
    const char* getErrorText() const noexcept { return rtErrDetail(&ctxt_); }
    // True for an encode buffer, false for a decode buffer.
    virtual bool isEncoding() const noexcept = 0;

  protected:
    explicit ASN1MessageBuffer(std::size_t arenaCap) noexcept : ctxt_(arenaCap) {}

    ASN1CTXT ctxt_;
};

// DER writer. Content is prepended: a type's encoder writes its last field first and then
// wraps what it wrote in tag and length, so no length is ever computed ahead.
//
// Every writer returns the number of octets it added (>= 0) or a negative status. Failure
// is sticky: after one failure every later call returns the same status, so an encoder can
// be straight-line code whose last call (normally wrap) reports any earlier failure.
class ASN1BEREncodeBuffer : public ASN1MessageBuffer {
  public:
    static constexpr std::size_t kInlineSize = 4096;
    // Upper bound of both the encoding and the context's arena.
    static constexpr std::size_t kMaxSize = std::size_t{256} << 20;

    ASN1BEREncodeBuffer() noexcept;
    ~ASN1BEREncodeBuffer() override;

    // Start of the finished encoding (valid until the next write or reset).
    const ASN1OCTET* getMsgPtr() const noexcept { return storage_ + (capacity_ - used_); }
    // Octets written so far; also the "mark" that wrap() takes.
    std::size_t getMsgLen() const noexcept { return used_; }
    // Empties the buffer, releases the arena and clears a failure.
    void reset() noexcept;

    bool isEncoding() const noexcept override { return true; }
    bool ok() const noexcept { return ctxt_.status == ASN_OK; }

    // ---- Low-level prepends. The common cases (room in the buffer, a one-octet identifier
    // and a short length) are written inline; the rest goes to the general paths.
    int putBytes(const void* data, std::size_t size) noexcept {
        if (ok() && size != 0 && data != nullptr && capacity_ - used_ >= size) {
            used_ += size;
            std::memcpy(front(), data, size);
            return static_cast<int>(size);
        }
        return putBytesGeneral(data, size);
    }
    int putByte(ASN1OCTET octet) noexcept;
    // Identifier and DER length octets for contents of contentLen octets.
    int putTagLen(ASN1TAG tag, std::size_t contentLen) noexcept {
        const ASN1TAG number = tag & TM_IDCODE_MASK;
        if (number < 31 && contentLen < 0x80 && ok() && capacity_ - used_ >= 2) {
            used_ += 2;
            ASN1OCTET* out = front();
            out[0] = static_cast<ASN1OCTET>(((tag >> 24) & 0xC0) |
                                            ((tag & TM_CONS) != 0 ? 0x20 : 0) | number);
            out[1] = static_cast<ASN1OCTET>(contentLen);
            return 2;
        }
        return putTagLenGeneral(tag, contentLen);
    }
    // Wraps everything written since getMsgLen() was mark in tag and length; returns the
    // length of the whole element (contents + tag + length).
    int wrap(ASN1TAG tag, std::size_t mark) noexcept {
        return ok() && mark <= used_ ? wrapLast(tag, used_ - mark) : wrapGeneral(tag, mark);
    }
    // Wraps the last n octets in tag and length; returns the whole element's length.
    int wrapLast(ASN1TAG tag, std::size_t n) noexcept {
        if (!ok() || n > used_) {
            return wrapLastGeneral(tag, n);
        }
        const int header = putTagLen(tag, n);
        return header < 0 ? header : static_cast<int>(n) + header;
    }
    // DER SET OF: sorts the elements written since mark by their encodings, then wraps them.
    int wrapSetOf(ASN1TAG tag, std::size_t mark) noexcept;
    // Sorts the complete elements written since mark (ascending octet order, a prefix first).
    int sortElements(std::size_t mark) noexcept;

    // ---- DER values; tag replaces the universal tag for [n] IMPLICIT fields.
    int putBool(OSBOOL value, ASN1TAG tag = ASN1TAG_BOOLEAN) noexcept;
    int putInt(OSINT32 value, ASN1TAG tag = ASN1TAG_INTEGER) noexcept;
    // The contents octets as given (empty is RTERR_INVPARAM).
    int putBigInt(const ASN1TDynBigInt& value, ASN1TAG tag = ASN1TAG_INTEGER) noexcept;
    // A non-negative value as a minimal INTEGER (0x80000000 and above get a leading 00).
    int putUnsigned(OSUINT32 value, ASN1TAG tag = ASN1TAG_INTEGER) noexcept;
    int putEnum(OSINT32 value, ASN1TAG tag = ASN1TAG_ENUMERATED) noexcept;
    int putNull(ASN1TAG tag = ASN1TAG_NULL) noexcept;
    // Contents octets are checked as the decoder checks them (RTERR_BADVALUE otherwise).
    int putOid(const ASN1OBJID& value, ASN1TAG tag = ASN1TAG_OBJID) noexcept;
    int putOctStr(const ASN1TDynOctStr& value, ASN1TAG tag = ASN1TAG_OCTETSTRING) noexcept;
    int putOctStr(const ASN1OCTET* data, std::size_t size,
                  ASN1TAG tag = ASN1TAG_OCTETSTRING) noexcept;
    // Unused padding bits of the last octet are written as zero whatever the source holds.
    int putBitStr(const ASN1TDynBitStr& value, ASN1TAG tag = ASN1TAG_BITSTRING) noexcept;
    // Character string or time from NUL-terminated text (null text is RTERR_INVPARAM).
    int putString(const char* text, ASN1TAG tag) noexcept;
    // Character string from raw contents (BMPString, UniversalString).
    int putString(const ASN1TDynOctStr& value, ASN1TAG tag) noexcept;
    // One whole element, verbatim; an empty open type writes nothing.
    int putOpenType(const ASN1OpenType& value) noexcept;

    // Records a failure (sticky) and returns it; what names the element (may be null).
    int fail(int status, const char* what = nullptr) noexcept;

  private:
    bool reserve(std::size_t more) noexcept;
    ASN1OCTET* front() noexcept { return storage_ + (capacity_ - used_); }
    [[gnu::noinline]] int putBytesGeneral(const void* data, std::size_t size) noexcept;
    [[gnu::noinline]] int putTagLenGeneral(ASN1TAG tag, std::size_t contentLen) noexcept;
    [[gnu::noinline]] int wrapLastGeneral(ASN1TAG tag, std::size_t n) noexcept;
    [[gnu::noinline]] int wrapGeneral(ASN1TAG tag, std::size_t mark) noexcept;

    ASN1OCTET* storage_;
    std::size_t capacity_;
    std::size_t used_ = 0;
    alignas(16) ASN1OCTET inline_[kInlineSize];
};

// BER reader over a caller's byte range (not copied; it must outlive the buffer and
// everything decoded from it). The arena cap is 64 KiB + 16 x the input length.
class ASN1BERDecodeBuffer : public ASN1MessageBuffer {
  public:
    ASN1BERDecodeBuffer() noexcept;
    ASN1BERDecodeBuffer(const ASN1OCTET* data, std::size_t size) noexcept;

    // Points the buffer at new input and resets it as init() does; RTERR_INVPARAM for a
    // negative size or a null pointer with a non-zero size.
    int setBuffer(const unsigned char* data, int size) noexcept;
    // Rewinds to the start of the input, releases the arena and clears a failure.
    int init() noexcept;

    const ASN1OCTET* getBufPtr() const noexcept { return ctxt_.decData; }
    std::size_t getBufLen() const noexcept { return ctxt_.decLen; }
    // Offset of the next unread octet.
    std::size_t getByteIndex() const noexcept { return ctxt_.decPos; }
    bool isEncoding() const noexcept override { return false; }

    // The arena cap used for an input of size octets (saturating).
    static std::size_t arenaCapFor(std::size_t size) noexcept;
};

// Matches the single-octet identifier tag (such as 0x30) at the decode position of ctxt,
// consumes identifier and length octets and stores the contents' length in *len, or
// ASN_K_INDEFLEN for an indefinite length. 0 or a negative status (nothing consumed then).
int xd_match1(ASN1CTXT* ctxt, ASN1OCTET tag, int* len) noexcept;

// Extent of the whole element at the decode position of ctxt, without consuming it:
// *offset = its offset in the input, *size = identifier + length + contents (+ end-of-
// contents octets for an indefinite length). 0 or a negative status.
int xd_elemExtent(ASN1CTXT* ctxt, std::size_t* offset, std::size_t* size) noexcept;

#endif
