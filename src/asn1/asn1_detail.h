// Helpers shared by the runtime's own source files; private to src/asn1.
#ifndef VELMOR_SRC_ASN1_ASN1_DETAIL_H
#define VELMOR_SRC_ASN1_ASN1_DETAIL_H

#include "asn1/asn1_base.h"

#include <cstddef>
#include <cstdint>

namespace Velmor::Asn1Rt {

// Offset value that makes a diagnostic omit "at offset N" (encoding has no input offset).
constexpr std::size_t kNoOffset = SIZE_MAX;

// found value of setError when no unexpected element is to be named.
constexpr int kNoTag = -1;

// Records the first failure of ctxt as "NAME: what in within, unexpected tag 0xNN at offset N"
// (the tag when found names the identifier octet met instead of the expected element);
// returns status. errReasonLen marks where " at offset N" starts.
int setError(ASN1CTXT* ctxt, int status, const char* what, const char* within, std::size_t offset,
             int found = kNoTag) noexcept;

// True for valid OBJECT IDENTIFIER contents: non-empty, every subidentifier minimal (no
// leading 0x80 octet), the last octet without its continuation bit.
bool oidContentsValid(const ASN1OCTET* data, std::size_t size) noexcept;

// Encodes identifier and DER length octets into out (at least kMaxHeaderLen octets);
// returns how many were written.
constexpr std::size_t kMaxHeaderLen = 6 + 1 + sizeof(std::size_t);
std::size_t encodeHeader(ASN1TAG tag, std::size_t contentLen, ASN1OCTET* out) noexcept;

} // namespace Velmor::Asn1Rt

#endif
