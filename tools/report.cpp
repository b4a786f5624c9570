#include "report.h"

#include <cstdio>

namespace VelmorTool {

namespace {

constexpr unsigned long kOctetsPerLine = 32;

std::string Spaces(int count) { return std::string(static_cast<std::size_t>(count), ' '); }

} // namespace

std::string Hex(const Velmor::CBlob& octets) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(octets.cbData() * 2);
    for (unsigned char byte : octets) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (byte < 0x20 || byte == 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

Report::Report(Kind kind, std::string key, std::string label)
    : m_kind(kind), m_key(std::move(key)), m_label(std::move(label)) {}

Report Report::Group(std::string key, std::string label, std::string headline) {
    Report group(Kind::group, std::move(key), std::move(label));
    group.m_text = std::move(headline);
    return group;
}

Report& Report::text(std::string key, std::string label, std::string value) {
    Report field(Kind::value, std::move(key), std::move(label));
    field.m_json = JsonString(value);
    field.m_text = std::move(value);
    m_children.push_back(std::move(field));
    return *this;
}

Report& Report::text(std::string key, std::string label, std::string value, std::string shown) {
    text(std::move(key), std::move(label), std::move(value));
    m_children.back().m_text = std::move(shown);
    return *this;
}

Report& Report::number(std::string key, std::string label, std::int64_t value,
                       std::string textValue) {
    Report field(Kind::value, std::move(key), std::move(label));
    field.m_json = std::to_string(value);
    field.m_text = textValue.empty() ? field.m_json : std::move(textValue);
    m_children.push_back(std::move(field));
    return *this;
}

Report& Report::jsonText(std::string key, std::string value) {
    text(std::move(key), "", std::move(value));
    m_children.back().m_inText = false;
    return *this;
}

Report& Report::flag(std::string key, std::string label, bool value) {
    Report field(Kind::value, std::move(key), std::move(label));
    field.m_json = value ? "true" : "false";
    field.m_text = value ? "yes" : "no";
    m_children.push_back(std::move(field));
    return *this;
}

Report& Report::octets(std::string key, std::string label, const Velmor::CBlob& value) {
    Report field(Kind::octets, std::move(key), std::move(label));
    field.m_octets = value;
    m_children.push_back(std::move(field));
    return *this;
}

Report& Report::add(Report group) {
    m_children.push_back(std::move(group));
    return *this;
}

Report& Report::list(std::string key, std::string label, std::string itemLabel) {
    Report field(Kind::list, std::move(key), std::move(label));
    field.m_text = std::move(itemLabel);
    m_children.push_back(std::move(field));
    return m_children.back();
}

std::string Report::toText(int indent) const {
    std::string out;
    if (!m_label.empty()) {
        out += Spaces(indent) + m_label + (m_text.empty() ? "" : " " + m_text) + "\n";
        indent += 2;
    }
    for (const Report& child : m_children) {
        child.writeText(out, indent, child.m_label);
    }
    return out;
}

void Report::writeText(std::string& out, int indent, const std::string& label) const {
    if (!m_inText) {
        return;
    }
    const std::string lead = Spaces(indent) + label + ":";
    switch (m_kind) {
    case Kind::value:
        out += lead + " " + m_text + "\n";
        return;
    case Kind::octets: {
        const unsigned long size = m_octets.cbData();
        if (size == 0) {
            out += lead + " (empty)\n";
            return;
        }
        if (size <= kOctetsPerLine) {
            out += lead + " " + Hex(m_octets) + "\n";
            return;
        }
        out += lead + " " + std::to_string(size) + " octets\n";
        for (unsigned long at = 0; at < size; at += kOctetsPerLine) {
            const unsigned long count = size - at < kOctetsPerLine ? size - at : kOctetsPerLine;
            out += Spaces(indent + 2) + Hex(Velmor::CBlob(m_octets.pbData() + at, count)) + "\n";
        }
        return;
    }
    case Kind::group:
        out += lead + (m_text.empty() ? "" : " " + m_text) + "\n";
        for (const Report& child : m_children) {
            child.writeText(out, indent + 2, child.m_label);
        }
        return;
    case Kind::list:
        if (m_children.empty()) {
            out += lead + " none\n";
        }
        for (std::size_t i = 0; i < m_children.size(); ++i) {
            m_children[i].writeText(out, indent, m_text + " " + std::to_string(i + 1));
        }
        return;
    }
}

std::string Report::toJson(int indent) const {
    std::string out;
    writeJson(out, indent);
    return out + "\n";
}

void Report::writeJson(std::string& out, int indent) const {
    switch (m_kind) {
    case Kind::value:
        out += m_json;
        return;
    case Kind::octets:
        out += JsonString(Hex(m_octets));
        return;
    case Kind::group:
    case Kind::list: {
        const bool group = m_kind == Kind::group;
        if (m_children.empty()) {
            out += group ? "{}" : "[]";
            return;
        }
        out += group ? "{\n" : "[\n";
        for (std::size_t i = 0; i < m_children.size(); ++i) {
            out += Spaces(indent + 2);
            if (group) {
                out += JsonString(m_children[i].m_key) + ": ";
            }
            m_children[i].writeJson(out, indent + 2);
            out += i + 1 < m_children.size() ? ",\n" : "\n";
        }
        out += Spaces(indent) + (group ? "}" : "]");
        return;
    }
    }
}

} // namespace VelmorTool
