// HttpGet over WinHTTP, loaded with LoadLibrary so the DLL gains no import
// beyond the ones it already has. Synchronous calls on the checker's thread;
// a cancel closes the request handles from the other thread, which makes a
// blocked call return.
#include <windows.h>
#include <winhttp.h>

#include <mutex>
#include <string>

#include "update/HttpFetch.h"
#include "update/UpdateManifest.h"

namespace velorum {
namespace {

struct WinHttpApi {
  decltype(&WinHttpOpen) open;
  decltype(&WinHttpCrackUrl) crackUrl;
  decltype(&WinHttpConnect) connect;
  decltype(&WinHttpOpenRequest) openRequest;
  decltype(&WinHttpSetTimeouts) setTimeouts;
  decltype(&WinHttpSetOption) setOption;
  decltype(&WinHttpSendRequest) sendRequest;
  decltype(&WinHttpReceiveResponse) receiveResponse;
  decltype(&WinHttpQueryHeaders) queryHeaders;
  decltype(&WinHttpReadData) readData;
  decltype(&WinHttpCloseHandle) closeHandle;
  bool ok = false;
};

const WinHttpApi& Api() {
  static WinHttpApi api;
  static std::once_flag once;
  std::call_once(once, [] {
    HMODULE lib = LoadLibraryW(L"winhttp.dll");
    if (!lib) return;
    bool all = true;
    auto get = [&](auto& fn, const char* name) {
      fn = reinterpret_cast<std::remove_reference_t<decltype(fn)>>(
          reinterpret_cast<void*>(GetProcAddress(lib, name)));
      all = all && fn;
    };
    get(api.open, "WinHttpOpen");
    get(api.crackUrl, "WinHttpCrackUrl");
    get(api.connect, "WinHttpConnect");
    get(api.openRequest, "WinHttpOpenRequest");
    get(api.setTimeouts, "WinHttpSetTimeouts");
    get(api.setOption, "WinHttpSetOption");
    get(api.sendRequest, "WinHttpSendRequest");
    get(api.receiveResponse, "WinHttpReceiveResponse");
    get(api.queryHeaders, "WinHttpQueryHeaders");
    get(api.readData, "WinHttpReadData");
    get(api.closeHandle, "WinHttpCloseHandle");
    api.ok = all;
  });
  return api;
}

std::wstring Widen(const std::string& s) {
  std::wstring w(s.size(), L'\0');
  const int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), int(s.size()), w.data(), int(w.size()));
  w.resize(n > 0 ? size_t(n) : 0);
  return w;
}

// The session, connection and request; closed once, by whichever of the
// fetch and a cancel comes first.
struct Handles {
  explicit Handles(const WinHttpApi& a) : api(a) {}
  const WinHttpApi& api;
  std::mutex lock;
  HINTERNET session = nullptr, connection = nullptr, request = nullptr;
  bool closed = false;  // by a cancel: nothing more is opened
  void Close() {
    std::lock_guard<std::mutex> guard(lock);
    closed = true;
    for (HINTERNET* h : {&request, &connection, &session})
      if (*h) {
        api.closeHandle(*h);
        *h = nullptr;
      }
  }
};

std::string LastError(const char* step) {
  return std::string(step) + " failed (" + std::to_string(GetLastError()) + ")";
}

bool Exchange(Handles& h, const std::string& url, const FetchOptions& o, FetchResult& r) {
  const WinHttpApi& a = h.api;
  const std::wstring wideUrl = Widen(url);
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof(parts);
  wchar_t host[256] = {}, path[1024] = {};
  parts.lpszHostName = host;
  parts.dwHostNameLength = 255;
  parts.lpszUrlPath = path;
  parts.dwUrlPathLength = 1023;
  if (!a.crackUrl(wideUrl.c_str(), 0, 0, &parts)) return r.error = LastError("WinHttpCrackUrl"), false;
  const bool secure = parts.nScheme == INTERNET_SCHEME_HTTPS;
  {
    std::lock_guard<std::mutex> guard(h.lock);
    if (h.closed) return r.error = "cancelled", false;
    h.session = a.open(Widen(o.userAgent).c_str(), WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                       WINHTTP_NO_PROXY_BYPASS, 0);
    if (!h.session) return r.error = LastError("WinHttpOpen"), false;
    a.setTimeouts(h.session, o.timeoutMs, o.timeoutMs, o.timeoutMs, o.timeoutMs);
    DWORD redirects =
        secure ? WINHTTP_OPTION_REDIRECT_POLICY_DISALLOW_HTTPS_TO_HTTP : WINHTTP_OPTION_REDIRECT_POLICY_NEVER;
    a.setOption(h.session, WINHTTP_OPTION_REDIRECT_POLICY, &redirects, sizeof(redirects));
    h.connection = a.connect(h.session, host, parts.nPort, 0);
    if (!h.connection) return r.error = LastError("WinHttpConnect"), false;
    h.request = a.openRequest(h.connection, L"GET", path, nullptr, WINHTTP_NO_REFERER,
                              WINHTTP_DEFAULT_ACCEPT_TYPES, secure ? WINHTTP_FLAG_SECURE : 0);
    if (!h.request) return r.error = LastError("WinHttpOpenRequest"), false;
  }
  if (!a.sendRequest(h.request, WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0) ||
      !a.receiveResponse(h.request, nullptr))
    return r.error = LastError("the request"), false;
  DWORD status = 0, size = sizeof(status);
  a.queryHeaders(h.request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                 WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX);
  r.status = long(status);
  if (status != 200) return r.error = "HTTP status " + std::to_string(status), false;
  char buffer[8192];
  for (DWORD got = 0;;) {
    if (!a.readData(h.request, buffer, sizeof(buffer), &got)) return r.error = LastError("reading"), false;
    if (got == 0) return true;
    if (r.body.size() + got > o.maxBytes)
      return r.error = "the reply is larger than " + std::to_string(o.maxBytes) + " bytes", false;
    r.body.append(buffer, got);
  }
}

}  // namespace

bool HttpAvailable() {
  return Api().ok;
}

FetchResult HttpGet(const std::string& url, const FetchOptions& options) {
  FetchResult r;
  if (!IsAllowedUrl(url, options.allowLoopbackHttp)) {
    r.error = "the address is not an https address";
    return r;
  }
  if (!Api().ok) {
    r.error = "winhttp.dll could not be loaded";
    return r;
  }
  Handles handles(Api());
  if (options.cancel) options.cancel->SetAbort([&handles] { handles.Close(); });
  r.ok = Exchange(handles, url, options, r);
  if (options.cancel) options.cancel->SetAbort(nullptr);
  handles.Close();
  if (options.cancel && options.cancel->Cancelled()) {
    r.ok = false;
    r.error = "cancelled";
  }
  if (!r.ok) r.body.clear();
  return r;
}

}  // namespace velorum
