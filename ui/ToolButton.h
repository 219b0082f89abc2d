// A flat push button of the editor's top bar and pages: a text, an optional
// "on" state read from a function, a tooltip and an action.
#pragma once

#include <functional>
#include <string>

#include "ui/EditorHost.h"

namespace velorum::ui {

class ToolButton : public MeterControl {
 public:
  ToolButton(EditorHost& host, const IRECT& r, std::function<std::string()> text,
             std::function<void()> action, std::function<bool()> on = nullptr, bool dropDown = false);
  void Draw(tgraphics& g) override;
  void OnMouseDown(float x, float y, const IMouseMod& mod) override;
  void OnMouseOver(float x, float y, const IMouseMod& mod) override;
  void OnMouseOut() override;

 private:
  std::function<std::string()> mText;
  std::function<void()> mAction;
  std::function<bool()> mOn;
  bool mDropDown;
  bool mHover = false;
};

}  // namespace velorum::ui
