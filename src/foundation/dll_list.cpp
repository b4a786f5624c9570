// The invalid-parameter handler through which list misuse is reported.
#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "foundation/dll_list_impl.h"

namespace Velmor {

namespace {

// Null stands for the default handler.
std::atomic<InvalidParameterHandler> g_handler{nullptr};

void DefaultHandler(const char* expression, const char* function, const char* file, unsigned line) {
    std::fprintf(stderr, "velmor-ocsp: invalid parameter in %s (%s:%u): %s\n", function, file, line,
                 expression);
}

} // namespace

InvalidParameterHandler SetInvalidParameterHandler(InvalidParameterHandler h) noexcept {
    return g_handler.exchange(h);
}

namespace detail {

void ReportInvalidParameter(const char* expression, const char* function, const char* file,
                            unsigned line) {
    InvalidParameterHandler handler = g_handler.load();
    (handler != nullptr ? handler : DefaultHandler)(expression, function, file, line);
    std::abort();
}

} // namespace detail

} // namespace Velmor
