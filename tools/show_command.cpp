// velmor-ocsp show: prints every field of a request or a response, as text or as JSON.
#include "algorithms.h"
#include "certificate.h"
#include "commands.h"
#include "exit_status.h"
#include "input.h"
#include "message_text.h"
#include "report.h"

#include <CLI/CLI.hpp>
#include <pki/ocsp/atl_exception.h>
#include <pki/ocsp/basic_response.h>
#include <pki/ocsp/ocsp_extensions.h>
#include <pki/ocsp/request_message.h>
#include <pki/ocsp/response_message.h>

#include <cstdio>
#include <memory>
#include <string>

namespace VelmorTool {

namespace {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

struct ShowOptions {
    std::string path;
    bool json = false;
};

std::string Named(const std::string& oid) {
    const char* name = OidName(oid);
    return name != nullptr ? std::string(name) + " (" + oid + ")" : oid;
}

std::string NameOrHex(const CBlob& der) {
    const auto name = NameText(der);
    return name ? *name : "not a Name: " + Hex(der);
}

Report Algorithm(const std::string& key, const std::string& label,
                 const ASN1::CAlgorithmIdentifier& algorithm) {
    const std::string oid = algorithm.get_algorithm();
    Report group = Report::Group(key, label, Named(oid));
    group.jsonText("algorithm", oid);
    if (const char* name = OidName(oid)) {
        group.jsonText("name", name);
    }
    if (!algorithm.get_parameters().empty()) {
        group.octets("parameters", "parameters", algorithm.get_parameters());
    }
    return group;
}

std::string GeneralNameText(const ASN1::CGeneralName& name) {
    using ASN1::CGeneralName;
    switch (name.get_choice()) {
    case CGeneralName::uniformResourceIdentifier:
        return std::string("URI:") + name.get_uniformResourceIdentifier();
    case CGeneralName::dNSName:
        return std::string("DNS:") + name.get_dNSName();
    case CGeneralName::rfc822Name:
        return std::string("email:") + name.get_rfc822Name();
    case CGeneralName::directoryName:
        return "DirName:" + NameOrHex(*name.get_directoryName());
    case CGeneralName::registeredID:
        return std::string("RID:") + name.get_registeredID();
    case CGeneralName::iPAddress: {
        const CBlob& address = *name.get_iPAddress();
        if (address.cbData() == 4) {
            return "IP:" + std::to_string(address.pbData()[0]) + "." +
                   std::to_string(address.pbData()[1]) + "." + std::to_string(address.pbData()[2]) +
                   "." + std::to_string(address.pbData()[3]);
        }
        return "IP:" + Hex(address);
    }
    case CGeneralName::none:
        return "none";
    default:
        return "othername:" + Hex(*name.get_other());
    }
}

// The fields of a CrlID: of the CRL reference and of the historical request.
void AddCrlReference(Report& item, const CExtCrlReference& crl) {
    if (crl.get_crlUrl() != nullptr) {
        item.text("crlUrl", "CRL URL", crl.get_crlUrl());
    }
    if (crl.get_crlNum() != nullptr) {
        item.number("crlNum", "CRL number", static_cast<std::int64_t>(*crl.get_crlNum()));
    }
    if (crl.get_crlTime() != nullptr) {
        item.text("crlTime", "CRL time", TimeText(*crl.get_crlTime()));
    }
}

Report& AddNames(Report& item, const std::string& key, const std::string& label,
                 const ASN1::CGeneralNames& names) {
    Report& list = item.list(key, label, label);
    for (const ASN1::CGeneralName& name : names) {
        list.text("", "", GeneralNameText(name));
    }
    return list;
}

// The named bits of a ReasonFlags mask (bit n is flag n), comma separated.
std::string ReasonFlagsText(unsigned mask) {
    static const char* const kNames[] = {
        "unused",      "keyCompromise",        "cACompromise",    "affiliationChanged",
        "superseded",  "cessationOfOperation", "certificateHold", "privilegeWithdrawn",
        "aACompromise"};
    std::string text;
    for (unsigned bit = 0; bit < 32; ++bit) {
        if ((mask & (1u << bit)) == 0) {
            continue;
        }
        text += text.empty() ? "" : ", ";
        text += bit < std::size(kNames) ? kNames[bit] : "bit " + std::to_string(bit);
    }
    return text.empty() ? "none" : text;
}

// The distribution points of a CRL locator: where the CRL is, for which reasons, from whom.
void AddDistributionPoints(Report& item, const ASN1::CCRLDistPointsSyntax& points) {
    Report& list = item.list("distributionPoints", "", "distribution point");
    for (const ASN1::CDistributionPoint& point : points) {
        Report group = Report::Group("", "");
        if (point.get_fullName() != nullptr) {
            AddNames(group, "fullName", "full name", *point.get_fullName());
        }
        if (point.get_nameRelativeToCRLIssuer() != nullptr) {
            group.octets("nameRelativeToCRLIssuer", "name relative to the CRL issuer",
                         *point.get_nameRelativeToCRLIssuer());
        }
        if (point.get_reasons() != nullptr) {
            group.text("reasons", "reasons", ReasonFlagsText(*point.get_reasons()));
        }
        if (point.get_cRLIssuer() != nullptr) {
            AddNames(group, "cRLIssuer", "CRL issuer", *point.get_cRLIssuer());
        }
        list.add(std::move(group));
    }
}

// The fields of a known extension's value; false when the value does not decode as one.
bool DecodeExtension(Report& item, const std::string& oid, const CBlob& value) {
    try {
        if (oid == kNonceOid) {
            // Peers wrap the nonce in an OCTET STRING of short form; show the octets inside.
            const bool wrapped = value.cbData() >= 2 && value.pbData()[0] == 0x04 &&
                                 value.pbData()[1] < 0x80 &&
                                 value.pbData()[1] + 2ul == value.cbData();
            item.octets("nonce", "nonce",
                        wrapped ? CBlob(value.pbData() + 2, value.cbData() - 2) : value);
            return true;
        }
        if (oid == kCrlIdOid) {
            AddCrlReference(item, CExtCrlID(value));
            return true;
        }
        if (oid == kHistoricalRequestOid) {
            AddCrlReference(item, CExtHistoricalRequest(value));
            return true;
        }
        if (oid == kCrlLocatorOid) {
            AddDistributionPoints(item, CExtCRLLocator(value).get_distributionPoints());
            return true;
        }
        if (oid == kArchiveCutoffOid) {
            item.text("archiveCutoff", "archive cutoff",
                      TimeText(CExtArchiveCutoff(value).get_archiveCutoff()));
            return true;
        }
        if (oid == kAcceptableResponsesOid) {
            const CExtAcceptableResponses accepted(value);
            Report& types = item.list("acceptableResponses", "", "response type");
            for (const CStringProxy& type : accepted.get_acceptableResponses()) {
                types.text("", "", type.c_str(), Named(type.c_str()));
            }
            return true;
        }
        if (oid == kServiceLocatorOid) {
            const CExtServiceLocator locator(value);
            item.text("issuer", "issuer", NameOrHex(locator.get_issuer()));
            if (locator.get_locator() != nullptr) {
                Report& places = item.list("locator", "", "locator");
                for (const ASN1::CAccessDescription& place : *locator.get_locator()) {
                    places.add(Report::Group("", "")
                                   .text("accessMethod", "access method", place.get_accessMethod(),
                                         Named(place.get_accessMethod()))
                                   .text("accessLocation", "access location",
                                         GeneralNameText(place.get_accessLocation())));
                }
            }
            return true;
        }
    } catch (const ATL::CAtlException&) {
        return false;
    }
    item.octets("value", "value", value);
    return true;
}

void AddExtensions(Report& report, const ASN1::CExtensions* extensions, const std::string& key,
                   const std::string& label) {
    if (extensions == nullptr) {
        return;
    }
    Report& list = report.list(key, label, label);
    for (const ASN1::CExtension& extension : *extensions) {
        const std::string oid = extension.get_extnID();
        Report item = Report::Group("", "", Named(oid));
        item.jsonText("extnID", oid);
        if (const char* name = OidName(oid)) {
            item.jsonText("name", name);
        }
        item.flag("critical", "critical", extension.get_critical());
        if (!DecodeExtension(item, oid, extension.get_extnValue())) {
            item.text("error", "error", "the value does not decode");
            item.octets("value", "value", extension.get_extnValue());
        }
        list.add(std::move(item));
    }
}

Report CertIdReport(const CCertID& id) {
    return Report::Group("certID", "certificate ID")
        .add(Algorithm("hashAlgorithm", "hash algorithm", id.get_hashAlgorithm()))
        .octets("issuerNameHash", "issuer name hash", id.get_issuerNameHash())
        .octets("issuerKeyHash", "issuer key hash", id.get_issuerKeyHash())
        .text("serialNumber", "serial number", id.get_serialNumber().ToHex());
}

Report CertificateReport(const std::string& key, const std::string& label, const CBlob& der) {
    Report group = Report::Group(key, label);
    const auto facts = ReadCertificateFacts(der);
    if (!facts) {
        group.text("error", "error", "not an X.509 certificate");
        group.octets("der", "DER", der);
        return group;
    }
    return group.text("subject", "subject", facts->subject)
        .text("issuer", "issuer", facts->issuer)
        .text("serialNumber", "serial number", facts->serialNumber)
        .text("notBefore", "not before", facts->notBefore)
        .text("notAfter", "not after", facts->notAfter);
}

void AddReqCert(Report& report, const CReqCert& reqCert) {
    if (const CCertID* id = reqCert.get_certID()) {
        report.add(CertIdReport(*id));
    } else if (const CBlob* certificate = reqCert.get_fullCert()) {
        const bool attribute = *reqCert.get_fullCertType() == CReqCert::attributeCertificate;
        if (attribute) {
            report.add(Report::Group("fullCertificate", "attribute certificate")
                           .octets("der", "DER", *certificate));
        } else {
            report.add(CertificateReport("fullCertificate", "certificate", *certificate));
        }
    } else if (const CCertIdWithSignature* id = reqCert.get_certIdWithSignature()) {
        report.add(
            Report::Group("certIdWithSignature", "certificate ID with signature")
                .text("issuer", "issuer", NameOrHex(id->get_issuer()))
                .text("serialNumber", "serial number", id->get_serialNumber().ToHex())
                .octets("tbsCertificateHash", "TBS certificate hash", id->get_tbsCertificateHash())
                .add(Algorithm("signatureAlgorithm", "signature algorithm",
                               id->get_signatureAlgorithm()))
                .octets("signatureValue", "signature value", id->get_signatureValue()));
    }
}

void AddSignature(Report& report, const ASN1::CAlgorithmIdentifier* algorithm,
                  const CBlob* signature, const CBlobList* certificates) {
    if (algorithm != nullptr) {
        report.add(Algorithm("signatureAlgorithm", "signature algorithm", *algorithm));
    }
    if (signature != nullptr) {
        report.octets("signature", "signature", *signature);
    }
    if (certificates != nullptr) {
        Report& list = report.list("certs", "certificates", "certificate");
        for (const CBlob& certificate : *certificates) {
            list.add(CertificateReport("", "", certificate));
        }
    }
}

Report RequestReport(const CRequestMessage& request) {
    Report report = Report::Group("", "OCSP request");
    report.jsonText("message", "request");
    report.number("version", "version", request.get_version() + 1);
    if (const CBlob* name = request.get_requestorName()) {
        report.text("requestorName", "requestor name", NameOrHex(*name));
    }
    Report& entries = report.list("requestList", "entries", "entry");
    for (const CSingleRequest& entry : request.get_requestList()) {
        Report item = Report::Group("", "");
        AddReqCert(item, entry.get_reqCert());
        AddExtensions(item, entry.get_singleRequestExtensions(), "singleRequestExtensions",
                      "extension");
        entries.add(std::move(item));
    }
    AddExtensions(report, request.get_requestExtensions(), "requestExtensions", "extension");
    AddSignature(report, request.get_signatureAlgorithm(), request.get_signature(),
                 request.get_signatureCerts());
    return report;
}

void AddStatus(Report& item, const CCertStatus& status) {
    if (status.isGood()) {
        item.text("certStatus", "status", "good");
    } else if (status.isRevoked()) {
        item.text("certStatus", "status", "revoked");
        item.text("revocationTime", "revocation time", TimeText(*status.get_revocationTime()));
        if (const ASN1::CrlReason* reason = status.get_revocationReason()) {
            item.text("revocationReason", "revocation reason", ReasonName(*reason));
        }
    } else {
        item.text("certStatus", "status", "unknown");
    }
}

void AddBasicResponse(Report& report, const CBasicResponse& basic) {
    report.number("version", "version", basic.get_version() + 1);
    const CResponderID& responder = basic.get_responderID();
    Report id = Report::Group("responderID", "responder ID");
    if (responder.get_type() == CResponderID::byKey) {
        id.octets("byKey", "by key", responder.get_value());
    } else {
        id.text("byName", "by name", NameOrHex(responder.get_value()));
    }
    report.add(std::move(id));
    report.text("producedAt", "produced at", TimeText(basic.get_producedAt()));
    Report& entries = report.list("responses", "entries", "entry");
    for (const CSingleResponse& entry : basic.get_responses()) {
        Report item = Report::Group("", "");
        AddReqCert(item, entry.get_reqCert());
        AddStatus(item, entry.get_certStatus());
        item.text("thisUpdate", "this update", TimeText(entry.get_thisUpdate()));
        if (const CDateTime* next = entry.get_nextUpdate()) {
            item.text("nextUpdate", "next update", TimeText(*next));
        }
        AddExtensions(item, entry.get_singleExtensions(), "singleExtensions", "extension");
        entries.add(std::move(item));
    }
    AddExtensions(report, basic.get_responseExtensions(), "responseExtensions", "extension");
    AddSignature(report, basic.get_signatureAlgorithm(), basic.get_signature(), basic.get_certs());
}

Report ResponseReport(const CResponseMessage& response, const std::string& path) {
    Report report = Report::Group("", "OCSP response");
    report.jsonText("message", "response");
    const ResponseStatus status = response.get_responseStatus();
    report.number("responseStatus", "status", status, StatusText(status));
    if (response.get_response() == nullptr) {
        return report;
    }
    const std::string type = response.get_responseType();
    report.text("responseType", "response type", type, Named(type));
    if (type != kBasicResponseOid) {
        report.octets("response", "response", *response.get_response());
        return report;
    }
    AddBasicResponse(report, DecodeBasicResponse(path, *response.get_response()));
    return report;
}

int Run(const ShowOptions& options) {
    const MessageFile file = ReadMessageFile(options.path, {"OCSP REQUEST", "OCSP RESPONSE"},
                                             "OCSP request or response");
    std::optional<Report> report;
    std::string failure;
    if (file.pemLabel != "OCSP REQUEST") {
        try {
            CResponseMessage response;
            response.decode(file.der);
            report = ResponseReport(response, options.path);
        } catch (const ATL::CAtlException& e) {
            failure = e.what();
        }
    }
    if (!report && file.pemLabel != "OCSP RESPONSE") {
        try {
            CRequestMessage request;
            request.decode(file.der);
            report = RequestReport(request);
        } catch (const ATL::CAtlException& e) {
            failure = e.what();
        }
    }
    if (!report) {
        const char* what = file.pemLabel == "OCSP REQUEST"    ? "an OCSP request"
                           : file.pemLabel == "OCSP RESPONSE" ? "an OCSP response"
                                                              : "an OCSP request or response";
        FailFile(options.path, std::string("is not ") + what + " (" + failure + ")");
    }
    const std::string text = options.json ? report->toJson() : report->toText();
    std::fwrite(text.data(), 1, text.size(), stdout);
    return kAllGood;
}

} // namespace

Command AddShowCommand(CLI::App& application) {
    auto options = std::make_shared<ShowOptions>();
    CLI::App* command = application.add_subcommand(
        "show", "Print every field of an OCSP request or response (DER, PEM or base64)");
    command->add_option("FILE", options->path, "The request or response (- for standard input)")
        ->required();
    command->add_flag("--json", options->json, "Print JSON instead of text");
    return Command{command, [options] { return Run(*options); }};
}

} // namespace VelmorTool
