// The registry loader of the trace settings, the settings file and the filter, in process.
#include "platform/registry.h"
#include "trace/trace_facility.h"
#include "trace/trace_settings.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace Velmor;
using namespace Velmor::Trace;

const char* const kModule = "libtrace-test.so.1";

class TraceSettingsTest : public testing::Test {
  protected:
    void SetUp() override {
        SetProcessSettings(ProcessSettings{});
        m_entry = AddModule(kModule);
        SetModule(m_entry, 1, ModuleStatus::Inherit);
        SetOwnModule(m_entry);
    }
    void TearDown() override {
        std::remove(m_path.c_str());
        Win32::Registry::LoadFile(m_path); // no file: an empty registry for later tests
    }

    // Loads a registry whose Trace key holds the given value lines.
    void Registry(const std::string& values, bool withKey = true) {
        std::ofstream(m_path) << "Windows Registry Editor Version 5.00\n"
                              << (withKey ? "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmor\\Trace]\n"
                                          : "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\n")
                              << values;
        Win32::Registry::LoadFile(m_path);
    }
    ModuleSettings Entry() const { return GetModules().at(m_entry); }

    std::size_t m_entry = 0;
    // One file per test: ctest runs the tests of this fixture in parallel processes.
    std::string m_path = testing::TempDir() + "velmor-trace-" +
                         testing::UnitTest::GetInstance()->current_test_info()->name() + ".reg";
};

TEST_F(TraceSettingsTest, NoKeyChangesNothing) {
    Registry("", false);
    EXPECT_EQ(LoadTraceSettings(kModule), 2u);
    EXPECT_FALSE(GetProcessSettings().enabled);
    EXPECT_EQ(Entry().status, ModuleStatus::Inherit);
    EXPECT_FALSE(Enabled(1));
}

TEST_F(TraceSettingsTest, NoModuleValueDisablesTheModuleButAppliesTheFlags) {
    Registry("\"ProcessFlags\"=dword:00000003\n");
    EXPECT_EQ(LoadTraceSettings(kModule), 0u);
    const ProcessSettings process = GetProcessSettings();
    EXPECT_TRUE(process.enabled);
    EXPECT_TRUE(process.showFunctionAndCategory);
    EXPECT_TRUE(process.showFileAndLine);
    EXPECT_EQ(Entry().level, 0u);
    EXPECT_EQ(Entry().status, ModuleStatus::Disabled);
    EXPECT_FALSE(Enabled(1));
}

TEST_F(TraceSettingsTest, LevelsFromTheModuleValue) {
    Registry(std::string("\"") + kModule + "\"=\"2\"\n");
    EXPECT_EQ(LoadTraceSettings(kModule), 0u);
    EXPECT_EQ(Entry().level, 2u);
    EXPECT_EQ(Entry().status, ModuleStatus::Enabled);
    EXPECT_TRUE(Enabled(2));
    EXPECT_FALSE(Enabled(3));
    EXPECT_FALSE(GetProcessSettings().showFileAndLine);

    Registry(std::string("\"") + kModule + "\"=\"\"\n");
    EXPECT_EQ(LoadTraceSettings(kModule), 0u);
    EXPECT_EQ(Entry().level, 3u);
    EXPECT_EQ(Entry().status, ModuleStatus::Enabled);
}

TEST_F(TraceSettingsTest, OtherTextNamesASettingsFile) {
    const std::string settings = testing::TempDir() + "7";
    std::ofstream(settings) << "; library trace\n[Process]\nEnabled=1\nLevel=1\n"
                               "ShowFileAndLine=true\n[Module:"
                            << kModule << "]\nLevel=4\nStatus=Enabled\n";
    Registry(std::string("\"") + kModule + "\"=\"" + settings + "\"\n");
    EXPECT_EQ(LoadTraceSettings(kModule), 0u);
    EXPECT_EQ(Entry().level, 4u);
    EXPECT_EQ(Entry().status, ModuleStatus::Enabled);
    EXPECT_TRUE(GetProcessSettings().showFileAndLine);
    EXPECT_TRUE(Enabled(4));
    std::remove(settings.c_str());

    // "7" is one character outside 0-4: a (missing) file, which changes nothing more.
    Registry(std::string("\"") + kModule + "\"=\"7\"\n");
    EXPECT_EQ(LoadTraceSettings(kModule), 0u);
    EXPECT_EQ(Entry().level, 4u);
}

TEST_F(TraceSettingsTest, WrongTypesAndSizesStopBeforeTheRecordChanges) {
    const std::string module = std::string("\"") + kModule + "\"";
    const std::string cases[] = {
        "\"ProcessFlags\"=hex(b):01,00,00,00,00,00,00,00\n", // 8 bytes
        module + "=dword:00000002\n",                        // not text
        module + "=hex(2):32,00,33\n",                       // odd size
        module + "=hex(2):32,00\n",                          // no terminating zero
    };
    for (const std::string& values : cases) {
        Registry(values);
        EXPECT_EQ(LoadTraceSettings(kModule), 13u) << values;
        EXPECT_FALSE(GetProcessSettings().enabled) << values;
        EXPECT_EQ(Entry().status, ModuleStatus::Inherit) << values;
    }
}

TEST_F(TraceSettingsTest, AModuleWithoutEntryIsNotFound) {
    Registry("\"libother.so\"=\"4\"\n");
    EXPECT_EQ(LoadTraceSettings("libother.so"), 126u);
    EXPECT_TRUE(GetProcessSettings().enabled); // applied before the entries are searched
}

TEST_F(TraceSettingsTest, LinesShowTheRequestedParts) {
    std::string captured;
    CaptureOutput(&captured);
    SetModule(m_entry, 2, ModuleStatus::Enabled);
    SetProcessSettings(ProcessSettings{true, 0, true, true});
    VELMOR_TRACE(2, "test", "shown");
    VELMOR_TRACE(3, "test", "hidden");
    CaptureOutput(nullptr);
    EXPECT_NE(captured.find("trace_settings_test.cpp:"), std::string::npos) << captured;
    EXPECT_NE(captured.find("TestBody [test]: shown\n"), std::string::npos) << captured;
    EXPECT_EQ(captured.find("hidden"), std::string::npos);
}

TEST_F(TraceSettingsTest, MalformedSettingsFilesApplyNothing) {
    const std::size_t modules = GetModules().size();
    const char* bad[] = {"Level=2\n", "[Process]\nLevel=5\n", "[Proc]\n", "[Process]\nBogus=1\n",
                         "[Module:x]\nStatus=Sometimes\n"};
    for (const char* text : bad) {
        EXPECT_FALSE(ApplySettings(text)) << text;
    }
    EXPECT_EQ(GetModules().size(), modules); // the [Module:x] of a refused file is not added
}

} // namespace
