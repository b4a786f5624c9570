// Conversions between the request classes and their ASN.1 structures.
#ifndef VELMOR_SRC_REQUEST_REQUEST_TRAITS_H
#define VELMOR_SRC_REQUEST_REQUEST_TRAITS_H

#include "asn1/ocsp_types.h"
#include "certid/cert_id_traits.h"
#include "foundation/asn1_traits.h"
#include "foundation/codec_frame.h"

#include <list>
#include <memory>
#include <pki/ocsp/single_request.h>

namespace Velmor::PKI::OCSP {

// An owned copy of an optional field: null stays null.
template <class T> std::unique_ptr<T> CopyOf(const T* value) {
    return value != nullptr ? std::make_unique<T>(*value) : nullptr;
}

// Fills a zeroed Request structure for one entry in ctxt memory (CRYPT_E_ASN1_MEMORY when
// it runs out).
void ASN1T_Request_set(ASN1CTXT* ctxt, ASN1T_Request& out, const CSingleRequest& request);
// Appends the entry of a decoded Request to list, without copying it, and returns it.
CSingleRequest& ASN1T_Request_append(const ASN1T_Request& in, std::list<CSingleRequest>& list);
// Reads one Request from strict DER and appends its entry to list; false (list may have
// grown) for anything the DER fast path leaves to the BER decoder.
bool ReadDerRequestEntry(Asn1Rt::DerCursor& in, std::list<CSingleRequest>& list);

} // namespace Velmor::PKI::OCSP

#endif
