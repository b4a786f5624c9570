// CExtValue, CExtension and CExtensions.
#include <cstring>
#include <pki/ocsp/extensions.h>

#include "foundation/dll_list_impl.h"

// Decoded extensions are overwritten field by field: spare ones are reused.
template <> struct Velmor::Detail::RecyclesEntries<Velmor::ASN1::CExtension> : std::true_type {};

namespace Velmor::ASN1 {

CExtValue::CExtValue(const char* oid) : m_oid(oid) {}

CExtValue::CExtValue(const char* oid, const CBlob& value) : m_oid(oid), m_value(value) {}

CExtValue::CExtValue(const CExtValue& other) = default;
CExtValue& CExtValue::operator=(const CExtValue& other) = default;
CExtValue::~CExtValue() = default;

const char* CExtValue::get_oid() const noexcept { return m_oid.c_str(); }

const CBlob& CExtValue::get_value() const noexcept { return m_value; }

CBlob& CExtValue::value() noexcept { return m_value; }

CExtension::CExtension() : m_critical(false) {}

CExtension::CExtension(const char* oid, bool critical, const CBlob& value)
    : m_extnID(oid), m_critical(critical), m_extnValue(value) {}

CExtension::CExtension(const CExtValue& value, bool critical)
    : CExtension(value.get_oid(), critical, value.get_value()) {}

CExtension::CExtension(const CExtension& other) = default;
CExtension& CExtension::operator=(const CExtension& other) = default;
CExtension::~CExtension() = default;

const char* CExtension::get_extnID() const noexcept { return m_extnID.c_str(); }

void CExtension::put_extnID(const char* oid) { m_extnID = oid; }

bool CExtension::get_critical() const noexcept { return m_critical; }

void CExtension::put_critical(bool critical) noexcept { m_critical = critical; }

const CBlob& CExtension::get_extnValue() const noexcept { return m_extnValue; }

void CExtension::put_extnValue(const CBlob& value) { m_extnValue = value; }

bool operator==(const CExtension& a, const CExtension& b) noexcept {
    return std::strcmp(a.get_extnID(), b.get_extnID()) == 0 &&
           a.get_critical() == b.get_critical() && a.get_extnValue() == b.get_extnValue();
}

bool operator!=(const CExtension& a, const CExtension& b) noexcept { return !(a == b); }

CExtensions::CExtensions() = default;
CExtensions::CExtensions(const CExtensions& other) = default;
CExtensions& CExtensions::operator=(const CExtensions& other) = default;
CExtensions::~CExtensions() = default;

const CExtension* CExtensions::find(const char* oid) const {
    if (oid == nullptr) {
        return nullptr;
    }
    for (const CExtension& extension : *this) {
        if (std::strcmp(extension.get_extnID(), oid) == 0) {
            return &extension;
        }
    }
    return nullptr;
}

CExtension* CExtensions::find(const char* oid) {
    return const_cast<CExtension*>(static_cast<const CExtensions&>(*this).find(oid));
}

} // namespace Velmor::ASN1

namespace Velmor {
template class CDllList<ASN1::CExtension>;
}
