// Signing and verifying the to-be-signed part of a request or a basic response through the
// CryptoAPI layer, with the provider search of the algorithm lookup.
#ifndef VELMOR_SRC_CERTID_MESSAGE_SIGNATURE_H
#define VELMOR_SRC_CERTID_MESSAGE_SIGNATURE_H

#include <cstdint>
#include <pki/ocsp/algorithm_identifier_ex.h>
#include <pki/ocsp/blob.h>

namespace Velmor::PKI::OCSP {

// The signature of data by the key keySpec of provider, with the hash that belongs to the
// signature algorithm, in wire (big-endian) order. The caller's provider reference is left
// as it was. Throws CRYPT_E_NOT_FOUND for an OID that is not a signature algorithm, and the
// HRESULT of the last Win32 error when a CryptoAPI call fails (provider 0 fails at hash
// creation).
CBlob SignData(std::uint64_t provider, unsigned long keySpec,
               const ASN1::CAlgorithmIdentifierEx& algorithm, const CBlob& data);

// True when signature (wire order) is the signature of data by the key of signerCertificate
// (DER), false when it does not match. The hash comes from algorithm, whose cached ALG_ID
// is filled when it was 0. Every other failure throws the HRESULT of the last Win32 error.
bool VerifyData(const CBlob& signerCertificate, const ASN1::CAlgorithmIdentifierEx& algorithm,
                const CBlob& signature, const CBlob& data);

} // namespace Velmor::PKI::OCSP

#endif
