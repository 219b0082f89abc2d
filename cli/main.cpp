// velorum: the command-line loudness analyser. Measures audio files with the
// same engine as the plug-in and prints text summaries, JSON lines, CSV and
// Dolby CSV files; normalises files to a target; runs the compliance self-test.
#include "analysis/BlockPipeline.h"
#include "analysis/EngineFeeder.h"
#include "cli/AnalyzeCommand.h"
#include "cli/ComplianceSelfTest.h"
#include "cli/DemoProgramme.h"
#include "cli/NormalizeCommand.h"
#include "cli/Measurement.h"
#include "cli/OutputFiles.h"
#include "cli/ProgressBar.h"
#include "cli/VersionCommand.h"
#include "engine/ChannelLayouts.h"
#include "engine/LoudnessEngine.h"
#include "presets/LoudnessStandards.h"
#include "velorum/Version.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>
#include <vector>

using namespace velorum;

namespace {

const char* kHelp =
    " - loudness analyser (ITU-R BS.1770-4 / EBU R128)\n"
    "\n"
    "Usage:\n"
    "  velorum demo [--json] [--dialogue] [--preset NAME]\n"
    "      Measure the built-in default programme (100 s, stereo, 48 kHz) and print its text summary.\n"
    "  velorum analyze [options] FILE|FOLDER...\n"
    "      Print the text summary of each file (folders are searched for audio and video files).\n"
    "{normalize}"
    "  velorum selftest [-j N] [--eco]\n"
    "      EBU Tech 3341/3342 and true-peak compliance self-test through file reading and the engine.\n"
    "  velorum presets      list the loudness standards (menu text and short name)\n"
    "  velorum layouts      list the channel layouts\n"
    "  velorum version [--check]\n"
    "      Print the version; --check asks the update address for a newer version and news.\n"
    "  velorum --version | --help\n"
    "\n"
    "Options of analyze:\n"
    "  --json               one JSON object per file on its own line instead of the summary\n"
    "  --preset NAME        check against a standard (menu text or short name, e.g. \"EBU R128\",\n"
    "                       \"EBU S1\", SPOTIFY); exit status 1 when a check fails\n"
    "  --tolerance LU       window around the target for presets without a lower limit (default 1.0)\n"
    "  --dialogue           add the dialogue-gated readings (Integrated Dial, Loudness Range Dial,\n"
    "                       Speech Content)\n"
    "  --lkfs               show loudness in LKFS (otherwise the preset's unit)\n"
    "  --csv FILE           write the plain CSV of the measurement history\n"
    "  --dolby-csv FILE     write the Dolby CSV\n"
    "  --summary FILE       write the text summary to a file\n"
    "                       (with several inputs FILE may be a folder; otherwise the input's name is\n"
    "                       inserted before the extension)\n"
    "  --interval SECONDS   CSV row interval, 0.01 and up (default 1)\n"
    "  --fps RATE           time codes as 00:00:00:00 at RATE instead of 00:00:00.000\n"
    "                       (23.976, 29.97, 47.95 and 59.94 count 24000/1001 ... 60000/1001 frames)\n"
    "  --drop-frame         drop-frame time codes (00:00:00;00) with --fps 29.97 or 59.94\n"
    "  --eco                eco true-peak mode (the shorter oversampling filter)\n"
    "  --multi-mono         the FILEs are the mono channels of one programme, matched by their\n"
    "                       suffixes (.L .R .C .LFE .Ls .Rs ...)\n"
    "  --strict             every multi-mono file must carry a channel suffix of the layout\n"
    "  --layout NAME        channel layout (e.g. 5.1, \"7.1.4\", \"L R C LFE Ls Rs\"; see velorum layouts)\n"
    "  --stream N           the audio stream to measure (from 0); by default several mono streams\n"
    "                       of one rate are one programme in stream order, else the first stream\n"
    "  -j N                 files analysed in parallel (default: all cores)\n"
    "  -y, --yes            replace existing output files without asking\n"
    "\n"
    "Exit status: 0 success, 1 a preset check failed (or a normalised copy misses its target),\n"
    "2 a file could not be measured or written, 64 bad usage.\n";

void printHelp()
{
    std::string help = kHelp;
    const std::string marker = "{normalize}";
    help.replace(help.find(marker), marker.size(), kNormalizeHelp);
    std::fputs(help.c_str(), stdout);
}

int usage(const std::string& error)
{
    std::fprintf(stderr, "velorum: %s\nTry 'velorum --help'.\n", error.c_str());
    return 64;
}

int runDemo(const std::vector<std::string>& args)
{
    ReportOptions report;
    bool json = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--json")
            json = true;
        else if (args[i] == "--dialogue")
            report.dialogue = true;
        else if (args[i] == "--lkfs")
            report.lkfs = true;
        else if (args[i] == "--preset" && i + 1 < args.size()) {
            report.preset = FindStandardByName(args[++i]);
            if (!report.preset)
                return usage("unknown preset \"" + args[i] + "\"");
        } else
            return usage("unknown option " + args[i]);
    }
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
            if (!b)
                break;
            BlockPipeline::deinterleave(buffer.data(), n, *b);
            b->progress = static_cast<int>(programme.position() * 100 / DemoProgramme::kFrames);
            pipe.publish(b);
        }
        pipe.close(0, 0);
    });
    ProgressBar bar;
    while (BlockPipeline::Block* b = pipe.next()) {
        engine.ProcessBlock(b->pins.data(), b->frames);
        bar.update(b->progress / 100.0, "demo programme");
        pipe.release(b);
    }
    synthesis.join();
    bar.clear();

    Measurement m;
    m.file = "demo programme";
    m.fromFile = false;
    m.sampleRate = DemoProgramme::kSampleRate;
    m.channels = DemoProgramme::kChannels;
    m.frames = static_cast<uint64_t>(DemoProgramme::kFrames);
    const ChannelLayout& layout = LayoutAt(LayoutForChannelCount(DemoProgramme::kChannels));
    for (int c = 0; c < DemoProgramme::kChannels; ++c)
        m.channelNames.emplace_back(layout.channelNames[static_cast<size_t>(c)]);
    m.readEngine(engine);
    PresetCheck check;
    if (report.preset)
        check = CheckAgainstPreset(m, *report.preset, 1.0);
    if (json) {
        std::printf("%s\n", MakeJsonLine(m, report, &check).c_str());
    } else {
        std::string text, error;
        if (!BuildTextSummary(MakeSummaryInput(m, report), text, &error)) {
            std::fprintf(stderr, "velorum: %s\n", error.c_str());
            return 2;
        }
        std::fputs(text.c_str(), stdout);
        if (report.preset) {
            std::printf("\nPreset Check (%s): %s\n", PresetDisplayName(report.preset).c_str(),
                        check.pass ? "PASS" : "FAIL");
            for (const std::string& d : check.details)
                std::printf("  %s\n", d.c_str());
        }
    }
    return report.preset && !check.pass ? 1 : 0;
}

