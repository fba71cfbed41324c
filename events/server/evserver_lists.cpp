#include <algorithm>
#include <mutex>
#include <utility>

#include "core/register.h"
#include "events/evserver.h"
#include "events/reading/internal/tree_reader.h"
#include "events/records/internal/record_sizes.h"
#include "events/records/internal/row_texts.h"
#include "events/server/internal/list_reader.h"
#include "events/server/internal/published.h"
#include "events/server/internal/refresh.h"
#include "events/server/internal/server_state.h"
#include "events/server/internal/tables.h"
#include "platform/clock/clock.h"

namespace ksutil::events {
namespace {

/* Runs `read` with tables bound; what it gives, or -1. */
template <class Bind, class Read>
int read_bound(ServerState &state, const char *name, Bind bind, Read read) {
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

int none_given(const char *name, const char *what) {
  ks_register_error(0, "%s: no %s given.\n", name, what);
  return -1;
}

/* One reading of an event for the cache.  It is entered before anything is read: a
 * refresh that begins meanwhile then brings the event up to date too. */
class ExpandedReading {
 public:
  ExpandedReading(ExpandedReads &reads, int64_t evid) : reads_(reads), evid_(evid) {
    reads_.set(evid, 0);
  }
  ~ExpandedReading() {
    if (!kept_) reads_.erase(evid_);
  }
  ExpandedReading(const ExpandedReading &) = delete;
  ExpandedReading &operator=(const ExpandedReading &) = delete;

  void begins(int64_t number) { reads_.set(evid_, number); }
  void keep() { kept_ = true; }

 private:
  ExpandedReads &reads_;
  const int64_t evid_;
  bool kept_ = false;
};

/* Reads an event with everything; 0 or -1. */
int read_whole_event(ServerState &state, int64_t evid, EVEvent &event,
                     ExpandedReading &reading) {
  constexpr const char *kName = "EVServer::getExpandedEvent";
  const std::lock_guard lock(state.database_lock);
  reading.begins(++state.readings);
  if (!database_open(state, kName)) return -1;
  TreeReader reader(reading_source(state));
  if (!reader.bind_list() || !reader.bind_expansion(state.detections_on != 0)) {
    ks_register_error(0, "%s: cannot read the tables.\n", kName);
    return -1;
  }
  MessagesOfFailure messages;
  int result = reader.read_event_of(evid, window_of(state, reader).first, event);
  if (result == kNoRow) {
    messages.note(kFailed);
    ks_register_error(0, "%s: no event %ld.\n", kName, static_cast<long>(evid));
    return -1;
  }
  messages.note(result);
  /* Rows that are left out of an event do not keep it from being shown. */
  if (result == 0) result = std::min(0, messages.note(reader.expand(event)));
  /* Only a whole event may go into the cache. */
  if (!reader.complete()) result = kFailed;
  if (result != 0) {
    messages.note(kFailed);
    ks_register_error(0, "%s: event %ld cannot be read.\n", kName,
                      static_cast<long>(evid));
    return -1;
  }
  gather_texts(event);
  return 0;
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
  return refresh_lists(*state_, force != 0);
}

int EVServer::setMaxEvents(int max_events) {
  if (state_->max_events.exchange(max_events) != max_events) {
    ask_for_repetition(*state_);
  }
  return refreshEvents(1);
}

int EVServer::refreshEvent(long recno, EVEvent *event, long *order) {
  if (event == nullptr) return none_given("EVServer::refreshEvent", "event");
  *event = EVEvent();
  return read_bound(
      *state_, "EVServer::refreshEvent", bind_list,
      [&](TreeReader &reader) { return reader.read_event(recno, *event, order); });
}

int EVServer::refreshOrigin(long recno, EVOrigin *origin) {
  if (origin == nullptr) return none_given("EVServer::refreshOrigin", "origin");
  *origin = EVOrigin();
  return read_bound(
      *state_, "EVServer::refreshOrigin", bind_list,
      [&](TreeReader &reader) { return reader.read_origin(recno, *origin); });
}

int EVServer::refreshAssociations(EVEvent *event) {
  if (event == nullptr) return none_given("EVServer::refreshAssociations", "event");
  return read_bound(*state_, "EVServer::refreshAssociations", bind_all,
                    [&](TreeReader &reader) {
                      const int result = reader.expand(*event);
                      gather_texts(*event);
                      return result;
                    });
}

int EVServer::refreshAssociation(long recno, EVAssociation *association) {
  if (association == nullptr)
    return none_given("EVServer::refreshAssociation", "association");
  *association = EVAssociation();
  return read_bound(
      *state_, "EVServer::refreshAssociation", bind_all,
      [&](TreeReader &reader) { return reader.read_association(recno, *association); });
}

int EVServer::refreshDetections(EVOrigin *origin) {
  if (origin == nullptr) return none_given("EVServer::refreshDetections", "origin");
  return read_bound(
      *state_, "EVServer::refreshDetections", bind_detections,
      [&](TreeReader &reader) { return reader.read_detections(*origin); });
}

int EVServer::refreshDetections(Table<EVDetection> &detections, double tstart,
                                double tend) {
  return read_bound(*state_, "EVServer::refreshDetections", bind_detections,
                    [&](TreeReader &reader) {
                      return reader.read_detections(tstart, tend, detections);
                    });
}

int EVServer::refreshStamags(EVMagnitude *magnitude) {
  if (magnitude == nullptr) return none_given("EVServer::refreshStamags", "magnitude");
  return read_bound(
      *state_, "EVServer::refreshStamags", bind_all,
      [&](TreeReader &reader) { return reader.read_stamags(*magnitude); });
}

int EVServer::findEvid(long evid) {
  const auto events = current_events(state_->published);
  for (long i = 0; i < events->size(); i++) {
    if (events->ptr(i)->evid == evid) return static_cast<int>(i);
  }
  return -1;
}

int EVServer::findEvid(const Table<EVEvent> *events, long evid) {
  if (events == nullptr) return -1;
  for (long i = 0; i < events->size(); i++) {
    if (events->ptr(i)->evid == evid) return static_cast<int>(i);
  }
  return -1;
}

void EVServer::purgeExpandedEvents(int max, Array<long, EVEvent> *cache) {
  if (cache != nullptr) purge_expanded(max, *cache);
}

int EVServer::containsExpandedEvent(long evid) {
  const EventsLockHold hold(state_->published);
  return state_->published.expanded.contains(evid) ? 1 : 0;
}

int EVServer::containsExpandedEvent(long evid, EVEvent &event) {
  const EventsLockHold hold(state_->published);
  EVEvent *cached = state_->published.expanded.find(evid);
  if (cached == nullptr) return 0;
  cached->access_time = std_now();
  event = *cached;
  return 1;
}

int EVServer::getExpandedEvent(EVClient *, long evid, EVEvent &event) {
  Published &published = state_->published;
  const EventsLockHold hold(published);
  if (containsExpandedEvent(evid, event) == 1) return 0;
  ExpandedReading reading(published.reads, evid);
  EVEvent read;
  if (read_whole_event(*state_, evid, read, reading) != 0) return -1;
  event = read;
  published.expanded.set(evid, std::move(read));
  reading.keep();
  return 0;
}

Table<EVEvent> EVServer::getEvents() { return *state_->published.events; }

Table<EVDetection> EVServer::getDetections() { return *state_->published.detections; }

std::shared_ptr<const Table<EVEvent>> EVServer::eventsList() {
  return state_->published.events;
}

std::shared_ptr<const Table<EVDetection>> EVServer::detectionsList() {
  return state_->published.detections;
}

int EVServer::eventsNumber() {
  return static_cast<int>(state_->published.events->size());
}

int EVServer::detectionsNumber() {
  return static_cast<int>(state_->published.detections->size());
}

int EVServer::expandedNumber() {
  return static_cast<int>(state_->published.expanded.size());
}

long EVServer::getEventsSize() {
  return static_cast<long>(bytes(*state_->published.events));
}

long EVServer::getDetectionsSize() {
  return static_cast<long>(bytes(*state_->published.detections));
}

long EVServer::getExpandedSize() {
  std::size_t sum = 0;
  state_->published.expanded.apply(
      [](const long &, const EVEvent &event, void *total) {
        *static_cast<std::size_t *>(total) += bytes(event);
      },
      &sum);
  return static_cast<long>(sum);
}

int EVServer::getEvent(int index, EVEvent &event) {
  const EVEvent *const found = std::as_const(*state_->published.events).ptr(index);
  if (found == nullptr) return -1;
  event = *found;
  return 0;
}

int EVServer::getEvid(long evid, EVEvent &event) {
  return getEvent(findEvid(state_->published.events.get(), evid), event);
}

long EVServer::getLastModifiedEvid() { return state_->published.lastmodified_evid; }

long EVServer::getMostRecentEvid() { return state_->published.mostrecent_evid; }

int EVServer::getLastModifiedEvent(EVEvent &event) {
  return containsExpandedEvent(getLastModifiedEvid(), event);
}

int EVServer::getMostRecentEvent(EVEvent &event) {
  return containsExpandedEvent(getMostRecentEvid(), event);
}
