#include "ca_index.h"

#include "exit_status.h"
#include "input.h"

#include <pki/ocsp/atl_exception.h>

#include <cctype>
#include <string_view>
#include <vector>

namespace VelmorTool {

namespace {

bool SameTextIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

// The reason names `openssl ca -crl_reason` writes (compared without case, as OpenSSL does);
// holdInstruction, keyTime and CAkeyTime stand for the reasons they imply.
std::optional<Velmor::ASN1::CrlReason> ReasonNamed(std::string_view name) {
    using namespace Velmor::ASN1;
    struct Reason {
        const char* name;
        CrlReason value;
    };
    static constexpr Reason kReasons[] = {
        {"unspecified", unspecified},
        {"keyCompromise", keyCompromise},
        {"CACompromise", cACompromise},
        {"affiliationChanged", affiliationChanged},
        {"superseded", superseded},
        {"cessationOfOperation", cessationOfOperation},
        {"certificateHold", certificateHold},
        {"removeFromCRL", removeFromCRL},
        {"privilegeWithdrawn", privilegeWithdrawn},
        {"AACompromise", aACompromise},
        {"holdInstruction", certificateHold},
        {"keyTime", keyCompromise},
        {"CAkeyTime", cACompromise},
    };
    for (const Reason& reason : kReasons) {
        if (SameTextIgnoringCase(name, reason.name)) {
            return reason.value;
        }
    }
    return std::nullopt;
}

// UTCTime (YYMMDDHHMMSSZ, 50..99 standing for 19xx) or GeneralizedTime (YYYYMMDDHHMMSSZ).
std::optional<Velmor::CDateTime> IndexTime(std::string_view text) {
    std::string full(text);
    if (text.size() == 13) {
        if (!std::isdigit(static_cast<unsigned char>(text[0])) ||
            !std::isdigit(static_cast<unsigned char>(text[1]))) {
            return std::nullopt;
        }
        full = (text.substr(0, 2) >= "50" ? "19" : "20") + full;
    }
    Velmor::CDateTime time;
    if (full.size() != 15 || full.back() != 'Z' ||
        !Velmor::CDateTime::TryParseGeneralizedTime(full.c_str(), time)) {
        return std::nullopt;
    }
    return time;
}

std::optional<std::string> NormalSerial(std::string_view hex) {
    std::string serial;
    for (char c : hex) {
        if (!std::isxdigit(static_cast<unsigned char>(c))) {
            return std::nullopt;
        }
        if (serial.empty() && c == '0') {
            continue;
        }
        serial += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    if (hex.empty()) {
        return std::nullopt;
    }
    return serial.empty() ? "0" : serial;
}

std::vector<std::string_view> Fields(std::string_view line) {
    std::vector<std::string_view> fields;
    for (;;) {
        const std::size_t tab = line.find('\t');
        fields.push_back(line.substr(0, tab));
        if (tab == std::string_view::npos) {
            return fields;
        }
        line.remove_prefix(tab + 1);
    }
}

} // namespace

CaIndex::CaIndex(const std::string& path) {
    const Bytes content = ReadFileBytes(path, true); // a new CA has no certificates yet
    std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (line.empty()) {
            continue;
        }
        const std::string where = path + ":" + std::to_string(number);
        const std::vector<std::string_view> fields = Fields(line);
        if (fields.size() != 6) {
            throw ToolError(kFileError, where + ": not an OpenSSL CA index line (" +
                                            std::to_string(fields.size()) +
                                            " tab-separated fields, 6 expected)");
        }
        IndexEntry entry;
        if (fields[0].size() != 1 ||
            std::string_view("VRE").find(fields[0][0]) == std::string_view::npos) {
            throw ToolError(kFileError,
                            where + ": status \"" + std::string(fields[0]) + "\" is not V, R or E");
        }
        entry.status = fields[0][0];
        if (entry.status == 'R') {
            const std::string_view revocation = fields[2];
            const std::size_t comma = revocation.find(',');
            const auto time = IndexTime(revocation.substr(0, comma));
            if (!time) {
                throw ToolError(kFileError, where + ": revocation time \"" +
                                                std::string(revocation.substr(0, comma)) +
                                                "\" is not YYMMDDHHMMSSZ");
            }
            entry.revocationTime = *time;
            if (comma != std::string_view::npos) {
                const std::string_view rest = revocation.substr(comma + 1);
                const std::string_view name = rest.substr(0, rest.find(','));
                entry.reason = ReasonNamed(name);
                if (!entry.reason) {
                    throw ToolError(kFileError, where + ": revocation reason \"" +
                                                    std::string(name) + "\" is not known");
                }
            }
        }
        const auto serial = NormalSerial(fields[3]);
        if (!serial) {
            throw ToolError(kFileError, where + ": serial number \"" + std::string(fields[3]) +
                                            "\" is not hex");
        }
        m_entries.emplace(*serial, entry); // the first line of a serial counts
    }
}

const IndexEntry* CaIndex::find(const Velmor::ASN1::CBigInteger& serial) const {
    const auto entry = m_entries.find(serial.ToHex());
    return entry == m_entries.end() ? nullptr : &entry->second;
}

std::vector<std::string> CaIndex::serials() const {
    std::vector<std::string> serials;
    serials.reserve(m_entries.size());
    for (const auto& entry : m_entries) {
        serials.push_back(entry.first);
    }
    return serials;
}

} // namespace VelmorTool
