// The GET form of an OCSP request: the DER request in base64, url-encoded, as the path of
// the responder's URL ("GET /MEIwQDA%2BMDwwOjAJBgUrDgMCGgUABBT...%3D").
#ifndef VELMOR_TOOLS_OCSP_GET_H
#define VELMOR_TOOLS_OCSP_GET_H

#include "armour.h"

#include <optional>
#include <string>
#include <string_view>

namespace VelmorTool {

// The path of a request, without the leading '/': standard base64 with padding, '+', '/'
// and '=' written as %2B, %2F and %3D (what encodeURIComponent makes of base64).
std::string GetPath(const Bytes& der);

// The request bytes a path names, or null. path is the path of the URL as sent, without
// the query; the leading slashes are skipped (a DER request's base64 starts with 'M', so
// they cannot be part of it) and the rest is url-decoded. What clients make of base64 is
// accepted: '+' or a space for '+', the URL-safe alphabet ('-' and '_'), padding or none.
// Slashes inside are kept: they are base64's own.
std::optional<Bytes> RequestFromGetPath(std::string_view path);

} // namespace VelmorTool

#endif
