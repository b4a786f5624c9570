// The end-to-end OCSP exchange: what a client and a responder do with the library, played
// once with the RSA fixture PKI and once with the ECDSA one.
//
// The client asks about two certificates (a good one and a revoked one): a request with a
// fresh nonce, signed with the client's key and carrying the client's certificate. The responder
// decodes the request and verifies its signature, looks each certificate up in its CA database
// (index.txt as `openssl ca` writes it), answers one entry per certificate, echoes the nonce, signs
// with its delegated responder key and encodes the response message. The client decodes it, checks
// the status and type, has the validator check signature, signer, entry, times and nonce for each
// certificate, and prints each entry.
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <pki/ocsp/ocsp.h>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

namespace {

constexpr const char* kSha1 = "1.3.14.3.2.26";
constexpr const char* kNonce = "1.3.6.1.5.5.7.48.1.2";
constexpr const char* kBasicResponse = "1.3.6.1.5.5.7.48.1.1";
// The certificates the client asks about: one valid, one revoked in the CA database.
constexpr const char* kLeaves[] = {"leaf", "leaf00"};

// One fixture PKI: its folder, the provider type of its keys and its signature algorithm.
struct Pki {
    const char* name;
    const char* dir;
    Win32::DWORD providerType;
    const char* signatureOid;
};
constexpr Pki kPkis[] = {
    {"RSA", "pki/rsa", Win32::PROV_RSA_FULL, "1.2.840.113549.1.1.11"},     // sha256WithRSA
    {"ECDSA", "pki/ec", Win32::PROV_EC_ECDSA_FULL, "1.2.840.10045.4.3.2"}, // ecdsa-with-SHA256
};

std::string DataPath(const Pki& pki, const std::string& name) {
    return std::string(VELMOR_EXAMPLE_DATA_DIR "/") + pki.dir + "/" + name;
}

CBlob ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    return CBlob(std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {}));
}

CBlob Certificate(const Pki& pki, const char* name) {
    return ReadFile(DataPath(pki, std::string(name) + ".der"));
}

std::string Hex(const CBlob& blob) {
    static const char* const digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < blob.cbData(); ++i) {
        text += digits[blob.pbData()[i] >> 4];
        text += digits[blob.pbData()[i] & 15];
    }
    return text;
}

std::string Time(const CDateTime& time) {
    const std::time_t seconds = static_cast<std::time_t>(time.seconds());
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%SZ", std::gmtime(&seconds));
    return text;
}

CDateTime Now(long shiftSeconds = 0) {
    return CDateTime(static_cast<std::int64_t>(std::time(nullptr)) + shiftSeconds, 0);
}

// A provider holding the private key of a PEM file, released at the end of the scope.
class KeyProvider {
  public:
    KeyProvider(const std::string& path, Win32::DWORD type) {
        const std::wstring container(path.begin(), path.end());
        if (!Win32::CryptAcquireContextW(&m_handle, container.c_str(), nullptr, type, 0)) {
            ATL::AtlThrowLastWin32();
        }
    }
    KeyProvider(const KeyProvider&) = delete;
    KeyProvider& operator=(const KeyProvider&) = delete;
    ~KeyProvider() { Win32::CryptReleaseContext(m_handle, 0); }
    std::uint64_t get() const { return m_handle; }

  private:
    Win32::HCRYPTPROV m_handle = 0;
};

// ---- The client ---------------------------------------------------------------------------

// 16 random octets in the OCTET STRING that peers expect inside the nonce extension.
CBlob FreshNonce() {
    std::random_device random;
    std::vector<std::uint8_t> value{0x04, 0x10};
    for (int i = 0; i < 16; ++i) {
        value.push_back(static_cast<std::uint8_t>(random()));
    }
    return CBlob(value);
}

CRequestMessage BuildSignedRequest(const Pki& pki, const CBlob& nonce) {
    const CBlob issuer = Certificate(pki, "inter");
    const ASN1::CAlgorithmIdentifierEx sha1(kSha1);
    CSingleRequestList entries;
    for (const char* leaf : kLeaves) {
        entries.push_back(CSingleRequest(CReqCert(CCertID(sha1, Certificate(pki, leaf), issuer))));
    }
    CRequestMessage request;
    request.put_requestList(entries);
    ASN1::CExtensions extensions;
    extensions.push_back(ASN1::CExtension(CExtNonce(nonce), false));
    request.put_requestExtensions(&extensions);

    const CBlob client = Certificate(pki, "client");
    CBlobList certificates;
    certificates.push_back(client);
    const KeyProvider key(DataPath(pki, "client.key.pem"), pki.providerType);
    request.sign(key.get(), Win32::AT_SIGNATURE, ASN1::CAlgorithmIdentifierEx(pki.signatureOid),
                 &certificates);
    return request;
}

