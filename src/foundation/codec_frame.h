// The one way a value crosses between the library's classes and its ASN.1 structures:
// Codec::Encode and Codec::Decode over a type's asn1E/asn1D, which apply the empty-input and
// failure rules and remember where a failed conversion stopped; CCodeClassT, the exported
// frame, on the same core; and the context-memory helpers of the converters.
#ifndef VELMOR_SRC_FOUNDATION_CODEC_FRAME_H
#define VELMOR_SRC_FOUNDATION_CODEC_FRAME_H

#include "asn1/asn1_runtime.h"

#include "trace/trace_facility.h"
#include <cstddef>
#include <pki/ocsp/blob.h>
#include <string>

namespace Velmor::Codec {

// ---- Context memory of the converters

// Throws E_INVALIDARG when buffer has no input (size 0 or no data pointer).
void RequireInput(const ASN1BERDecodeBuffer& buffer);

// Throws CRYPT_E_ASN1_MEMORY: a context has no memory left.
[[noreturn]] void ThrowOutOfContextMemory();

// context memory of size bytes, zero-filled; throws CRYPT_E_ASN1_MEMORY when the context
// has none left. Inline, so that a structure's fill is a few stores.
inline void* AllocZ(ASN1CTXT* ctxt, std::size_t size) {
    void* memory = rtMemHeapAllocZ(ctxt, size);
    if (memory == nullptr) {
        ThrowOutOfContextMemory();
    }
    return memory;
}

// A value-initialised T in context memory; CRYPT_E_ASN1_MEMORY when the context has none
// left.
template <class T> T* NewZ(ASN1CTXT* ctxt) { return new (AllocZ(ctxt, sizeof(T))) T(); }

// A new T appended to list, both in context memory; CRYPT_E_ASN1_MEMORY when no memory is
// left.
template <class T> T& AppendNew(ASN1CTXT* ctxt, OSRTDList& list) {
    T* element = rtDListAppendNew<T>(ctxt, list);
    if (element == nullptr) {
        ThrowOutOfContextMemory();
    }
    return *element;
}

// A copy of size bytes in context memory (null for size 0); CRYPT_E_ASN1_MEMORY on failure.
const ASN1OCTET* CopyBytes(ASN1CTXT* ctxt, const void* data, std::size_t size);

// Throws CRYPT_E_ASN1_MEMORY when a deep copy into a context failed (negative status).
void ThrowIfCopyFailed(int status);

// ---- The codec entry point

// The runtime status of one encode or decode of a T: a length (encode), 0 (decode) or a
// negative status. Never throws.
template <class T> int EncodeStatus(ASN1BEREncodeBuffer& buffer, const T& value) {
    return Asn1Rt::encodeAtEnd(buffer, [&](ASN1BEREncodeBuffer& out) { return asn1E(out, value); });
}
template <class T> int DecodeStatus(ASN1BERDecodeBuffer& buffer, T& value) {
    return Asn1Rt::decodeAtPosition(
        buffer.getCtxtPtr(), [&](Asn1Rt::BerReader& reader) { return asn1D(reader, value); });
}

// Where this thread's last failed encode or decode stopped: the runtime's status, the
// input offset (decoding), the runtime's text naming the element and the path of the fields
// being read. Kept for diagnostics; the exception itself carries only CRYPT_E_ASN1_INTERNAL.
struct Failure {
    int status = ASN_OK;
    std::size_t offset = 0;
    char detail[sizeof(ASN1CTXT::errText)] = {};
    char path[sizeof(ASN1CTXT::errPath)] = {};
};
const Failure& LastFailure() noexcept;

// Records buffer's failure (or status, when the buffer recorded none) as this thread's last
// failure and throws CRYPT_E_ASN1_INTERNAL. When level 1 of the trace shows, the exception
// carries the failure's description to the failure line of the public member it leaves.
[[noreturn]] void ThrowFailure(const ASN1MessageBuffer& buffer, int status);

// How buffer's failure (or status, when the buffer recorded none) reads in a failure line:
// " at PATH, offset N: REASON" for a decode (" at offset N: REASON" when no field was
// named), ": REASON" for an encode.
std::string DescribeFailure(const ASN1MessageBuffer& buffer, int status);

// Writes the level-1 line of a frame call (CCodeClassT's) that returned the negative runtime
// status: "member: NAME (status)" and buffer's description.
[[gnu::cold]] void TraceStatus(const char* member, const ASN1MessageBuffer& buffer, int status);

// Writes the level-4 line of a message decoded or encoded, with its size. Out of line, so that
// the codec's inline paths carry only the level test.
[[gnu::cold]] void TraceMessageSize(const char* what, std::size_t size);

// How a decode treats empty input: a message's decode refuses it as a bad argument
// (E_INVALIDARG); a converter lets the runtime call it malformed (CRYPT_E_ASN1_INTERNAL).
enum class OnEmpty { InvalidArgument, Malformed };

// Decodes the whole input of buffer (nothing may follow it) as one T, whose views point into
// that input and into buffer's arena. Throws E_INVALIDARG for empty input when onEmpty says
// so, and CRYPT_E_ASN1_INTERNAL for bytes that are not a T.
template <class T>
void Decode(ASN1BERDecodeBuffer& buffer, T& value, OnEmpty onEmpty = OnEmpty::Malformed) {
    if (onEmpty == OnEmpty::InvalidArgument) {
        RequireInput(buffer);
    }
    const int status = DecodeStatus(buffer, value);
    if (status < 0) {
        ThrowFailure(buffer, status);
    }
    if (Trace::Enabled(4)) {
        TraceMessageSize("decoded", buffer.getBufLen());
    }
}

// The DER of value as a new blob. value's views may point into buffer's arena. Throws
// CRYPT_E_ASN1_INTERNAL when the encoder fails (or, for a message, writes nothing).
template <class T> CBlob Encode(ASN1BEREncodeBuffer& buffer, const T& value) {
    const int status = EncodeStatus(buffer, value);
    if (status <= 0) {
        ThrowFailure(buffer, status);
    }
    if (Trace::Enabled(4)) {
        TraceMessageSize("encoded", static_cast<std::size_t>(status));
    }
    return CBlob(buffer.getMsgPtr(), static_cast<unsigned long>(status));
}

// The same for a structure that needs no context memory of its own.
template <class T> CBlob Encode(const T& value) {
    ASN1BEREncodeBuffer buffer;
    return Encode(buffer, value);
}

// The DER of value through its converter: Traits::set fills a Traits::Type structure in a
// fresh buffer's memory, which is then encoded.
template <class Traits, class Value> CBlob EncodeWith(const Value& value) {
    ASN1BEREncodeBuffer buffer;
    typename Traits::Type structure{};
    Traits::set(buffer.getCtxtPtr(), structure, value);
    return Encode(buffer, structure);
}

// The same into an existing blob, whose storage is reused when it has room; into keeps its
// bytes when the conversion throws.
template <class Traits, class Value> void EncodeWith(const Value& value, CBlob& into) {
    ASN1BEREncodeBuffer buffer;
    typename Traits::Type structure{};
    Traits::set(buffer.getCtxtPtr(), structure, value);
    const int status = EncodeStatus(buffer, structure);
    if (status <= 0) {
        ThrowFailure(buffer, status);
    }
    into.assign(buffer.getMsgPtr(), static_cast<unsigned long>(status));
}

// Decodes encoded as one Traits::Type and replaces value with Traits::get of it; value is
// untouched when the bytes do not decode.
template <class Traits, class Value>
void DecodeWith(const CBlob& encoded, Value& value, OnEmpty onEmpty = OnEmpty::Malformed) {
    ASN1BERDecodeBuffer buffer(encoded.pbData(), encoded.cbData());
    typename Traits::Type structure{};
    Decode(buffer, structure, onEmpty);
    Traits::get(structure, value);
}

// Decodes der as one T and deep-copies it into ctxt with copy(ctxt, from, to), so that it
// outlives der. Throws as Decode does, and CRYPT_E_ASN1_MEMORY when ctxt is full.
template <class T, class Copy>
void DecodeInto(ASN1CTXT* ctxt, const CBlob& der, T& out, Copy&& copy,
                OnEmpty onEmpty = OnEmpty::Malformed) {
    ASN1BERDecodeBuffer buffer(der.pbData(), der.cbData());
    T scratch{};
    Decode(buffer, scratch, onEmpty);
    ThrowIfCopyFailed(copy(ctxt, scratch, out));
}

} // namespace Velmor::Codec

namespace Velmor::ASN1 {

// The exported frame: runs C (an ASN1C_ control class) over a buffer and a structure and
// passes its status on unchanged, a length or 0 on success, a negative runtime status on
// failure. It never throws; Codec::Encode and Codec::Decode are the throwing form. A failure
// writes its level-1 line, as a public member's exception does.
template <class T, class C> class CCodeClassT {
  public:
    static int encode(ASN1BEREncodeBuffer& buffer, T& value) {
        C control(buffer, value);
        const int status = control.Encode();
        if (status < 0 && Trace::Enabled(1)) {
            Codec::TraceStatus("CCodeClassT::encode", buffer, status);
        }
        return status;
    }
    static int decode(ASN1BERDecodeBuffer& buffer, T& value) {
        C control(buffer, value);
        const int status = control.Decode();
        if (status < 0 && Trace::Enabled(1)) {
            Codec::TraceStatus("CCodeClassT::decode", buffer, status);
        }
        return status;
    }
};

} // namespace Velmor::ASN1

#endif
