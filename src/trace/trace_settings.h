// The loader that configures the library's trace from the registry when the library loads:
// key HKEY_LOCAL_MACHINE\SOFTWARE\Velmor\Trace, a value named after the library's file name
// (its trace setting) and "ProcessFlags" (bit 0: show function and category, bit 1: show
// file and line).
#ifndef VELMOR_SRC_TRACE_TRACE_SETTINGS_H
#define VELMOR_SRC_TRACE_TRACE_SETTINGS_H

#include <cstdint>
#include <string>

namespace Velmor::Trace {

// Applies the registry's trace settings to the library's module entry (moduleFileName) and to
// the process record. Returns 0, or the Win32 error that stopped it: the key's open error
// (2 when there is none), 13 for a setting of the wrong type or size, 126 when the facility
// has no entry named moduleFileName.
std::uint32_t LoadTraceSettings(const std::string& moduleFileName);

// The file name of the loaded library ("libvelmor-ocsp.so.1"), as found at load.
const std::string& ModuleFileName();
// True when the loader returned 0 at load.
bool TraceSettingsApplied();

} // namespace Velmor::Trace

#endif
