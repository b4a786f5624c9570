// The failure line of a public member: every public member of the library that can throw
// ATL::CAtlException runs its body through Trace::Guard, which writes one level-1 line when
// such an exception leaves it, naming the member and the HRESULT:
//
//     CBasicResponse::decode: CRYPT_E_ASN1_INTERNAL (0x80093101) at
//         tbsResponseData.responses[1].certStatus, offset 212: RTERR_IDNOTFOU: ...
//
// (one line). When a public member calls another one, only the outermost writes: a
// thread-local count of the guarded members running on the thread tells them apart. Whoever
// throws may attach a detail for that line with ThrowDetailed (the codec frame names the
// element and the input offset where a conversion stopped).
//
// Cost on the success path: the count's increment and decrement, two instructions on a
// thread-local word. The try block costs nothing until something throws, and the line is
// formatted out of line, only when level 1 shows.
#ifndef VELMOR_SRC_TRACE_TRACE_GUARD_H
#define VELMOR_SRC_TRACE_TRACE_GUARD_H

#include "trace/trace_facility.h"

#include <pki/ocsp/atl_exception.h>
#include <string>
#include <string_view>

namespace Velmor::Trace {

namespace Detail {

// Guarded public members running on this thread. Initial-exec and constinit make each
// access a single instruction on the thread pointer, with no initialisation check.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local unsigned t_membersRunning;

// Counts one guarded member for the life of the object.
class MemberScope {
  public:
    MemberScope() noexcept { ++t_membersRunning; }
    ~MemberScope() { --t_membersRunning; }
    MemberScope(const MemberScope&) = delete;
    MemberScope& operator=(const MemberScope&) = delete;

    // True when no other guarded member encloses this one.
    static bool Outermost() noexcept { return t_membersRunning == 1; }
};

// Writes the level-1 line of failure leaving member, with the detail attached to it by
// ThrowDetailed when it is that exception. Called from a catch handler.
[[gnu::cold]] void ReportFailure(const char* member, const ATL::CAtlException& failure) noexcept;

} // namespace Detail

// Runs body() as the public member named member ("CBasicResponse::decode", a literal) and
// returns what it returns. A CAtlException from it goes on unchanged, after the member's
// line is written (at level 1, by the outermost guarded member only).
template <class Body> decltype(auto) Guard(const char* member, Body&& body) {
    const Detail::MemberScope scope;
    try {
        return body();
    } catch (const ATL::CAtlException& failure) {
        if (Detail::MemberScope::Outermost() && Enabled(1)) {
            Detail::ReportFailure(member, failure);
        }
        throw;
    }
}

// Throws CAtlException(hr) out of the public member named member, through Guard: for a
// member whose only failure is a check of its arguments, which then guards only that throw
// and leaves its success path as it was.
[[noreturn, gnu::cold]] void ThrowFrom(const char* member, Win32::HRESULT hr);

// Writes "member: text" at level, when that level shows: an outcome of a public member that
// is no failure, such as a signature that does not match.
[[gnu::cold]] void ReportOutcome(unsigned level, const char* member, std::string_view text);

// Throws CAtlException(hr) with detail, which the line of the public member that it leaves
// ends with (detail starts with its own separator: " at ..." or ": ...").
[[noreturn]] void ThrowDetailed(Win32::HRESULT hr, std::string detail);

} // namespace Velmor::Trace

#endif
