// Crash reports, end to end: a child process loads a plug-in module built
// with a test-only trigger, installs a handler of its own like a host, and
// faults inside the plug-in (or inside itself). The report must exist and
// name the plug-in, the host's handler must still run, and a fault outside
// the plug-in must write nothing.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <unistd.h>
#endif

#include "VstHost.h"
#include "crash/MinidumpReader.h"

namespace velorum {
namespace {

namespace fs = std::filesystem;
using test::Minidump;
using test::MinidumpReader;

constexpr int kHostExit = 42;
constexpr const char* kHostMessage = "host handler ran";

#ifdef _WIN32
LONG WINAPI HostFilter(EXCEPTION_POINTERS*) {
  std::fputs("host handler ran\n", stderr);
  std::fflush(stderr);
  ExitProcess(kHostExit);
}
void InstallHostHandler() {
  SetUnhandledExceptionFilter(&HostFilter);
}
using TriggerFn = int (*)(int);
TriggerFn FindTrigger() {
  HMODULE m = LoadLibraryA(VELORUM_CRASH_MODULE);
  return m ? reinterpret_cast<TriggerFn>(reinterpret_cast<void*>(GetProcAddress(m, "VelorumCrashTrigger")))
           : nullptr;
}
void SetSettingsFolder(const std::string& f) {
  _putenv_s("VELORUM_SETTINGS_DIR", f.c_str());
}
#else
void HostHandler(int) {
  static const char kText[] = "host handler ran\n";
  [[maybe_unused]] const ssize_t n = write(2, kText, sizeof(kText) - 1);
  _exit(kHostExit);
}
void InstallHostHandler() {
  for (int s : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) std::signal(s, &HostHandler);
}
using TriggerFn = int (*)(int);
TriggerFn FindTrigger() {
  void* m = dlopen(VELORUM_CRASH_MODULE, RTLD_NOW | RTLD_NOLOAD);
  return m ? reinterpret_cast<TriggerFn>(dlsym(m, "VelorumCrashTrigger")) : nullptr;
}
void SetSettingsFolder(const std::string& f) {
  setenv("VELORUM_SETTINGS_DIR", f.c_str(), 1);
}
#endif

__attribute__((no_sanitize("undefined", "address"))) void HostFault() {
  static int* volatile nowhere = nullptr;
  *nowhere = 1;
}

// The child: a host with its own crash handler and a meter, then a fault.
void CrashChild(int kind) {
  InstallHostHandler();
  std::unique_ptr<harness::PluginModule> module = harness::PluginModule::Load(VELORUM_CRASH_MODULE);
  if (!module) std::exit(3);
  std::unique_ptr<harness::HostedPlugin> plug = harness::HostedPlugin::Create(*module);
  const TriggerFn trigger = FindTrigger();
  if (!plug || !trigger) std::exit(4);
  if (kind == 0) HostFault();  // the host's own fault
  trigger(kind);
  std::exit(5);
}

std::vector<fs::path> Reports(const fs::path& folder) {
  std::vector<fs::path> found;
  std::error_code ec;
  for (fs::directory_iterator it(folder / "Crash Reports", ec), end; !ec && it != end; it.increment(ec))
    if (it->path().extension() == ".dmp") found.push_back(it->path());
  return found;
}

class CrashReportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    for (char& ch : name)
      if (ch == '/') ch = '-';
    mFolder = fs::path(VELORUM_BINARY_DIR) / "test-settings" / "crash" / name;
    fs::remove_all(mFolder);
    fs::create_directories(mFolder);
    SetSettingsFolder(mFolder.string());
  }
  fs::path mFolder;
};

struct PluginFault {
  int kind;
  const char* name;
  uint32_t code;
  bool pcInPlugin;
};
const PluginFault kPluginFaults[] = {
#ifdef _WIN32
    {1, "AccessViolation", 0xC0000005u, true},
    {2, "IntegerDivisionByZero", 0xC0000094u, true},
    {3, "IllegalInstruction", 0xC000001Du, true},
#else
    {1, "NullWrite", SIGSEGV, true},
    {2, "IntegerDivisionByZero", SIGFPE, true},
    {3, "IllegalInstruction", SIGILL, true},
    {4, "Abort", SIGABRT, false},  // the faulting instruction is the C library's
#endif
};

// One death test per fault: the child re-runs the test body up to it.
class PluginFaultTest : public CrashReportTest, public ::testing::WithParamInterface<PluginFault> {};

TEST_P(PluginFaultTest, WritesAReportAndReachesTheHost) {
  const PluginFault& c = GetParam();
  EXPECT_EXIT(CrashChild(c.kind), ::testing::ExitedWithCode(kHostExit), kHostMessage);
  const std::vector<fs::path> reports = Reports(mFolder);
  ASSERT_EQ(reports.size(), 1u);
  const std::optional<Minidump> dump = MinidumpReader::Read(reports[0].string());
  ASSERT_TRUE(dump);
  EXPECT_EQ(dump->exceptionCode, c.code);
  const test::MinidumpModule* plugin = nullptr;
  for (const test::MinidumpModule& m : dump->modules)
    if (m.name.find("VelorumCrashTest") != std::string::npos) plugin = &m;
  ASSERT_NE(plugin, nullptr) << "the module list does not name the plug-in";
  const bool inPlugin =
      dump->exceptionAddress >= plugin->base && dump->exceptionAddress < plugin->base + plugin->size;
  EXPECT_EQ(inPlugin, c.pcInPlugin) << std::hex << dump->exceptionAddress;
#ifndef _WIN32
  EXPECT_EQ(dump->faultingThreadPc, dump->exceptionAddress);
#endif
#ifdef VELORUM_LLDB
  // A debugger of its own reads the report: the stop reason, and the stack
  // unwound from the plug-in's function into the host.
  if (c.kind == 1) {
    const std::string command = std::string(VELORUM_LLDB) + " --batch -o \"target create --core '" +
                                reports[0].string() + "'\" -o bt 2>/dev/null";
    std::string text;
    if (std::FILE* p = popen(command.c_str(), "r")) {
      for (int ch; (ch = std::fgetc(p)) != EOF;) text += char(ch);
      pclose(p);
    }
    EXPECT_NE(text.find("stop reason = signal SIGSEGV"), std::string::npos) << text;
    EXPECT_NE(text.find("VelorumCrashTest.so`VelorumCrashTrigger"), std::string::npos) << text;
    EXPECT_NE(text.find("CrashChild"), std::string::npos) << text;
  }
#endif
}

INSTANTIATE_TEST_SUITE_P(Faults, PluginFaultTest, ::testing::ValuesIn(kPluginFaults),
                         [](const ::testing::TestParamInfo<PluginFault>& p) { return p.param.name; });

TEST_F(CrashReportTest, FaultOutsideThePluginWritesNothing) {
  EXPECT_EXIT(CrashChild(0), ::testing::ExitedWithCode(kHostExit), kHostMessage);
  EXPECT_TRUE(Reports(mFolder).empty());
}

}  // namespace
}  // namespace velorum
