// CValidationResult: its fields and the short names of the failure bits.
#include "validation/validation_records.h"

namespace Velmor::PKI::OCSP {

using Detail::Records;

namespace {

// The names in bit order: kNames[i] names bit 1 << i.
constexpr const char* kNames[] = {
    "signature",
    "signer-not-found",
    "delegate-not-issued-by-issuer",
    "delegate-not-ocsp-signer",
    "delegate-not-valid",
    "responder-id-mismatch",
    "no-entry",
    "contradicting-entries",
    "this-update-in-future",
    "next-update-passed",
    "too-old",
    "nonce-missing",
    "nonce-mismatch",
};
static_assert(CValidationResult::kAllFailures == (1u << std::size(kNames)) - 1,
              "one name per failure bit");

} // namespace

CValidationResult::CValidationResult() { Records::Make(*this); }

CValidationResult::CValidationResult(const CValidationResult& other) {
    Records::Make(*this, *other.m_data);
}

CValidationResult& CValidationResult::operator=(const CValidationResult& other) {
    Records::Assign(*this, other);
    return *this;
}

CValidationResult::~CValidationResult() { Records::Destroy(*this); }

std::uint32_t CValidationResult::get_failures() const { return m_data->failures; }

bool CValidationResult::isAccepted() const { return m_data->failures == 0; }

const CSingleResponse* CValidationResult::get_entry() const {
    return m_data->entry ? &*m_data->entry : nullptr;
}

const CBlob* CValidationResult::get_signer() const {
    return m_data->signer ? &*m_data->signer : nullptr;
}

CValidationResult::SignerKind CValidationResult::get_signerKind() const {
    return m_data->signerKind;
}

bool CValidationResult::get_signerNoCheck() const { return m_data->signerNoCheck; }

const char* CValidationResult::FailureName(std::uint32_t failure) noexcept {
    for (std::size_t i = 0; i < std::size(kNames); ++i) {
        if (failure == 1u << i) {
            return kNames[i];
        }
    }
    return nullptr;
}

std::vector<std::string> CValidationResult::FailureNames(std::uint32_t failures) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < std::size(kNames); ++i) {
        if ((failures & (1u << i)) != 0) {
            names.emplace_back(kNames[i]);
        }
    }
    return names;
}

} // namespace Velmor::PKI::OCSP
