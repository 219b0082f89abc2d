#pragma once
// The editor's scale ("GUI Scale"): kept in "GuiScale.ini" in the settings
// folder, applied to the window, and offered by the resize handles and the
// "GUI SCALING" menu. Attach it last, after every other control.

#include <string>
#include <vector>

#include "graphics/IControl.h"

class IGraphics;

// One item of the "GUI SCALING" menu; `index` is the stored, stable value.
struct IGuiScaleItem {
  const char* label;
  int index;
  float scale;
};
// In menu order: "50%" (0), "65%" (11), "75%" (1), ... "400%" (10).
extern const IGuiScaleItem kGuiScaleItems[13];
inline constexpr const char* kCustomScalingLabel = "CUSTOM SCALING";
// The scale of a stored index; 1.0 for an unknown index.
float GuiScaleForIndex(int index);
// The stored index of a scale; -1 when no item has it (a custom scale).
int GuiScaleIndexFor(float scale);

// "GRAPHS REFRESH RATE": seven items, index 0 to 6, kept in the global
// setting "GUI Refresh Rate". The window timer never changes; the graphs draw
// on every n-th tick of it.
extern const char* const kGraphsRefreshRateItems[7];
inline constexpr const char* kGuiRefreshRateSetting = "GUI Refresh Rate";
// Timer ticks per graph frame for an item (6 ms ticks: 32 -> about 5 frames a
// second, 1 -> every tick); out-of-range indices count as "NORMAL".
int GraphsTicksPerFrame(int index);
inline constexpr const char* kGraphsRefreshRateTooltip =
    "Adjust the refresh rate of the graphs. Pro Tip: Lowering the refresh rate can help conserve resources "
    "on slower "
    "computers.";

inline constexpr const char* kResizeTooltip =
    "Resize the window. Hold CTRL + ALT key and click and drag to smoothly scale the GUI.";
inline constexpr const char* kScaleTooltip =
    "Adjust the scaling of the GUI. Hold CTRL/COMMAND key and click and drag the resizing corner to smoothly "
    "scale "
    "the GUI.";

class IGraphicsResize;

// The strip along the bottom edge: dragging it changes the editor's height.
class VerticalResizing : public IControl {
 public:
  VerticalResizing(IGraphicsResize* owner, const IRECT& r);
  void Draw(tgraphics& g) override;
  void OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod) override;

 private:
  IGraphicsResize* mOwner;
};

// The strip along the right edge: dragging it changes the editor's width.
class HorisontalResizing : public IControl {
 public:
  HorisontalResizing(IGraphicsResize* owner, const IRECT& r);
  void Draw(tgraphics& g) override;
  void OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod) override;

 private:
  IGraphicsResize* mOwner;
};

class IGraphicsResize : public IControl {
 public:
  static constexpr float kHandleSize = 8.f;

  // `settingsFolder` holds "GuiScale.ini"; the stored scale is applied to
  // the editor at once. The control itself is the resize corner.
  IGraphicsResize(IGraphics* graphics, const std::string& settingsFolder);

  // Reads "GUI Scale" from section "gui"; false when the file or key is missing.
  static bool ReadScaleFile(const std::string& path, float& scale);
  static bool WriteScaleFile(const std::string& path, float scale);
  const std::string& ScaleFilePath() const { return mPath; }

  float GetGUIScale() const { return mScale; }
  // Applies a new scale; the file is written only when the scale differs from
  // the stored one by more than 1e-7.
  void SetGUIScale(float scale);
  int WindowWidth() const { return mWindowW; }
  int WindowHeight() const { return mWindowH; }

  // Creates the two handles, attaches them, and records the layout of every
  // control at scale 1 (this one last). Call after the other controls.
  void AttachHandles();
  // Which handle is shown: direction 0 keeps the bottom strip, 1 the right
  // strip; disabled hides both.
  void SetResizeMode(bool enabled, int direction);
  // Changes the editor's size in units (from the handles).
  void ResizeEditor(float width, float height);

  void Draw(tgraphics& g) override;
  void OnMouseDown(float x, float y, const IMouseMod& mod) override;
  void OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod) override;
  // The window knows the screen scale now: the pixel size follows it.
  void OnWindowOpened() override { UpdateWindowSize(); }

 private:
  struct LayoutEntry {
    IControl* control;
    IRECT rect;
    IRECT mouseRect;
  };
  void Relayout();
  void UpdateWindowSize();

  IGraphics* mGraphics;
  std::string mPath;
  float mScale = 1.f;
  float mStoredScale = 1.f;
  int mWindowW = 0, mWindowH = 0;
  int mBaseW = 0, mBaseH = 0;
  bool mResizeEnabled = true;
  int mDirection = 0;
  float mDragW = 0.f, mDragH = 0.f;
  VerticalResizing* mVertical = nullptr;
  HorisontalResizing* mHorisontal = nullptr;
  std::vector<LayoutEntry> mLayout;
};
