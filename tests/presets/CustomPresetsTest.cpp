#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "presets/CustomPresets.h"
#include "presets/GlobalSettings.h"
#include "presets/LoudnessStandards.h"

namespace velorum {
namespace {

namespace fs = std::filesystem;
using Writes = std::vector<std::pair<int, double>>;

std::string FreshFolder(const std::string& name) {
  const fs::path dir = fs::path(VELORUM_BINARY_DIR) / "presets-test" / name;
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir.string();
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

// A parameter store that remembers the order of the writes.
struct Params {
  std::map<int, double> values;
  Writes writes;
  std::function<void(int, double)> Writer() {
    return [this](int p, double v) {
      values[p] = v;
      writes.emplace_back(p, v);
    };
  }
  std::function<double(int)> Reader() {
    return [this](int p) { return values.count(p) ? values.at(p) : 0.0; };
  }
};

std::vector<std::string> Names(const std::vector<CustomPresetEntry>& list) {
  std::vector<std::string> names;
  for (const auto& e : list) names.push_back(e.preset.name);
  return names;
}

// Saving the settings of each built-in row and choosing the saved preset
// writes exactly what the row itself writes, in the same order.
TEST(CustomPresets, EveryBuiltInRowSurvivesSaveListApply) {
  const std::string folder = FreshFolder("round-trip");
  const CustomPresetStore store(folder);
  std::map<std::string, Writes> expected;
  for (const LoudnessStandard& s : LoudnessStandards()) {
    Params built;
    ASSERT_EQ(ApplyStandard(s.index, built.Writer()), ApplyResult::kApplied);
    const std::string name = "Row " + std::to_string(s.index);
    std::string message;
    ASSERT_TRUE(store.Save(CaptureCustomPreset(name, built.Reader()), false, message)) << message;
    expected[name] = built.writes;
  }
  const std::vector<CustomPresetEntry> list = store.List();
  ASSERT_EQ(list.size(), LoudnessStandards().size());
  // Sorted by name: "Row 0", "Row 1", "Row 10", ...
  std::vector<std::string> sorted = Names(list);
  EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end()));
  for (const CustomPresetEntry& e : list) {
    Params applied;
    ApplyCustomPreset(e.preset, applied.Writer());
    EXPECT_EQ(applied.writes, expected.at(e.preset.name)) << e.preset.name;
    EXPECT_EQ(fs::path(e.path).filename().string(), e.preset.name + ".qrxpreset");
  }
  // Index 500 + position finds the same preset again.
  EXPECT_EQ(store.AtIndex(kFirstCustomPresetIndex + 2)->preset.name, sorted[2]);
  EXPECT_EQ(store.IndexOf(sorted[2]), kFirstCustomPresetIndex + 2);
  EXPECT_FALSE(store.AtIndex(kFirstCustomPresetIndex + int(list.size())));
  EXPECT_FALSE(store.AtIndex(7));
}

TEST(CustomPresets, ValuesBetweenTheStepsAndUnicodeNamesRoundTrip) {
  CustomPreset p;
  p.name = "Trailer mix ÄÖ 日本 – v2";
  p.target = -31;
  p.upper = -29;
  p.lower = -33;
  p.truePeakMax = -0.1;
  p.relativeGateLU = -100;
  p.lkfs = true;
  p.gateMode = 2;
  p.maximum = -17.3;
  p.p77 = 70;
  p.rangeUpper = -70;
  p.rangeLower = 30;
  p.dialTarget = -26.9;
  p.percent = 15.5;
  CustomPreset back;
  std::string message;
  ASSERT_TRUE(ParseCustomPreset(FormatCustomPreset(p), back, message)) << message;
  EXPECT_EQ(back, p);
  // Windows line ends, a byte-order mark, comments, other case, unknown keys.
  const std::string edited =
      "\xEF\xBB\xBF; exported\r\n[PRESET]\r\nNAME = Edited\r\nversion=20506\r\ntarget=-24\r\n"
      "upper=-24\r\nlower=-70\r\nTrue Peak Max=-2\r\nrelative gate=-8\r\nunit=lkfs\r\n"
      "gate mode=1\r\nmaximum=30\r\nparam 77=16\r\nrange upper=-24\r\nrange lower=-70\r\n"
      "dialogue target=30\r\nparam 42=100\r\nfuture key=whatever\r\n";
  ASSERT_TRUE(ParseCustomPreset(edited, back, message)) << message;
  EXPECT_EQ(back.name, "Edited");
  EXPECT_EQ(back.relativeGateLU, -8);
  EXPECT_TRUE(back.lkfs);
  Params applied;
  ApplyCustomPreset(back, applied.Writer());
  EXPECT_EQ(applied.values[96], RelativeGateChoiceIndex(-8));
  EXPECT_EQ(applied.values[15], 1.0);
}

// Files that are not presets, or presets with values no parameter can take,
// are refused with a message naming the fault, and never listed or imported.
TEST(CustomPresets, HostileFilesAreRefusedWithAReason) {
  CustomPreset good;
  good.name = "Good";
  const std::string base = FormatCustomPreset(good);
  auto with = [&](const std::string& key, const std::string& value) {
    std::string text = base;
    const size_t at = text.find("\n" + key + "=");
    EXPECT_NE(at, std::string::npos) << key;
    const size_t end = text.find('\n', at + 1);
    return text.replace(at + 1, end - at - 1, key + "=" + value);
  };
  auto without = [&](const std::string& key) {
    std::string text = base;
    const size_t at = text.find("\n" + key + "=");
    return text.erase(at + 1, text.find('\n', at + 1) - at);
  };
  std::string junk;
  for (int i = 0; i < 4000; ++i) junk += static_cast<char>((i * 7919 + 13) & 0xFF);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {junk, "not a preset"},
      {"", "[preset]"},
      {std::string("[preset]\nname=Bad\xC0\xAF\n"), "UTF-8"},
      {base + std::string("\x00\x01", 2), "binary"},
      {"name=Good\n" + base, "[preset]"},
      {base + "[other]\n", "unexpected section"},
      {base + "just words\n", "without a value"},
      {with("target", "nan"), "\"target\""},
      {with("true peak max", "inf"), "\"true peak max\""},
      {with("maximum", "1e400"), "\"maximum\""},
      {with("upper", "31"), "from -70 to 30"},
      {with("target", "-23.5"), "whole number"},
      {with("relative gate", "-9"), "-10, -8 or -100"},
      {with("gate mode", "3"), "\"gate mode\""},
      {with("param 42", "-0.1"), "\"param 42\""},
      {with("param 77", "0x10"), "\"param 77\""},
      {with("unit", "dB"), "LUFS or LKFS"},
      {with("version", "abc"), "version"},
      {without("dialogue target"), "no \"dialogue target\""},
      {without("name"), "no \"name\""},
      {base + "lower=-70\n", "twice"},
      {with("name", "../../evil"), "cannot contain"},
      {with("name", "C:\\Windows\\x"), "cannot contain"},
      {with("name", ""), "needs a name"},
      {with("name", "CON"), "reserved"},
      {with("name", "lpt1.txt"), "reserved"},
      {with("name", std::string(65, 'x')), "longer than 64"},
      {with("name", ".hidden"), "begin or end"},
      {with("name", "ebu r128"), "built-in"},
  };
  const std::string folder = FreshFolder("hostile");
  const CustomPresetStore store(folder);
  std::string message;
  ASSERT_TRUE(store.Save(good, false, message)) << message;
  int n = 0;
  for (const auto& [text, reason] : cases) {
    CustomPreset p;
    EXPECT_FALSE(ParseCustomPreset(text, p, message)) << text.substr(0, 80);
    EXPECT_NE(message.find(reason), std::string::npos) << "got: " << message << " want: " << reason;
    const std::string path = store.Folder() + "/hostile" + std::to_string(n++) + ".qrxpreset";
    WriteFile(path, text);
    CustomPreset imported;
    EXPECT_FALSE(store.Import(path, imported, message)) << reason;
  }
  // A file far larger than any preset is not even read.
  const std::string huge = store.Folder() + "/huge.qrxpreset";
  WriteFile(huge, base + std::string(kMaxCustomPresetFileBytes, ';'));
  CustomPreset p;
  EXPECT_FALSE(ReadCustomPresetFile(huge, p, message));
  EXPECT_NE(message.find("too large"), std::string::npos) << message;
  EXPECT_FALSE(ReadCustomPresetFile(store.Folder(), p, message));
  EXPECT_FALSE(ReadCustomPresetFile(store.Folder() + "/missing.qrxpreset", p, message));
  // Of all those files only the good preset is listed, and nothing was written.
  EXPECT_EQ(Names(store.List()), std::vector<std::string>{"Good"});
  EXPECT_FALSE(fs::exists(fs::path(folder) / "evil.qrxpreset"));
  EXPECT_FALSE(fs::exists(fs::path(folder).parent_path() / "evil.qrxpreset"));
}

