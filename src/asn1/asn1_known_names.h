// The last Names this thread found to be DER. A message writes and reads the same Name on
// every encoding (a responder's, a requestor's, a certificate's issuer), and parsing or
// writing one costs more than the rest of a small message. The reader takes a Name whose
// octets equal one of these as it stands, without parsing it again; the writer writes such
// a value from its own octets. Only Names that parsed and re-encoded to themselves are
// added, so the octets are exactly what a parse and a fresh encoding would give.
#ifndef VELMOR_SRC_ASN1_ASN1_KNOWN_NAMES_H
#define VELMOR_SRC_ASN1_ASN1_KNOWN_NAMES_H

#include "asn1/asn1_base.h"

#include <array>
#include <cstddef>
#include <vector>

namespace Velmor::Asn1Rt {

class KnownDerNames {
  public:
    static KnownDerNames& ofThisThread();

    bool contains(const ASN1OCTET* der, std::size_t size) const noexcept;
    // The size of the known Name that the available octets at data start with, or 0.
    std::size_t prefixOf(const ASN1OCTET* data, std::size_t available) const noexcept;
    // Keeps a copy of der in place of the oldest one.
    void add(const ASN1OCTET* der, std::size_t size);

  private:
    std::array<std::vector<ASN1OCTET>, 8> m_names;
    std::size_t m_next = 0;
};

} // namespace Velmor::Asn1Rt

#endif
