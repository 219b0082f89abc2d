// velorum: the command-line loudness analyser. Measures audio files with the
// same engine as the plug-in and prints text summaries, JSON lines, CSV and
// Dolby CSV files, time lines, graphs and batch reports; normalises files to
// a target; runs the compliance self-test. Options are declared per command
// with CLI11 ("velorum COMMAND --help").
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "analysis/BlockPipeline.h"
#include "analysis/EngineFeeder.h"
#include "cli/AnalyzeCommand.h"
#include "cli/ComplianceSelfTest.h"
#include "cli/DemoProgramme.h"
#include "cli/JsonResult.h"
#include "cli/Measurement.h"
#include "cli/NormalizeCommand.h"
#include "cli/OutputFiles.h"
#include "cli/PresetNames.h"
#include "cli/ProgressBar.h"
#include "cli/VersionCommand.h"
#include "engine/ChannelLayouts.h"
#include "engine/LoudnessEngine.h"
#include "export/WavNormalizer.h"
#include "presets/LoudnessStandards.h"
#include "velorum/Version.h"

using namespace velorum;

namespace {

constexpr int kUsageStatus = 64;

const char* kOverview =
    " - loudness analyser (ITU-R BS.1770-4 / EBU R128)\n"
    "\n"
    "Usage:\n"
    "  velorum analyze [options] FILE|FOLDER|-...\n"
    "      Measure each input and print its text summary or a JSON line; write CSV, Dolby CSV, summary,\n"
    "      time line (--timeline), graph (--graph) and batch report (--report) files; check a --preset.\n"
    "  velorum demo [--json] [--dialogue] [--preset NAME]\n"
    "      Measure the built-in default programme (100 s, stereo, 48 kHz) and print its text summary.\n"
    "{normalize}"
    "  velorum selftest [-j N] [--eco]\n"
    "      EBU Tech 3341/3342 and true-peak compliance self-test through file reading and the engine.\n"
    "  velorum presets      list the loudness standards (menu text, short name, aliases, window)\n"
    "  velorum layouts      list the channel layouts\n"
    "  velorum version [--check]\n"
    "      Print the version; --check asks the update address for a newer version and news.\n"
    "  velorum --version | --help\n"
    "\n"
    "Every command takes --help for its options; options take their value as --opt VALUE or --opt=VALUE.\n"
    "Main options of analyze: --json --quiet --preset NAME --tolerance LU --dialogue --lkfs --lufs\n"
    "  --csv --dolby-csv --summary --timeline --graph --report FILE, --interval SECONDS, --fps RATE,\n"
    "  --drop-frame, --eco, --multi-mono, --strict, --layout NAME, -j N, -y.\n"
    "\n"
    "Exit status: 0 success, 1 a preset check failed (or the normalised true peak is too high),\n"
    "2 an input could not be measured or an output could not be written, 64 bad usage.\n";

// The overview with the normalize command's own usage lines in their place.
std::string Overview() {
  std::string text = kOverview;
  const std::string marker = "{normalize}";
  text.replace(text.find(marker), marker.size(), kNormalizeHelp);
  return text;
}

int usage(const std::string& command, const std::string& error) {
  std::fprintf(stderr, "velorum: %s\nTry 'velorum %s--help'.\n", error.c_str(),
               command.empty() ? "" : (command + " ").c_str());
  return kUsageStatus;
}

const LoudnessStandard* presetOrNull(const std::string& name, std::string& error) {
  if (name.empty()) return nullptr;
  const PresetMatch match = MatchPreset(name);
  if (!match.preset) error = UnknownPresetMessage(name, match);
  return match.preset;
}

struct DemoOptions {
  bool json = false, dialogue = false, lkfs = false, lufs = false;
  std::string preset;
};

int runDemo(const DemoOptions& o) {
  ReportOptions report;
  std::string error;
  report.preset = presetOrNull(o.preset, error);
  if (!error.empty()) return usage("demo", error);
  report.dialogue = o.dialogue;
  report.unit = o.lkfs ? UnitChoice::Lkfs : o.lufs ? UnitChoice::Lufs : UnitChoice::FromPreset;
  LoudnessEngine engine;
  engine.SetDialogueEnabled(report.dialogue || (report.preset && report.preset->dialTarget != 30));
  EngineFeeder::configure(engine, DemoProgramme::kSampleRate, LayoutForChannelCount(DemoProgramme::kChannels),
                          DemoProgramme::kChannels);
  // The programme is synthesised on a second thread while the engine
  // measures the blocks already made, in order.
  constexpr int block = 4096;
  BlockPipeline pipe(DemoProgramme::kChannels, block, 4);
  std::thread synthesis([&pipe] {
    DemoProgramme programme;
    std::vector<float> buffer(static_cast<size_t>(block * DemoProgramme::kChannels));
    for (int n; (n = programme.render(buffer.data(), block)) > 0;) {
      BlockPipeline::Block* b = pipe.acquire();
      if (!b) break;
      BlockPipeline::deinterleave(buffer.data(), n, *b);
      b->progress = static_cast<int>(programme.position() * 100 / DemoProgramme::kFrames);
      pipe.publish(b);
    }
    pipe.close(0, 0);
  });
  ProgressBar bar;
  SamplePeakMeter peaks;
  while (BlockPipeline::Block* b = pipe.next()) {
    engine.ProcessBlock(b->pins.data(), b->frames);
    peaks.add(b->pins.data(), DemoProgramme::kChannels, b->frames);
    bar.update(b->progress / 100.0, "demo programme");
    pipe.release(b);
  }
  synthesis.join();
  bar.clear();

  Measurement m;
  m.file = "demo programme";
  m.format = "demo";
  m.fromFile = false;
  m.sampleRate = DemoProgramme::kSampleRate;
  m.channels = DemoProgramme::kChannels;
  m.frames = static_cast<uint64_t>(DemoProgramme::kFrames);
  const ChannelLayout& layout = LayoutAt(LayoutForChannelCount(DemoProgramme::kChannels));
  for (int c = 0; c < DemoProgramme::kChannels; ++c)
    m.channelNames.emplace_back(layout.channelNames[static_cast<size_t>(c)]);
  m.readEngine(engine);
  peaks.store(m);
  PresetCheck check;
  if (report.preset) check = CheckAgainstPreset(m, *report.preset, 1.0);
  InputOutcome outcome;
  outcome.check = report.preset ? &check : nullptr;
  if (o.json) {
    std::printf("%s\n", JsonLine(MeasurementJson(m, report, outcome)).c_str());
  } else {
    std::string text;
    if (!BuildTextSummary(MakeSummaryInput(m, report, report.preset ? &check : nullptr), text, &error)) {
      std::fprintf(stderr, "velorum: %s\n", error.c_str());
      return 2;
    }
    std::fputs(text.c_str(), stdout);
  }
  return report.preset && !check.pass ? 1 : 0;
}

// Columns sized to their longest entry, so that they line up whatever the names.
int listPresets() {
  std::vector<std::vector<std::string>> rows = {
      {"Menu text", "Short name", "Aliases", "Target", "Window", "TP max", "Unit"}};
  for (const LoudnessStandard& s : LoudnessStandards()) {
    std::string menu = s.menuText;
    menu.erase(0, menu.find_first_not_of(' '));
    std::string aliases;
    for (const auto& [alias, text] : PresetAliases())
      if (menu == text) aliases += (aliases.empty() ? "" : ", ") + std::string(alias);
    char window[32], peak[16];
    if (s.lower > -70)
      std::snprintf(window, sizeof window, "%d .. %d", s.lower, s.upper);
    else
      std::snprintf(window, sizeof window, "<= %d", s.upper);
    std::snprintf(peak, sizeof peak, "%.1f", s.truePeakMax);
    rows.push_back({menu, s.shortName ? s.shortName : "", aliases, std::to_string(s.target), window, peak,
                    s.lkfs ? "LKFS" : "LUFS"});
  }
  std::vector<size_t> width(rows.front().size(), 0);
  for (const auto& row : rows)
    for (size_t c = 0; c < row.size(); ++c) width[c] = std::max(width[c], row[c].size());
  for (const auto& row : rows) {
    std::string line;
    for (size_t c = 0; c < row.size(); ++c) {
      const bool number = c >= 3 && c != 6;
      const std::string pad(width[c] - row[c].size(), ' ');
      line += (c ? "  " : "") + (number ? pad + row[c] : row[c] + (c + 1 < row.size() ? pad : ""));
    }
    std::printf("%s\n", line.c_str());
  }
  return 0;
}

int listLayouts() {
  for (int i = 0; i < LayoutCount(); ++i) std::printf("%2d  %s\n", i, LayoutAt(i).name);
  return 0;
}

int dispatch(int argc, char** argv) {
  CLI::App app{std::string("velorum ") + kVersionText + Overview(), "velorum"};
  app.set_help_flag("-h,--help", "print this help and exit");
  bool version = false;
  app.add_flag("-V,--version", version, "print the version and exit");
  app.require_subcommand(0, 1);
  app.footer("Run 'velorum COMMAND --help' for the options of a command.");

  AnalyzeOptions analyze;
  CLI::App* analyzeCommand = app.add_subcommand("analyze", "measure files and check them against a preset");
  analyzeCommand->alias("analyse");
  AddAnalyzeOptions(*analyzeCommand, analyze);

  DemoOptions demo;
  CLI::App* demoCommand = app.add_subcommand("demo", "measure the built-in default programme");
  demoCommand->add_flag("--json", demo.json, "print a JSON line instead of the summary");
  demoCommand->add_flag("--dialogue", demo.dialogue, "add the dialogue-gated readings");
  auto* lkfs = demoCommand->add_flag("--lkfs", demo.lkfs, "show loudness in LKFS");
  demoCommand->add_flag("--lufs", demo.lufs, "show loudness in LUFS")->excludes(lkfs);
  demoCommand->add_option("--preset", demo.preset, "check against a standard");

  // normalize parses its own options (and its --help).
  CLI::App* normalizeCommand =
      app.add_subcommand("normalize", "write copies of files at a target loudness under a true-peak ceiling");
  normalizeCommand->alias("normalise");
  normalizeCommand->set_help_flag();
  normalizeCommand->prefix_command();

  bool versionCheck = false;
  CLI::App* versionCommand =
      app.add_subcommand("version", "print the version; --check looks for a newer one");
  versionCommand->add_flag("--check", versionCheck, "ask the update address for a newer version and news");

  int selftestJobs = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  bool selftestEco = false;
  CLI::App* selftestCommand =
      app.add_subcommand("selftest", "EBU Tech 3341/3342 and true-peak compliance self-test");
  selftestCommand->add_option("-j,--jobs", selftestJobs, "cases run in parallel")->check(CLI::Range(1, 1024));
  selftestCommand->add_flag("--eco", selftestEco, "eco true-peak mode");

  CLI::App* presetsCommand = app.add_subcommand("presets", "list the loudness standards");
  CLI::App* layoutsCommand = app.add_subcommand("layouts", "list the channel layouts");

  if (argc < 2) {
    std::printf("velorum %s%s", kVersionText, Overview().c_str());
    return kUsageStatus;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    const CLI::App* command = nullptr;
    for (const CLI::App* sub : app.get_subcommands()) command = sub;
    if (command)
      std::fputs(command->help().c_str(), stdout);
    else
      std::printf("velorum %s%s", kVersionText, Overview().c_str());
    return 0;
  } catch (const CLI::ParseError& e) {
    std::string command;
    for (const CLI::App* sub : app.get_subcommands()) command = sub->get_name();
    return usage(command, e.what());
  }
  if (version) {
    std::printf("velorum %s\n", kVersionText);
    return 0;
  }
  if (analyzeCommand->parsed()) {
    const std::string error = CheckAnalyzeOptions(analyze);
    return error.empty() ? RunAnalyze(analyze) : usage("analyze", error);
  }
  if (demoCommand->parsed()) return runDemo(demo);
  if (normalizeCommand->parsed()) return RunNormalizeCommand(normalizeCommand->remaining());
  if (versionCommand->parsed())
    return RunVersionCommand(versionCheck ? std::vector<std::string>{"--check"} : std::vector<std::string>{});
  if (selftestCommand->parsed()) return PrintSelfTest(RunComplianceSelfTest(selftestJobs, selftestEco));
  if (presetsCommand->parsed()) return listPresets();
  if (layoutsCommand->parsed()) return listLayouts();
  return usage("", "no command given");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return dispatch(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "velorum: %s\n", e.what());
  } catch (...) {
    std::fprintf(stderr, "velorum: unexpected failure\n");
  }
  return 2;
}
