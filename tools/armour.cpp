#include "armour.h"

#include <algorithm>
#include <array>

namespace VelmorTool {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool IsSpace(char c) noexcept { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string_view Trim(std::string_view line) {
    while (!line.empty() && IsSpace(line.front())) {
        line.remove_prefix(1);
    }
    while (!line.empty() && IsSpace(line.back())) {
        line.remove_suffix(1);
    }
    return line;
}

constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kEnd = "-----END ";
constexpr std::string_view kDashes = "-----";

// The label of a "-----BEGIN label-----" or "-----END label-----" line, or null.
std::optional<std::string> Label(std::string_view line, std::string_view opener) {
    if (line.size() < opener.size() + kDashes.size() || line.substr(0, opener.size()) != opener ||
        line.substr(line.size() - kDashes.size()) != kDashes) {
        return std::nullopt;
    }
    return std::string(line.substr(opener.size(), line.size() - opener.size() - kDashes.size()));
}

std::vector<PemBlock> ParsePem(std::string_view text) {
    std::vector<PemBlock> blocks;
    std::optional<std::string> open;
    std::string body;
    bool inHeaders = false;
    std::size_t lineNumber = 0;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = Trim(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++lineNumber;
        if (!open) {
            open = Label(line, kBegin);
            body.clear();
            inHeaders = true;
            continue;
        }
        if (const auto closing = Label(line, kEnd)) {
            if (*closing != *open) {
                throw ArmourError("PEM block \"" + *open + "\" ends with \"" + *closing + "\"");
            }
            const auto der = FromBase64(body);
            if (!der || der->empty()) {
                throw ArmourError("PEM block \"" + *open + "\" does not hold base64");
            }
            blocks.push_back(PemBlock{*open, *der});
            open.reset();
            continue;
        }
        // RFC 1421 headers ("Proc-Type: 4,ENCRYPTED") come before the body.
        if (inHeaders && line.find(':') != std::string_view::npos) {
            if (line.substr(0, 10) == "Proc-Type:") {
                throw ArmourError("PEM block \"" + *open + "\" is encrypted");
            }
            continue;
        }
        inHeaders = false;
        body.append(line);
    }
    if (open) {
        throw ArmourError("PEM block \"" + *open + "\" has no END line (truncated?)");
    }
    return blocks;
}

bool LooksLikeBase64(const Bytes& content) {
    bool any = false;
    for (std::uint8_t byte : content) {
        const char c = static_cast<char>(byte);
        if (IsSpace(c)) {
            continue;
        }
        if (Base64Sextet(c) < 0 && c != '=') {
            return false;
        }
        any = true;
    }
    return any;
}

} // namespace

int Base64Sextet(char c, bool pathForms) noexcept {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    if (c == '+' || (pathForms && (c == ' ' || c == '-'))) {
        return 62;
    }
    return c == '/' || (pathForms && c == '_') ? 63 : -1;
}

std::string Base64(const Bytes& bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const unsigned group = bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2];
        for (int shift = 18; shift >= 0; shift -= 6) {
            text += kAlphabet[(group >> shift) & 63];
        }
    }
    if (const std::size_t left = bytes.size() - i; left != 0) {
        const unsigned group = bytes[i] << 16 | (left == 2 ? bytes[i + 1] << 8 : 0);
        text += kAlphabet[(group >> 18) & 63];
        text += kAlphabet[(group >> 12) & 63];
        text += left == 2 ? kAlphabet[(group >> 6) & 63] : '=';
        text += '=';
    }
    return text;
}

std::optional<Bytes> FromBase64(std::string_view text) {
    std::string compact;
    for (char c : text) {
        if (!IsSpace(c)) {
            compact += c;
        }
    }
    if (compact.size() % 4 != 0) {
        return std::nullopt;
    }
    Bytes bytes;
    bytes.reserve(compact.size() / 4 * 3);
    for (std::size_t i = 0; i < compact.size(); i += 4) {
        const bool last = i + 4 == compact.size();
        std::array<int, 4> sextets{};
        int padding = 0;
        for (int j = 0; j < 4; ++j) {
            const char c = compact[i + static_cast<std::size_t>(j)];
            if (c == '=' && last && j >= 2) {
                ++padding;
                sextets[static_cast<std::size_t>(j)] = 0;
                continue;
            }
            if (padding != 0) {
                return std::nullopt; // a character after '='
            }
            sextets[static_cast<std::size_t>(j)] = Base64Sextet(c);
            if (sextets[static_cast<std::size_t>(j)] < 0) {
                return std::nullopt;
            }
        }
        const unsigned group = static_cast<unsigned>(sextets[0] << 18 | sextets[1] << 12 |
                                                     sextets[2] << 6 | sextets[3]);
        bytes.push_back(static_cast<std::uint8_t>(group >> 16));
        if (padding < 2) {
            bytes.push_back(static_cast<std::uint8_t>(group >> 8));
        }
        if (padding < 1) {
            bytes.push_back(static_cast<std::uint8_t>(group));
        }
    }
    return bytes;
}

std::string Pem(const std::string& label, const Bytes& der) {
    const std::string body = Base64(der);
    std::string text = "-----BEGIN " + label + "-----\n";
    for (std::size_t at = 0; at < body.size(); at += 64) {
        text.append(body, at, 64);
        text += '\n';
    }
    return text + "-----END " + label + "-----\n";
}

Unarmoured Unarmour(const Bytes& content) {
    const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
    Unarmoured result;
    if (text.find(kBegin) != std::string_view::npos) {
        result.armour = Armour::pem;
        result.blocks = ParsePem(text);
        return result;
    }
    if (LooksLikeBase64(content)) {
        auto der = FromBase64(text);
        if (!der) {
            throw ArmourError("is not DER, PEM or valid base64");
        }
        result.armour = Armour::base64;
        result.blocks.push_back(PemBlock{"", std::move(*der)});
        return result;
    }
    result.blocks.push_back(PemBlock{"", content});
    return result;
}

} // namespace VelmorTool
