// The editor's pop-up menu: drawn over everything, below the button that
// opened it (or above, when there is more room there), with group headers,
// check marks and a wheel-scrolled list when it is taller than the editor.
// A click outside closes it without a choice.
#pragma once

#include <functional>
#include <vector>

#include "ui/EditorHost.h"

namespace velorum::ui {

class DropDownMenu : public MeterControl {
 public:
  static constexpr float kItemHeight = 18.f;

  explicit DropDownMenu(EditorHost& host);
  void Open(const std::vector<MenuItem>& items, const IRECT& anchor, std::function<void(int)> choose);
  void Close();
  bool IsOpen() const { return !IsHidden(); }
  // Chooses an item as a click on it would (tests and keyboard).
  bool Choose(int id);
  const std::vector<MenuItem>& Items() const { return mItems; }
  // Where the list of `items` opens under (or above) `anchor` in an editor
  // of width W and height H.
  static IRECT Place(const std::vector<MenuItem>& items, const IRECT& anchor, float W, float H);
  // The rectangle of the list, and of the item at position i, in editor units.
  IRECT ListRect() const { return mList; }
  IRECT ItemRect(size_t i) const;

  void Draw(tgraphics& g) override;
  void OnMouseDown(float x, float y, const IMouseMod& mod) override;
  void OnMouseOver(float x, float y, const IMouseMod& mod) override;
  void OnMouseWheel(float x, float y, const IMouseMod& mod, float d) override;
  bool OnKeyDown(float x, float y, int key) override;

 private:
  int ItemAt(float x, float y) const;

  std::vector<MenuItem> mItems;
  std::function<void(int)> mChoose;
  IRECT mList;
  float mScroll = 0.f;
  int mHover = -1;
};

}  // namespace velorum::ui
