// The process-wide handle tables. They are never destroyed: a handle a caller never released
// must not be freed at exit after OpenSSL has already cleaned up.
#include "platform/crypt_objects.h"

namespace Velmor::Win32::Detail {

HandleTable<ProviderState>& ProviderHandles() noexcept {
    static auto* table = new HandleTable<ProviderState>(HandleKind::Provider);
    return *table;
}

HandleTable<HashState>& HashHandles() noexcept {
    static auto* table = new HandleTable<HashState>(HandleKind::Hash);
    return *table;
}

HandleTable<KeyState>& KeyHandles() noexcept {
    static auto* table = new HandleTable<KeyState>(HandleKind::Key);
    return *table;
}

} // namespace Velmor::Win32::Detail
