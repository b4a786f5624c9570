// The version rule that a request and a basic response share.
#ifndef VELMOR_SRC_MESSAGE_ENTRY_VERSION_H
#define VELMOR_SRC_MESSAGE_ENTRY_VERSION_H

#include <pki/ocsp/version.h>

namespace Velmor::PKI::OCSP {

// v2 when an entry of the list names its certificate other than by CertID (a full
// certificate, a certificate ID with signature), v1 otherwise, an empty list included.
template <class Entries> Version VersionFor(const Entries& entries) {
    for (const auto& entry : entries) {
        if (entry.get_reqCert().get_certID() == nullptr) {
            return v2;
        }
    }
    return v1;
}

} // namespace Velmor::PKI::OCSP

#endif
