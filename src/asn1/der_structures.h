// Strict-DER readers of the small PKIX and OCSP structures that every request and response
// repeats. They fill the same structures as the BER decoders, as views into the input and
// without any allocation, so that the same conversions apply to both. Each one takes only
// what the BER decoder would read identically; for anything else it returns false and the
// caller falls back to the BER decoder.
#ifndef VELMOR_SRC_ASN1_DER_STRUCTURES_H
#define VELMOR_SRC_ASN1_DER_STRUCTURES_H

#include "asn1/der_cursor.h"
#include "asn1/ocsp_types.h"

namespace Velmor::Asn1Rt {

// AlgorithmIdentifier without parameters or with NULL parameters.
bool ReadDer(DerCursor& in, ASN1T_AlgorithmIdentifier& out) noexcept;
// Extension, its value in the primitive form.
bool ReadDer(DerCursor& in, ASN1T_Extension& out) noexcept;
// CertID. The serial number is left as its INTEGER's contents octets in serial; out's text
// field is not set.
bool ReadDer(DerCursor& in, ASN1T_CertID& out, DerCursor& serial) noexcept;

} // namespace Velmor::Asn1Rt

#endif
