// The line under the meter: what is measured (live input or an analysed
// file), the progress of a file analysis with its cancel button, and the
// time display in the units of the histogram mode.
#pragma once

#include <functional>
#include <string>

#include "ui/EditorHost.h"

namespace velorum::ui {

class StatusBar : public MeterControl {
 public:
  StatusBar(EditorHost& host, const IRECT& r);
  void Draw(tgraphics& g) override;
  void OnMouseDown(float x, float y, const IMouseMod& mod) override;
  // Progress 0..100 while a file is analysed, -1 otherwise.
  void SetProgress(int percent, const std::string& file);
  IRECT CancelRect() const;
  // The time display as drawn.
  std::string TimeText() const;

 private:
  int mProgress = -1;
  std::string mFile;
};

}  // namespace velorum::ui
