#include "ocsp_get.h"

#include <cstdint>

namespace VelmorTool {

namespace {

// The value of a hex digit, or -1.
int HexValue(char c) noexcept {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

} // namespace

std::string GetPath(const Bytes& der) {
    std::string path;
    for (char c : Base64(der)) {
        switch (c) {
        case '+':
            path += "%2B";
            break;
        case '/':
            path += "%2F";
            break;
        case '=':
            path += "%3D";
            break;
        default:
            path += c;
        }
    }
    return path;
}

std::optional<Bytes> RequestFromGetPath(std::string_view path) {
    while (!path.empty() && path.front() == '/') {
        path.remove_prefix(1);
    }
    // Url-decoded and base64-decoded in one pass: every four characters make three bytes.
    Bytes der;
    der.reserve(path.size() / 4 * 3 + 2);
    unsigned group = 0;
    std::size_t sextets = 0;
    bool padded = false;
    for (std::size_t i = 0; i < path.size(); ++i) {
        char c = path[i];
        if (c == '%') {
            const int high = i + 2 < path.size() ? HexValue(path[i + 1]) : -1;
            const int low = high < 0 ? -1 : HexValue(path[i + 2]);
            if (low < 0) {
                return std::nullopt;
            }
            c = static_cast<char>(high << 4 | low);
            i += 2;
        }
        if (c == '=') {
            padded = true; // as much as there is: the length says what the last group holds
            continue;
        }
        const int value = Base64Sextet(c, true);
        if (padded || value < 0) {
            return std::nullopt; // not base64, or padding that is not at the end
        }
        group = group << 6 | static_cast<unsigned>(value);
        if (++sextets % 4 == 0) {
            der.push_back(static_cast<std::uint8_t>(group >> 16));
            der.push_back(static_cast<std::uint8_t>(group >> 8));
            der.push_back(static_cast<std::uint8_t>(group));
            group = 0;
        }
    }
    // Two characters left over hold one byte (and four bits that are dropped), three hold
    // two (and two bits); one cannot be base64.
    switch (sextets % 4) {
    case 1:
        return std::nullopt;
    case 2:
        der.push_back(static_cast<std::uint8_t>(group >> 4));
        break;
    case 3:
        der.push_back(static_cast<std::uint8_t>(group >> 10));
        der.push_back(static_cast<std::uint8_t>(group >> 2));
        break;
    default:
        break;
    }
    if (sextets == 0) {
        return std::nullopt;
    }
    return der;
}

} // namespace VelmorTool
