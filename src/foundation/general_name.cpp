// CGeneralName and CGeneralNames.
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/general_name.h>
#include <utility>

#include "foundation/dll_list_impl.h"
#include "foundation/string_proxy_access.h"
#include "trace/trace_guard.h"

// A decoded name is set through one setter, which replaces every field: spare ones are reused.
template <> struct Velmor::Detail::RecyclesEntries<Velmor::ASN1::CGeneralName> : std::true_type {};

namespace Velmor::ASN1 {

namespace {

bool IsWholeElementChoice(CGeneralName::Choice choice) noexcept {
    return choice == CGeneralName::otherName || choice == CGeneralName::x400Address ||
           choice == CGeneralName::ediPartyName;
}

} // namespace

CGeneralName::CGeneralName() : m_choice(none) {}

CGeneralName::CGeneralName(const CGeneralName& other) = default;
CGeneralName& CGeneralName::operator=(const CGeneralName& other) = default;
CGeneralName::~CGeneralName() = default;

CGeneralName::Choice CGeneralName::get_choice() const noexcept { return m_choice; }

const CBlob* CGeneralName::get_directoryName() const noexcept { return OctetsOf(directoryName); }

void CGeneralName::put_directoryName(const CBlob& nameDer) { SetOctets(directoryName, nameDer); }

const char* CGeneralName::get_rfc822Name() const noexcept { return TextOf(rfc822Name); }

void CGeneralName::put_rfc822Name(const char* text) { SetText(rfc822Name, text); }

const char* CGeneralName::get_dNSName() const noexcept { return TextOf(dNSName); }

void CGeneralName::put_dNSName(const char* text) { SetText(dNSName, text); }

const char* CGeneralName::get_uniformResourceIdentifier() const noexcept {
    return TextOf(uniformResourceIdentifier);
}

void CGeneralName::put_uniformResourceIdentifier(const char* text) {
    SetText(uniformResourceIdentifier, text);
}

const CBlob* CGeneralName::get_iPAddress() const noexcept { return OctetsOf(iPAddress); }

void CGeneralName::put_iPAddress(const CBlob& address) { SetOctets(iPAddress, address); }

const char* CGeneralName::get_registeredID() const noexcept { return TextOf(registeredID); }

void CGeneralName::put_registeredID(const char* oid) { SetText(registeredID, oid); }

const CBlob* CGeneralName::get_other() const noexcept {
    return IsWholeElementChoice(m_choice) ? &m_octets : nullptr;
}

void CGeneralName::put_other(Choice choice, const CBlob& der) {
    if (!IsWholeElementChoice(choice)) {
        Trace::ThrowFrom("CGeneralName::put_other", Win32::E_INVALIDARG);
    }
    SetOctets(choice, der);
}

const char* CGeneralName::TextOf(Choice choice) const noexcept {
    return m_choice == choice ? m_text.c_str() : nullptr;
}

const CBlob* CGeneralName::OctetsOf(Choice choice) const noexcept {
    return m_choice == choice ? &m_octets : nullptr;
}

// The copy is the only step that can fail, and it replaces the member's text or octets only
// once it has succeeded; the name is then as it was. The other member is emptied in place.
void CGeneralName::SetText(Choice choice, const char* text) {
    Detail::StringProxyAccess::Assign(m_text, text != nullptr ? text : "");
    m_octets.resize_to(0);
    m_choice = choice;
}

void CGeneralName::SetOctets(Choice choice, const CBlob& octets) {
    m_octets.assign(octets.pbData(), octets.cbData());
    Detail::StringProxyAccess::Assign(m_text, {});
    m_choice = choice;
}

// Only the member of the name's choice is ever non-empty, so comparing every member compares
// the values.
bool operator==(const CGeneralName& a, const CGeneralName& b) noexcept {
    return a.m_choice == b.m_choice && a.m_text == b.m_text && a.m_octets == b.m_octets;
}

bool operator!=(const CGeneralName& a, const CGeneralName& b) noexcept { return !(a == b); }

CGeneralNames::CGeneralNames() = default;
CGeneralNames::CGeneralNames(const CGeneralNames& other) = default;
CGeneralNames& CGeneralNames::operator=(const CGeneralNames& other) = default;
CGeneralNames::~CGeneralNames() = default;

} // namespace Velmor::ASN1

namespace Velmor {
template class CDllList<ASN1::CGeneralName>;
}
