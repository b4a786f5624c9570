#include "foundation/codec_frame.h"

#include <cstring>
#include <pki/ocsp/atl_exception.h>

using namespace Velmor::Win32;

namespace Velmor::Codec {

void RequireNonEmpty(const CBlob& encoded) {
    if (encoded.cbData() == 0 || encoded.pbData() == nullptr) {
        ATL::AtlThrow(E_INVALIDARG);
    }
}

void ThrowIfFailed(int status) {
    if (status < 0) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
}

void* AllocZ(ASN1CTXT* ctxt, std::size_t size) {
    void* memory = rtMemHeapAllocZ(ctxt, size);
    if (memory == nullptr) {
        ATL::AtlThrow(CRYPT_E_ASN1_MEMORY);
    }
    return memory;
}

void Append(ASN1CTXT* ctxt, OSRTDList& list, void* element) {
    if (rtDListAppend(ctxt, &list, element) < 0) {
        ATL::AtlThrow(CRYPT_E_ASN1_MEMORY);
    }
}

const ASN1OCTET* CopyBytes(ASN1CTXT* ctxt, const void* data, std::size_t size) {
    if (size == 0) {
        return nullptr;
    }
    const ASN1OCTET* copy = rtMemCopy(ctxt, data, size);
    if (copy == nullptr) {
        ATL::AtlThrow(CRYPT_E_ASN1_MEMORY);
    }
    return copy;
}

void ThrowIfCopyFailed(int status) {
    if (status < 0) {
        ATL::AtlThrow(CRYPT_E_ASN1_MEMORY);
    }
}

CBlob TakeEncoding(const ASN1BEREncodeBuffer& buffer, int status) {
    if (status <= 0) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
    return CBlob(buffer.getMsgPtr(), static_cast<unsigned long>(status));
}

} // namespace Velmor::Codec
