// The plug-in module's only exported symbol: the host calls VSTPluginMain
// with its callback and receives the AEffect record of a new meter.
#include <algorithm>
#include <exception>
#include <mutex>

#include "plugin/CrashReporter.h"
#include "plugin/LoudnessMeterPlugin.h"

#if defined(_WIN32)
#define VELORUM_EXPORT extern "C" __declspec(dllexport)
#else
#define VELORUM_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace {

// Created once, on first use, in a thread-safe way; serialises plug-in
// creation across instances.
std::mutex& CreationSection() {
  static std::mutex section;
  return section;
}

// Takes the crash reporter out again when the host unloads the module, while
// its code is still mapped.
struct CrashReporterRemoval {
  ~CrashReporterRemoval() { velorum::UninstallCrashReporter(); }
} gCrashReporterRemoval;

}  // namespace

VELORUM_EXPORT velorum::vst::AEffect* VSTPluginMain(velorum::vst::HostCallback host) {
  try {
    std::lock_guard<std::mutex> guard(CreationSection());
    velorum::InstallCrashReporter();
#if defined(VELORUM_WITH_EDITOR)
    if (!velorum::RegisteredEditorFactory()) velorum::RegisterEditorFactory(&velorum::CreateMeterEditor);
#endif
    auto* plug = new velorum::LoudnessMeterPlugin(host);
    plug->MakeDefaultPresets("Empty");
    velorum::vst::AEffect& effect = plug->AEffectRecord();
    if (effect.numPrograms < 1) effect.numPrograms = 1;
    effect.numPrograms = std::max(effect.numPrograms, plug->NPresets());
    return &effect;
  } catch (...) {
    return nullptr;
  }
}
