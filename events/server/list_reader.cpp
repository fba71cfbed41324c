#include "events/server/internal/list_reader.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "events/records/internal/compare.h"
#include "events/records/internal/row_texts.h"
#include "events/server/internal/server_state.h"

namespace ksutil::events {
namespace {

/* Appends the events of rows `from` to `window.count` - 1; false, with a message, if
 * the reading fails.  A database without event rows gives no events, even if it has
 * origins. */
bool read_rest(TreeReader &reader, Steps &steps, long from, RowWindow window,
               long &order, Table<EVEvent> &events) {
  MessagesOfFailure messages;
  for (long recno = from; recno < window.count; recno++) {
    EVEvent event;
    const int result = messages.note(reader.read_event(recno, event, &order));
    if (result < 0) return false;
    if (result == 0) events.push(std::move(event));
    if (!steps.step(reader)) {
      messages.note(kFailed);
      return false;
    }
  }
  return true;
}

/* EvidList: collects evids, each once, in the order in which they are first added. */
class EvidList {
 public:
  explicit EvidList(Table<long> &evids) : evids_(evids) {}
  void add(int64_t evid) {
    /* Evids mostly ascend, and then the list itself shows that one is new. */
    const long *const last = evids_.ptr(evids_.size() - 1);
    const bool ascends = known_.empty() && (last == nullptr || evid > *last);
    if (!ascends && known_.empty()) known_.insert(evids_.begin(), evids_.end());
    if (ascends || known_.insert(evid).second) evids_.push(static_cast<long>(evid));
  }

 private:
  Table<long> &evids_;
  std::unordered_set<int64_t> known_;  // empty while the evids ascend
};

/* Finds the evids that a list read in full has changed, added or lost. */
void compare_lists(const Table<EVEvent> &before, ListReading &reading) {
  const Table<EVEvent> &now = reading.events;
  EvidList changed(reading.changed_evids), removed(reading.removed_evids);
  std::optional<EventIndex> index;
  bool same_evids = before.size() == now.size();
  for (long i = 0; i < now.size(); i++) {
    const EVEvent &event = *now.ptr(i);
    const EVEvent *counterpart = before.ptr(i);
    if (counterpart == nullptr || counterpart->evid != event.evid) same_evids = false;
    /* Usually no event has moved, and then no index is needed. */
    if (counterpart != nullptr && equal(*counterpart, event)) continue;
    if (!index.has_value()) index.emplace(before);
    if (!index->contains_equal(event)) changed.add(event.evid);
  }
  if (!same_evids) {
    const EventIndex present(now);
    for (const EVEvent &event : before) {
      if (!present.contains(event.evid)) removed.add(event.evid);
    }
  }
  reading.differs = before.size() != now.size() || reading.changed_evids.size() > 0 ||
                    reading.removed_evids.size() > 0;
}

int read_in_full(TreeReader &reader, Steps &steps, ListFollower &follower,
                 const Table<EVEvent> &current, ListReading &reading) {
  const long rows = reading.window.count - reading.window.first;
  /* Reserve room, so that appending some events does not move the whole list. */
  reading.events.reserve(rows + rows / 16 + 16);
  long order = 0;
  if (!read_rest(reader, steps, reading.window.first, reading.window, order,
                 reading.events)) {
    return -1;
  }
  compare_lists(current, reading);
  follower.start(reading.events, order);
  reading.summary = follower.summary();
  return 0;
}

/* Whether a row in the list has the evid. */
bool still_listed(const TreeReader &reader, const ListFollower &follower,
                  int64_t evid) {
  /* The index leaves rows without an evid out. */
  if (evid == reader.null_evid()) return follower.lists(evid);
  for (const long row : reader.list_indexes().event_evid->find(evid)) {
    if (follower.place(row) >= 0) return true;
  }
  return false;
}

/* Reads the events that have changed; 0 or -1, or 1 if the list must be read in
 * full. */
int read_in_part(TreeReader &reader, Steps &steps, ListFollower &follower,
                 const std::shared_ptr<const Table<EVEvent>> &current,
                 ListReading &reading) {
  MessagesOfFailure messages;
  std::optional<AffectedEvents> affected = follower.affected(reader, reading.window);
  if (!affected.has_value()) return 1;
  for (const long row : affected->rows) {
    ListReading::Replaced replaced{follower.place(row), EVEvent()};
    if (replaced.place < 0) return 1;
    if (reader.read_event(row, replaced.event, nullptr) != 0) return 1;
    replaced.event.order = current->ptr(replaced.place)->order;
    reading.replaced.push_back(std::move(replaced));
    if (!steps.step(reader)) return messages.note(kFailed);
    if (!follower.follows(current)) return 1;
  }
  long order = follower.next_order();
  if (!read_rest(reader, steps, follower.event_rows(), reading.window, order,
                 reading.events)) {
    return messages.note(kFailed);
  }
  if (!follower.follows(current)) return 1;

  EvidList changed(reading.changed_evids), removed(reading.removed_evids);
  std::vector<int64_t> old_evids;
  for (ListReading::Replaced &replaced : reading.replaced) {
    gather_texts(replaced.event);
    const EVEvent &before = *current->ptr(replaced.place);
    if (!equal(before, replaced.event)) changed.add(replaced.event.evid);
    if (before.evid != replaced.event.evid) old_evids.push_back(before.evid);
    follower.replace(replaced.place, replaced.event);
  }
  for (EVEvent &event : reading.events) {
    gather_texts(event);
    changed.add(event.evid);
    follower.append(event);
  }
  follower.set_next_order(order);
  for (const int64_t evid : old_evids) {
    if (!still_listed(reader, follower, evid)) removed.add(evid);
  }
  reading.full = false;
  reading.affected = std::move(affected->evids);
  reading.differs =
      reading.changed_evids.size() > 0 || reading.removed_evids.size() > 0;
  reading.summary = follower.summary();
  return 0;
}

}  // namespace

RowWindow window_of(const ServerState &state, const TreeReader &reader) {
  const long count = reader.event_count();
  const long limit = state.max_events;
  return RowWindow{limit > 0 ? std::max(0L, count - limit) : 0, count};
}

unsigned expansion_tables(const ServerState &state) {
  return kReadExpansion | (state.detections_on != 0 ? kReadDetections : 0U);
}

void ListReading::apply(Table<EVEvent> &list) {
  for (Replaced &change : replaced) *list.ptr(change.place) = std::move(change.event);
  for (EVEvent &event : events) list.push(std::move(event));
}

int read_list(ServerState &state, TreeReader &reader, Steps &steps,
              const std::shared_ptr<const Table<EVEvent>> &current, bool in_full,
              ListReading &reading) {
  ListFollower &follower = state.follower;
  reading.window = window_of(state, reader);
  reading.epoch = follower.epoch();
  if (!in_full && follower.follows(current)) {
    const int result = read_in_part(reader, steps, follower, current, reading);
    if (result <= 0) return result;
    ListReading again;
    again.window = reading.window;
    again.epoch = reading.epoch;
    reading = std::move(again);
  }
  return read_in_full(reader, steps, follower, *current, reading);
}

}  // namespace ksutil::events