int runSelfTest(const std::vector<std::string>& args)
{
    int jobs = static_cast<int>(std::thread::hardware_concurrency());
    bool eco = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "-j" && i + 1 < args.size())
            jobs = std::atoi(args[++i].c_str());
        else if (args[i] == "--eco")
            eco = true;
        else
            return usage("unknown option " + args[i]);
    }
    return PrintSelfTest(RunComplianceSelfTest(jobs > 0 ? jobs : 1, eco));
}

int listPresets()
{
    std::printf("%-24s %-14s %6s %6s %6s %6s  %s\n", "Menu text", "Short name", "Target", "Upper", "Lower", "TP",
                "Unit");
    for (const LoudnessStandard& s : LoudnessStandards()) {
        std::string menu = s.menuText;
        menu.erase(0, menu.find_first_not_of(' '));
        std::printf("%-24s %-14s %6d %6d %6d %6.1f  %s\n", menu.c_str(), s.shortName ? s.shortName : "", s.target,
                    s.upper, s.lower, s.truePeakMax, s.lkfs ? "LKFS" : "LUFS");
    }
    return 0;
}

int listLayouts()
{
    for (int i = 0; i < LayoutCount(); ++i)
        std::printf("%2d  %s\n", i, LayoutAt(i).name);
    return 0;
}

int dispatch(int argc, char** argv)
{
    if (argc < 2) {
        std::printf("velorum %s", kVersionText);
        printHelp();
        return 64;
    }
    const std::string command = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "--help" || command == "-h" || command == "help") {
        std::printf("velorum %s", kVersionText);
        printHelp();
        return 0;
    }
    if (command == "--version" || command == "-V") {
        std::printf("velorum %s\n", kVersionText);
        return 0;
    }
    if (command == "version")
        return RunVersionCommand(args);
    if (command == "demo")
        return runDemo(args);
    if (command == "analyze" || command == "analyse") {
        AnalyzeOptions options;
        std::string error;
        if (!ParseAnalyzeOptions(args, options, error))
            return usage(error);
        return RunAnalyze(options);
    }
    if (command == "normalize" || command == "normalise")
        return RunNormalizeCommand(args);
    if (command == "selftest")
        return runSelfTest(args);
    if (command == "presets")
        return listPresets();
    if (command == "layouts")
        return listLayouts();
    return usage("unknown command " + command);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return dispatch(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "velorum: %s\n", e.what());
    } catch (...) {
        std::fprintf(stderr, "velorum: unexpected failure\n");
    }
    return 2;
}
