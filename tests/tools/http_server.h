/* HttpServer: an HTTP server on the loopback address, whose answers a test decides. */
#ifndef KSUTIL_TESTS_TOOLS_HTTP_SERVER_H
#define KSUTIL_TESTS_TOOLS_HTTP_SERVER_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ksutil::test {

/* Answers one request after the other and closes the connection after each. */
class HttpServer {
 public:
  /* Writes bytes to the program; false when it has gone. */
  using Send = std::function<bool(const std::string &bytes)>;
  /* `request` is what came up to the empty line; `number` counts the requests from 0. */
  using Answer = std::function<void(const std::string &request, int number, Send send)>;

  explicit HttpServer(Answer answer) : answer_(std::move(answer)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(listener_, reinterpret_cast<sockaddr *>(&address), length);
    ::listen(listener_, 16);
    ::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~HttpServer() {
    ending_ = true;
    thread_.join();
    ::close(listener_);
  }
  HttpServer(const HttpServer &) = delete;
  HttpServer &operator=(const HttpServer &) = delete;

  std::string url(const std::string &path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }
  std::vector<std::string> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }
  /* For answers that wait: whether the server is about to end. */
  bool ending() const { return ending_; }

 private:
  static bool wait_for(int fd) {
    pollfd news{fd, POLLIN, 0};
    return ::poll(&news, 1, 20) > 0;
  }
  void serve() {
    for (int number = 0; !ending_;) {
      if (!wait_for(listener_)) continue;
      const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      std::string request;
      while (request.find("\r\n\r\n") == std::string::npos && !ending_) {
        if (!wait_for(fd)) continue;
        char bytes[4096];
        const ssize_t got = ::recv(fd, bytes, sizeof bytes, 0);
        if (got <= 0) break;
        request.append(bytes, static_cast<std::size_t>(got));
      }
      {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
      }
      answer_(request, number++, [fd](const std::string &bytes) {
        for (std::size_t at = 0; at < bytes.size();) {
          const ssize_t sent =
              ::send(fd, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
          if (sent <= 0) return false;
          at += static_cast<std::size_t>(sent);
        }
        return true;
      });
      ::close(fd);
    }
  }

  const Answer answer_;
  int listener_ = -1, port_ = 0;
  std::atomic<bool> ending_{false};
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

/* An answer with its length. */
inline std::string http_answer(const std::string &status, const std::string &body,
                               const std::string &headers = "") {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nConnection: close\r\n" + headers + "\r\n" + body;
}

}  // namespace ksutil::test
#endif
