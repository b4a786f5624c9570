// The certificate database of an OpenSSL CA ("index.txt", as `openssl ca` writes it): one
// line per certificate, six tab-separated fields: status (V valid, R revoked, E expired),
// expiry, revocation ("YYMMDDHHMMSSZ[,reason]", empty unless revoked), serial number in
// hex, file name, subject.
#ifndef VELMOR_TOOLS_CA_INDEX_H
#define VELMOR_TOOLS_CA_INDEX_H

#include <pki/ocsp/big_integer.h>
#include <pki/ocsp/crl_reason.h>
#include <pki/ocsp/datetime.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace VelmorTool {

struct IndexEntry {
    char status = 'V';
    Velmor::CDateTime revocationTime;              // set for R
    std::optional<Velmor::ASN1::CrlReason> reason; // set for R with a reason
};

class CaIndex {
  public:
    // Reads the file; a line that is not an index line ends the command naming the file and
    // the line number.
    explicit CaIndex(const std::string& path);
    // The entry of a serial number, or null. Serials compare as numbers: "0A" names 10.
    const IndexEntry* find(const Velmor::ASN1::CBigInteger& serial) const;
    // Every serial number of the index once, in upper-case hex without leading zeros.
    std::vector<std::string> serials() const;

  private:
    std::map<std::string, IndexEntry> m_entries; // by upper-case hex without leading zeros
};

} // namespace VelmorTool

#endif
