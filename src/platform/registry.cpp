// The registry read from a .reg text file: the parser, the process-wide contents and the
// three Reg* functions over them.
#include "platform/registry.h"

#include "platform/crypt_api.h"
#include "platform/wide_text.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>

namespace Velmor::Win32 {

struct RegistryKeyHandle {
    std::string path; // lower case, as Contents keys are
};

namespace Registry {

namespace {

constexpr char32_t kHeader[] = U"Windows Registry Editor Version 5.00";

// ---- The file as text

// Appends the UTF-16LE code units of bytes to out, pairing surrogates; false for an unpaired
// surrogate.
bool AppendUtf16(std::string_view bytes, std::u32string& out) {
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        char32_t unit = static_cast<unsigned char>(bytes[i]) |
                        (static_cast<char32_t>(static_cast<unsigned char>(bytes[i + 1])) << 8);
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 3 < bytes.size()) {
            const char32_t low =
                static_cast<unsigned char>(bytes[i + 2]) |
                (static_cast<char32_t>(static_cast<unsigned char>(bytes[i + 3])) << 8);
            if (low < 0xDC00 || low > 0xDFFF) {
                return false;
            }
            unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
            i += 2;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            return false;
        }
        out.push_back(unit);
    }
    return true;
}

// The file's characters: UTF-16LE after its BOM, else UTF-8 (a BOM skipped).
std::optional<std::u32string> DecodeFile(std::string_view file) {
    std::u32string text;
    if (file.size() >= 2 && file[0] == '\xFF' && file[1] == '\xFE') {
        if (file.size() % 2 != 0 || !AppendUtf16(file.substr(2), text)) {
            return std::nullopt;
        }
        return text;
    }
    if (file.substr(0, 3) == "\xEF\xBB\xBF") {
        file.remove_prefix(3);
    }
    if (file.empty()) {
        return std::nullopt;
    }
    if (file.size() > static_cast<std::size_t>(INT32_MAX)) {
        return std::nullopt;
    }
    const int size = static_cast<int>(file.size());
    const int count =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, file.data(), size, nullptr, 0);
    if (count <= 0) {
        return std::nullopt;
    }
    std::wstring wide(static_cast<std::size_t>(count), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, file.data(), size, wide.data(), count);
    text.assign(wide.begin(), wide.end());
    return text;
}

// Splits text into logical lines: CRLF or LF ends a line, and a hex value's line that ends in
// a backslash continues on the next one (leading blanks of the continuation dropped).
std::vector<std::u32string> LogicalLines(const std::u32string& text) {
    std::vector<std::u32string> lines;
    std::u32string current;
    bool continued = false;
    auto finish = [&](std::u32string line) {
        while (!line.empty() &&
               (line.back() == U'\r' || line.back() == U' ' || line.back() == U'\t')) {
            line.pop_back();
        }
        if (continued) {
            const std::size_t start = line.find_first_not_of(U" \t");
            current += start == line.npos ? std::u32string() : line.substr(start);
        } else {
            current = line;
        }
        continued =
            !current.empty() && current.back() == U'\\' && current.find(U"=hex") != current.npos;
        if (continued) {
            current.pop_back();
        } else {
            lines.push_back(std::move(current));
            current.clear();
        }
    };
    std::size_t start = 0;
    for (std::size_t end; (end = text.find(U'\n', start)) != text.npos; start = end + 1) {
        finish(text.substr(start, end - start));
    }
    finish(text.substr(start));
    if (continued) {
        lines.push_back(std::move(current));
    }
    return lines;
}

// The lower-case UTF-8 form of a wide name; false when it is not valid text.
bool LowerName(const wchar_t* name, std::string& out) {
    out.clear();
    if (name == nullptr) {
        return true;
    }
    if (!Detail::WideToUtf8(name, out)) {
        return false;
    }
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return true;
}

// The same for a name read from the file; "" when it is not valid text.
std::string LowerUtf8(const std::u32string& text) {
    const std::wstring wide(text.begin(), text.end());
    std::string out;
    return LowerName(wide.c_str(), out) ? out : std::string();
}

// ---- Values

void AppendWide(const std::u32string& text, std::vector<BYTE>& out) {
    for (char32_t c : text) {
        const auto w = static_cast<wchar_t>(c);
        const auto* bytes = reinterpret_cast<const BYTE*>(&w);
        out.insert(out.end(), bytes, bytes + sizeof w);
    }
}

