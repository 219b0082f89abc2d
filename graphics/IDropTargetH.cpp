#include "graphics/IDropTargetH.h"

#include "graphics/IGraphicsWin.h"

IDropTargetH::IDropTargetH(HWND window) : mWindow(window) {}

HRESULT STDMETHODCALLTYPE IDropTargetH::QueryInterface(REFIID riid, void** object) {
  if (!object) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IDropTarget)) {
    *object = static_cast<IDropTarget*>(this);
    AddRef();
    return S_OK;
  }
  *object = nullptr;
  return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE IDropTargetH::AddRef() {
  return static_cast<ULONG>(InterlockedIncrement(&mRefCount));
}

ULONG STDMETHODCALLTYPE IDropTargetH::Release() {
  const LONG n = InterlockedDecrement(&mRefCount);
  if (n == 0) delete this;
  return static_cast<ULONG>(n);
}

static FORMATETC DropFileFormat() {
  return FORMATETC{CF_HDROP, nullptr, DVASPECT_CONTENT, -1, TYMED_HGLOBAL};
}

HRESULT STDMETHODCALLTYPE IDropTargetH::DragEnter(IDataObject* data, DWORD keys, POINTL pt, DWORD* effect) {
  (void)keys;
  (void)pt;
  FORMATETC fmt = DropFileFormat();
  mAcceptable = data && data->QueryGetData(&fmt) == S_OK;
  if (effect) *effect = mAcceptable ? DROPEFFECT_COPY : DROPEFFECT_NONE;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE IDropTargetH::DragOver(DWORD keys, POINTL pt, DWORD* effect) {
  (void)keys;
  (void)pt;
  if (effect) *effect = mAcceptable ? DROPEFFECT_COPY : DROPEFFECT_NONE;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE IDropTargetH::DragLeave() {
  mAcceptable = false;
  return S_OK;
}

bool IDropTargetH::ReadDropFiles(HDROP drop, std::vector<std::string>& paths, std::vector<int>& isDirectory) {
  const UINT count = DragQueryFileW(drop, 0xFFFFFFFF, nullptr, 0);
  paths.assign(count, std::string());
  isDirectory.assign(count, 0);
  UINT used = 0;
  for (UINT i = 0; i < count; ++i) {
    wchar_t name[MAX_PATH] = {};  // 260 wide characters
    if (DragQueryFileW(drop, i, name, MAX_PATH) == 0) continue;
    const DWORD attr = GetFileAttributesW(name);
    isDirectory[used] = attr != INVALID_FILE_ATTRIBUTES && (attr & FILE_ATTRIBUTE_DIRECTORY) ? 1 : 0;
    paths[used] = IGraphicsWin::Utf8FromWide(name);
    ++used;
  }
  paths.resize(used);
  isDirectory.resize(used);
  return used > 0;
}

HRESULT STDMETHODCALLTYPE IDropTargetH::Drop(IDataObject* data, DWORD keys, POINTL pt, DWORD* effect) {
  (void)keys;
  (void)pt;
  if (effect) *effect = DROPEFFECT_NONE;
  if (!data) return E_FAIL;
  FORMATETC fmt = DropFileFormat();
  STGMEDIUM medium{};
  if (data->GetData(&fmt, &medium) != S_OK) return E_FAIL;
  const bool ok = ReadDropFiles(static_cast<HDROP>(medium.hGlobal), mPaths, mIsDirectory);
  if (ok) {
    SendMessageW(mWindow, kDropMessage, reinterpret_cast<WPARAM>(this), 0);
    if (effect) *effect = DROPEFFECT_COPY;
  }
  ReleaseStgMedium(&medium);
  return ok ? S_OK : E_FAIL;
}
