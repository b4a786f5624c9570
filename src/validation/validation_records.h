// The private records of the validator and of its result.
#ifndef VELMOR_SRC_VALIDATION_VALIDATION_RECORDS_H
#define VELMOR_SRC_VALIDATION_VALIDATION_RECORDS_H

#include "foundation/value_record.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <pki/ocsp/response_validator.h>

namespace Velmor::PKI::OCSP {

struct VELMOR_OCSP_LOCAL CValidationResult::Data {
    std::uint32_t failures = 0;
    std::optional<CSingleResponse> entry;
    std::optional<CBlob> signer;
    SignerKind signerKind = noSigner;
    bool signerNoCheck = false;
};

struct VELMOR_OCSP_LOCAL CResponseValidator::Data {
    std::optional<CBlob> requestNonce;
    std::unique_ptr<CBlobList> trustedResponders;
    std::unique_ptr<CBlobList> extraCertificates;
    std::optional<CDateTime> validationTime;
    std::chrono::seconds clockSkew{300};
    std::optional<std::chrono::seconds> maxAge;

    Data() = default;
    Data(const Data& other)
        : requestNonce(other.requestNonce),
          trustedResponders(Detail::CopyOf(other.trustedResponders.get())),
          extraCertificates(Detail::CopyOf(other.extraCertificates.get())),
          validationTime(other.validationTime), clockSkew(other.clockSkew), maxAge(other.maxAge) {}
};

} // namespace Velmor::PKI::OCSP

#endif
