// The extensions whose value the library does not parse: the nonce and the two markers. Each
// is its identifier and the value blob exactly as given.
#include <pki/ocsp/ocsp_extensions.h>

#include "extensions/typed_extension.h"

namespace Velmor::PKI::OCSP {

CExtNonce::CExtNonce() : CExtValue(ExtensionOid::kNonce) {}
CExtNonce::CExtNonce(const CBlob& nonce) : CExtValue(ExtensionOid::kNonce, nonce) {}
CExtNonce::CExtNonce(const CExtNonce& other) = default;
CExtNonce& CExtNonce::operator=(const CExtNonce& other) = default;
CExtNonce::~CExtNonce() = default;

const CBlob& CExtNonce::get_nonce() const { return get_value(); }

void CExtNonce::put_nonce(const CBlob& nonce) { value() = nonce; }

using Indicator = CExtInstantRevocationIndicator;
Indicator::CExtInstantRevocationIndicator()
    : CExtValue(ExtensionOid::kInstantRevocationIndicator) {}
Indicator::CExtInstantRevocationIndicator(const CBlob& value)
    : CExtValue(ExtensionOid::kInstantRevocationIndicator, value) {}
Indicator::CExtInstantRevocationIndicator(const Indicator& other) = default;
Indicator& Indicator::operator=(const Indicator& other) = default;
Indicator::~CExtInstantRevocationIndicator() = default;

using Announcement = CExtRevocationAnnouncementReference;
Announcement::CExtRevocationAnnouncementReference()
    : CExtValue(ExtensionOid::kRevocationAnnouncementReference) {}
Announcement::CExtRevocationAnnouncementReference(const CBlob& value)
    : CExtValue(ExtensionOid::kRevocationAnnouncementReference, value) {}
Announcement::CExtRevocationAnnouncementReference(const Announcement& other) = default;
Announcement& Announcement::operator=(const Announcement& other) = default;
Announcement::~CExtRevocationAnnouncementReference() = default;

} // namespace Velmor::PKI::OCSP
