#include "response_check.h"

#include "algorithms.h"
#include "exit_status.h"
#include "input.h"
#include "message_text.h"

#include <CLI/CLI.hpp>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/response_message.h>

#include <chrono>
#include <cstdio>

namespace VelmorTool {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

namespace {

const char* StatusWord(const CCertStatus& status) {
    return status.isGood() ? "good" : status.isRevoked() ? "revoked" : "unknown";
}

// The basic response an OCSPResponse carries; an error status ends the command with its
// own exit code, anything else that is no basic response as a file error.
CBasicResponse BasicResponseOf(const std::string& source, const CBlob& der) {
    CResponseMessage response;
    try {
        response.decode(der);
    } catch (const ATL::CAtlException& e) {
        FailFile(source, std::string("is not an OCSP response (") + e.what() + ")");
    }
    const ResponseStatus status = response.get_responseStatus();
    if (status != successful) {
        throw ToolError(kResponderError, source + ": the responder answered " + StatusText(status));
    }
    if (response.get_response() == nullptr) {
        FailFile(source, "is a successful OCSP response without a response body");
    }
    const std::string type = response.get_responseType();
    if (type != kBasicResponseOid) {
        const char* name = OidName(type);
        FailFile(source, "holds a response of type " +
                             (name != nullptr ? std::string(name) : type) +
                             ", not a basic OCSP response");
    }
    return DecodeBasicResponse(source, *response.get_response());
}

std::string CertificateReport(const std::string& path, const CValidationResult& result,
                              Outcome& outcome) {
    std::string text;
    if (const CSingleResponse* entry = result.get_entry()) {
        const CCertStatus& status = entry->get_certStatus();
        text += path + ": " + StatusWord(status) + "\n";
        text += "\tThis Update: " + TimeText(entry->get_thisUpdate()) + "\n";
        if (const CDateTime* next = entry->get_nextUpdate()) {
            text += "\tNext Update: " + TimeText(*next) + "\n";
        }
        if (status.isRevoked()) {
            if (const ASN1::CrlReason* reason = status.get_revocationReason()) {
                text += "\tReason: " + ReasonName(*reason) + "\n";
            }
            text += "\tRevocation Time: " + TimeText(*status.get_revocationTime()) + "\n";
        }
        outcome.add(status.get_type());
    }
    for (const std::string& name : CValidationResult::FailureNames(result.get_failures())) {
        text += path + ": check failed: " + name + "\n";
        outcome.checkFailed();
    }
    return text;
}

// Seconds the checks can add to any time without overflow: up to a hundred years.
const CLI::Range kSeconds(std::int64_t{0}, std::int64_t{100ll * 366 * 24 * 3600});

} // namespace

void AddCheckOptions(CLI::App& command, CheckSettings& settings) {
    command.add_option("--responder", settings.responders,
                       "Certificates trusted to sign responses about any certificate (PEM or "
                       "DER); repeat for more");
    command.add_option("--CAfile", settings.candidates,
                       "Further certificates that may have signed the response (PEM); they "
                       "still need the issuer's authority");
    command.add_option("--skew", settings.skew, "Clock skew allowed, in seconds")
        ->check(kSeconds)
        ->capture_default_str();
    command
        .add_option("--max-age", settings.maxAge,
                    "How old, in seconds, a thisUpdate without nextUpdate may be")
        ->check(kSeconds);
    command.add_option("--at", settings.at,
                       "Check at this time instead of now: 2026-01-31T12:00:00Z or "
                       "20260131120000Z");
}

ResponseCheck::ResponseCheck(const AskedCertificates& asked, const CheckSettings& settings,
                             const CRequestMessage* request)
    : m_issuer(ReadCertificate(asked.issuer)) {
    for (const std::string& path : asked.certificates) {
        m_certificates.push_back(Certificate{path, ReadCertificate(path)});
    }
    CBlobList trusted;
    for (const std::string& path : settings.responders) {
        for (const CBlob& certificate : ReadCertificates(path)) {
            trusted.push_back(certificate);
        }
    }
    m_validator.put_trustedResponders(trusted.empty() ? nullptr : &trusted);
    if (!settings.candidates.empty()) {
        CBlobList candidates;
        for (const CBlob& certificate : ReadCertificates(settings.candidates)) {
            candidates.push_back(certificate);
        }
        m_validator.put_extraCertificates(&candidates);
    }
    if (!settings.at.empty()) {
        const std::optional<CDateTime> at = ParseTimeText(settings.at);
        if (!at) {
            FailUsage("--at: \"" + settings.at +
                      "\" is no time (2026-01-31T12:00:00Z or 20260131120000Z)");
        }
        m_validator.put_validationTime(&*at);
    }
    m_validator.put_clockSkew(std::chrono::seconds(settings.skew));
    if (settings.maxAge) {
        const std::chrono::seconds maxAge(*settings.maxAge);
        m_validator.put_maxAge(&maxAge);
    }
    m_validator.put_request(request);
}

int ResponseCheck::run(const std::string& source, const CBlob& der) const {
    const CBasicResponse basic = BasicResponseOf(source, der);
    Outcome outcome;
    std::string text;
    for (const Certificate& certificate : m_certificates) {
        CValidationResult result;
        try {
            result = m_validator.validate(basic, certificate.der, m_issuer);
        } catch (const ATL::CAtlException& e) {
            FailFile(certificate.path, std::string("cannot be checked: ") + e.what());
        }
        text += CertificateReport(certificate.path, result, outcome);
    }
    text += outcome.code() == kCheckFailed ? "Response verify FAILED\n" : "Response verify OK\n";
    std::fwrite(text.data(), 1, text.size(), stdout);
    return outcome.code();
}

} // namespace VelmorTool
