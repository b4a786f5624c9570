#include "ocsp_get.h"

#include <cctype>

namespace VelmorTool {

namespace {

bool IsBase64(char c) noexcept {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '+' || c == '/';
}

bool IsHex(char c) noexcept { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

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
    std::string text;
    text.reserve(path.size());
    bool padded = false;
    for (std::size_t i = 0; i < path.size(); ++i) {
        char c = path[i];
        if (c == '%') {
            if (i + 2 >= path.size() || !IsHex(path[i + 1]) || !IsHex(path[i + 2])) {
                return std::nullopt;
            }
            c = static_cast<char>(std::stoi(std::string(path.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        }
        if (padded && c != '=') {
            return std::nullopt; // padding only at the end
        }
        switch (c) {
        case ' ':
        case '-':
            text += '+';
            break;
        case '_':
            text += '/';
            break;
        case '=':
            padded = true; // put back below
            break;
        default:
            if (!IsBase64(c)) {
                return std::nullopt;
            }
            text += c;
        }
    }
    if (text.empty() || text.size() % 4 == 1) {
        return std::nullopt;
    }
    text.append((4 - text.size() % 4) % 4, '=');
    return FromBase64(text);
}

} // namespace VelmorTool