const char* ReasonName(ASN1::CrlReason reason) {
    static const std::map<ASN1::CrlReason, const char*> names = {
        {ASN1::unspecified, "unspecified"},
        {ASN1::keyCompromise, "keyCompromise"},
        {ASN1::cACompromise, "cACompromise"},
        {ASN1::affiliationChanged, "affiliationChanged"},
        {ASN1::superseded, "superseded"},
        {ASN1::cessationOfOperation, "cessationOfOperation"},
        {ASN1::certificateHold, "certificateHold"},
        {ASN1::removeFromCRL, "removeFromCRL"},
        {ASN1::privilegeWithdrawn, "privilegeWithdrawn"},
        {ASN1::aACompromise, "aACompromise"}};
    const auto found = names.find(reason);
    return found != names.end() ? found->second : "?";
}

void PrintEntry(const CSingleResponse& entry) {
    const CCertStatus& status = entry.get_certStatus();
    std::printf("client:   serial %s: %s\n",
                entry.get_reqCert().get_certID()->get_serialNumber().ToHex().c_str(),
                status.isGood()      ? "good"
                : status.isRevoked() ? "revoked"
                                     : "unknown");
    if (status.isRevoked()) {
        std::printf("client:     revoked %s", Time(*status.get_revocationTime()).c_str());
        if (status.get_revocationReason() != nullptr) {
            std::printf(", reason %s", ReasonName(*status.get_revocationReason()));
        }
        std::printf("\n");
    }
    std::printf("client:     this update %s", Time(entry.get_thisUpdate()).c_str());
    if (entry.get_nextUpdate() != nullptr) {
        std::printf(", next update %s", Time(*entry.get_nextUpdate()).c_str());
    }
    std::printf("\n");
}

// True when the answer is successful, of the basic type, and accepted by the validator for
// every certificate asked about: the signature, the signer's authority (a delegated
// responder certificate issued by the CA for OCSP signing), the responder ID, the entry, its
// times and the nonce of the request sent.
bool CheckAnswer(const Pki& pki, const CBlob& wire, const CRequestMessage& sent) {
    CResponseMessage message;
    message.decode(wire);
    if (message.get_responseStatus() != successful || message.get_response() == nullptr ||
        std::string(message.get_responseType()) != kBasicResponse) {
        std::printf("client: the responder did not answer with a basic response\n");
        return false;
    }
    CBasicResponse basic;
    basic.decode(*message.get_response());
    std::printf("client: %lu octets, status successful, %llu entries\n", wire.cbData(),
                static_cast<unsigned long long>(basic.get_responses().size()));
    CResponseValidator validator;
    validator.put_request(&sent);
    bool accepted = true;
    for (const char* leaf : kLeaves) {
        const CValidationResult result =
            validator.validate(basic, Certificate(pki, leaf), Certificate(pki, "inter"));
        if (result.get_entry() != nullptr) {
            PrintEntry(*result.get_entry());
        }
        std::printf("client:     %s", result.isAccepted() ? "accepted" : "REFUSED:");
        for (const std::string& failure : CValidationResult::FailureNames(result.get_failures())) {
            std::printf(" %s", failure.c_str());
        }
        std::printf("\n");
        accepted = accepted && result.isAccepted();
    }
    // The bare signature check, with the responder certificate the response carries.
    const CBlobList* certs = basic.get_certs();
    const bool signedOk = certs != nullptr && !certs->empty() && basic.verify(certs->front());
    std::printf("client: signature %s\n", signedOk ? "verified" : "DOES NOT VERIFY");
    return accepted && signedOk;
}

// ---- The responder ------------------------------------------------------------------------

// What the CA database says of one serial (hex, upper case).
struct IndexEntry {
    char state = 0; // V valid, R revoked, E expired
    std::string revocation;
};

std::map<std::string, IndexEntry> ReadIndex(const Pki& pki) {
    std::map<std::string, IndexEntry> index;
    std::ifstream in(DataPath(pki, "index.txt"));
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> fields;
        std::istringstream columns(line);
        for (std::string field; std::getline(columns, field, '\t');) {
            fields.push_back(field);
        }
        if (fields.size() >= 4) {
            index[fields[3]] = IndexEntry{fields[0].empty() ? '?' : fields[0][0], fields[2]};
        }
    }
    return index;
}

