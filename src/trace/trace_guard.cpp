// The failure line of the public members, and the detail that a thrower attaches to it.
#include "trace/trace_guard.h"

#include <exception>
#include <utility>

namespace Velmor::Trace {

namespace Detail {
constinit thread_local unsigned t_membersRunning = 0;
} // namespace Detail

namespace {

// The detail ThrowDetailed attached, with the exception it belongs to. Holding the exception
// keeps it alive, so no later exception can take its address and be mistaken for it.
struct AttachedDetail {
    std::exception_ptr exception;
    std::string text;
};

AttachedDetail& Attached() {
    thread_local AttachedDetail attached;
    return attached;
}

} // namespace

void ThrowFrom(const char* member, Win32::HRESULT hr) {
    Guard(member, [hr] { ATL::AtlThrow(hr); });
    __builtin_unreachable(); // AtlThrow does not return
}

void ReportOutcome(unsigned level, const char* member, std::string_view text) {
    std::string line = member;
    line += ": ";
    line += text;
    Write(level, nullptr, nullptr, nullptr, 0, line);
}

void ThrowDetailed(Win32::HRESULT hr, std::string detail) {
    AttachedDetail& attached = Attached();
    attached.exception = std::make_exception_ptr(ATL::CAtlException(hr));
    attached.text = std::move(detail);
    std::rethrow_exception(attached.exception);
}

void Detail::ReportFailure(const char* member, const ATL::CAtlException& failure) noexcept {
    AttachedDetail& attached = Attached();
    try {
        std::string line = member;
        line += ": ";
        line += failure.what();
        if (attached.exception != nullptr && attached.exception == std::current_exception()) {
            line += attached.text;
        }
        // The line names the member in its text, so no function name or file is added.
        Write(1, nullptr, nullptr, nullptr, 0, line);
    } catch (...) {
        // A line that cannot be made (no memory for it) is left out; the failure goes on.
    }
    attached.exception = nullptr; // reported: the exception is free to go
    attached.text.clear();
}

} // namespace Velmor::Trace
