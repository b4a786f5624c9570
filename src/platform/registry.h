// The Windows registry as a read-only text file in the ".reg" format that regedit exports
// ("Windows Registry Editor Version 5.00"). The file is named by $VELMOR_REGISTRY, else
// /etc/velmor/registry.reg, and read once, on first use (the trace loader uses it while the
// library loads). A file that is missing, unreadable or malformed is an empty registry: every
// key is missing, nothing fails otherwise.
//
// Values keep their regedit types: "text" is REG_SZ; dword: REG_DWORD (4 bytes); hex: is
// REG_BINARY; hex(2): REG_EXPAND_SZ; hex(7): REG_MULTI_SZ; hex(b): REG_QWORD (8 bytes);
// hex(n): type n. Text values (REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ) are returned as wchar_t
// characters with their terminating zero, as RegQueryValueExW returns them; the hex forms of
// those types hold UTF-16LE in the file and are widened (an odd byte count is kept as given).
#ifndef VELMOR_SRC_PLATFORM_REGISTRY_H
#define VELMOR_SRC_PLATFORM_REGISTRY_H

#include <cstdint>
#include <map>
#include <optional>
#include <pki/ocsp/win32.h>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor::Win32 {

struct RegistryKeyHandle;
using HKEY = RegistryKeyHandle*;
using LSTATUS = std::int32_t;
using REGSAM = DWORD;

inline const HKEY HKEY_CLASSES_ROOT = reinterpret_cast<HKEY>(std::uintptr_t{0x80000000});
inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(std::uintptr_t{0x80000001});
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(std::uintptr_t{0x80000002});
inline const HKEY HKEY_USERS = reinterpret_cast<HKEY>(std::uintptr_t{0x80000003});

inline constexpr REGSAM KEY_READ = 0x20019;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;

inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_QWORD = 11;

// Opens subKey under root (a predefined key or an open one); ERROR_FILE_NOT_FOUND when the
// key is not in the registry. Key names compare without regard to ASCII case.
LSTATUS RegOpenKeyExW(HKEY root, const wchar_t* subKey, DWORD options, REGSAM desired,
                      HKEY* result);
// Reads the value valueName ("" or null: the key's default value "@"). type and size may be
// null. With data null, reports the size only. A buffer smaller than the value: size is set
// to the size needed and ERROR_MORE_DATA is returned. ERROR_FILE_NOT_FOUND for no value.
LSTATUS RegQueryValueExW(HKEY key, const wchar_t* valueName, DWORD* reserved, DWORD* type,
                         BYTE* data, DWORD* size);
LSTATUS RegCloseKey(HKEY key);

namespace Registry {

struct Value {
    DWORD type = REG_NONE;
    std::vector<BYTE> data; // as RegQueryValueExW returns it
};

// Keys by their full path in lower case ("hkey_local_machine\software\velmor\trace"),
// values by their name in lower case ("" for the default value).
using Contents = std::map<std::string, std::map<std::string, Value>>;

// Parses the bytes of a .reg file (UTF-8 with or without BOM, or UTF-16LE with BOM; CRLF or
// LF line ends). Nothing for a file that is not a registry export.
std::optional<Contents> Parse(std::string_view file);

// Replaces the contents every later call sees with the file at path (tests); the next call
// of the functions above otherwise loads the default file once.
void LoadFile(const std::string& path);

} // namespace Registry

} // namespace Velmor::Win32

#endif
