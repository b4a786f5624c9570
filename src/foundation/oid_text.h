// Conversion between an OBJECT IDENTIFIER's dotted decimal text and its DER contents octets,
// for arcs of any size.
#ifndef VELMOR_SRC_FOUNDATION_OID_TEXT_H
#define VELMOR_SRC_FOUNDATION_OID_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor::Codec {

// Writes the contents octets of the dotted text into out, which must hold at least
// text.size() octets (the contents are never longer than the text). Returns the number of
// octets, or 0 when the text is not an OID: at least two arcs, the first 0, 1 or 2, the
// second below 40 unless the first is 2, decimal arcs without leading zeros.
std::size_t OidTextToContents(std::string_view text, std::uint8_t* out);

// The dotted text of one of the OIDs nearly every message carries (a view of a NUL-terminated
// constant), or an empty view (null data) for any other contents.
std::string_view KnownOidText(const std::uint8_t* data, std::size_t size) noexcept;

// Appends the dotted text of valid contents octets to out; false (out unspecified) when the
// octets are not a valid OID encoding.
bool OidContentsToText(const std::uint8_t* data, std::size_t size, std::string& out);

// The same without looking the contents up among the known OIDs first, for a caller that
// already has.
bool ComputeOidText(const std::uint8_t* data, std::size_t size, std::string& out);

// The texts of the OIDs that are looked up rather than computed, for the tests of that table.
std::vector<std::string_view> KnownOidTexts();

} // namespace Velmor::Codec

#endif
