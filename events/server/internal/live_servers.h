/* The servers that live in this process, so that a pointer can be tested before
 * anything is read through it, and so that none goes away while a client hands it a
 * command. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_LIVE_SERVERS_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_LIVE_SERVERS_H

class EVServer;

namespace ksutil::events {

struct ServerState;

void add_live_server(const EVServer *server, ServerState &state);
/* From then on the server cannot be pinned any more; earlier pins count on. */
void remove_live_server(const EVServer *server);

/* For its scope keeps a server's state from going away; short, never across a wait for
 * the worker's answer. */
class ServerPin {
 public:
  explicit ServerPin(const EVServer *server);
  ~ServerPin();
  ServerPin(const ServerPin &) = delete;
  ServerPin &operator=(const ServerPin &) = delete;

  /* Null when the pointer is no living server. */
  ServerState *state() const { return state_; }

 private:
  ServerState *state_ = nullptr;
};

}  // namespace ksutil::events
#endif