// "YYMMDDHHMMSSZ[,reason]" of index.txt as a revoked status.
CCertStatus Revoked(const std::string& revocation) {
    const std::string time = revocation.substr(0, revocation.find(','));
    const std::string year = std::stoi(time.substr(0, 2)) < 50 ? "20" : "19";
    const CDateTime when((year + time).c_str());
    const std::string reasonText =
        revocation.find(',') == std::string::npos ? "" : revocation.substr(time.size() + 1);
    for (int code = 0; code <= 10; ++code) {
        const auto reason = static_cast<ASN1::CrlReason>(code);
        if (reasonText == ReasonName(reason)) {
            return CCertStatus(when, &reason);
        }
    }
    return CCertStatus(when, nullptr);
}

CBlob Answer(const Pki& pki, const CBlob& requestWire) {
    CRequestMessage request;
    request.decode(requestWire);
    const CBlobList* signerCerts = request.get_signatureCerts();
    const bool verified =
        signerCerts != nullptr && !signerCerts->empty() && request.verify(signerCerts->front());
    std::printf("responder: request of %llu entries, signed with %s, signature %s\n",
                static_cast<unsigned long long>(request.get_requestList().size()),
                request.get_signatureAlgorithm() ? request.get_signatureAlgorithm()->get_algorithm()
                                                 : "nothing",
                verified ? "verified" : "DOES NOT VERIFY");
    if (!verified) {
        CResponseMessage refusal;
        refusal.put_responseStatus(unauthorized);
        return refusal.encode();
    }

    const std::map<std::string, IndexEntry> index = ReadIndex(pki);
    const CDateTime thisUpdate = Now();
    const CDateTime nextUpdate = Now(24 * 3600);
    CSingleResponseList entries;
    for (const CSingleRequest& asked : request.get_requestList()) {
        const std::string serial = asked.get_reqCert().get_certID()->get_serialNumber().ToHex();
        const auto found = index.find(serial);
        CCertStatus status; // unknown unless the database knows the serial
        if (found != index.end() && found->second.state == 'R') {
            status = Revoked(found->second.revocation);
        } else if (found != index.end()) {
            status.put_good();
        }
        entries.push_back(CSingleResponse(asked.get_reqCert(), status, thisUpdate));
        entries.back().put_nextUpdate(&nextUpdate);
    }

    const CBlob responder = Certificate(pki, "ocsp");
    CBasicResponse basic(thisUpdate, CResponderID::fromCert(CResponderID::byKey, responder));
    basic.put_responses(entries);
    const ASN1::CExtensions* asked = request.get_requestExtensions();
    if (const ASN1::CExtension* nonce = asked ? asked->find(kNonce) : nullptr) {
        ASN1::CExtensions echoed;
        echoed.push_back(*nonce);
        basic.put_responseExtensions(&echoed);
    }
    CBlobList certs;
    certs.push_back(responder);
    basic.put_certs(&certs);
    const KeyProvider key(DataPath(pki, "ocsp.key.pem"), pki.providerType);
    basic.sign(key.get(), Win32::AT_SIGNATURE, ASN1::CAlgorithmIdentifierEx(pki.signatureOid));

    const CBlob body = basic.encode();
    CResponseMessage message;
    message.put_responseStatus(successful);
    message.put_response(kBasicResponse, &body);
    return message.encode();
}

bool Exchange(const Pki& pki) {
    std::printf("== %s\n", pki.name);
    const CBlob nonce = FreshNonce();
    const CRequestMessage request = BuildSignedRequest(pki, nonce);
    const CBlob requestWire = request.encode();
    std::printf("client: signed request of %lu octets, nonce %s\n", requestWire.cbData(),
                Hex(nonce).c_str());
    const CBlob answer = Answer(pki, requestWire);
    std::printf("responder: signed answer of %lu octets\n", answer.cbData());
    return CheckAnswer(pki, answer, request);
}

} // namespace

int main() {
    std::printf("velmor-ocsp %d.%d.%d\n", VELMOR_OCSP_VERSION_MAJOR, VELMOR_OCSP_VERSION_MINOR,
                VELMOR_OCSP_VERSION_PATCH);
    try {
        bool ok = true;
        for (const Pki& pki : kPkis) {
            ok = Exchange(pki) && ok;
        }
        // A client that receives garbage gets an exception with a code, never a crash.
        try {
            CResponseMessage garbage;
            garbage.decode(CBlob(std::string_view("\x30\x05\x0a\x01", 4)));
        } catch (const ATL::CAtlException& e) {
            std::printf("client: garbage rejected with %s\n", e.what());
        }
        return ok ? 0 : 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "exchange failed: %s\n", e.what());
        return 1;
    }
}
