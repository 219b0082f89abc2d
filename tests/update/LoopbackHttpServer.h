// A tiny HTTP/1.0 server on 127.0.0.1 for the update tests, on a port the
// system picks. Each path has a canned reply; a "stall" reply sends its
// headers and then holds the connection until the server is destroyed, so a
// client's timeout is certain without any sleep.
#pragma once

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
using SocketHandle = SOCKET;
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
using SocketHandle = int;
#endif

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace velorum::test {

class LoopbackHttpServer {
 public:
  struct Reply {
    int status = 200;
    std::string body;
    bool stall = false;
  };

  LoopbackHttpServer() {
#ifdef _WIN32
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
#endif
    mListen = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(mListen, reinterpret_cast<sockaddr*>(&a), sizeof(a));
    socklen_t len = sizeof(a);
    getsockname(mListen, reinterpret_cast<sockaddr*>(&a), &len);
    mPort = ntohs(a.sin_port);
    listen(mListen, 8);
    mThread = std::thread([this] { Serve(); });
  }
  ~LoopbackHttpServer() {
    {
      std::lock_guard<std::mutex> guard(mLock);
      mStopping = true;
    }
    mRelease.notify_all();
    // A connection to ourselves wakes the accept loop.
    SocketHandle wake = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(mPort);
    connect(wake, reinterpret_cast<sockaddr*>(&a), sizeof(a));
    mThread.join();
    Close(wake);
    Close(mListen);
  }

  void Set(const std::string& path, Reply reply) {
    std::lock_guard<std::mutex> guard(mLock);
    mReplies[path] = std::move(reply);
  }
  std::string Url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mPort) + path;
  }
  int Requests() const {
    return mRequests.load();
  }

 private:
  static void Close(SocketHandle s) {
#ifdef _WIN32
    closesocket(s);
#else
    close(s);
#endif
  }
  void Serve() {
    for (;;) {
      SocketHandle c = accept(mListen, nullptr, nullptr);
      {
        std::lock_guard<std::mutex> guard(mLock);
        if (mStopping) {
          Close(c);
          return;
        }
      }
      Answer(c);
      Close(c);
    }
  }
  void Answer(SocketHandle c) {
    std::string request;
    char buf[1024];
    while (request.find("\r\n\r\n") == std::string::npos) {
      const int n = int(recv(c, buf, sizeof(buf), 0));
      if (n <= 0) return;
      request.append(buf, size_t(n));
    }
    ++mRequests;
    const size_t start = request.find(' ') + 1;
    const std::string path = request.substr(start, request.find(' ', start) - start);
    std::unique_lock<std::mutex> guard(mLock);
    const auto it = mReplies.find(path);
    const Reply reply = it == mReplies.end() ? Reply{404, "not here", false} : it->second;
    guard.unlock();
    std::string head =
        "HTTP/1.0 " + std::to_string(reply.status) + " X\r\nContent-Type: application/json\r\n";
    if (!reply.stall) head += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
    head += "\r\n";
    SendAll(c, head);
    if (reply.stall) {
      guard.lock();
      mRelease.wait(guard, [this] { return mStopping; });
      return;
    }
    SendAll(c, reply.body);
  }
  static void SendAll(SocketHandle c, const std::string& s) {
    for (size_t sent = 0; sent < s.size();) {
      const int n = int(send(c, s.data() + sent, int(s.size() - sent), 0));
      if (n <= 0) return;
      sent += size_t(n);
    }
  }

  SocketHandle mListen;
  int mPort = 0;
  std::thread mThread;
  std::mutex mLock;
  std::condition_variable mRelease;
  bool mStopping = false;
  std::map<std::string, Reply> mReplies;
  std::atomic<int> mRequests{0};
};

}  // namespace velorum::test
