#include <algorithm>
#include <utility>

#include "events/evserver.h"
#include "events/reading/internal/read_rows.h"
#include "events/records/internal/record_sizes.h"
#include "events/records/internal/row_texts.h"
#include "events/server/internal/list_reader.h"
#include "events/server/internal/published.h"
#include "events/server/internal/refresh.h"
#include "events/server/internal/server_state.h"
#include "platform/clock/clock.h"
#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

/* Reads rows into a record of the caller. */
template <class Read>
int read_record(ServerState &state, const char *who, unsigned tables, Read read) {
  const ReadingName name{who, kTablesUnreadable, kTablesUnreadable};
  return read_rows_quietly(state.database, name, tables, read);
}

/* ExpandedReading: enters an event in the list of expanded events before it is read, so
 * that a refresh that begins meanwhile reads it too.  Removes the entry if the reading
 * fails. */
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

  void comes_from(int64_t reading) { reads_.set(evid_, reading); }
  void keep() { kept_ = true; }

 private:
  ExpandedReads &reads_;
  const int64_t evid_;
  bool kept_ = false;
};

/* The `order` that the list, which is in the order of its rows, has for an event; -1 when
 * it does not show that event. */
int64_t order_in(const Table<EVEvent> &list, const EVEvent &event) {
  const EVEvent *const listed = std::lower_bound(
      list.begin(), list.end(), event.recno_event,
      [](const EVEvent &each, int64_t recno) { return each.recno_event < recno; });
  const bool shown = listed != list.end() && listed->recno_event == event.recno_event &&
                     listed->evid == event.evid;
  return shown ? listed->order : -1;
}

/* Reads an event with all that belongs to it; 0 or -1. */
int read_whole_event(ServerState &state, int64_t evid, EVEvent &event,
                     ExpandedReading &entry) {
  constexpr const char *kWho = "EVServer::getExpandedEvent";
  const unsigned tables = kReadList | expansion_tables(state);
  return read_rows(state.database, {kWho}, tables, [&](TreeReader &reader) -> int {
    MessagesOfFailure messages;
    int result = reader.read_event_of(evid, window_of(state, reader).first, event);
    if (result == kNoRow) {
      messages.note(kFailed);
      return fail(kWho, "no event %ld", static_cast<long>(evid));
    }
    messages.note(result);
    /* An event is shown although some of its rows were left out. */
    if (result == 0) result = std::min(0, messages.note(reader.expand(event)));
    /* Only a whole event may go into the cache. */
    if (!reader.complete()) result = kFailed;
    if (result != 0) {
      messages.note(kFailed);
      return fail(kWho, "event %ld cannot be read", static_cast<long>(evid));
    }
    gather_texts(event);
    entry.comes_from(++state.readings);
    return 0;
  });
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;
using ksutil::fail;

int EVServer::refreshEvents(int force) {
  if (state_->published.lock.owned_by_this_thread()) {
    state_->clients.refresh_ended(nullptr);
    return fail("EVServer::refreshEvents", "this thread holds the events lock");
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
  if (event == nullptr) return fail("EVServer::refreshEvent", "no event given");
  *event = EVEvent();
  const long first_order = order == nullptr ? 0 : *order;
  return read_record(*state_, "EVServer::refreshEvent", kReadList,
                     [&](TreeReader &reader) {
                       *event = EVEvent();
                       if (order != nullptr) *order = first_order;
                       return reader.read_event(recno, *event, order);
                     });
}

int EVServer::refreshOrigin(long recno, EVOrigin *origin) {
  if (origin == nullptr) return fail("EVServer::refreshOrigin", "no origin given");
  *origin = EVOrigin();
  return read_record(*state_, "EVServer::refreshOrigin", kReadList,
                     [&](TreeReader &reader) {
                       *origin = EVOrigin();
                       return reader.read_origin(recno, *origin);
                     });
}

int EVServer::refreshAssociations(EVEvent *event) {
  if (event == nullptr) return fail("EVServer::refreshAssociations", "no event given");
  return read_record(*state_, "EVServer::refreshAssociations",
                     kReadList | expansion_tables(*state_), [&](TreeReader &reader) {
                       const int result = reader.expand(*event);
                       gather_texts(*event);
                       return result;
                     });
}

int EVServer::refreshAssociation(long recno, EVAssociation *association) {
  if (association == nullptr) {
    return fail("EVServer::refreshAssociation", "no association given");
  }
  *association = EVAssociation();
  return read_record(*state_, "EVServer::refreshAssociation",
                     kReadList | expansion_tables(*state_), [&](TreeReader &reader) {
                       *association = EVAssociation();
                       return reader.read_association(recno, *association);
                     });
}

int EVServer::refreshDetections(EVOrigin *origin) {
  if (origin == nullptr) return fail("EVServer::refreshDetections", "no origin given");
  return read_record(
      *state_, "EVServer::refreshDetections", kReadList | kReadDetections,
      [&](TreeReader &reader) { return reader.read_detections(*origin); });
}

int EVServer::refreshDetections(Table<EVDetection> &detections, double tstart,
                                double tend) {
  return read_record(*state_, "EVServer::refreshDetections",
                     kReadList | kReadDetections, [&](TreeReader &reader) {
                       return reader.read_detections(tstart, tend, detections);
                     });
}

int EVServer::refreshStamags(EVMagnitude *magnitude) {
  if (magnitude == nullptr) {
    return fail("EVServer::refreshStamags", "no magnitude given");
  }
  return read_record(
      *state_, "EVServer::refreshStamags", kReadList | expansion_tables(*state_),
      [&](TreeReader &reader) { return reader.read_stamags(*magnitude); });
}

int EVServer::findEvid(long evid) {
  return findEvid(current_events(state_->published).get(), evid);
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
  event.order = order_in(*state_->published.events, event);
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
  event.order = order_in(*published.events, event);
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
