// The momentary and short-term loudness bars with their maxima, on a scale
// around the target, and the target window marked beside them.
#pragma once

#include <chrono>

#include "ui/EditorHost.h"
#include "ui/MeterScale.h"

namespace velorum::ui {

class LoudnessMeterBar : public MeterControl {
 public:
  LoudnessMeterBar(EditorHost& host, const IRECT& r);
  void Draw(tgraphics& g) override;
  MeterScale Scale() const;

 private:
  double mShownM = -120.0, mShownS = -120.0;
  std::chrono::steady_clock::time_point mLast{};
};

}  // namespace velorum::ui