TEST(CustomPresets, OneNameOnePresetIgnoringCase) {
  const std::string folder = FreshFolder("names");
  const CustomPresetStore store(folder);
  CustomPreset loud;
  loud.name = "Loud";
  std::string message;
  ASSERT_TRUE(store.Save(loud, false, message)) << message;
  // The same name in another case is the same preset: refused unless replacing.
  CustomPreset upper = loud;
  upper.name = "LOUD";
  upper.target = -14;
  EXPECT_FALSE(store.Save(upper, false, message));
  EXPECT_NE(message.find("already exists"), std::string::npos) << message;
  ASSERT_TRUE(store.Save(upper, true, message)) << message;
  ASSERT_EQ(store.List().size(), 1u);
  EXPECT_EQ(store.List()[0].preset, upper);
  // A copy under another file name that claims the same name is left out.
  CustomPreset copy = loud;
  copy.name = "loud";
  WriteFile(store.Folder() + "/copy of loud.qrxpreset", FormatCustomPreset(copy));
  ASSERT_EQ(store.List().size(), 1u);
  EXPECT_EQ(store.List()[0].preset.name, "LOUD");
  // Importing it is refused as a duplicate; deleting removes the preset.
  CustomPreset imported;
  EXPECT_FALSE(store.Import(store.Folder() + "/copy of loud.qrxpreset", imported, message));
  EXPECT_NE(message.find("already exists"), std::string::npos) << message;
  EXPECT_TRUE(store.Remove("loud", message)) << message;
  EXPECT_EQ(Names(store.List()), std::vector<std::string>{"loud"});  // the copy comes forward
  EXPECT_TRUE(store.Remove("LOUD", message));
  EXPECT_TRUE(store.List().empty());
  EXPECT_FALSE(store.Remove("LOUD", message));
  EXPECT_NE(message.find("no preset"), std::string::npos) << message;
}

