#include "events/evserver.h"

#include <mutex>
#include <utility>

#include "core/register.h"
#include "events/reading/internal/magnitude_rules.h"
#include "events/server/internal/live_servers.h"
#include "events/server/internal/server_state.h"
#include "events/server/internal/threads.h"

using ksutil::events::ServerState;
using ksutil::events::WatchedDatabase;

EVServer::EVServer(int remote_mount_mode) : state_(std::make_unique<ServerState>()) {
  state_->server = this;
  state_->remote_mount_mode = remote_mount_mode;
  ksutil::events::read_default_magnitude_rules(state_->database.vars().rules);
}

/* Delegates, so that the destructor ends what a failing constructor has begun. */
EVServer::EVServer(std::string dbname, int age_ref_now, int max_events,
                   int remote_mount_mode)
    : EVServer(remote_mount_mode) {
  if (setDb(dbname) != 0) {
    ks_complain(0, "EVServer::EVServer: setDb(%s) error.\n", dbname.c_str());
    throw "EVServer::EVServer: setDb() error.";
  }
  state_->age_ref_now = age_ref_now;
  state_->max_events = max_events;
  refreshEvents(0);
  /* Add it last: no client can be made of a server whose constructor is still
   * running. */
  ksutil::events::add_live_server(this, *state_);
}

EVServer::~EVServer() {
  ksutil::events::remove_live_server(this);
  /* The worker may be waiting for the lock in order to publish. */
  state_->published.lock.unlock_fully();
  ksutil::events::stop_threads(*state_);
  {
    /* Another thread may hold the lock, and its client needs the server to release it. */
    const std::lock_guard wait(state_->published.lock);
  }
  state_->clients.detach_all();
}

int EVServer::launchThread() { return ksutil::events::launch_threads(*state_); }

void EVServer::autoRefreshEvents(double seconds) { state_->refresh_interval = seconds; }

void EVServer::autoCheckDatabase(double seconds) { state_->check_interval = seconds; }

void EVServer::registerClient(EVClient *client) { state_->clients.add(client); }

void EVServer::deregisterClient(EVClient *client) { state_->clients.remove(client); }

void EVServer::grabEventsLock() { state_->published.lock.lock(); }

void EVServer::releaseEventsLock() { state_->published.lock.unlock(); }

void EVServer::setAgeRefNow(int flag) { state_->age_ref_now = flag; }

void EVServer::setMaxExpandedEvents(int max) { state_->max_expanded = max; }

void EVServer::setDetections(int on) {
  if (state_->detections_on.exchange(on) == on) return;
  /* Expanded events and the window lack detections, or have them in vain: read them
   * again. */
  const WatchedDatabase::Hold hold = state_->database.hold();
  for (const char *name : {"assoc", "detection", "site"}) {
    state_->database.table(name)->count = -1;
  }
}
