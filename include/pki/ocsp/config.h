// Build configuration shared by every public header: the export macro and the version.
#ifndef VELMOR_PKI_OCSP_CONFIG_H
#define VELMOR_PKI_OCSP_CONFIG_H

#define VELMOR_OCSP_VERSION_MAJOR 1
#define VELMOR_OCSP_VERSION_MINOR 0
#define VELMOR_OCSP_VERSION_PATCH 0

// The library is compiled with hidden visibility; VELMOR_OCSP_API marks the classes,
// functions and explicit template instantiations that it exports.
#define VELMOR_OCSP_API __attribute__((visibility("default")))
// For the library's own definitions nested in exported classes (their private records).
#define VELMOR_OCSP_LOCAL __attribute__((visibility("hidden")))

// The library's own access to the private record of its value classes (never defined
// outside the library).
namespace Velmor::Detail {
struct Records;
}

#endif
