#include "responder.h"

#include "algorithms.h"

#include <CLI/CLI.hpp>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/crypt_provider.h>

namespace VelmorTool {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

CCertStatus StatusOf(const IndexEntry* entry) {
    CCertStatus status;
    if (entry == nullptr) {
        return status; // unknown
    }
    if (entry->status == 'R') {
        return CCertStatus(entry->revocationTime, entry->reason ? &*entry->reason : nullptr);
    }
    status.put_good(); // valid, or expired but never revoked
    return status;
}

CBlob Wrap(ResponseStatus status, const CBlob* basic) {
    CResponseMessage response;
    response.put_responseStatus(status);
    if (basic != nullptr) {
        response.put_response(kBasicResponseOid, basic);
    }
    return response.encode();
}

} // namespace

void AddResponderOptions(CLI::App& command, ResponderOptions& options,
                         const std::string& nextUpdateHelp) {
    command.add_option("--index", options.index, "The CA's index.txt, as `openssl ca` keeps it")
        ->required();
    command.add_option("--ca", options.ca, "Certificate of the CA (PEM or DER)")->required();
    command.add_option("--rsigner", options.signer, "Certificate of the responder (PEM or DER)")
        ->required();
    command
        .add_option("--rkey", options.key,
                    "Private key of the responder: a PEM or DER file, or an OpenSSL store URI")
        ->required();
    command.add_flag("--by-key", options.byKey,
                     "Name the responder by the hash of its key rather than by its name");
    command.add_option("--next-update", options.nextUpdateDays, nextUpdateHelp)
        ->check(CLI::Range(0u, 36500u));
    CLI::Option* other = command.add_option(
        "--rother", options.otherCertificates,
        "More certificates to send with the response (PEM, any number, or one DER)");
    command.add_flag("--no-certs", options.noCertificates, "Send no certificates at all")
        ->excludes(other);
    command.add_option("--digest", options.digest, "Hash of the signature")
        ->check(CLI::IsMember(HashNames()))
        ->capture_default_str();
}

std::optional<CRequestMessage> DecodeRequest(const CBlob& der, std::string* problem) {
    CRequestMessage request;
    try {
        request.decode(der);
    } catch (const ATL::CAtlException& e) {
        *problem = std::string("is not an OCSP request (") + e.what() + ")";
        return std::nullopt;
    }
    if (request.get_requestList().empty()) {
        *problem = "asks about no certificate";
        return std::nullopt;
    }
    return request;
}

bool HasNonce(const CRequestMessage& request) {
    const ASN1::CExtensions* extensions = request.get_requestExtensions();
    return extensions != nullptr && extensions->find(kNonceOid) != nullptr;
}

Answer ErrorAnswer(ResponseStatus status) {
    Answer answer;
    answer.der = Wrap(status, nullptr);
    answer.status = status;
    answer.code = kResponderError;
    return answer;
}

Responder::Responder(const ResponderOptions& options)
    : m_options(options), m_ca(ReadCertificate(options.ca)),
      m_signer(ReadCertificate(options.signer)) {
    m_responderId = CResponderID::fromCert(
        options.byKey ? CResponderID::byKey : CResponderID::byName, m_signer);
    m_certificates.push_back(m_signer);
    if (!options.otherCertificates.empty()) {
        for (const CBlob& certificate : ReadCertificates(options.otherCertificates)) {
            m_certificates.push_back(certificate);
        }
    }
    for (const std::string& name : HashNames()) {
        if (auto hashes = IssuerHashesOf(m_ca, HashOid(name))) {
            m_caHashes.emplace_back(HashOid(name), std::move(*hashes));
        }
    }
    // A signature over an answer about nothing shows that the key fits the certificate
    // before anyone is answered.
    auto key = std::make_unique<SigningKey>(options.key);
    m_keyType = key->type();
    returnKey(std::move(key));
    CBasicResponse probe(CDateTime(0, 0), m_responderId);
    sign(probe);
    if (!probe.verify(m_signer)) {
        FailFile(options.key, "is not the key of the responder certificate " + options.signer);
    }
}

Responder::~Responder() = default;

std::unique_ptr<SigningKey> Responder::takeKey() const {
    {
        const std::lock_guard<std::mutex> lock(m_keysMutex);
        if (!m_idleKeys.empty()) {
            std::unique_ptr<SigningKey> key = std::move(m_idleKeys.back());
            m_idleKeys.pop_back();
            return key;
        }
    }
    return std::make_unique<SigningKey>(m_options.key);
}

void Responder::returnKey(std::unique_ptr<SigningKey> key) const {
    const std::lock_guard<std::mutex> lock(m_keysMutex);
    m_idleKeys.push_back(std::move(key));
}

CBlob Responder::sign(CBasicResponse& basic) const {
    std::unique_ptr<SigningKey> key = takeKey();
    try {
        basic.sign(key->provider(), Win32::AT_SIGNATURE,
                   ASN1::CAlgorithmIdentifierEx(SignatureOid(m_keyType, m_options.digest)));
    } catch (const ATL::CAtlException& e) {
        returnKey(std::move(key));
        FailFile(m_options.key, std::string("cannot sign: ") + e.what());
    }
    returnKey(std::move(key));
    return basic.encode();
}

bool Responder::namesCa(const CCertID& id) const {
    const std::string_view oid = id.get_hashAlgorithm().get_algorithm();
    for (const auto& [known, hashes] : m_caHashes) {
        if (oid == known) {
            return hashes.name == id.get_issuerNameHash() && hashes.key == id.get_issuerKeyHash();
        }
    }
    return NamesIssuer(id, m_ca); // a hash the options do not offer
}

Answer Responder::answer(const CRequestMessage& request, const CaIndex& index,
                         const CDateTime& now) const {
    Answer result;
    result.thisUpdate = now;
    if (m_options.nextUpdateDays) {
        result.nextUpdate =
            CDateTime(now.seconds() + *m_options.nextUpdateDays * kSecondsPerDay, 0);
    }
    Outcome outcome;
    bool anyOfThisCa = false;
    CSingleResponseList entries;
    for (const CSingleRequest& entry : request.get_requestList()) {
        const CCertID* id = entry.get_reqCert().get_certID();
        const bool ours = id != nullptr && namesCa(*id);
        anyOfThisCa = anyOfThisCa || ours;
        const CCertStatus status = StatusOf(ours ? index.find(id->get_serialNumber()) : nullptr);
        outcome.add(status.get_type());
        CSingleResponse single(entry.get_reqCert(), status, now);
        if (result.nextUpdate) {
            single.put_nextUpdate(&*result.nextUpdate);
        }
        entries.push_back(single);
    }
    if (!anyOfThisCa) {
        return ErrorAnswer(unauthorized);
    }

    CBasicResponse basic(now, m_responderId);
    basic.put_responses(entries);
    if (const ASN1::CExtensions* extensions = request.get_requestExtensions()) {
        if (const ASN1::CExtension* nonce = extensions->find(kNonceOid)) {
            ASN1::CExtensions echoed;
            echoed.push_back(*nonce);
            basic.put_responseExtensions(&echoed);
            result.nonce = true;
        }
    }
    if (!m_options.noCertificates) {
        basic.put_certs(&m_certificates);
    }
    const CBlob body = sign(basic);
    result.der = Wrap(successful, &body);
    result.code = outcome.code();
    return result;
}

} // namespace VelmorTool
