#include "events/server/internal/server_state.h"

#include "events/server/internal/list_follower.h"
#include "events/server/internal/threads.h"

namespace ksutil::events {

ServerState::ServerState() = default;

ServerState::~ServerState() {
  stop_threads(*this);
  follower.reset();
  if (db.database != dbINVALID) dbclose(db);
}

}  // namespace ksutil::events
