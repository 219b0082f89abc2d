// velorum-host: loads a VST2 plug-in like a DAW, streams a WAV file through
// it and prints what it saw.
//
//   velorum-host PLUGIN WAV [--double] [--blocks 512,1,0,8192] [--stopped]
//                [--tempo BPM] [--rate HZ] [--save-program FILE] [--load-program FILE]
//                [--save-bank FILE] [--load-bank FILE] [--product NAME] [--out WAV]
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "VstHost.h"
#include "WavFile.h"
#include "plugin/VendorQuery.h"

using namespace velorum;
using namespace velorum::harness;

namespace {

std::vector<uint8_t> ReadFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

bool WriteFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream f(path, std::ios::binary);
  f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bool(f);
}

double Reading(HostedPlugin& plug, int which) {
  VendorRequest r;
  r.command = kQueryReading;
  r.index = which;
  return plug.Dispatch(vst::effVendorSpecific, kVendorQueryIndex, 0, &r) == 1 ? r.value : std::nan("");
}

int Usage() {
  std::fprintf(
      stderr,
      "usage: velorum-host PLUGIN WAV [--double] [--blocks 512,1,0] [--stopped] [--tempo BPM] [--rate HZ]\n"
      "       [--save-program F] [--load-program F] [--save-bank F] [--load-bank F] [--product NAME] [--out "
      "WAV]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return Usage();
  const std::string pluginPath = argv[1], wavPath = argv[2];
  bool useDouble = false, stopped = false;
  double tempo = 120.0, rate = 0.0;
  std::vector<int> blocks{512};
  std::string saveProgram, loadProgram, saveBank, loadBank, product = "Velorum Host", outPath;
  for (int i = 3; i < argc; ++i) {
    const std::string a = argv[i];
    auto next = [&]() -> std::string { return i + 1 < argc ? argv[++i] : std::string(); };
    if (a == "--double")
      useDouble = true;
    else if (a == "--stopped")
      stopped = true;
    else if (a == "--tempo")
      tempo = std::atof(next().c_str());
    else if (a == "--rate")
      rate = std::atof(next().c_str());
    else if (a == "--save-program")
      saveProgram = next();
    else if (a == "--load-program")
      loadProgram = next();
    else if (a == "--save-bank")
      saveBank = next();
    else if (a == "--load-bank")
      loadBank = next();
    else if (a == "--product")
      product = next();
    else if (a == "--out")
      outPath = next();
    else if (a == "--blocks") {
      blocks.clear();
      std::stringstream list(next());
      for (std::string item; std::getline(list, item, ',');) blocks.push_back(std::atoi(item.c_str()));
    } else {
      return Usage();
    }
  }

  WavData wav;
  std::string error;
  if (!ReadWav(wavPath, wav, &error)) {
    std::fprintf(stderr, "velorum-host: %s: %s\n", wavPath.c_str(), error.c_str());
    return 1;
  }
  auto module = PluginModule::Load(pluginPath, &error);
  if (!module) {
    std::fprintf(stderr, "velorum-host: %s: %s\n", pluginPath.c_str(), error.c_str());
    return 1;
  }
  if (rate <= 0.0) rate = wav.sampleRate;
  auto plug = HostedPlugin::Create(*module, rate, 512, product);
  if (!plug) {
    std::fprintf(stderr, "velorum-host: VSTPluginMain gave no effect\n");
    return 1;
  }
  vst::AEffect* e = plug->Effect();
  char name[256] = {}, vendor[256] = {}, productName[256] = {};
  plug->Dispatch(vst::effGetEffectName, 0, 0, name);
  plug->Dispatch(vst::effGetVendorString, 0, 0, vendor);
  plug->Dispatch(vst::effGetProductString, 0, 0, productName);
  const uint32_t id = static_cast<uint32_t>(e->uniqueID);
  std::printf("effect: %s / %s / %s\n", name, vendor, productName);
  std::printf(
      "magic 0x%08X flags 0x%X id '%c%c%c%c' version %d vst %d inputs %d outputs %d params %d programs %d\n",
      static_cast<unsigned>(e->magic), static_cast<unsigned>(e->flags), char(id >> 24), char(id >> 16),
      char(id >> 8), char(id), e->version, static_cast<int>(plug->Dispatch(vst::effGetVstVersion)),
      e->numInputs, e->numOutputs, e->numParams, e->numPrograms);
  plug->SetChannels(wav.channels);

  if (!loadProgram.empty()) {
    std::printf("load program %s: %d\n", loadProgram.c_str(),
                static_cast<int>(plug->LoadChunk(ReadFile(loadProgram))));
  }
  if (!loadBank.empty()) {
    std::printf("load bank %s: %d\n", loadBank.c_str(),
                static_cast<int>(plug->LoadChunk(ReadFile(loadBank), false)));
  }

  plug->HostTransport().playing = !stopped;
  plug->HostTransport().tempo = tempo;
  std::vector<std::vector<float>> out(size_t(wav.channels));
  double maxDifference = 0.0;
  if (useDouble) {
    std::vector<std::vector<double>> in(size_t(wav.channels)), outD(size_t(wav.channels));
    for (int c = 0; c < wav.channels; ++c)
      in[size_t(c)].assign(wav.samples[size_t(c)].begin(), wav.samples[size_t(c)].end());
    plug->RunDouble(in, outD, blocks);
    for (int c = 0; c < wav.channels; ++c) {
      out[size_t(c)].assign(outD[size_t(c)].begin(), outD[size_t(c)].end());
      for (size_t i = 0; i < in[size_t(c)].size(); ++i) {
        maxDifference = std::max(maxDifference, std::fabs(in[size_t(c)][i] - outD[size_t(c)][i]));
      }
    }
  } else {
    plug->RunFloat(wav.samples, out, blocks);
    for (int c = 0; c < wav.channels; ++c) {
      for (size_t i = 0; i < wav.Frames(); ++i) {
        maxDifference =
            std::max(maxDifference, double(std::fabs(wav.samples[size_t(c)][i] - out[size_t(c)][i])));
      }
    }
  }
  std::printf("processed %zu frames x %d channels (%s), largest output difference %g\n", wav.Frames(),
              wav.channels, useDouble ? "double" : "float", maxDifference);
  std::printf(
      "integrated %.2f LUFS, range %.2f LU, momentary max %.2f, short-term max %.2f, true peak max %.2f "
      "dBTP\n",
      Reading(*plug, kReadingIntegrated), Reading(*plug, kReadingLoudnessRange),
      Reading(*plug, kReadingMomentaryMax), Reading(*plug, kReadingShortTermMax),
      Reading(*plug, kReadingTruePeakMax));
  std::printf("timeline %.0f samples, host time requests %d\n", Reading(*plug, kReadingPosition),
              plug->CallbackCount(vst::audioMasterGetTime));

  if (!saveProgram.empty()) {
    const auto bytes = plug->SaveChunk(true);
    std::printf("save program %s: %zu bytes\n", saveProgram.c_str(), bytes.size());
    if (!WriteFile(saveProgram, bytes)) return 1;
  }
  if (!saveBank.empty()) {
    const auto bytes = plug->SaveChunk(false);
    std::printf("save bank %s: %zu bytes\n", saveBank.c_str(), bytes.size());
    if (!WriteFile(saveBank, bytes)) return 1;
  }
  if (!outPath.empty()) {
    WavData o = wav;
    o.samples = out;
    if (!WriteWav(outPath, o)) return 1;
  }
  return 0;
}
