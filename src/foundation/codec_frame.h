// The one frame in which a class crosses to and from its ASN.1 structure: CCodeClassT, and
// the helpers that turn runtime statuses into the library's exceptions.
#ifndef VELMOR_SRC_FOUNDATION_CODEC_FRAME_H
#define VELMOR_SRC_FOUNDATION_CODEC_FRAME_H

#include "asn1/asn1_runtime.h"

#include <cstddef>
#include <pki/ocsp/blob.h>

namespace Velmor::ASN1 {

// Runs C (an ASN1C_ control class) over a buffer and a structure and passes its status on
// unchanged: a length or 0 on success, a negative runtime status on failure. Never throws
// on a negative status; the caller decides what a failure means.
template <class T, class C> class CCodeClassT {
  public:
    static int encode(ASN1BEREncodeBuffer& buffer, T& value) {
        C control(buffer, value);
        return control.Encode();
    }
    static int decode(ASN1BERDecodeBuffer& buffer, T& value) {
        C control(buffer, value);
        return control.Decode();
    }
};

} // namespace Velmor::ASN1

namespace Velmor::Codec {

// Throws E_INVALIDARG for a blob without bytes (size 0 or no data pointer).
void RequireNonEmpty(const CBlob& encoded);

// Throws CRYPT_E_ASN1_INTERNAL when status is negative (a failed encode or decode). The
// runtime's own status is never passed on.
void ThrowIfFailed(int status);

// context memory of size bytes, zero-filled; throws CRYPT_E_ASN1_MEMORY when the context
// has none left.
void* AllocZ(ASN1CTXT* ctxt, std::size_t size);

// A value-initialised T in context memory; CRYPT_E_ASN1_MEMORY when the context has none
// left.
template <class T> T* NewZ(ASN1CTXT* ctxt) { return new (AllocZ(ctxt, sizeof(T))) T(); }

// Appends element, which lives in ctxt, to list; CRYPT_E_ASN1_MEMORY when no node is left.
void Append(ASN1CTXT* ctxt, OSRTDList& list, void* element);

// A new T appended to list, both in context memory.
template <class T> T& AppendNew(ASN1CTXT* ctxt, OSRTDList& list) {
    T* element = NewZ<T>(ctxt);
    Append(ctxt, list, element);
    return *element;
}

// A copy of size bytes in context memory (null for size 0); CRYPT_E_ASN1_MEMORY on failure.
const ASN1OCTET* CopyBytes(ASN1CTXT* ctxt, const void* data, std::size_t size);

// Throws CRYPT_E_ASN1_MEMORY when a deep copy into a context failed (negative status).
void ThrowIfCopyFailed(int status);

// The finished encoding of buffer as a new blob of exactly status octets. A status that is
// not above zero throws CRYPT_E_ASN1_INTERNAL.
CBlob TakeEncoding(const ASN1BEREncodeBuffer& buffer, int status);

// The DER encoding of one structure, through its control class.
template <class T> CBlob EncodeToBlob(const T& value) {
    ASN1BEREncodeBuffer buffer;
    ASN1CTypeT<T> control(buffer, const_cast<T&>(value));
    return TakeEncoding(buffer, control.Encode());
}

// Decodes der (one whole value, nothing after it) into a scratch buffer, then deep-copies
// the result into ctxt with copy(ctxt, from, to), so that it outlives der. Throws
// CRYPT_E_ASN1_INTERNAL for bytes that are not a T, CRYPT_E_ASN1_MEMORY when ctxt is full.
template <class T, class Copy>
void DecodeInto(ASN1CTXT* ctxt, const CBlob& der, T& out, Copy&& copy) {
    ASN1BERDecodeBuffer buffer(der.pbData(), der.cbData());
    T scratch{};
    ASN1CTypeT<T> control(buffer, scratch);
    ThrowIfFailed(control.Decode());
    ThrowIfCopyFailed(copy(ctxt, scratch, out));
}

} // namespace Velmor::Codec

#endif
