// The trace facility's records, its settings-file loader and its sink.
#include "trace/trace_facility.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>

namespace Velmor::Trace {

namespace Detail {
std::atomic<int> g_shownLevel{-1};
} // namespace Detail

namespace {

struct State {
    std::mutex lock;
    ProcessSettings process;
    std::vector<ModuleSettings> modules;
    std::optional<std::size_t> own;
    std::string* capture = nullptr;
};

State& Shared() {
    static State state;
    return state;
}

// Recomputes the level the library's events show at; the caller holds the lock.
void Refresh(State& state) {
    int shown = -1;
    if (state.own && *state.own < state.modules.size()) {
        const ModuleSettings& module = state.modules[*state.own];
        if (module.status == ModuleStatus::Enabled) {
            shown = static_cast<int>(module.level);
        } else if (module.status == ModuleStatus::Inherit && state.process.enabled) {
            shown = static_cast<int>(state.process.level);
        }
    }
    Detail::g_shownLevel.store(shown == 0 ? -1 : shown, std::memory_order_relaxed);
}

std::string_view Trim(std::string_view text) {
    const std::size_t start = text.find_first_not_of(" \t\r");
    if (start == text.npos) {
        return {};
    }
    return text.substr(start, text.find_last_not_of(" \t\r") - start + 1);
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(b[i])) {
            return false;
        }
    }
    return true;
}

std::optional<bool> ParseFlag(std::string_view text) {
    if (text == "1" || EqualsNoCase(text, "true") || EqualsNoCase(text, "yes")) {
        return true;
    }
    if (text == "0" || EqualsNoCase(text, "false") || EqualsNoCase(text, "no")) {
        return false;
    }
    return std::nullopt;
}

std::optional<unsigned> ParseLevel(std::string_view text) {
    if (text.size() == 1 && text[0] >= '0' && text[0] <= char('0' + kMaxLevel)) {
        return static_cast<unsigned>(text[0] - '0');
    }
    return std::nullopt;
}

std::optional<ModuleStatus> ParseStatus(std::string_view text) {
    if (EqualsNoCase(text, "Enabled")) {
        return ModuleStatus::Enabled;
    }
    if (EqualsNoCase(text, "Disabled")) {
        return ModuleStatus::Disabled;
    }
    if (EqualsNoCase(text, "Inherit")) {
        return ModuleStatus::Inherit;
    }
    return std::nullopt;
}

// The settings a file gives, before they are applied.
struct Settings {
    ProcessSettings process;
    std::vector<ModuleSettings> modules;
};

bool ApplyProcessKey(ProcessSettings& process, std::string_view key, std::string_view value) {
    if (EqualsNoCase(key, "Level")) {
        const auto level = ParseLevel(value);
        return level && (process.level = *level, true);
    }
    const auto flag = ParseFlag(value);
    if (!flag) {
        return false;
    }
    if (EqualsNoCase(key, "Enabled")) {
        process.enabled = *flag;
    } else if (EqualsNoCase(key, "ShowFunctionAndCategory")) {
        process.showFunctionAndCategory = *flag;
    } else if (EqualsNoCase(key, "ShowFileAndLine")) {
        process.showFileAndLine = *flag;
    } else {
        return false;
    }
    return true;
}

bool ApplyModuleKey(ModuleSettings& module, std::string_view key, std::string_view value) {
    if (EqualsNoCase(key, "Level")) {
        const auto level = ParseLevel(value);
        return level && (module.level = *level, true);
    }
    if (EqualsNoCase(key, "Status")) {
        const auto status = ParseStatus(value);
        return status && (module.status = *status, true);
    }
    if (EqualsNoCase(key, "Enabled")) { // a shorthand for Status
        const auto flag = ParseFlag(value);
        return flag &&
               (module.status = *flag ? ModuleStatus::Enabled : ModuleStatus::Disabled, true);
    }
    return false;
}

