// Provider contexts and the enumeration of installed providers and their algorithms.
#include "platform/crypt_keys.h"
#include "platform/crypt_objects.h"
#include "platform/wide_text.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace Velmor::Win32 {

using namespace Detail;

namespace {

constexpr DWORD kAcquireFlags = CRYPT_VERIFYCONTEXT | CRYPT_SILENT;

bool WantsVerifyContext(DWORD flags) noexcept {
    return (flags & CRYPT_VERIFYCONTEXT) == CRYPT_VERIFYCONTEXT;
}

// CRYPT_VERIFYCONTEXT is several bits, all or none of which must be set.
bool ValidAcquireFlags(DWORD flags) noexcept {
    const DWORD verifyBits = flags & CRYPT_VERIFYCONTEXT;
    return (flags & ~kAcquireFlags) == 0 && (verifyBits == 0 || verifyBits == CRYPT_VERIFYCONTEXT);
}

// The provider row that (providerName, providerType) opens, or null with the last error set.
const ProviderEntry* ResolveProvider(const wchar_t* providerName, DWORD providerType) {
    const ProviderTable& table = InstalledProviders();
    std::string converted;
    std::string_view name;
    if (providerName != nullptr) {
        if (!WideToUtf8(providerName, converted)) {
            Fail(NTE_KEYSET_NOT_DEF);
            return nullptr;
        }
        name = converted;
    } else {
        const ProviderTypeEntry* type = FindProviderType(table, providerType);
        if (type == nullptr || type->defaultProvider == nullptr) {
            Fail(NTE_PROV_TYPE_NOT_DEF);
            return nullptr;
        }
        name = type->defaultProvider;
    }
    const ProviderEntry* provider = FindProvider(table, name);
    if (provider == nullptr) {
        Fail(NTE_KEYSET_NOT_DEF);
        return nullptr;
    }
    if (provider->type != providerType) {
        Fail(NTE_PROV_TYPE_NO_MATCH);
        return nullptr;
    }
    if (provider->openError != 0) {
        Fail(provider->openError);
        return nullptr;
    }
    return provider;
}

// Loads the private key a container names into state; FALSE with NTE_BAD_KEYSET when it
// cannot be loaded or the provider does not implement its algorithm.
BOOL OpenContainer(ProviderState& state, const wchar_t* container) {
    std::string location;
    if (container == nullptr || !WideToUtf8(container, location)) {
        return Fail(NTE_BAD_KEYSET);
    }
    state.key = LoadPrivateKey(location);
    if (state.key == nullptr || !ProviderAcceptsKey(*state.entry, KeyAlgorithm(state.key.get()))) {
        return Fail(NTE_BAD_KEYSET);
    }
    return TRUE;
}

// One PP_ENUMALGS_EX record; names longer than their fields are cut short.
PROV_ENUMALGS_EX MakeAlgorithmRecord(const ProviderAlgorithm& algorithm) noexcept {
    PROV_ENUMALGS_EX record{};
    record.aiAlgid = algorithm.algId;
    record.dwDefaultLen = algorithm.defaultLength;
    record.dwMinLen = algorithm.minLength;
    record.dwMaxLen = algorithm.maxLength;
    record.dwProtocols = algorithm.protocols;
    const auto copyName = [](const char* name, char* field, std::size_t fieldSize) {
        const std::size_t length = std::min(std::strlen(name), fieldSize - 1);
        std::memcpy(field, name, length);
        return static_cast<DWORD>(length + 1);
    };
    record.dwNameLen = copyName(algorithm.name, record.szName, sizeof record.szName);
    record.dwLongNameLen =
        copyName(algorithm.longName, record.szLongName, sizeof record.szLongName);
    return record;
}

BOOL NextAlgorithm(ProviderState& state, BYTE* data, DWORD* dataSize, DWORD flags) {
    if ((flags & ~CRYPT_FIRST) != 0) {
        return Fail(NTE_BAD_FLAGS);
    }
    if (flags == CRYPT_FIRST) {
        state.nextAlgorithm = 0;
    }
    const std::size_t index = state.nextAlgorithm;
    const auto algorithms = state.entry->algorithms;
    if (index >= algorithms.size()) {
        return Fail(ERROR_NO_MORE_ITEMS);
    }
    const PROV_ENUMALGS_EX record = MakeAlgorithmRecord(algorithms[index]);
    const BOOL copied =
        CopyOut({reinterpret_cast<const BYTE*>(&record), sizeof record}, data, dataSize);
    if (copied && data != nullptr) {
        state.nextAlgorithm = index + 1;
    }
    return copied;
}

BOOL CopyOutText(const char* text, BYTE* out, DWORD* outSize) noexcept {
    return CopyOut({reinterpret_cast<const BYTE*>(text), std::strlen(text) + 1}, out, outSize);
}

// The entry at index of a provider-type or provider table, for the two enumeration
// functions, which share their argument rules.
template <class Entry, class NameOf>
BOOL EnumerateEntry(std::span<const Entry> entries, DWORD index, DWORD* reserved, DWORD flags,
                    DWORD* providerType, char* name, DWORD* nameSize, NameOf nameOf) {
    if (reserved != nullptr || flags != 0 || providerType == nullptr || nameSize == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (index >= entries.size()) {
        return Fail(ERROR_NO_MORE_ITEMS);
    }
    *providerType = entries[index].type;
    return CopyOutText(nameOf(entries[index]), reinterpret_cast<BYTE*>(name), nameSize);
}

} // namespace

BOOL CryptAcquireContextW(HCRYPTPROV* provider, const wchar_t* container,
                          const wchar_t* providerName, DWORD providerType, DWORD flags) {
    if (provider == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (!ValidAcquireFlags(flags) || (WantsVerifyContext(flags) && container != nullptr)) {
        return Fail(NTE_BAD_FLAGS);
    }
    const ProviderEntry* entry = ResolveProvider(providerName, providerType);
    if (entry == nullptr) {
        return FALSE;
    }
    auto state = std::make_shared<ProviderState>();
    state->entry = entry;
    if (!WantsVerifyContext(flags) && !OpenContainer(*state, container)) {
        return FALSE;
    }
    *provider = ProviderHandles().Add(std::move(state));
    return TRUE;
}

BOOL CryptContextAddRef(HCRYPTPROV provider, DWORD* reserved, DWORD flags) {
    if (reserved != nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (flags != 0) {
        return Fail(NTE_BAD_FLAGS);
    }
    return ProviderHandles().AddRef(provider) ? TRUE : Fail(NTE_BAD_UID);
}

BOOL CryptReleaseContext(HCRYPTPROV provider, DWORD flags) {
    if (flags != 0) {
        return Fail(NTE_BAD_FLAGS);
    }
    return ProviderHandles().Release(provider) ? TRUE : Fail(NTE_BAD_UID);
}

BOOL CryptEnumProviderTypesA(DWORD index, DWORD* reserved, DWORD flags, DWORD* providerType,
                             char* typeName, DWORD* typeNameSize) {
    return EnumerateEntry(InstalledProviders().types, index, reserved, flags, providerType,
                          typeName, typeNameSize,
                          [](const ProviderTypeEntry& entry) { return entry.typeName; });
}

BOOL CryptEnumProvidersA(DWORD index, DWORD* reserved, DWORD flags, DWORD* providerType,
                         char* providerName, DWORD* providerNameSize) {
    return EnumerateEntry(InstalledProviders().providers, index, reserved, flags, providerType,
                          providerName, providerNameSize,
                          [](const ProviderEntry& entry) { return entry.name; });
}

BOOL CryptGetProvParam(HCRYPTPROV provider, DWORD param, BYTE* data, DWORD* dataSize, DWORD flags) {
    const auto state = ProviderHandles().Find(provider);
    if (state == nullptr) {
        return Fail(NTE_BAD_UID);
    }
    if (param == PP_ENUMALGS_EX) {
        return NextAlgorithm(*state, data, dataSize, flags);
    }
    if (flags != 0) {
        return Fail(NTE_BAD_FLAGS);
    }
    switch (param) {
    case PP_NAME:
        return CopyOutText(state->entry->name, data, dataSize);
    case PP_PROVTYPE:
        return CopyOutDword(state->entry->type, data, dataSize);
    default:
        return Fail(NTE_BAD_TYPE);
    }
}

} // namespace Velmor::Win32
