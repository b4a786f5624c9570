// The OCSP responder of one CA: answers requests from the CA's OpenSSL index, signed with
// the responder's key. respond, serve and presign all answer through this one class.
#ifndef VELMOR_TOOLS_RESPONDER_H
#define VELMOR_TOOLS_RESPONDER_H

#include "ca_index.h"
#include "certificate.h"
#include "exit_status.h"
#include "input.h"

#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/datetime.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/response_message.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace VelmorTool {

// What the commands that answer requests are told about the responder.
struct ResponderOptions {
    std::string index;
    std::string ca;
    std::string signer;
    std::string key;
    bool byKey = false;
    std::optional<unsigned> nextUpdateDays;
    std::string otherCertificates;
    bool noCertificates = false;
    std::string digest = "sha256";
};
// --index, --ca, --rsigner, --rkey, --by-key, --next-update, --rother, --no-certs and
// --digest. nextUpdateHelp describes --next-update, whose default (if any) options holds.
void AddResponderOptions(CLI::App& command, ResponderOptions& options,
                         const std::string& nextUpdateHelp);

// A request read from DER: null, and why in *problem, when the bytes are not a request or
// the request asks about no certificate.
std::optional<Velmor::PKI::OCSP::CRequestMessage> DecodeRequest(const Velmor::CBlob& der,
                                                                std::string* problem);

// True when a request carries a nonce extension.
bool HasNonce(const Velmor::PKI::OCSP::CRequestMessage& request);

struct Answer {
    Velmor::CBlob der; // the OCSPResponse
    Velmor::PKI::OCSP::ResponseStatus status = Velmor::PKI::OCSP::successful;
    ExitCode code = kAllGood; // what the answer says, as respond's exit code gives it
    // Set for a successful answer: its thisUpdate, and its nextUpdate unless there is none.
    Velmor::CDateTime thisUpdate;
    std::optional<Velmor::CDateTime> nextUpdate;
    bool nonce = false; // the answer echoes the request's nonce
};

// The answer that carries an error status and nothing else.
Answer ErrorAnswer(Velmor::PKI::OCSP::ResponseStatus status);

class Responder {
  public:
    // Reads the certificates and opens the key, which must be the key of the responder
    // certificate; every failure ends the command naming the file.
    explicit Responder(const ResponderOptions& options);
    ~Responder();
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    // The answer to request from index, made at time now (producedAt and thisUpdate).
    // An entry of another CA, or one that does not name its certificate by CertID, is
    // unknown; when no entry names this CA the answer is unauthorized. The request's nonce
    // is echoed. Safe to call from several threads at once.
    Answer answer(const Velmor::PKI::OCSP::CRequestMessage& request, const CaIndex& index,
                  const Velmor::CDateTime& now) const;

    // The CA's certificate (DER).
    const Velmor::CBlob& ca() const noexcept { return m_ca; }

  private:
    // The keys not in use: a thread that signs takes one and gives it back, and opens
    // another when none is free, so that threads never share a key.
    std::unique_ptr<SigningKey> takeKey() const;
    void returnKey(std::unique_ptr<SigningKey> key) const;
    Velmor::CBlob sign(Velmor::PKI::OCSP::CBasicResponse& basic) const;
    // True when id names the CA by its name and key hashes.
    bool namesCa(const Velmor::PKI::OCSP::CCertID& id) const;

    ResponderOptions m_options;
    Velmor::CBlob m_ca;
    Velmor::CBlob m_signer;
    Velmor::CBlobList m_certificates;
    Velmor::PKI::OCSP::CResponderID m_responderId;
    // The CA's hashes for each hash the options know, worked out once.
    std::vector<std::pair<std::string, IssuerHashes>> m_caHashes;
    KeyType m_keyType = KeyType::rsa;
    mutable std::mutex m_keysMutex;
    mutable std::vector<std::unique_ptr<SigningKey>> m_idleKeys;
};

} // namespace VelmorTool

#endif
