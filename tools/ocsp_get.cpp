#include "ocsp_get.h"

namespace VelmorTool {

namespace {

int HexDigit(char c) noexcept {
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

bool IsBase64(char c) noexcept {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
           c == '/';
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
    std::string text;
    text.reserve(path.size());
    bool padded = false;
    for (std::size_t i = 0; i < path.size(); ++i) {
        char c = path[i];
        if (c == '%') {
            const int high = i + 2 < path.size() ? HexDigit(path[i + 1]) : -1;
            const int low = i + 2 < path.size() ? HexDigit(path[i + 2]) : -1;
            if (high < 0 || low < 0) {
                return std::nullopt;
            }
            c = static_cast<char>(high * 16 + low);
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
