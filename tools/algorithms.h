// The object identifiers the program names, and the algorithms its options choose.
#ifndef VELMOR_TOOLS_ALGORITHMS_H
#define VELMOR_TOOLS_ALGORITHMS_H

#include "input.h"

#include <string>
#include <vector>

namespace VelmorTool {

// The usual name of an identifier ("sha256WithRSAEncryption", "nonce"), or null.
const char* OidName(const std::string& oid);

// The hash names the options accept, in the order the help lists them.
const std::vector<std::string>& HashNames();
// The identifier of a hash name of HashNames().
const char* HashOid(const std::string& name);
// The signature algorithm of a key type with a hash of HashNames().
const char* SignatureOid(KeyType type, const std::string& hashName);

// Identifiers of the OCSP structures and extensions.
inline constexpr const char* kBasicResponseOid = "1.3.6.1.5.5.7.48.1.1";
inline constexpr const char* kNonceOid = "1.3.6.1.5.5.7.48.1.2";
inline constexpr const char* kCrlIdOid = "1.3.6.1.5.5.7.48.1.3";
inline constexpr const char* kAcceptableResponsesOid = "1.3.6.1.5.5.7.48.1.4";
inline constexpr const char* kArchiveCutoffOid = "1.3.6.1.5.5.7.48.1.6";
inline constexpr const char* kServiceLocatorOid = "1.3.6.1.5.5.7.48.1.7";
// The private extensions of the 1.2.643.2.2.47 arc.
inline constexpr const char* kCrlLocatorOid = "1.2.643.2.2.47.2";
inline constexpr const char* kInstantRevocationOid = "1.2.643.2.2.47.3";
inline constexpr const char* kRevocationAnnouncementOid = "1.2.643.2.2.47.4";
inline constexpr const char* kHistoricalRequestOid = "1.2.643.2.2.47.5";

} // namespace VelmorTool

#endif
