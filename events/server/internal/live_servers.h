/* live_servers: knows the servers of this process, so that a pointer can be tested
 * before it is used, and so that a server is not destroyed while a client hands it a
 * command. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_LIVE_SERVERS_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_LIVE_SERVERS_H

class EVServer;

namespace ksutil::events {

struct ServerState;

void add_live_server(const EVServer *server, ServerState &state);
/* Afterwards the server cannot be pinned; earlier pins still count. */
void remove_live_server(const EVServer *server);

/* ServerPin: keeps a server's state alive for its scope.  The destructor of the server
 * waits for it, so it must not be held while waiting for the worker. */
class ServerPin {
 public:
  explicit ServerPin(const EVServer *server);
  ~ServerPin();
  ServerPin(const ServerPin &) = delete;
  ServerPin &operator=(const ServerPin &) = delete;

  /* Null if the pointer is not a living server. */
  ServerState *state() const { return state_; }

 private:
  ServerState *state_ = nullptr;
};

}  // namespace ksutil::events
#endif