// Parses the INI text, starting from the current settings; nothing for a malformed file.
std::optional<Settings> Parse(std::string_view text, Settings settings) {
    enum class Section { None, Process, Module } section = Section::None;
    ModuleSettings* module = nullptr;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = Trim(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
        if (line.empty() || line[0] == ';' || line[0] == '#') {
            continue;
        }
        if (line.front() == '[') {
            if (line.back() != ']') {
                return std::nullopt;
            }
            const std::string_view name = Trim(line.substr(1, line.size() - 2));
            if (EqualsNoCase(name, "Process")) {
                section = Section::Process;
            } else if (name.size() > 7 && EqualsNoCase(name.substr(0, 7), "Module:")) {
                section = Section::Module;
                const std::string moduleName(Trim(name.substr(7)));
                module = nullptr;
                for (ModuleSettings& known : settings.modules) {
                    module = known.name == moduleName ? &known : module;
                }
                if (module == nullptr) {
                    settings.modules.push_back({moduleName, 0, ModuleStatus::Inherit});
                    module = &settings.modules.back();
                }
            } else {
                return std::nullopt;
            }
            continue;
        }
        const std::size_t equals = line.find('=');
        if (equals == line.npos || section == Section::None) {
            return std::nullopt;
        }
        const std::string_view key = Trim(line.substr(0, equals));
        const std::string_view value = Trim(line.substr(equals + 1));
        const bool applied = section == Section::Process
                                 ? ApplyProcessKey(settings.process, key, value)
                                 : ApplyModuleKey(*module, key, value);
        if (!applied) {
            return std::nullopt;
        }
    }
    return settings;
}

} // namespace

ProcessSettings GetProcessSettings() {
    State& state = Shared();
    std::lock_guard<std::mutex> guard(state.lock);
    return state.process;
}

void SetProcessSettings(const ProcessSettings& settings) {
    State& state = Shared();
    std::lock_guard<std::mutex> guard(state.lock);
    state.process = settings;
    state.process.level = std::min(state.process.level, kMaxLevel);
    Refresh(state);
}

std::vector<ModuleSettings> GetModules() {
    State& state = Shared();
    std::lock_guard<std::mutex> guard(state.lock);
    return state.modules;
}

std::size_t AddModule(const std::string& name) {
    State& state = Shared();
    std::lock_guard<std::mutex> guard(state.lock);
    for (std::size_t i = 0; i < state.modules.size(); ++i) {
        if (state.modules[i].name == name) {
            return i;
        }
    }
    state.modules.push_back({name, 0, ModuleStatus::Inherit});
    return state.modules.size() - 1;
}

void SetModule(std::size_t index, unsigned level, ModuleStatus status) {
    State& state = Shared();
    std::lock_guard<std::mutex> guard(state.lock);
    if (index < state.modules.size()) {
        state.modules[index].level = std::min(level, kMaxLevel);
        state.modules[index].status = status;
        Refresh(state);
    }
}

void SetOwnModule(std::size_t index) {
    State& state = Shared();
    std::lock_guard<std::mutex> guard(state.lock);
    state.own = index;
    Refresh(state);
}

bool ApplySettings(std::string_view text) {
    State& state = Shared();
    std::lock_guard<std::mutex> guard(state.lock);
    auto parsed = Parse(text, Settings{state.process, state.modules});
    if (!parsed) {
        return false;
    }
    state.process = parsed->process;
    state.modules = std::move(parsed->modules); // entries keep their order and indexes
    Refresh(state);
    return true;
}

bool LoadSettingsFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return ApplySettings(text);
}

void CaptureOutput(std::string* sink) {
    State& state = Shared();
    std::lock_guard<std::mutex> guard(state.lock);
    state.capture = sink;
}

void Write(unsigned level, const char* function, const char* category, const char* file, int line,
           std::string_view message) {
    if (!Enabled(level)) {
        return;
    }
    State& state = Shared();
    std::lock_guard<std::mutex> guard(state.lock);
    std::string text = "velmor-ocsp: ";
    if (state.process.showFileAndLine && file != nullptr) {
        const char* slash = std::strrchr(file, '/');
        text += slash != nullptr ? slash + 1 : file;
        text += ':' + std::to_string(line) + ": ";
    }
    if (state.process.showFunctionAndCategory && function != nullptr) {
        text += function;
        text += " [";
        text += category != nullptr ? category : "general";
        text += "]: ";
    }
    text += message;
    text += '\n';
    if (state.capture != nullptr) {
        *state.capture += text;
    } else {
        std::fwrite(text.data(), 1, text.size(), stderr);
    }
}

} // namespace Velmor::Trace
