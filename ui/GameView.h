// The view of the hidden game: draws a GainRiderGame with tgraphics over the
// editor's panels and turns keys, wheel and mouse into its inputs. While the
// game is closed the view is hidden and holds no game at all, so the editor's
// frame pays one pointer test for it.
//
// Keys: Up and Down ride the fader, Space pauses, resumes and starts a new
// game after the last life, P pauses, Q closes. The mouse drags the fader
// (or anywhere on the lane), the wheel nudges it.
#pragma once

#include <memory>

#include "ui/EditorHost.h"
#include "ui/GainRiderGame.h"

namespace velorum::ui {

class GameView : public MeterControl {
 public:
  GameView(EditorHost& host, const IRECT& r);
  ~GameView() override;

  void Open(uint32_t seed);
  void Close();
  bool IsOpen() const { return mGame != nullptr; }
  GainRiderGame* Game() { return mGame.get(); }
  // One editor frame: advances the game by the wall time since the last one.
  void Tick(double seconds);
  long long HighScore() const;

  void Draw(tgraphics& g) override;
  bool OnKeyDown(float x, float y, int key) override;
  void OnMouseDown(float x, float y, const IMouseMod& mod) override;
  void OnMouseDrag(float x, float y, float dX, float dY, const IMouseMod& mod) override;
  void OnMouseWheel(float x, float y, const IMouseMod& mod, float d) override;
  void OnFocusLost() override;

  // Geometry in editor units.
  IRECT LaneRect() const;
  IRECT FaderRect() const;
  IRECT CloseRect() const;

 private:
  void FaderFromY(float y);
  void KeepHighScore();
  void DrawLane(tgraphics& g, const DRect& lane);
  // The programme's line through the OpenGL path when it is on; false to draw it with cairo.
  bool DrawProgrammeAccelerated(tgraphics& g, const DRect& lane, int64_t first, int64_t last);
  void DrawFader(tgraphics& g, const DRect& f);
  void DrawHud(tgraphics& g, const DRect& r);

  // The GL series the game uses, clear of the history graph's.
  static constexpr int kGlSeries = 64;
  std::unique_ptr<GainRiderGame> mGame;
};

}  // namespace velorum::ui
