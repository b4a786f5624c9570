// The trace settings loader, and the static initializer that runs it once when the library
// is loaded.
#include "trace/trace_settings.h"

#include "platform/crypt_api.h"
#include "platform/registry.h"
#include "platform/wide_text.h"
#include "trace/trace_facility.h"

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <pki/ocsp/atl_exception.h>
#include <vector>

namespace Velmor::Trace {

using namespace Velmor::Win32;

namespace {

constexpr std::size_t kMaxPath = 260;
constexpr DWORD kShowFunctionAndCategory = 1;
constexpr DWORD kShowFileAndLine = 2;

std::string* g_moduleFileName = nullptr; // kept for the life of the process
bool g_applied = false;

// Closes an open registry key on every path.
class OpenKey {
  public:
    ~OpenKey() {
        if (m_key != nullptr) {
            RegCloseKey(m_key);
        }
    }
    HKEY* out() { return &m_key; }
    HKEY get() const { return m_key; }

  private:
    HKEY m_key = nullptr;
};

// The module's trace setting: none, or its text (without the terminating zero).
struct ModuleValue {
    bool present = false;
    std::wstring text;
};

DWORD ReadModuleValue(HKEY key, const std::wstring& name, ModuleValue& out) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    LSTATUS status = RegQueryValueExW(key, name.c_str(), nullptr, &type, nullptr, &size);
    if (status == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND)) {
        return ERROR_SUCCESS; // no value: the module is switched off
    }
    if (status != ERROR_SUCCESS) {
        return static_cast<DWORD>(status);
    }
    if (type != REG_SZ && type != REG_EXPAND_SZ) {
        return ERROR_INVALID_DATA;
    }
    std::vector<wchar_t> text(size / sizeof(wchar_t) + 1, L'\0');
    status = RegQueryValueExW(key, name.c_str(), nullptr, &type,
                              reinterpret_cast<BYTE*>(text.data()), &size);
    if (status != ERROR_SUCCESS) {
        return static_cast<DWORD>(status);
    }
    // Text is whole characters ending in a zero character, or nothing at all.
    const std::size_t count = size / sizeof(wchar_t);
    if (size % sizeof(wchar_t) != 0 || (size != 0 && text[count - 1] != L'\0')) {
        return ERROR_INVALID_DATA;
    }
    out.present = true;
    out.text.assign(text.data(), count == 0 ? 0 : count - 1);
    return ERROR_SUCCESS;
}

DWORD ReadProcessFlags(HKEY key, DWORD& flags) {
    flags = 0;
    DWORD size = 0;
    LSTATUS status = RegQueryValueExW(key, L"ProcessFlags", nullptr, nullptr, nullptr, &size);
    if (status == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND)) {
        return ERROR_SUCCESS;
    }
    if (status != ERROR_SUCCESS) {
        return static_cast<DWORD>(status);
    }
    if (size != sizeof(DWORD)) {
        return ERROR_INVALID_DATA;
    }
    status = RegQueryValueExW(key, L"ProcessFlags", nullptr, nullptr,
                              reinterpret_cast<BYTE*>(&flags), &size);
    return static_cast<DWORD>(status);
}

// Applies the module's setting to its entry.
void ApplyModuleValue(std::size_t entry, const ModuleValue& value) {
    if (!value.present) {
        SetModule(entry, 0, ModuleStatus::Disabled);
    } else if (value.text.empty()) {
        SetModule(entry, 3, ModuleStatus::Enabled);
    } else if (value.text.size() == 1 && value.text[0] >= L'0' && value.text[0] <= L'4') {
        SetModule(entry, static_cast<unsigned>(value.text[0] - L'0'), ModuleStatus::Enabled);
    } else {
        std::string path; // the text names a settings file
        if (Win32::Detail::WideToUtf8(value.text.c_str(), path)) {
            LoadSettingsFile(path);
        }
    }
}

// The file name of the shared object this code is part of, at most kMaxPath characters
// (E_INVALIDARG beyond).
std::string FindModuleFileName() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&FindModuleFileName), &info) == 0 ||
        info.dli_fname == nullptr) {
        ATL::AtlThrow(E_FAIL);
    }
    const std::string path = info.dli_fname;
    if (path.size() >= kMaxPath) {
        ATL::AtlThrow(E_INVALIDARG);
    }
    const std::size_t slash = path.rfind('/');
    return slash == path.npos ? path : path.substr(slash + 1);
}

// Runs the loader once at load, for the library's own module entry.
struct LoadAtStartup {
    LoadAtStartup() noexcept {
        try {
            g_moduleFileName = new std::string(FindModuleFileName());
            SetOwnModule(AddModule(*g_moduleFileName));
            g_applied = LoadTraceSettings(*g_moduleFileName) == 0;
        } catch (...) {
            g_applied = false; // the library works without its trace
        }
    }
} g_loadAtStartup;

} // namespace

std::uint32_t LoadTraceSettings(const std::string& moduleFileName) {
    OpenKey key;
    const LSTATUS opened =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Velmor\\Trace", 0, KEY_READ, key.out());
    if (opened != ERROR_SUCCESS) {
        return static_cast<std::uint32_t>(opened);
    }
    std::wstring valueName(moduleFileName.size(), L'\0'); // UTF-8 never has fewer bytes
    const int wideCount =
        moduleFileName.empty()
            ? 0
            : MultiByteToWideChar(CP_UTF8, 0, moduleFileName.data(),
                                  static_cast<int>(moduleFileName.size()), valueName.data(),
                                  static_cast<int>(valueName.size()));
    valueName.resize(static_cast<std::size_t>(wideCount));
    ModuleValue value;
    if (const DWORD error = ReadModuleValue(key.get(), valueName, value)) {
        return error;
    }
    DWORD flags = 0;
    if (const DWORD error = ReadProcessFlags(key.get(), flags)) {
        return error;
    }
    ProcessSettings process = GetProcessSettings();
    process.enabled = true;
    process.showFunctionAndCategory = (flags & kShowFunctionAndCategory) != 0;
    process.showFileAndLine = (flags & kShowFileAndLine) != 0;
    SetProcessSettings(process);

    const std::vector<ModuleSettings> modules = GetModules();
    for (std::size_t i = modules.size(); i-- > 0;) {
        if (modules[i].name == moduleFileName) {
            ApplyModuleValue(i, value);
            return ERROR_SUCCESS;
        }
    }
    return ERROR_MOD_NOT_FOUND;
}

const std::string& ModuleFileName() {
    static const std::string none;
    return g_moduleFileName != nullptr ? *g_moduleFileName : none;
}

bool TraceSettingsApplied() { return g_applied; }

} // namespace Velmor::Trace
