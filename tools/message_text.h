// How the program writes values of OCSP messages as text: times, response statuses and
// revocation reasons. show and the commands that check responses print them alike.
#ifndef VELMOR_TOOLS_MESSAGE_TEXT_H
#define VELMOR_TOOLS_MESSAGE_TEXT_H

#include <pki/ocsp/crl_reason.h>
#include <pki/ocsp/datetime.h>
#include <pki/ocsp/response_message.h>

#include <optional>
#include <string>

namespace VelmorTool {

// 2026-01-31T12:00:00Z, with the fraction of a second when there is one; a time whose year
// has no four digits as its count of seconds after 1970.
std::string TimeText(const Velmor::CDateTime& time);
// A time as TimeText writes it (fraction optional) or as a GeneralizedTime
// (20260131120000Z, or with an offset: 20260131130000+0100); null for anything else.
std::optional<Velmor::CDateTime> ParseTimeText(const std::string& text);

// "tryLater"; null for a value that is no status.
const char* StatusName(Velmor::PKI::OCSP::ResponseStatus status);
// "tryLater (3)", or the number alone for a value that is no status.
std::string StatusText(Velmor::PKI::OCSP::ResponseStatus status);

// The CRLReason's name ("keyCompromise"), or "reason N" for a value that has none.
std::string ReasonName(Velmor::ASN1::CrlReason reason);

} // namespace VelmorTool

#endif
