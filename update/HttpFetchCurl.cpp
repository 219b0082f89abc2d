// HttpGet over libcurl, opened with dlopen: the plug-in has no link-time
// dependency on it. The transfer runs through a multi handle polled in short
// steps, so a cancel is seen within 50 ms.
#include <curl/curl.h>
#include <dlfcn.h>

#include <mutex>

#include "update/HttpFetch.h"
#include "update/UpdateManifest.h"

namespace velorum {
namespace {

struct CurlApi {
  CURL* (*easy_init)();
  CURLcode (*easy_setopt)(CURL*, CURLoption, ...);
  CURLcode (*easy_getinfo)(CURL*, CURLINFO, ...);
  void (*easy_cleanup)(CURL*);
  const char* (*easy_strerror)(CURLcode);
  CURLM* (*multi_init)();
  CURLMcode (*multi_add_handle)(CURLM*, CURL*);
  CURLMcode (*multi_remove_handle)(CURLM*, CURL*);
  CURLMcode (*multi_perform)(CURLM*, int*);
  CURLMcode (*multi_poll)(CURLM*, curl_waitfd*, unsigned, int, int*);
  CURLMsg* (*multi_info_read)(CURLM*, int*);
  CURLMcode (*multi_cleanup)(CURLM*);
  bool ok = false;
};

// Loaded once per process and kept: unloading libcurl while another module
// of the host uses it would be unsafe, and it is small.
const CurlApi& Curl() {
  static CurlApi api;
  static std::once_flag once;
  std::call_once(once, [] {
    void* lib = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
    if (!lib) return;
    bool all = true;
    auto get = [&](auto& fn, const char* name) {
      fn = reinterpret_cast<std::remove_reference_t<decltype(fn)>>(dlsym(lib, name));
      all = all && fn;
    };
    get(api.easy_init, "curl_easy_init");
    get(api.easy_setopt, "curl_easy_setopt");
    get(api.easy_getinfo, "curl_easy_getinfo");
    get(api.easy_cleanup, "curl_easy_cleanup");
    get(api.easy_strerror, "curl_easy_strerror");
    get(api.multi_init, "curl_multi_init");
    get(api.multi_add_handle, "curl_multi_add_handle");
    get(api.multi_remove_handle, "curl_multi_remove_handle");
    get(api.multi_perform, "curl_multi_perform");
    get(api.multi_poll, "curl_multi_poll");  // libcurl 7.66 and later
    get(api.multi_info_read, "curl_multi_info_read");
    get(api.multi_cleanup, "curl_multi_cleanup");
    api.ok = all;
  });
  return api;
}

struct Sink {
  std::string body;
  size_t limit = 0;
  bool overflow = false;
};

size_t Write(char* data, size_t size, size_t count, void* user) {
  auto* sink = static_cast<Sink*>(user);
  const size_t n = size * count;
  if (sink->body.size() + n > sink->limit) {
    sink->overflow = true;
    return 0;  // breaks the transfer off
  }
  sink->body.append(data, n);
  return n;
}

void Configure(const CurlApi& c, CURL* h, const std::string& url, const FetchOptions& o, Sink& sink) {
  const bool loopback = o.allowLoopbackHttp && IsLoopbackHttpUrl(url);
  c.easy_setopt(h, CURLOPT_URL, url.c_str());
  c.easy_setopt(h, CURLOPT_PROTOCOLS_STR, loopback ? "http" : "https");
  c.easy_setopt(h, CURLOPT_REDIR_PROTOCOLS_STR, loopback ? "http" : "https");
  c.easy_setopt(h, CURLOPT_FOLLOWLOCATION, 1L);
  c.easy_setopt(h, CURLOPT_MAXREDIRS, 3L);
  c.easy_setopt(h, CURLOPT_NOSIGNAL, 1L);  // never touch the host's signals
  c.easy_setopt(h, CURLOPT_TIMEOUT_MS, long(o.timeoutMs));
  c.easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, long(o.timeoutMs));
  c.easy_setopt(h, CURLOPT_MAXFILESIZE, long(o.maxBytes));
  c.easy_setopt(h, CURLOPT_FAILONERROR, 1L);
  c.easy_setopt(h, CURLOPT_ACCEPT_ENCODING, "");
  c.easy_setopt(h, CURLOPT_USERAGENT, o.userAgent.c_str());
  c.easy_setopt(h, CURLOPT_WRITEFUNCTION, &Write);
  c.easy_setopt(h, CURLOPT_WRITEDATA, &sink);
}

}  // namespace

bool HttpAvailable() {
  return Curl().ok;
}

FetchResult HttpGet(const std::string& url, const FetchOptions& options) {
  FetchResult r;
  const CurlApi& c = Curl();
  if (!IsAllowedUrl(url, options.allowLoopbackHttp)) {
    r.error = "the address is not an https address";
    return r;
  }
  if (!c.ok) {
    r.error = "libcurl.so.4 could not be loaded";
    return r;
  }
  CURL* easy = c.easy_init();
  CURLM* multi = c.multi_init();
  Sink sink;
  sink.limit = options.maxBytes;
  CURLcode done = CURLE_FAILED_INIT;
  if (easy && multi) {
    Configure(c, easy, url, options, sink);
    c.multi_add_handle(multi, easy);
    int running = 1;
    while (running && !(options.cancel && options.cancel->Cancelled())) {
      if (c.multi_perform(multi, &running) != CURLM_OK) break;
      if (running) c.multi_poll(multi, nullptr, 0, 50, nullptr);
    }
    int left = 0;
    while (CURLMsg* m = c.multi_info_read(multi, &left))
      if (m->msg == CURLMSG_DONE) done = m->data.result;
    c.easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &r.status);
    c.multi_remove_handle(multi, easy);
  }
  if (easy) c.easy_cleanup(easy);
  if (multi) c.multi_cleanup(multi);
  if (options.cancel && options.cancel->Cancelled()) {
    r.error = "cancelled";
  } else if (sink.overflow || done == CURLE_FILESIZE_EXCEEDED) {
    r.error = "the reply is larger than " + std::to_string(options.maxBytes) + " bytes";
  } else if (done != CURLE_OK) {
    r.error = c.easy_strerror(done);
    if (r.status >= 400) r.error = "HTTP status " + std::to_string(r.status);
  } else {
    r.ok = true;
    r.body = std::move(sink.body);
  }
  return r;
}

}  // namespace velorum
