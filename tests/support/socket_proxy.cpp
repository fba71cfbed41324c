#include "tests/support/socket_proxy.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace ksutil::test {
namespace {

const char kSocket[] = "/.s.PGSQL.5432";

sockaddr_un address_of(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

bool send_all(int to, const char *bytes, long count) {
  while (count > 0) {
    const ssize_t sent = send(to, bytes, static_cast<std::size_t>(count), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes += sent;
    count -= sent;
  }
  return true;
}

}  // namespace

SocketProxy::SocketProxy(const std::string &folder, const std::string &server)
    : path_(folder + kSocket), server_(server + kSocket) {
  mkdir(folder.c_str(), 0755);
  unlink(path_.c_str());
  listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = address_of(path_);
  if (bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address) !=
          0 ||
      listen(listener_, 20) != 0) {
    throw std::runtime_error("cannot listen at " + path_);
  }
  thread_ = std::thread([this] { accept_all(); });
}

SocketProxy::~SocketProxy() {
  ends_ = true;
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  close(listener_);
  cut();
  for (Connection &connection : connections_) {
    connection.thread.join();
    close(connection.client);
    close(connection.server);
  }
  unlink(path_.c_str());
}

void SocketProxy::accept_all() {
  while (!ends_) {
    const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) continue;
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = address_of(server_);
    if (!lets_in_ || connect(server, reinterpret_cast<const sockaddr *>(&address),
                             sizeof address) != 0) {
      close(client);
      close(server);
      continue;
    }
    const std::lock_guard lock(mutex_);
    connections_.push_back({client, server, {}});
    connections_.back().thread = std::thread([=, this] { pass(client, server); });
  }
}

long SocketProxy::allowance(std::atomic<long> &left, long count) {
  long now = left;
  while (now >= 0) {
    const long passing = now < count ? now : count;
    if (left.compare_exchange_weak(now, now - passing)) return passing;
  }
  return count;
}

void SocketProxy::pass(int client, int server) {
  char bytes[16384];
  bool open = true, limited = false;
  while (open) {
    pollfd both[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
    if (poll(both, 2, -1) < 0) continue;
    for (int i = 0; i < 2 && open; i++) {
      if (both[i].revents == 0) continue;
      const ssize_t count = recv(both[i].fd, bytes, sizeof bytes, 0);
      open = count > 0;
      if (!open) break;
      const long passing = allowance(i == 0 ? to_server_ : to_client_, count);
      limited = passing < count;
      open = send_all(both[1 - i].fd, bytes, passing) && !limited;
    }
  }
  if (limited) {
    has_cut_ = true;
    cut();
  }
  shutdown(client, SHUT_RDWR);
  shutdown(server, SHUT_RDWR);
}

void SocketProxy::cut() {
  to_server_ = -1;
  to_client_ = -1;
  const std::lock_guard lock(mutex_);
  for (const Connection &connection : connections_) {
    shutdown(connection.client, SHUT_RDWR);
    shutdown(connection.server, SHUT_RDWR);
  }
}

void SocketProxy::cut_after(long to_server, long to_client) {
  has_cut_ = false;
  to_server_ = to_server;
  to_client_ = to_client;
}

}  // namespace ksutil::test
