// Velmor::PKI::OCSP::Version, the version of a request and of a basic response.
#ifndef VELMOR_PKI_OCSP_VERSION_H
#define VELMOR_PKI_OCSP_VERSION_H

#include <cstdint>

namespace Velmor::PKI::OCSP {

// The version of a request or a basic response.
enum Version : std::int32_t {
    v1 = 0, // the default: not written
    v2 = 1, // needed when an entry names its certificate other than by CertID
};

} // namespace Velmor::PKI::OCSP

#endif
