// What `show` prints, built once as a tree and written either as indented text or as JSON,
// so that the two forms always carry the same fields.
#ifndef VELMOR_TOOLS_REPORT_H
#define VELMOR_TOOLS_REPORT_H

#include <pki/ocsp/blob.h>

#include <cstdint>
#include <string>
#include <vector>

namespace VelmorTool {

// One field. A value has a label for the text form, a key for JSON (camel case, the ASN.1
// field names where there is one) and its rendering in each; a group holds fields; a list
// holds groups numbered in the text form ("entry 1:", "entry 2:").
class Report {
  public:
    // A group: "label: headline" in the text form, then its fields one step further in.
    static Report Group(std::string key, std::string label, std::string headline = "");

    // Fields of a group, in the order they are added. Each returns the group.
    Report& text(std::string key, std::string label, std::string value);
    // A text that the text form shows otherwise: an identifier with its name.
    Report& text(std::string key, std::string label, std::string value, std::string shown);
    // A number in JSON; in the text form the number, or textValue when one is given.
    Report& number(std::string key, std::string label, std::int64_t value,
                   std::string textValue = "");
    // A text that only the JSON form carries (what the text form says in a headline).
    Report& jsonText(std::string key, std::string value);
    // true/false in JSON, yes/no in the text form.
    Report& flag(std::string key, std::string label, bool value);
    // Lower-case hex: one line up to 32 octets, otherwise the count and 32 octets per line.
    Report& octets(std::string key, std::string label, const Velmor::CBlob& value);
    Report& add(Report group);
    // A list: its items are groups labelled "itemLabel 1", "itemLabel 2"; "label: none" when
    // empty. Returns the list, for add().
    Report& list(std::string key, std::string label, std::string itemLabel);

    std::string toText(int indent = 0) const;
    std::string toJson(int indent = 0) const;

  private:
    enum class Kind { value, octets, group, list };
    Report(Kind kind, std::string key, std::string label);
    void writeText(std::string& out, int indent, const std::string& label) const;
    void writeJson(std::string& out, int indent) const;

    Kind m_kind;
    std::string m_key;
    std::string m_label;
    std::string m_text; // a value's text, a group's headline, a list's item label
    std::string m_json; // a value's JSON literal
    Velmor::CBlob m_octets;
    std::vector<Report> m_children;
    bool m_inText = true;
};

// The text as a JSON string literal, quotes included.
std::string JsonString(const std::string& text);
// Lower-case hex of the octets.
std::string Hex(const Velmor::CBlob& octets);

} // namespace VelmorTool

#endif
