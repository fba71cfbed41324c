/* ServerState: the data members of an EVServer.
 *
 * Locks, in the order in which they may be taken: refresh (try-lock only), then events
 * (Published::lock) or database (leaf).  The lock of the database serialises all use of
 * the handle, the tables, the match keys and the scratch records, in short steps; no
 * other lock is acquired and no callback runs under it.  No lock but refresh is held
 * during a callback. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_SERVER_STATE_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_SERVER_STATE_H

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "events/command.h"
#include "events/database/internal/watched_database.h"
#include "events/server/internal/clients.h"
#include "events/server/internal/expansion_follower.h"
#include "events/server/internal/list_follower.h"
#include "events/server/internal/published.h"
#include "events/server/internal/server_tables.h"
#include "events/server/internal/threads.h"
#include "events/vars.h"
#include "pipeline/pmtfifo.h"
#include "platform/db/db.h"

class EVServer;

namespace ksutil::events {

struct ServerState {
  ServerState() : database(server_database(remote_mount_mode)) {}

  /* The next refresh reads everything; the caller holds the lock of the database. */
  void forget_tables() {
    database.forget_changes();
    last_event_count = -1;
    last_detection_count = -1;
    follower.forget();
    expansion.forget();
  }

  // Database binding.  Guarded by the lock of the database, except the atomic.
  std::atomic<int32_t> remote_mount_mode{0};
  WatchedDatabase database;
  Array<std::string, EVTable> monitored;  // checkDatabase's own memory of three tables
  ListFollower follower;
  ExpansionFollower expansion;
  int64_t readings = 0;  // readings of expanded events that have begun

  // Settings read by the threads.
  std::atomic<int32_t> age_ref_now{0};
  std::atomic<int32_t> max_events{0};
  std::atomic<int32_t> max_expanded{100};
  std::atomic<int32_t> detections_on{1};

  // Counts of the last completed refresh; -1 before the first and after a forced one.
  std::atomic<int64_t> last_event_count{-1};
  std::atomic<int64_t> last_detection_count{-1};

  // Refresh.
  std::atomic_flag refresh_running;       // the refresh mutex: try-lock only
  std::atomic<int32_t> refresh_again{0};  // why another one is needed: see refresh.cpp

  Published published;
  ClientList clients;

  // Threads.  The started flags and the handles are used by the thread that launches them
  // and the one that stops them; the left flags are also set while a thread has not begun.
  EVServer *server = nullptr;  // whose state this is
  StopFlag stop;
  std::atomic<double> refresh_interval{0.0}, check_interval{0.0};
  std::atomic<pmtfifo *> cmd_mtfifo{nullptr};
  RefreshLatch handshake;
  pthread_t worker{}, refresher{}, monitor{};
  bool worker_started = false, refresher_started = false, monitor_started = false;
  std::atomic<bool> worker_left{true}, refresher_left{true}, monitor_left{true};
  std::deque<std::unique_ptr<EVCommand>>
      own_commands;              // the worker's; see push_command
  std::atomic<int32_t> pins{0};  // client threads that are handing over a command
};

}  // namespace ksutil::events
#endif
