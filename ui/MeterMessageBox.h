// The editor's own message box: a text and one to three buttons, drawn over
// the editor, modal for the mouse until a button is pressed.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ui/EditorHost.h"

namespace velorum::ui {

class MeterMessageBox : public MeterControl {
 public:
  explicit MeterMessageBox(EditorHost& host);
  void Show(const std::string& text, const std::vector<std::string>& buttons,
            std::function<void(int)> answer);
  // Presses button `index` as a click would.
  void Press(int index);
  bool IsShown() const { return !IsHidden(); }
  const std::string& Text() const { return mText; }
  IRECT ButtonRect(size_t i) const;

  void Draw(tgraphics& g) override;
  void OnMouseDown(float x, float y, const IMouseMod& mod) override;

 private:
  IRECT BoxRect() const;

  std::string mText;
  std::vector<std::string> mButtons;
  std::function<void(int)> mAnswer;
};

}  // namespace velorum::ui
