#pragma once
// The editor window's OLE drop target: files dropped on the window are read
// from the platform's drop-file format and sent to the window as one message.

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
// clang-format off
#include <windows.h>
#include <ole2.h>
#include <shellapi.h>
// clang-format on

#include <string>
#include <vector>

// COM objects end through Release(), never through a pointer to the base.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class IDropTargetH : public IDropTarget {
 public:
  // The message the window receives: wParam points to the drop target, whose
  // Paths() and IsDirectory() hold the names.
  static constexpr UINT kDropMessage = WM_USER + 0x4d1;

  explicit IDropTargetH(HWND window);
  virtual ~IDropTargetH() = default;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE DragEnter(IDataObject* data, DWORD keys, POINTL pt, DWORD* effect) override;
  HRESULT STDMETHODCALLTYPE DragOver(DWORD keys, POINTL pt, DWORD* effect) override;
  HRESULT STDMETHODCALLTYPE DragLeave() override;
  HRESULT STDMETHODCALLTYPE Drop(IDataObject* data, DWORD keys, POINTL pt, DWORD* effect) override;

  // Reads the names of a drop-file block; false when it holds none.
  static bool ReadDropFiles(HDROP drop, std::vector<std::string>& paths, std::vector<int>& isDirectory);

  const std::vector<std::string>& Paths() const { return mPaths; }
  const std::vector<int>& IsDirectory() const { return mIsDirectory; }

 private:
  LONG mRefCount = 1;
  HWND mWindow;
  bool mAcceptable = false;
  std::vector<std::string> mPaths;
  std::vector<int> mIsDirectory;
};
#pragma GCC diagnostic pop