bool IsText(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

// A quoted string starting at text[at] (the opening quote); \\ and \" are escapes. Sets at
// past the closing quote.
std::optional<std::u32string> QuotedString(const std::u32string& text, std::size_t& at) {
    if (at >= text.size() || text[at] != U'"') {
        return std::nullopt;
    }
    std::u32string out;
    for (++at; at < text.size(); ++at) {
        if (text[at] == U'"') {
            ++at;
            return out;
        }
        if (text[at] == U'\\' && at + 1 < text.size()) {
            ++at;
        }
        out.push_back(text[at]);
    }
    return std::nullopt;
}

int HexDigit(char32_t c) {
    if (c >= U'0' && c <= U'9') {
        return static_cast<int>(c - U'0');
    }
    if (c >= U'a' && c <= U'f') {
        return static_cast<int>(c - U'a' + 10);
    }
    if (c >= U'A' && c <= U'F') {
        return static_cast<int>(c - U'A' + 10);
    }
    return -1;
}

// "xx,xx,..." (blanks allowed around the commas), possibly empty.
std::optional<std::vector<BYTE>> HexBytes(std::u32string_view text) {
    std::vector<BYTE> bytes;
    std::size_t i = 0;
    auto skipBlanks = [&] {
        while (i < text.size() && (text[i] == U' ' || text[i] == U'\t')) {
            ++i;
        }
    };
    skipBlanks();
    while (i < text.size()) {
        if (i + 1 >= text.size() || HexDigit(text[i]) < 0 || HexDigit(text[i + 1]) < 0) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<BYTE>(HexDigit(text[i]) * 16 + HexDigit(text[i + 1])));
        i += 2;
        skipBlanks();
        if (i < text.size()) {
            if (text[i] != U',') {
                return std::nullopt;
            }
            ++i;
            skipBlanks();
            if (i == text.size()) {
                return std::nullopt; // a trailing comma
            }
        }
    }
    return bytes;
}

// The data after "=": "text", dword:xxxxxxxx, hex:..., hex(n):...
std::optional<Value> ParseData(std::u32string_view data) {
    Value value;
    if (!data.empty() && data[0] == U'"') {
        std::u32string owned(data);
        std::size_t at = 0;
        auto text = QuotedString(owned, at);
        if (!text || at != owned.size()) {
            return std::nullopt;
        }
        value.type = REG_SZ;
        AppendWide(*text + U'\0', value.data);
        return value;
    }
    if (data.substr(0, 6) == U"dword:") {
        const std::u32string_view digits = data.substr(6);
        if (digits.size() != 8) {
            return std::nullopt;
        }
        std::uint32_t number = 0;
        for (char32_t c : digits) {
            if (HexDigit(c) < 0) {
                return std::nullopt;
            }
            number = number * 16 + static_cast<std::uint32_t>(HexDigit(c));
        }
        value.type = REG_DWORD;
        for (int i = 0; i < 4; ++i) {
            value.data.push_back(static_cast<BYTE>(number >> (8 * i)));
        }
        return value;
    }
    std::u32string_view bytesText;
    if (data.substr(0, 4) == U"hex:") {
        value.type = REG_BINARY;
        bytesText = data.substr(4);
    } else if (data.substr(0, 4) == U"hex(") {
        const std::size_t close = data.find(U"):");
        if (close == data.npos || close == 4 || close > 12) {
            return std::nullopt;
        }
        std::uint32_t type = 0;
        for (char32_t c : data.substr(4, close - 4)) {
            if (HexDigit(c) < 0) {
                return std::nullopt;
            }
            type = type * 16 + static_cast<std::uint32_t>(HexDigit(c));
        }
        value.type = type;
        bytesText = data.substr(close + 2);
    } else {
        return std::nullopt;
    }
    auto bytes = HexBytes(bytesText);
    if (!bytes) {
        return std::nullopt;
    }
    value.data = std::move(*bytes);
    if (IsText(value.type) && value.data.size() % 2 == 0) {
        // regedit writes these types as UTF-16LE; they are read as wchar_t text.
        std::u32string text;
        if (!AppendUtf16(std::string_view(reinterpret_cast<const char*>(value.data.data()),
                                          value.data.size()),
                         text)) {
            return std::nullopt;
        }
        value.data.clear();
        AppendWide(text, value.data);
    }
    return value;
}

// One "name"=data or @=data line into values; false when malformed.
bool ParseValueLine(const std::u32string& line, std::map<std::string, Value>& values) {
    std::size_t at = 0;
    std::u32string name;
    if (line[0] == U'@') {
        at = 1;
    } else {
        auto quoted = QuotedString(line, at);
        if (!quoted) {
            return false;
        }
        name = std::move(*quoted);
    }
    if (at >= line.size() || line[at] != U'=') {
        return false;
    }
    const std::u32string_view data = std::u32string_view(line).substr(at + 1);
    const std::string key = LowerUtf8(name);
    if (data == U"-") {
        values.erase(key); // a deletion
        return true;
    }
    auto value = ParseData(data);
    if (!value) {
        return false;
    }
    values[key] = std::move(*value);
    return true;
}

