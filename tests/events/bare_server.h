/* A server's threads and clients without a database under them. */
#ifndef KSUTIL_TESTS_EVENTS_BARE_SERVER_H
#define KSUTIL_TESTS_EVENTS_BARE_SERVER_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "events/evclient.h"
#include "events/server/internal/live_servers.h"
#include "events/server/internal/server_state.h"
#include "events/server/internal/threads.h"
#include "platform/db/db.h"
#include "tests/events/messages.h"
#include "tests/support/folder.h"

/* Waits for a condition, up to 10 s. */
inline bool comes_true(const std::function<bool()> &condition) {
  for (int i = 0; i < 10000; i++) {
    if (condition()) return true;
    usleep(1000);
  }
  return false;
}

/* The state of a server that clients accept as alive.  Its commands may be used, a refresh
 * and a database check not. */
struct BareServer {
  BareServer() {
    /* Opened and closed, so that the schema is known. */
    const std::string name = folder_ / "db";
    EXPECT_EQ(dbcreate(name.c_str(), "css3.0"), 0);
    const auto hold = state.database.hold();
    EXPECT_TRUE(state.database.open(name, "BareServer"));
    state.database.close();
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

 private:
  ksutil::test::TempFolder folder_;
};

#endif
