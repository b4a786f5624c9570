// Reading a request's encoding into its fields: a fast path for the usual shape in strict
// DER, and the BER runtime for everything else.
#include "request/request_message_data.h"

#include "asn1/der_cursor.h"

#include <pki/ocsp/atl_exception.h>

namespace Velmor::PKI::OCSP {

using namespace Velmor::ASN1;
using namespace Velmor::Asn1Rt;
using namespace Velmor::Win32;

namespace {

// The DER of every certificate of a decoded SEQUENCE OF Certificate, in order; each one is
// written back from the octets it arrived in.
std::unique_ptr<CBlobList> CertificatesOf(const ASN1T__SeqOfCertificate& certs) {
    auto list = std::make_unique<CBlobList>();
    for (const OSRTDListNode* node = certs.head; node != nullptr; node = node->next) {
        list->push_back(Codec::EncodeToBlob(*static_cast<const ASN1T_Certificate*>(node->data)));
    }
    return list;
}

bool ReadDerTbsRequest(DerCursor& tbs, DecodedRequest& decoded) {
    DerCursor list;
    if (!tbs.read(kDerSequence, list)) {
        return false; // a version or a requestor name comes first: not the usual shape
    }
    while (!list.empty()) {
        if (!ReadDerRequestEntry(list, decoded.entries)) {
            return false;
        }
    }
    if (tbs.peek(DerExplicit(2))) {
        decoded.requestExtensions = std::make_unique<CExtensions>();
        if (!ReadDerExplicitExtensions(tbs, 2, *decoded.requestExtensions)) {
            return false;
        }
    }
    return tbs.empty();
}

} // namespace

bool ReadDerRequest(const CBlob& encoded, DecodedRequest& decoded) {
    DerCursor input(encoded.pbData(), encoded.cbData());
    DerCursor request;
    DerCursor tbsElement;
    DerCursor tbs;
    if (!input.read(kDerSequence, request) || !input.empty() ||
        !request.readElement(kDerSequence, tbsElement, tbs) || !request.empty()) {
        return false; // also a signed request: its signature goes through the runtime
    }
    try {
        if (!ReadDerTbsRequest(tbs, decoded)) {
            return false;
        }
    } catch (const ATL::CAtlException&) {
        return false; // a value the conversions refuse: the runtime path reports it
    }
    decoded.signedBytes = CBlob(tbsElement.data(), static_cast<unsigned long>(tbsElement.size()));
    return true;
}

void ReadBerRequest(const CBlob& encoded, DecodedRequest& decoded) {
    ASN1BERDecodeBuffer buffer(encoded.pbData(), encoded.cbData());
    ASN1T_OCSPRequest message;
    ASN1C_OCSPRequest control(buffer, message);
    Codec::ThrowIfFailed(control.Decode());
    const ASN1T_TBSRequest& tbs = message.tbsRequest;

    decoded.version = tbs.m.versionPresent ? static_cast<Version>(tbs.version) : v1;
    for (const OSRTDListNode* node = tbs.requestList.head; node != nullptr; node = node->next) {
        ASN1T_Request_append(*static_cast<const ASN1T_Request*>(node->data), decoded.entries);
    }
    if (tbs.m.requestorNamePresent) {
        CGeneralName name;
        ASN1T_GeneralName_traits::get(tbs.requestorName, name);
        if (name.get_directoryName() == nullptr) {
            ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL); // only a directoryName names a requestor here
        }
        decoded.requestorName = std::make_unique<CBlob>(*name.get_directoryName());
    }
    if (tbs.m.requestExtensionsPresent) {
        decoded.requestExtensions = std::make_unique<CExtensions>();
        ASN1T_Extensions_traits::get(tbs.requestExtensions, *decoded.requestExtensions);
    }
    if (message.m.optionalSignaturePresent) {
        const ASN1T_Signature& sig = message.optionalSignature;
        decoded.signature = std::make_unique<CBlob>();
        ASN1TDynBitStr_traits::get(sig.signature, *decoded.signature);
        decoded.signatureAlgorithm = std::make_unique<CAlgorithmIdentifierEx>();
        ASN1T_AlgorithmIdentifier_get(*decoded.signatureAlgorithm, sig.signatureAlgorithm);
        if (sig.m.certsPresent) {
            decoded.certs = CertificatesOf(sig.certs);
        }
    }
    decoded.signedBytes = CBlob(tbs.raw.data, tbs.raw.numocts);
}

} // namespace Velmor::PKI::OCSP
