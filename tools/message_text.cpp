#include "message_text.h"

#include <pki/ocsp/atl_exception.h>

namespace VelmorTool {

using namespace Velmor;
using namespace Velmor::PKI::OCSP;

std::string TimeText(const CDateTime& time) {
    std::string text;
    try {
        text = time.ToGeneralizedTime(true);
    } catch (const ATL::CAtlException&) {
        return std::to_string(time.seconds()) + " seconds after 1970";
    }
    // YYYYMMDDHHMMSS[.f]Z
    return text.substr(0, 4) + "-" + text.substr(4, 2) + "-" + text.substr(6, 2) + "T" +
           text.substr(8, 2) + ":" + text.substr(10, 2) + ":" + text.substr(12);
}

std::optional<CDateTime> ParseTimeText(const std::string& text) {
    std::string generalized = text;
    // YYYY-MM-DDTHH:MM:SS[.f]Z becomes YYYYMMDDHHMMSS[.f]Z; the parser checks the rest.
    if (text.size() >= 20 && text[4] == '-' && text[7] == '-' && text[10] == 'T' &&
        text[13] == ':' && text[16] == ':') {
        generalized = text.substr(0, 4) + text.substr(5, 2) + text.substr(8, 2) +
                      text.substr(11, 2) + text.substr(14, 2) + text.substr(17);
    }
    CDateTime time;
    if (!CDateTime::TryParseGeneralizedTime(generalized.c_str(), time)) {
        return std::nullopt;
    }
    return time;
}

const char* StatusName(ResponseStatus status) {
    switch (status) {
    case successful:
        return "successful";
    case malformedRequest:
        return "malformedRequest";
    case internalError:
        return "internalError";
    case tryLater:
        return "tryLater";
    case sigRequired:
        return "sigRequired";
    case unauthorized:
        return "unauthorized";
    }
    return nullptr;
}

std::string StatusText(ResponseStatus status) {
    const char* name = StatusName(status);
    return name != nullptr ? std::string(name) + " (" + std::to_string(status) + ")"
                           : std::to_string(status);
}

std::string ReasonName(ASN1::CrlReason reason) {
    static const char* const kNames[] = {
        "unspecified",   "keyCompromise",        "cACompromise",    "affiliationChanged",
        "superseded",    "cessationOfOperation", "certificateHold", nullptr,
        "removeFromCRL", "privilegeWithdrawn",   "aACompromise"};
    const auto value = static_cast<std::int32_t>(reason);
    if (value >= 0 && value <= 10 && kNames[value] != nullptr) {
        return kNames[value];
    }
    return "reason " + std::to_string(value);
}

} // namespace VelmorTool
