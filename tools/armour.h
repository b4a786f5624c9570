// The text forms that DER travels in: base64 and PEM blocks.
#ifndef VELMOR_TOOLS_ARMOUR_H
#define VELMOR_TOOLS_ARMOUR_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace VelmorTool {

using Bytes = std::vector<std::uint8_t>;

// The value of a base64 character, or -1. With pathForms, also the forms clients write in a
// URL path: '+' as a space or '-', '/' as '_'.
int Base64Sextet(char c, bool pathForms = false) noexcept;

// Base64 of bytes on one line, with padding and without a line end.
std::string Base64(const Bytes& bytes);
// The bytes of base64 text; whitespace between the characters is ignored. Null for any other
// character, wrong padding or a length that is no multiple of four.
std::optional<Bytes> FromBase64(std::string_view text);

// "-----BEGIN label-----", the base64 in lines of 64 characters, "-----END label-----".
std::string Pem(const std::string& label, const Bytes& der);

struct PemBlock {
    std::string label;
    Bytes der;
};

// How the content of a file looks.
enum class Armour { der, pem, base64 };

// A file's content as DER: the blocks of a PEM file, the decoded bytes of a base64 file, or
// the bytes themselves. Throws ArmourError saying what is wrong with a PEM or base64 text.
struct Unarmoured {
    Armour armour = Armour::der;
    std::vector<PemBlock> blocks; // one block without label for DER and base64
};
Unarmoured Unarmour(const Bytes& content);

class ArmourError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace VelmorTool

#endif