TEST(CustomPresets, AtMostFiveHundred) {
  const std::string folder = FreshFolder("many");
  const CustomPresetStore store(folder);
  fs::create_directories(fs::u8path(store.Folder()));
  for (int i = 0; i < 501; ++i) {
    CustomPreset p;
    char name[16];
    std::snprintf(name, sizeof name, "P%03d", i);
    p.name = name;
    WriteFile(store.Folder() + "/" + p.name + ".qrxpreset", FormatCustomPreset(p));
  }
  const std::vector<CustomPresetEntry> list = store.List();
  ASSERT_EQ(list.size(), kMaxCustomPresets);
  EXPECT_EQ(list.front().preset.name, "P000");
  EXPECT_EQ(list.back().preset.name, "P499");
  EXPECT_EQ(store.IndexOf("P499"), kLastCustomPresetIndex);
  CustomPreset extra;
  extra.name = "Extra";
  std::string message;
  EXPECT_FALSE(store.Save(extra, false, message));
  EXPECT_NE(message.find("500"), std::string::npos) << message;
  // Replacing a listed preset is still allowed.
  CustomPreset first = list.front().preset;
  first.target = -16;
  EXPECT_TRUE(store.Save(first, true, message)) << message;
}

TEST(GlobalSettings, KeysOfOthersSurviveAndHostileValuesAreIgnored) {
  const std::string folder = FreshFolder("settings");
  WriteFile(folder + "/Settings.ini", "[ui]\nTheme=0\nExport Folder=/tmp/x = y\n");
  ASSERT_TRUE(WriteDefaultPreset(folder, {7, ""}));
  SettingsFile file(folder);
  EXPECT_EQ(file.Get("Theme"), "0");
  EXPECT_EQ(file.Get("Export Folder"), "/tmp/x = y");
  EXPECT_EQ(ReadDefaultPreset(folder)->index, 7);
  ASSERT_TRUE(WriteDefaultPreset(folder, {503, "House"}));
  EXPECT_EQ(ReadDefaultPreset(folder)->name, "House");
  // Back to a built-in: the custom name goes.
  ASSERT_TRUE(WriteDefaultPreset(folder, {1, ""}));
  EXPECT_FALSE(SettingsFile(folder).Get(kDefaultPresetNameKey));
  EXPECT_EQ(SettingsFile(folder).Get("Theme"), "0");

  for (const char* bad : {"abc", "7x", "", "99999999999999999999", "14", "1000", "-1"}) {
    WriteFile(folder + "/Settings.ini", std::string("Default Preset Index=") + bad + "\n");
    EXPECT_FALSE(ReadDefaultPreset(folder)) << bad;
  }
  // An oversized settings file is not read at all.
  WriteFile(folder + "/Settings.ini", "Default Preset Index=7\n" + std::string(SettingsFile::kMaxBytes, '#'));
  EXPECT_FALSE(ReadDefaultPreset(folder));
  EXPECT_FALSE(ReadDefaultPreset(folder + "/does-not-exist"));
}

}  // namespace
}  // namespace velorum

// A user folder with letters beyond ASCII (C:\Users\Müller) reaches the
// settings folder as UTF-8 whatever the code page.
TEST(GlobalSettings, EnvironmentIsReadAsUtf8) {
  const std::string mueller = "/Users/M\xC3\xBCller \xE9\x9F\xB3";
#ifdef _WIN32
  ASSERT_EQ(_wputenv_s(L"VELORUM_TEST_HOME", L"/Users/M\u00FCller \u97F3"), 0);
  ASSERT_EQ(_wputenv_s(L"VELORUM_TEST_EMPTY", L""), 0);
#else
  ASSERT_EQ(setenv("VELORUM_TEST_HOME", mueller.c_str(), 1), 0);
  ASSERT_EQ(setenv("VELORUM_TEST_EMPTY", "", 1), 0);
#endif
  EXPECT_EQ(velorum::EnvironmentUtf8("VELORUM_TEST_HOME", "x"), mueller);
  EXPECT_EQ(velorum::EnvironmentUtf8("VELORUM_TEST_EMPTY", "x"), "x");
  EXPECT_EQ(velorum::EnvironmentUtf8("VELORUM_TEST_UNSET_VARIABLE", "x"), "x");
}
