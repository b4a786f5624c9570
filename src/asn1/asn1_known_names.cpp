// The per-thread list of Names known to be DER.
#include "asn1/asn1_known_names.h"

#include <cstring>

namespace Velmor::Asn1Rt {

KnownDerNames& KnownDerNames::ofThisThread() {
    thread_local KnownDerNames names;
    return names;
}

bool KnownDerNames::contains(const ASN1OCTET* der, std::size_t size) const noexcept {
    // A known Name is one whole element: when it starts der, it is all of der or a prefix of
    // it followed by other octets.
    return size != 0 && prefixOf(der, size) == size;
}

std::size_t KnownDerNames::prefixOf(const ASN1OCTET* data, std::size_t available) const noexcept {
    for (const std::vector<ASN1OCTET>& name : m_names) {
        if (!name.empty() && name.size() <= available &&
            std::memcmp(name.data(), data, name.size()) == 0) {
            return name.size();
        }
    }
    return 0;
}

void KnownDerNames::add(const ASN1OCTET* der, std::size_t size) {
    m_names[m_next].assign(der, der + size);
    m_next = (m_next + 1) % m_names.size();
}

} // namespace Velmor::Asn1Rt
