// The .reg parser and the Reg* functions over a loaded file.
#include "platform/registry.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace Velmor::Win32;

std::vector<BYTE> Wide(const std::wstring& text) {
    std::vector<BYTE> bytes;
    for (wchar_t c : text + L'\0') {
        const auto* p = reinterpret_cast<const BYTE*>(&c);
        bytes.insert(bytes.end(), p, p + sizeof c);
    }
    return bytes;
}

const Registry::Value& ValueOf(const Registry::Contents& contents, const std::string& key,
                               const std::string& name) {
    return contents.at(key).at(name);
}

TEST(Registry, EveryValueFormKeepsItsTypeAndBytes) {
    const char* file = "Windows Registry Editor Version 5.00\r\n"
                       "\r\n"
                       "; a comment\r\n"
                       "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmor\\Trace]\r\n"
                       "\"Text\"=\"a \\\"quoted\\\" \\\\ path\"\r\n"
                       "@=\"default\"\r\n"
                       "\"Flags\"=dword:00000103\r\n"
                       "\"Bytes\"=hex:01,ff,\\\r\n"
                       "  7e\r\n"
                       "\"Expand\"=hex(2):25,00,41,00,00,00\r\n"
                       "\"Quad\"=hex(b):01,02,03,04,05,06,07,08\r\n"
                       "\"Odd\"=hex(2):31,00,32\r\n";
    const auto contents = Registry::Parse(file);
    ASSERT_TRUE(contents);
    const std::string key = "hkey_local_machine\\software\\velmor\\trace";
    EXPECT_EQ(ValueOf(*contents, key, "text").type, REG_SZ);
    EXPECT_EQ(ValueOf(*contents, key, "text").data, Wide(L"a \"quoted\" \\ path"));
    EXPECT_EQ(ValueOf(*contents, key, "").data, Wide(L"default"));
    EXPECT_EQ(ValueOf(*contents, key, "flags").type, REG_DWORD);
    EXPECT_EQ(ValueOf(*contents, key, "flags").data, (std::vector<BYTE>{0x03, 0x01, 0, 0}));
    EXPECT_EQ(ValueOf(*contents, key, "bytes").type, REG_BINARY);
    EXPECT_EQ(ValueOf(*contents, key, "bytes").data, (std::vector<BYTE>{0x01, 0xff, 0x7e}));
    EXPECT_EQ(ValueOf(*contents, key, "expand").type, REG_EXPAND_SZ);
    EXPECT_EQ(ValueOf(*contents, key, "expand").data, Wide(L"%A"));
    EXPECT_EQ(ValueOf(*contents, key, "quad").type, REG_QWORD);
    EXPECT_EQ(ValueOf(*contents, key, "quad").data.size(), 8u);
    // An odd count of UTF-16 octets cannot be widened and stays as written.
    EXPECT_EQ(ValueOf(*contents, key, "odd").data, (std::vector<BYTE>{0x31, 0x00, 0x32}));
}

TEST(Registry, Utf16FileWithBomAndLfLineEnds) {
    const std::u16string text =
        u"Windows Registry Editor Version 5.00\n[HKEY_USERS\\\u00c9t\u00e9]\n"
        u"\"Name\"=\"\u00e9\U0001F600\"\n";
    std::string file = "\xFF\xFE";
    for (char16_t unit : text) {
        file += static_cast<char>(unit & 0xFF);
        file += static_cast<char>(unit >> 8);
    }
    const auto contents = Registry::Parse(file);
    ASSERT_TRUE(contents);
    // Key names fold ASCII case only.
    EXPECT_EQ(ValueOf(*contents, "hkey_users\\\xc3\x89t\xc3\xa9", "name").data,
              Wide(L"\u00e9\U0001F600"));
}

TEST(Registry, MalformedFilesAreNoRegistry) {
    const char* bad[] = {
        "",
        "REGEDIT4\r\n[HKEY_USERS\\A]\r\n",
        "Windows Registry Editor Version 5.00\r\n[HKEY_USERS\\A\r\n",
        "Windows Registry Editor Version 5.00\r\n[HKEY_USERS\\A]\r\n\"x\"=dword:123\r\n",
        "Windows Registry Editor Version 5.00\r\n[HKEY_USERS\\A]\r\n\"x\"=hex:0g\r\n",
        "Windows Registry Editor Version 5.00\r\n[HKEY_USERS\\A]\r\n\"x\"=hex:01,\r\n",
        "Windows Registry Editor Version 5.00\r\n[HKEY_USERS\\A]\r\n\"x=\"y\"\r\n",
        "Windows Registry Editor Version 5.00\r\n[HKEY_USERS\\A]\r\nx=\"y\"\r\n",
        "\xFF\xFEW",                                     // odd UTF-16 length
        "Windows Registry Editor Version 5.00\r\n\xC3(", // invalid UTF-8
    };
    for (const char* file : bad) {
        EXPECT_FALSE(Registry::Parse(std::string_view(file, std::strlen(file)))) << file;
    }
}

TEST(Registry, QueriesFollowTheWindowsConventions) {
    const std::string path = testing::TempDir() + "velmor-registry-test.reg";
    std::ofstream(path) << "Windows Registry Editor Version 5.00\n"
                           "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmor\\Trace]\n"
                           "\"Level\"=\"12\"\n";
    Registry::LoadFile(path);
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"software\\VELMOR\\trace", 0, KEY_READ, &key), 0);
    DWORD type = 0;
    DWORD size = 0;
    EXPECT_EQ(RegQueryValueExW(key, L"level", nullptr, &type, nullptr, &size), 0);
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(size, 3 * sizeof(wchar_t));
    wchar_t small[2] = {};
    DWORD smallSize = sizeof small;
    EXPECT_EQ(RegQueryValueExW(key, L"Level", nullptr, nullptr, reinterpret_cast<BYTE*>(small),
                               &smallSize),
              static_cast<LSTATUS>(ERROR_MORE_DATA));
    EXPECT_EQ(smallSize, 3 * sizeof(wchar_t));
    wchar_t text[3] = {};
    DWORD textSize = sizeof text;
    EXPECT_EQ(
        RegQueryValueExW(key, L"Level", nullptr, nullptr, reinterpret_cast<BYTE*>(text), &textSize),
        0);
    EXPECT_EQ(std::wstring(text), L"12");
    EXPECT_EQ(RegQueryValueExW(key, L"Missing", nullptr, nullptr, nullptr, &size),
              static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(RegCloseKey(key), 0);
    HKEY missing = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Other", 0, KEY_READ, &missing),
              static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(missing, nullptr);
    std::remove(path.c_str());
    Registry::LoadFile(path); // now missing: every key is
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Velmor\\Trace", 0, KEY_READ, &key),
              static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND));
}

} // namespace
