/* SocketProxy: passes on the connections to a server's socket, and cuts them when told:
 * at once, or once so many bytes have passed. */
#ifndef KSUTIL_TESTS_SUPPORT_SOCKET_PROXY_H
#define KSUTIL_TESTS_SUPPORT_SOCKET_PROXY_H

#include <atomic>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace ksutil::test {

class SocketProxy {
 public:
  /* Listens at FOLDER/.s.PGSQL.5432, as a server in that folder would, and connects to the
   * socket of that name in `server`. */
  SocketProxy(const std::string &folder, const std::string &server);
  ~SocketProxy();
  SocketProxy(const SocketProxy &) = delete;
  SocketProxy &operator=(const SocketProxy &) = delete;

  /* Cuts all connections; new ones are passed on. */
  void cut();
  /* Cuts all connections once `to_server` bytes more have gone to the server, or
   * `to_client` bytes back; a negative number is never.  What is cut is cut in both
   * directions, and the bytes after the limit are lost. */
  void cut_after(long to_server, long to_client);
  /* Whether the limit of cut_after has been reached. */
  bool has_cut() const { return has_cut_; }
  /* With false, new connections are closed at once. */
  void let_in(bool let) { lets_in_ = let; }

 private:
  struct Connection {
    int client, server;
    std::thread thread;
  };
  void accept_all();
  void pass(int client, int server);
  /* How many of the bytes may pass. */
  long allowance(std::atomic<long> &left, long count);

  int listener_ = -1;
  std::string path_, server_;
  std::atomic<bool> lets_in_{true}, has_cut_{false}, ends_{false};
  std::atomic<long> to_server_{-1}, to_client_{-1};
  std::mutex mutex_;  // guards connections_
  std::list<Connection> connections_;
  std::thread thread_;
};

}  // namespace ksutil::test
#endif
