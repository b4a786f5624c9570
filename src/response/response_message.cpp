// CResponseMessage: the outer OCSP response, carried through the OCSPResponse structure.
#include <pki/ocsp/response_message.h>

#include "asn1/asn1_detail.h"
#include "asn1/ocsp_types.h"
#include "foundation/asn1_traits.h"
#include "foundation/codec_frame.h"
#include "foundation/oid_text.h"

#include <cstring>
#include <memory>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/string_proxy.h>

using namespace Velmor::Win32;

namespace Velmor::PKI::OCSP {

using ASN1C_OCSPResponseCodec = ASN1::CCodeClassT<ASN1T_OCSPResponse, ASN1C_OCSPResponse>;

// The body and its type are held by value, so that decoding into an object that already
// holds a body reuses that storage.
struct CResponseMessage::Data {
    ResponseStatus responseStatus = internalError;
    bool hasBody = false;
    std::string responseType; // the OID text; meaningful when hasBody
    std::string typeContents; // its DER contents octets; empty when the text is not an OID
    CBlob response;           // meaningful when hasBody

    std::unique_ptr<Data> Clone() const { return std::make_unique<Data>(*this); }
    static std::string OidContents(const std::string& text);
};

CResponseMessage::CResponseMessage() : m_data(new Data()) {}

CResponseMessage::CResponseMessage(const CResponseMessage& other)
    : m_data(other.m_data->Clone().release()) {}

// The copy is made before the old data is freed, so a failed copy leaves the object whole.
CResponseMessage& CResponseMessage::operator=(const CResponseMessage& other) {
    if (this != &other) {
        Data* copy = other.m_data->Clone().release();
        delete m_data;
        m_data = copy;
    }
    return *this;
}

CResponseMessage::~CResponseMessage() { delete m_data; }

ResponseStatus CResponseMessage::get_responseStatus() const { return m_data->responseStatus; }

void CResponseMessage::put_responseStatus(ResponseStatus status) {
    m_data->responseStatus = status;
}

const char* CResponseMessage::get_responseType() const {
    return m_data->hasBody ? m_data->responseType.c_str() : nullptr;
}

const CBlob* CResponseMessage::get_response() const {
    return m_data->hasBody ? &m_data->response : nullptr;
}

void CResponseMessage::put_response(const char* responseType, const CBlob* response) {
    if ((responseType == nullptr) != (response == nullptr)) {
        ATL::AtlThrow(E_INVALIDARG);
    }
    if (responseType == nullptr) {
        m_data->hasBody = false;
        m_data->responseType.clear();
        m_data->response = CBlob();
        return;
    }
    std::string type(responseType);
    std::string contents = Data::OidContents(type);
    CBlob body(*response);
    m_data->responseType.swap(type);
    m_data->typeContents.swap(contents);
    m_data->response = std::move(body);
    m_data->hasBody = true;
}

// The contents octets of an OID given as text, or "" when the text is not an OID (which
// encode then reports).
std::string CResponseMessage::Data::OidContents(const std::string& text) {
    std::string contents(text.size(), '\0');
    contents.resize(
        Codec::OidTextToContents(text, reinterpret_cast<std::uint8_t*>(contents.data())));
    return contents;
}

namespace {

using Velmor::Asn1Rt::encodeHeader;
using Velmor::Asn1Rt::kMaxHeaderLen;

// The length of one element: its header and its contents.
std::size_t ElementSize(ASN1TAG tag, std::size_t contentSize) {
    ASN1OCTET header[kMaxHeaderLen];
    return encodeHeader(tag, contentSize, header) + contentSize;
}

unsigned char* WriteElement(unsigned char* out, ASN1TAG tag, const void* content,
                            std::size_t size) {
    out += encodeHeader(tag, size, out);
    if (size != 0) {
        std::memcpy(out, content, size);
    }
    return out + size;
}

// OCSPResponse ::= SEQUENCE { responseStatus ENUMERATED,
//                             responseBytes [0] EXPLICIT SEQUENCE { OID, OCTET STRING } }
// has so few headers that their lengths are worked out first and the message is written
// straight into its blob: the body, nearly all of it, is copied once, where the general
// encoder writes into its own buffer and copies the whole encoding out again. A status must
// fit one octet; typeContents is null for a message without body.
CBlob EncodeDirect(ResponseStatus status, const std::string* typeContents, const CBlob& body) {
    const std::size_t typeSize = typeContents != nullptr ? typeContents->size() : 0;
    const std::size_t bytes =
        ElementSize(ASN1TAG_OBJID, typeSize) + ElementSize(ASN1TAG_OCTETSTRING, body.cbData());
    const std::size_t explicitBytes = ElementSize(ASN1TAG_SEQUENCE, bytes);
    const std::size_t content =
        3 + (typeContents != nullptr ? ElementSize(asn1CtxtConsTag(0), explicitBytes) : 0);
    CBlob encoded(static_cast<unsigned long>(ElementSize(ASN1TAG_SEQUENCE, content)));
    unsigned char* out = encoded.pbData();
    out += encodeHeader(ASN1TAG_SEQUENCE, content, out);
    const ASN1OCTET statusOctet = static_cast<ASN1OCTET>(status);
    out = WriteElement(out, ASN1TAG_ENUMERATED, &statusOctet, 1);
    if (typeContents != nullptr) {
        out += encodeHeader(asn1CtxtConsTag(0), explicitBytes, out);
        out += encodeHeader(ASN1TAG_SEQUENCE, bytes, out);
        out = WriteElement(out, ASN1TAG_OBJID, typeContents->data(), typeSize);
        WriteElement(out, ASN1TAG_OCTETSTRING, body.pbData(), body.cbData());
    }
    return encoded;
}

} // namespace

CBlob CResponseMessage::encode() const {
    const bool statusFitsOneOctet = m_data->responseStatus >= 0 && m_data->responseStatus < 0x80;
    if (statusFitsOneOctet && (!m_data->hasBody || !m_data->typeContents.empty())) {
        return EncodeDirect(m_data->responseStatus,
                            m_data->hasBody ? &m_data->typeContents : nullptr, m_data->response);
    }
    ASN1BEREncodeBuffer buffer;
    ASN1T_OCSPResponse message;
    message.responseStatus = m_data->responseStatus;
    if (m_data->hasBody) {
        message.m.responseBytesPresent = 1;
        if (m_data->typeContents.empty()) {
            ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
        }
        message.responseBytes.responseType.numocts =
            static_cast<OSUINT32>(m_data->typeContents.size());
        message.responseBytes.responseType.data =
            reinterpret_cast<const ASN1OCTET*>(m_data->typeContents.data());
        // The encoder copies the body into its output; it need not be copied first.
        message.responseBytes.response.data = m_data->response.pbData();
        message.responseBytes.response.numocts = static_cast<OSUINT32>(m_data->response.cbData());
    }
    return Codec::TakeEncoding(buffer, ASN1C_OCSPResponseCodec::encode(buffer, message));
}

void CResponseMessage::decode(const CBlob& encoded) {
    Codec::RequireNonEmpty(encoded);
    ASN1BERDecodeBuffer buffer(encoded.pbData(), encoded.cbData());
    ASN1T_OCSPResponse message;
    Codec::ThrowIfFailed(ASN1C_OCSPResponseCodec::decode(buffer, message));

    if (!message.m.responseBytesPresent) {
        m_data->responseStatus = static_cast<ResponseStatus>(message.responseStatus);
        m_data->hasBody = false;
        return;
    }
    // Every step that can fail comes before the first visible change: the type text is made
    // in scratch storage and the object's own string reserves room for it (a reserve keeps
    // the value), then the body is assigned (which allocates, if it must, before it changes
    // anything), and only then the rest, which cannot fail. Storage already held is reused.
    thread_local std::string typeText;
    typeText.clear();
    if (!Codec::OidContentsToText(message.responseBytes.responseType.data,
                                  message.responseBytes.responseType.numocts, typeText)) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
    const ASN1OBJID& type = message.responseBytes.responseType;
    m_data->responseType.reserve(typeText.size());
    m_data->typeContents.reserve(type.numocts);
    const ASN1TDynOctStr& body = message.responseBytes.response;
    m_data->response.assign(body.data, body.numocts);
    m_data->responseType.assign(typeText);
    m_data->typeContents.assign(reinterpret_cast<const char*>(type.data), type.numocts);
    m_data->responseStatus = static_cast<ResponseStatus>(message.responseStatus);
    m_data->hasBody = true;
}

} // namespace Velmor::PKI::OCSP
