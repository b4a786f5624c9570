// The signature that covers the to-be-signed part of a request or a basic response: its
// algorithm, its value in wire order, and for a decoded message the to-be-signed element
// exactly as it was received. Signing and verifying go through the CryptoAPI layer.
#ifndef VELMOR_SRC_MESSAGE_SIGNED_PART_H
#define VELMOR_SRC_MESSAGE_SIGNED_PART_H

#include "trace/trace_guard.h"

#include <cstdint>
#include <memory>
#include <pki/ocsp/algorithm_identifier_ex.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/win32.h>
#include <utility>

namespace Velmor::PKI::OCSP {

struct SignedPart {
    std::unique_ptr<ASN1::CAlgorithmIdentifierEx> algorithm;
    std::unique_ptr<CBlob> signature; // wire (big-endian) order
    // The to-be-signed element as decode() received it; empty for a message built or copied
    // here. Only decode() writes it.
    CBlob received;

    SignedPart() = default;
    // Copies the algorithm and the signature, not the received octets: a copy verifies over
    // a fresh encoding.
    SignedPart(const SignedPart& other);
    SignedPart& operator=(const SignedPart&) = delete;
    void swap(SignedPart& other) noexcept {
        algorithm.swap(other.algorithm);
        signature.swap(other.signature);
        std::swap(received, other.received);
    }

    // Signs tbs with the key keySpec of provider and the hash hashAlgId, then stores a copy
    // of algorithm and the signature. The caller's provider reference is left as it was.
    // A CryptoAPI failure throws the HRESULT of its last error, and nothing is stored
    // (provider 0 fails at hash creation).
    void Sign(std::uint64_t provider, unsigned long keySpec,
              const ASN1::CAlgorithmIdentifierEx& algorithm, Win32::ALG_ID hashAlgId,
              const CBlob& tbs);

    // True when the signature verifies with the key of signerCertificate (DER), false when
    // it does not match, which the level-2 trace reports for member (the public verify).
    // The data is the received octets, or encodeTbs() for a message without them. The hash
    // comes from the algorithm's cached ALG_ID, filled when it was 0. Every other failure
    // throws the HRESULT of the last Win32 error.
    template <class EncodeTbs>
    bool Verify(const char* member, const CBlob& signerCertificate, EncodeTbs&& encodeTbs) const {
        const bool valid = received.cbData() != 0 ? VerifyData(signerCertificate, received)
                                                  : VerifyData(signerCertificate, encodeTbs());
        if (!valid && Trace::Enabled(2)) {
            Trace::ReportOutcome(2, member, "the signature does not match");
        }
        return valid;
    }

  private:
    bool VerifyData(const CBlob& signerCertificate, const CBlob& data) const;
};

} // namespace Velmor::PKI::OCSP

#endif
