// A meter plug-in in this process with a measured programme, and its editor
// drawn offscreen: the fixture of the editor tests.
#pragma once

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "graphics/tgraphics.h"
#include "graphics/tgraphics_surface.h"
#include "plugin/LoudnessMeterPlugin.h"
#include "plugin/MeterParams.h"
#include "plugin/VstAbi.h"
#include "ui/MeterEditor.h"

namespace velorum::testing {

inline constexpr double kPi = 3.14159265358979323846;

inline void SetEnvironment(const char* name, const std::string& value) {
#ifdef _WIN32
  _putenv_s(name, value.c_str());
#else
  setenv(name, value.c_str(), 1);
#endif
}

inline intptr_t NoHost(vst::AEffect*, int32_t, int32_t, intptr_t, void*, float) {
  return 0;
}

// A private settings folder, so that no test reads or writes the user's.
inline std::string TestSettingsFolder(const std::string& name) {
  const auto dir = std::filesystem::path(VELORUM_BINARY_DIR) / "ui-test-settings" / name;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  SetEnvironment("VELORUM_SETTINGS_DIR", dir.string());
  return dir.string();
}

class MeterFixture {
 public:
  explicit MeterFixture(const std::string& name, double rate = 48000.0) : rate_(rate) {
    folder_ = TestSettingsFolder(name);
    RegisterEditorFactory(&CreateMeterEditor);
    plugin_ = new LoudnessMeterPlugin(&NoHost);
    vst::AEffect* e = &plugin_->AEffectRecord();
    e->dispatcher(e, vst::effSetSampleRate, 0, 0, nullptr, static_cast<float>(rate));
    e->dispatcher(e, vst::effSetBlockSize, 0, 512, nullptr, 0.f);
    e->dispatcher(e, vst::effMainsChanged, 0, 1, nullptr, 0.f);
    // Without a host transport only the continuous mode measures.
    plugin_->SetParam(param::kHistogramMode, kModeContinuous);
    plugin_->SetParam(param::kChannelConfig, LayoutForChannelCount(2));
  }
  ~MeterFixture() {
    vst::AEffect* e = &plugin_->AEffectRecord();
    e->dispatcher(e, vst::effClose, 0, 0, nullptr, 0.f);
  }

  // A 1 kHz sine on both channels, `seconds` long at a peak of `dbfs`.
  void PlaySine(double seconds, double dbfs) {
    const double amp = std::pow(10.0, dbfs / 20.0);
    const int frames = static_cast<int>(seconds * rate_);
    std::vector<double> l(512), r(512);
    for (int done = 0; done < frames; done += 512) {
      const int n = std::min(512, frames - done);
      for (int i = 0; i < n; ++i) {
        l[size_t(i)] = r[size_t(i)] = amp * std::sin(2.0 * kPi * 1000.0 * double(phase_++) / rate_);
      }
      Feed(l, r, n);
    }
  }

  void Feed(std::vector<double>& l, std::vector<double>& r, int n) {
    {
      // Every pin connected, as hosts do; the channels past the stereo pair are silent.
      const vst::AEffect* e = &plugin_->AEffectRecord();
      const size_t pins = size_t(std::max(2, int(std::max(e->numInputs, e->numOutputs))));
      silence_.assign(512, 0.0);
      scratch_.resize(pins, std::vector<double>(512));
      std::vector<double*> in(pins, silence_.data()), out(pins);
      for (size_t p = 0; p < pins; ++p) out[p] = scratch_[p].data();
      in[0] = l.data();
      in[1] = r.data();
      plugin_->ProcessBlock(in.data(), out.data(), n);
    }
  }

  // A programme that moves like speech and music: a mixture of tones whose
  // level wanders between about -40 and -12 dBFS, with short pauses.
  void PlayProgramme(double seconds) {
    const int frames = static_cast<int>(seconds * rate_);
    std::vector<double> l(512), r(512);
    double level = -24.0;
    unsigned seed = 12345u;
    for (int done = 0; done < frames; done += 512) {
      const int n = std::min(512, frames - done);
      seed = seed * 1103515245u + 12345u;
      level = std::clamp(level + (double((seed >> 16) & 1023) / 1023.0 - 0.5) * 1.2, -40.0, -12.0);
      const double t0 = double(done) / rate_;
      const bool pause = std::fmod(t0, 17.0) > 15.5;
      const double amp = pause ? 0.0 : std::pow(10.0, level / 20.0);
      for (int i = 0; i < n; ++i) {
        const double t = double(phase_++) / rate_;
        const double v =
            amp * (0.6 * std::sin(2.0 * kPi * 220.0 * t) + 0.3 * std::sin(2.0 * kPi * 1375.0 * t) +
                   0.2 * std::sin(2.0 * kPi * 3150.0 * t));
        l[size_t(i)] = v;
        r[size_t(i)] = v * 0.8;
      }
      Feed(l, r, n);
    }
  }

  LoudnessMeterPlugin& Plugin() { return *plugin_; }
  ui::MeterEditor& Editor() {
    if (!editor_) editor_ = dynamic_cast<ui::MeterEditor*>(plugin_->Editor());
    return *editor_;
  }
  const std::string& Folder() const { return folder_; }

  // The whole editor drawn offscreen at a device scale.
  cairo_surface_t* Render(double scale) {
    IGraphics& g = Editor().Graphics();
    cairo_surface_t* s = tg_create_image_surface(g.Width(), g.Height(), scale);
    {
      tgraphics ctx(s, g.Width(), g.Height(), scale);
      Editor().DrawAll(ctx);
    }
    cairo_surface_flush(s);
    return s;
  }

 private:
  double rate_;
  long long phase_ = 0;
  std::vector<double> silence_;
  std::vector<std::vector<double>> scratch_;
  std::string folder_;
  LoudnessMeterPlugin* plugin_ = nullptr;
  ui::MeterEditor* editor_ = nullptr;
};

}  // namespace velorum::testing
