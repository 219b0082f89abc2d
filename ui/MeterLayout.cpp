#include "ui/MeterLayout.h"

#include <algorithm>

namespace velorum::ui {

MeterLayout MeterLayout::Compute(float W, float H, int channels) {
  MeterLayout l;
  const float m = 8.f, gap = 6.f;
  const float topH = std::clamp(H * 0.06f, 26.f, 40.f), statusH = std::clamp(H * 0.04f, 18.f, 26.f);
  l.topBar = IRECT(0.f, 0.f, W, topH);
  l.statusBar = IRECT(0.f, H - statusH, W, H);
  // Buttons: the preset menu wider than the rest, all shrinking together.
  static constexpr float kWidths[kButtons] = {150.f, 64.f, 60.f, 60.f, 82.f, 70.f, 76.f};
  float need = 0.f;
  for (float w : kWidths) need += w + 4.f;
  const float fit = std::min(1.f, (W - 2.f * m - 70.f) / need);
  float x = m + std::min(70.f, W * 0.08f);
  for (int i = 0; i < kButtons; ++i) {
    const float w = kWidths[i] * fit;
    l.buttons[i] = IRECT(x, 4.f, x + w, topH - 4.f);
    x += w + 4.f * fit;
  }
  const IRECT content(m, topH + gap / 2.f, W - m, H - statusH - gap / 2.f);
  const bool compact = W < 560.f || H < 330.f;
  const float loudW = std::clamp(W * 0.07f, 58.f, 90.f);
  const float tpW = std::clamp(24.f + float(std::max(2, channels)) * 16.f, 60.f, std::max(60.f, W * 0.28f));
  l.truePeakBar = IRECT(content.R - tpW, content.T, content.R, content.B);
  l.loudnessBar = IRECT(l.truePeakBar.L - gap - loudW, content.T, l.truePeakBar.L - gap, content.B);
  if (compact) {
    l.showGraph = l.showHistograms = false;
    l.readout = IRECT(content.L, content.T, l.loudnessBar.L - gap, content.B);
    l.graph = l.histograms[0] = l.histograms[1] = l.histograms[2] = IRECT();
    l.settings = content;
    return l;
  }
  const float readW = std::clamp(W * 0.25f, 190.f, 320.f);
  l.readout = IRECT(content.L, content.T, content.L + readW, content.B);
  const IRECT center(l.readout.R + gap, content.T, l.loudnessBar.L - gap, content.B);
  l.showHistograms = H >= 420.f;
  if (l.showHistograms) {
    const float histH = std::clamp(center.H() * 0.34f, 90.f, 260.f);
    l.graph = IRECT(center.L, center.T, center.R, center.B - histH - gap);
    const float hw = (center.W() - 2.f * gap) / 3.f;
    for (int i = 0; i < 3; ++i) {
      const float hx = center.L + float(i) * (hw + gap);
      l.histograms[i] = IRECT(hx, center.B - histH, hx + hw, center.B);
    }
  } else {
    l.graph = center;
    l.histograms[0] = l.histograms[1] = l.histograms[2] = IRECT();
  }
  l.settings = center;
  return l;
}

}  // namespace velorum::ui
