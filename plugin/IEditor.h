// The seam between the plug-in and its editor window. The plug-in knows only
// this interface; the editor library implements it and registers a factory,
// so the plug-in never depends on the editor's code. The dispatcher calls
// Rect() for effEditGetRect, Open() for effEditOpen and Close() for
// effEditClose, all on the host's user-interface thread.
#pragma once

#include <cstdint>
#include <memory>

namespace velorum {

class IPlugBase;

// Editor rectangle in pixels, laid out as the host expects it (top, left,
// bottom, right as 16-bit values).
struct EditorRect {
  int16_t top = 0;
  int16_t left = 0;
  int16_t bottom = 0;
  int16_t right = 0;
};

class IEditor {
 public:
  virtual ~IEditor() = default;
  // Creates the editor window as a child of the host's window (HWND on
  // Windows, an X11 window id on Linux). Returns false when it failed.
  virtual bool Open(void* parentHandle) = 0;
  virtual void Close() = 0;
  // Must stay valid for the editor's lifetime: the host keeps the address.
  virtual const EditorRect& Rect() const = 0;
  // Content scale announced by the host (1.0 = 100 %).
  virtual void SetContentScale(float /*scale*/) {}
  // Called after effEditOpen, to apply the screen and editor scale.
  virtual void RefreshScaling() {}
  // An internal parameter changed; called on any thread, must not block.
  virtual void OnParamChanged(int /*index*/) {}
  // The plug-in's state was restored from a chunk, or the channel
  // configuration changed: every control should be redrawn.
  virtual void SetAllDirty() {}
};

// Creates the editor for a plug-in, or returns null. Called on the first
// effEditOpen; the editor then lives as long as the plug-in (effEditGetRect
// answers 0 until it exists).
using EditorFactory = std::unique_ptr<IEditor> (*)(IPlugBase& plugin);

// Installs the process-wide editor factory. Passing null removes it.
void RegisterEditorFactory(EditorFactory factory);
EditorFactory RegisteredEditorFactory();

// Implemented by the meter's user-interface library (velorum_ui). When that
// library exists, the plug-in module links it and VSTPluginMain registers this
// factory before it creates the plug-in, so the host sees an editor. The
// plug-in passed in is always a LoudnessMeterPlugin.
std::unique_ptr<IEditor> CreateMeterEditor(IPlugBase& plugin);

}  // namespace velorum
