/* A server's threads and clients without a database under them. */
#ifndef KSUTIL_TESTS_EVENTS_BARE_SERVER_H
#define KSUTIL_TESTS_EVENTS_BARE_SERVER_H

#include <cstdlib>
#include <string>

#include "core/register.h"
#include "events/evclient.h"
#include "events/internal/live_servers.h"
#include "events/internal/server_state.h"
#include "events/internal/threads.h"

/* The state of a server that clients accept as alive.  Its commands may be used, a refresh
 * and a database check not. */
struct BareServer {
  BareServer() {
    state.schema_name = "css3.0";
    ksutil::events::add_live_server(pointer(), state);
  }
  ~BareServer() { end(); }

  /* What ~EVServer does, in its order. */
  void end() {
    ksutil::events::remove_live_server(pointer());
    ksutil::events::stop_threads(state);
    state.clients.detach_all();
  }
  EVServer *pointer() { return reinterpret_cast<EVServer *>(this); }

  ksutil::events::ServerState state;
};

/* The registered messages, which it clears. */
inline std::string taken_messages() {
  char *const text = ks_elog_string(0);
  const std::string messages = text == nullptr ? "" : text;
  std::free(text);
  ks_clear_register(0);
  return messages;
}

#endif
