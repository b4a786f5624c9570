// The in-process trace facility: a process record (enabled, level, two display flags), one
// entry per module (name, level 0-4, status), a loader of settings files and a sink that
// writes one line per event to standard error. Every layer may trace; this header depends on
// nothing of the library.
//
// Nothing is written unless a setting turns tracing on, and then only what passes the
// filter: a module that is enabled, or that inherits from an enabled process, shows the
// events whose level is at most its own level (the process's level when it inherits).
// Until then a trace point costs one relaxed atomic load (see Enabled).
#ifndef VELMOR_SRC_TRACE_TRACE_FACILITY_H
#define VELMOR_SRC_TRACE_TRACE_FACILITY_H

#include <atomic>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor::Trace {

enum class ModuleStatus { Enabled = 1, Disabled = 2, Inherit = 3 };

struct ProcessSettings {
    bool enabled = false;
    unsigned level = 0;
    bool showFunctionAndCategory = false;
    bool showFileAndLine = false;
};

struct ModuleSettings {
    std::string name;
    unsigned level = 0;
    ModuleStatus status = ModuleStatus::Inherit;
};

// Levels: 0 none, 1 errors, 2 outcomes (a failed verification), 3 details, 4 every message.
inline constexpr unsigned kMaxLevel = 4;

// The process record.
ProcessSettings GetProcessSettings();
void SetProcessSettings(const ProcessSettings& settings);

// Module entries, in the order they were added.
std::vector<ModuleSettings> GetModules();
// Adds an entry (Inherit, level 0) unless one with that name exists; returns its index.
std::size_t AddModule(const std::string& name);
// Replaces the level and status of the entry at index (as GetModules lists them).
void SetModule(std::size_t index, unsigned level, ModuleStatus status);

// Applies a settings file (INI, see docs/trace.md) to the process record and to the entries
// its [Module:NAME] sections name (entries are added for names not yet known). False, with
// nothing applied, for a file that cannot be read or does not parse.
bool LoadSettingsFile(const std::string& path);
// The same, from the file's text.
bool ApplySettings(std::string_view text);

// The module whose events the library writes: set once at load to the library's entry.
void SetOwnModule(std::size_t index);

namespace Detail {
// The highest level the library's events show at, or -1 when none shows.
extern std::atomic<int> g_shownLevel;
} // namespace Detail

// True when an event of the library at level would be written.
inline bool Enabled(unsigned level) noexcept {
    return static_cast<int>(level) <= Detail::g_shownLevel.load(std::memory_order_relaxed);
}

// Writes one event line of the library at level (when Enabled), with the function name and
// category, and the file and line, when the process record asks for them.
void Write(unsigned level, const char* function, const char* category, const char* file, int line,
           std::string_view message);

// Where event lines go: standard error, or for tests a string (null restores stderr).
void CaptureOutput(std::string* sink);

} // namespace Velmor::Trace

#define VELMOR_TRACE(level, category, message)                                                     \
    do {                                                                                           \
        if (::Velmor::Trace::Enabled(level)) {                                                     \
            ::Velmor::Trace::Write(level, __func__, category, __FILE__, __LINE__, message);        \
        }                                                                                          \
    } while (false)

#endif
