// Sets a CStringProxy from a text whose length is known, for the library's converters: one
// copy into the object's own storage, without measuring the text or building a temporary.
#ifndef VELMOR_SRC_FOUNDATION_STRING_PROXY_ACCESS_H
#define VELMOR_SRC_FOUNDATION_STRING_PROXY_ACCESS_H

#include <pki/ocsp/string_proxy.h>
#include <string_view>

namespace Velmor::Detail {

struct StringProxyAccess {
    // Replaces to's text with text (which holds no NUL); to is unchanged when that throws.
    static void Assign(CStringProxy& to, std::string_view text) {
        to.assign(text.data(), text.size());
    }
};

} // namespace Velmor::Detail

#endif
