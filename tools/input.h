// Reading what the commands are given: files, OCSP messages, certificates and private keys.
// Every failure ends the command with one line naming the file and what was wrong with it.
#ifndef VELMOR_TOOLS_INPUT_H
#define VELMOR_TOOLS_INPUT_H

#include "armour.h"

#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/win32.h>

#include <string>
#include <vector>

namespace VelmorTool {

// The whole content of a file; "-" reads standard input. An empty file is refused unless
// allowEmpty.
Bytes ReadFileBytes(const std::string& path, bool allowEmpty = false);

// A message read as DER, PEM or base64: its DER and, for PEM, the block's label.
struct MessageFile {
    Velmor::CBlob der;
    std::string pemLabel;
};
// The one message a file holds. expectedLabels lists the PEM labels that fit; a PEM block
// with another label is refused, naming what the file holds instead.
MessageFile ReadMessageFile(const std::string& path, const std::vector<std::string>& expectedLabels,
                            const std::string& what);
// The same for content already read from path.
MessageFile ParseMessageFile(const std::string& path, const Bytes& content,
                             const std::vector<std::string>& expectedLabels,
                             const std::string& what);

// The basic response in the body of an OCSPResponse that path holds; one that does not
// decode ends the command as a file error.
Velmor::PKI::OCSP::CBasicResponse DecodeBasicResponse(const std::string& path,
                                                      const Velmor::CBlob& body);

// One X.509 certificate, PEM or DER, as DER. A PEM file must hold exactly one.
Velmor::CBlob ReadCertificate(const std::string& path);
// Every certificate of a PEM file (in order), or the one of a DER file.
std::vector<Velmor::CBlob> ReadCertificates(const std::string& path);

enum class KeyType { rsa, ec };

// A private key held by a CryptoAPI provider, opened from a file (PEM or DER) or an OpenSSL
// store URI; released when the object goes.
class SigningKey {
  public:
    explicit SigningKey(const std::string& location);
    ~SigningKey();
    SigningKey(const SigningKey&) = delete;
    SigningKey& operator=(const SigningKey&) = delete;

    Velmor::Win32::HCRYPTPROV provider() const noexcept { return m_provider; }
    KeyType type() const noexcept { return m_type; }
    const std::string& location() const noexcept { return m_location; }

  private:
    std::string m_location;
    Velmor::Win32::HCRYPTPROV m_provider = 0;
    KeyType m_type = KeyType::rsa;
};

// The HRESULT named as the library names it: "CRYPT_E_ASN1_INTERNAL (0x80093101)".
std::string HresultText(Velmor::Win32::HRESULT hr);

} // namespace VelmorTool

#endif
