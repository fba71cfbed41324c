/* The refreshes that a server is asked for. */
#include <mutex>

#include "core/register.h"
#include "events/evserver.h"
#include "events/reading/internal/tree_reader.h"
#include "events/server/internal/binding.h"
#include "events/server/internal/current_lists.h"
#include "events/server/internal/refresh.h"
#include "events/server/internal/row_home.h"

namespace ksutil::events {
namespace {

constexpr int kAlreadyRunning = 11;

/* Holds the refresh mutex to the end of the notification; whatever way a refresh ends, it
 * lets waiting clients go. */
class RefreshTurn {
 public:
  explicit RefreshTurn(ServerState &state)
      : state_(state), held_(!state.refresh_running.test_and_set()) {}
  ~RefreshTurn() {
    if (!notified_) state_.clients.refresh_ended(nullptr);
    if (held_) state_.refresh_running.clear();
  }
  RefreshTurn(const RefreshTurn &) = delete;
  RefreshTurn &operator=(const RefreshTurn &) = delete;

  bool held() const { return held_; }
  void notify(const EVResponse *report) {
    notified_ = true;
    state_.clients.refresh_ended(report);
  }

 private:
  ServerState &state_;
  const bool held_;
  bool notified_ = false;
};

int refresh_once(ServerState &state, bool force) {
  RefreshTurn turn(state);
  if (!turn.held()) return kAlreadyRunning;
  /* Before the limit is read: a limit set later asks again. */
  if (force) state.refresh_again = 0;
  Refresh refresh(state, force);
  const int result = refresh.run();
  if (result == 0) turn.notify(refresh.report());
  return result;
}

/* Runs `read` with tables bound; what it gives, or -1. */
template <class Bind, class Read>
int read_rows(ServerState &state, const char *name, Bind bind, Read read) {
  const std::lock_guard lock(state.database_lock);
  if (!database_open(state, name)) return -1;
  TreeReader reader(reading_source(state));
  if (!bind(state, reader)) {
    ks_register_error(0, "%s: cannot read the tables.\n", name);
    return -1;
  }
  MessagesOfFailure messages;
  const int result = messages.note(read(reader));
  if (result < 0) ks_register_error(0, "%s: cannot read the tables.\n", name);
  return result;
}

bool bind_list(const ServerState &, TreeReader &reader) { return reader.bind_list(); }
bool bind_all(const ServerState &state, TreeReader &reader) {
  return reader.bind_list() && reader.bind_expansion(state.detections_on != 0);
}
bool bind_detections(const ServerState &, TreeReader &reader) {
  return reader.bind_list() && reader.bind_detections();
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;

int EVServer::refreshEvents(int force) {
  if (state_->published.lock.owned_by_this_thread()) {
    ks_register_error(0,
                      "EVServer::refreshEvents: this thread holds the events lock.\n");
    state_->clients.refresh_ended(nullptr);
    return -1;
  }
  const int result = refresh_once(*state_, force != 0);
  /* Another thread has changed the limit during this refresh and was sent away.  Once: a
   * callback that sets it again leaves it to the next refresh, or this would not end. */
  if (result != kAlreadyRunning && state_->refresh_again != 0) {
    refresh_once(*state_, true);
  }
  return result;
}

int EVServer::setMaxEvents(int max_events) {
  if (state_->max_events.exchange(max_events) != max_events) state_->refresh_again = 1;
  return refreshEvents(1);
}

void EVServer::setAgeRefNow(int flag) { state_->age_ref_now = flag; }

int EVServer::refreshEvent(long recno, EVEvent *event, long *order) {
  *event = EVEvent();
  return read_rows(
      *state_, "EVServer::refreshEvent", bind_list,
      [&](TreeReader &reader) { return reader.read_event(recno, *event, order); });
}

int EVServer::refreshOrigin(long recno, EVOrigin *origin) {
  *origin = EVOrigin();
  return read_rows(
      *state_, "EVServer::refreshOrigin", bind_list,
      [&](TreeReader &reader) { return reader.read_origin(recno, *origin); });
}

int EVServer::refreshAssociations(EVEvent *event) {
  return read_rows(*state_, "EVServer::refreshAssociations", bind_all,
                   [&](TreeReader &reader) {
                     const int result = reader.expand(*event);
                     rehome(*event);
                     return result;
                   });
}

int EVServer::refreshAssociation(long recno, EVAssociation *association) {
  *association = EVAssociation();
  return read_rows(
      *state_, "EVServer::refreshAssociation", bind_all,
      [&](TreeReader &reader) { return reader.read_association(recno, *association); });
}

int EVServer::refreshDetections(EVOrigin *origin) {
  return read_rows(*state_, "EVServer::refreshDetections", bind_detections,
                   [&](TreeReader &reader) { return reader.read_detections(*origin); });
}

int EVServer::refreshDetections(Table<EVDetection> &detections, double tstart,
                                double tend) {
  return read_rows(*state_, "EVServer::refreshDetections", bind_detections,
                   [&](TreeReader &reader) {
                     return reader.read_detections(tstart, tend, detections);
                   });
}

int EVServer::refreshStamags(EVMagnitude *magnitude) {
  return read_rows(*state_, "EVServer::refreshStamags", bind_all,
                   [&](TreeReader &reader) { return reader.read_stamags(*magnitude); });
}

int EVServer::findEvid(long evid) {
  const auto events = current_events(state_->published);
  for (long i = 0; i < events->size(); i++) {
    if (events->ptr(i)->evid == evid) return static_cast<int>(i);
  }
  return -1;
}

int EVServer::findEvid(Table<EVEvent> *events, long evid) {
  if (events == nullptr) return -1;
  for (long i = 0; i < events->size(); i++) {
    if (events->ptr(i)->evid == evid) return static_cast<int>(i);
  }
  return -1;
}
