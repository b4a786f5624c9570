#include "foundation/codec_frame.h"

#include "trace/trace_guard.h"

#include <algorithm>
#include <cstring>
#include <pki/ocsp/atl_exception.h>
#include <string>

using namespace Velmor::Win32;

namespace Velmor::Codec {

namespace {
thread_local Failure t_lastFailure;

// text into out, cut to fit, always terminated.
template <std::size_t N> void CopyCut(char (&out)[N], const char* text) noexcept {
    const std::size_t length = std::min(std::strlen(text), N - 1);
    std::memcpy(out, text, length);
    out[length] = '\0';
}
} // namespace

const Failure& LastFailure() noexcept { return t_lastFailure; }

void ThrowFailure(const ASN1MessageBuffer& buffer, int status) {
    const ASN1CTXT* ctxt = buffer.getCtxtPtr();
    t_lastFailure.status = ctxt->status != ASN_OK ? ctxt->status : status;
    t_lastFailure.offset = ctxt->errOffset;
    CopyCut(t_lastFailure.detail, rtErrDetail(ctxt));
    CopyCut(t_lastFailure.path, ctxt->status != ASN_OK ? ctxt->errPath : "");
    if (Trace::Enabled(1)) {
        Trace::ThrowDetailed(CRYPT_E_ASN1_INTERNAL, DescribeFailure(buffer, status));
    }
    ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
}

std::string DescribeFailure(const ASN1MessageBuffer& buffer, int status) {
    const ASN1CTXT* ctxt = buffer.getCtxtPtr();
    if (ctxt->status == ASN_OK) { // the caller's status: an encoder that wrote nothing
        return status < 0 ? std::string(": ") + rtErrText(status) : ": nothing was written";
    }
    std::string text;
    if (rtErrHasOffset(ctxt)) {
        text += " at ";
        if (ctxt->errPath[0] != '\0') {
            text += ctxt->errPath;
            text += ", ";
        }
        text += "offset " + std::to_string(ctxt->errOffset);
    }
    text += ": ";
    text.append(ctxt->errText, ctxt->errReasonLen);
    return text;
}

void TraceStatus(const char* member, const ASN1MessageBuffer& buffer, int status) {
    Trace::Write(1, nullptr, nullptr, nullptr, 0,
                 std::string(member) + ": " + rtErrText(status) + " (" + std::to_string(status) +
                     ")" + DescribeFailure(buffer, status));
}

void TraceMessageSize(const char* what, std::size_t size) {
    VELMOR_TRACE(4, "codec", std::string(what) + ' ' + std::to_string(size) + " octets");
}

void RequireInput(const ASN1BERDecodeBuffer& buffer) {
    if (buffer.getBufLen() == 0 || buffer.getBufPtr() == nullptr) {
        ATL::AtlThrow(E_INVALIDARG);
    }
}

void ThrowOutOfContextMemory() { ATL::AtlThrow(CRYPT_E_ASN1_MEMORY); }

const ASN1OCTET* CopyBytes(ASN1CTXT* ctxt, const void* data, std::size_t size) {
    if (size == 0) {
        return nullptr;
    }
    const ASN1OCTET* copy = rtMemCopy(ctxt, data, size);
    if (copy == nullptr) {
        ThrowOutOfContextMemory();
    }
    return copy;
}

void ThrowIfCopyFailed(int status) {
    if (status < 0) {
        ThrowOutOfContextMemory();
    }
}

} // namespace Velmor::Codec