std::unique_ptr<Contents>& Loaded() {
    static std::unique_ptr<Contents> contents;
    return contents;
}

std::mutex& LoadLock() {
    static std::mutex lock;
    return lock;
}

Contents ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return {};
    }
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return Parse(bytes).value_or(Contents{});
}

// The contents, loading the default file on first use.
const Contents& Current() {
    std::lock_guard<std::mutex> guard(LoadLock());
    auto& contents = Loaded();
    if (!contents) {
        const char* path = std::getenv("VELMOR_REGISTRY");
        contents = std::make_unique<Contents>(
            ReadFile(path != nullptr && *path != '\0' ? path : "/etc/velmor/registry.reg"));
    }
    return *contents;
}

} // namespace

std::optional<Contents> Parse(std::string_view file) {
    const auto text = DecodeFile(file);
    if (!text) {
        return std::nullopt;
    }
    const std::vector<std::u32string> lines = LogicalLines(*text);
    if (lines.empty() || lines[0] != kHeader) {
        return std::nullopt;
    }
    Contents contents;
    std::map<std::string, Value>* key = nullptr;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::u32string& line = lines[i];
        if (line.empty() || line[0] == U';') {
            continue;
        }
        if (line[0] == U'[') {
            if (line.back() != U']' || line.size() < 3) {
                return std::nullopt;
            }
            if (line[1] == U'-') {
                contents.erase(LowerUtf8(line.substr(2, line.size() - 3)));
                key = nullptr; // values of a deleted key are ignored
                continue;
            }
            const std::string path = LowerUtf8(line.substr(1, line.size() - 2));
            if (path.empty()) {
                return std::nullopt;
            }
            key = &contents[path];
            continue;
        }
        std::map<std::string, Value> ignored;
        if (!ParseValueLine(line, key != nullptr ? *key : ignored)) {
            return std::nullopt;
        }
    }
    return contents;
}

void LoadFile(const std::string& path) {
    auto contents = std::make_unique<Contents>(ReadFile(path));
    std::lock_guard<std::mutex> guard(LoadLock());
    Loaded() = std::move(contents);
}

} // namespace Registry

namespace {

const char* PredefinedRoot(HKEY key) {
    if (key == HKEY_CLASSES_ROOT) {
        return "hkey_classes_root";
    }
    if (key == HKEY_CURRENT_USER) {
        return "hkey_current_user";
    }
    if (key == HKEY_LOCAL_MACHINE) {
        return "hkey_local_machine";
    }
    if (key == HKEY_USERS) {
        return "hkey_users";
    }
    return nullptr;
}

} // namespace

LSTATUS RegOpenKeyExW(HKEY root, const wchar_t* subKey, DWORD /*options*/, REGSAM /*desired*/,
                      HKEY* result) {
    if (result == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    *result = nullptr;
    std::string path;
    if (const char* predefined = PredefinedRoot(root)) {
        path = predefined;
    } else if (root != nullptr) {
        path = root->path;
    } else {
        return ERROR_INVALID_HANDLE;
    }
    std::string sub;
    if (!Registry::LowerName(subKey, sub)) {
        return ERROR_FILE_NOT_FOUND;
    }
    while (!sub.empty() && sub.back() == '\\') {
        sub.pop_back();
    }
    if (!sub.empty()) {
        path += '\\';
        path += sub;
    }
    const Registry::Contents& contents = Registry::Current();
    if (contents.find(path) == contents.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    *result = new RegistryKeyHandle{std::move(path)};
    return ERROR_SUCCESS;
}

LSTATUS RegQueryValueExW(HKEY key, const wchar_t* valueName, DWORD* reserved, DWORD* type,
                         BYTE* data, DWORD* size) {
    if (key == nullptr || PredefinedRoot(key) != nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    if (reserved != nullptr || (data != nullptr && size == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    std::string name;
    if (!Registry::LowerName(valueName, name)) {
        return ERROR_FILE_NOT_FOUND;
    }
    const Registry::Contents& contents = Registry::Current();
    const auto found = contents.find(key->path);
    if (found == contents.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    const auto value = found->second.find(name);
    if (value == found->second.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    const auto needed = static_cast<DWORD>(value->second.data.size());
    if (type != nullptr) {
        *type = value->second.type;
    }
    if (data != nullptr && *size < needed) {
        *size = needed;
        return ERROR_MORE_DATA;
    }
    if (data != nullptr && needed != 0) {
        std::memcpy(data, value->second.data.data(), needed);
    }
    if (size != nullptr) {
        *size = needed;
    }
    return ERROR_SUCCESS;
}

LSTATUS RegCloseKey(HKEY key) {
    if (key == nullptr || PredefinedRoot(key) != nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    delete key;
    return ERROR_SUCCESS;
}

} // namespace Velmor::Win32
