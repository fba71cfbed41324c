#include "events/server/internal/refresh.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

#include "events/records/internal/row_texts.h"
#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

constexpr const char *kRefreshEvents = "EVServer::refreshEvents";

/* Detection window: ends kWindowAfterLatest s after the latest event, lasts
 * kWindowLength s. */
constexpr double kWindowAfterLatest = 10.0;
constexpr double kWindowLength = 7200.0;

/* Bits of ServerState::refresh_again. */
constexpr int32_t kAskedByCallback = 1, kAskedByThread = 2;

constexpr const char *kListTables[] = {"event", "origin", "origerr", "netmag", "mt"};
constexpr const char *kExpansionTables[] = {"assoc", "arrival"};
constexpr const char *kDetectionTables[] = {"detection", "site"};
/* Checked only while there are expanded events: no other reading uses them. */
constexpr const char *kCacheTables[] = {"stamag", "site"};

/* RefreshTurn: holds the refresh mutex until the notification has ended, and releases
 * waiting clients however the refresh ends. */
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
    state_.clients.refresh_ended(report);
    notified_ = true;
  }

 private:
  ServerState &state_;
  const bool held_;
  bool notified_ = false;
};

/* How often a refresh begins when other programs change the rows under it.  From the
 * second time on the rows are held, so that it ends. */
constexpr int kRefreshAttempts = 4;

/* Runs one refresh and notifies the clients. */
int refresh_once(ServerState &state, bool force) {
  RefreshTurn turn(state);
  if (!turn.held()) return kAlreadyRunning;
  /* Clear it before the limit is read: a limit that is set later sets it again. */
  if (force) state.refresh_again = 0;
  const int mark = elog_mark();
  for (int attempt = 1;; attempt++) {
    Refresh refresh(state, force, attempt > 1);
    const int result = refresh.run();
    if (result != 0 && attempt < kRefreshAttempts && refresh.overtaken()) {
      elog_flush(0, mark);
      continue;
    }
    if (result == 0) turn.notify(refresh.report());
    return result;
  }
}

}  // namespace

int refresh_lists(ServerState &state, bool force) {
  const int result = refresh_once(state, force);
  if (result == kAlreadyRunning) return result;
  /* The limit was changed during this refresh, and setMaxEvents returned
   * kAlreadyRunning.  Requests of callbacks are repeated once, and a later one is left
   * to the next refresh: a callback that sets another limit each time would repeat it
   * for ever. */
  bool repeated = false;
  for (;;) {
    const int32_t asked = state.refresh_again;
    if (asked == 0 || (asked == kAskedByCallback && repeated)) return result;
    /* The thread that refreshes now will see the request when it is done. */
    if (refresh_once(state, true) == kAlreadyRunning) return result;
    repeated = true;
  }
}

void ask_for_repetition(ServerState &state) {
  state.refresh_again |=
      ClientList::inside_callback() ? kAskedByCallback : kAskedByThread;
}

int Refresh::run() {
  try {
    auto [current, latest_time] = state_.published.start();
    cache_in_use_ = state_.published.reads.size() > 0;
    latest_time_ = latest_time;
    base_ = current;
    if (read(current) == 0) {
      current.reset();
      publish();
      return 0;
    }
  } catch (const std::bad_alloc &) {
    fail_memory(kRefreshEvents);
  }
  /* The checks have consumed the changes.  Without this they would stay unseen until a
   * table is written again. */
  const WatchedDatabase::Hold hold = state_.database.hold();
  state_.forget_tables();
  return -1;
}

template <std::size_t N>
bool Refresh::check(const char *const (&names)[N], bool &changed) {
  for (const char *name : names) {
    EVTable &table = *state_.database.table(name);
    if (force_) {
      {
        /* The reading that follows reports what cannot be read. */
        const ElogScope quiet;
        db::table_snapshot_anew(table.db);
      }
      table.count = -1;
      changed = true;
      continue;
    }
    const int code = WatchedDatabase::check(table);
    if (code < 0) {
      return fail(kRefreshEvents, "checkTable(%s) error", name);
    }
    if (code != 0) changed = true;
  }
  return true;
}

bool Refresh::check_tables() {
  const db::OneLook look(db::database_store(state_.database.handle()));
  bool cache_tables = false;
  if (!check(kListTables, list_tables_) ||
      !check(kExpansionTables, expansion_tables_)) {
    return false;
  }
  if (state_.detections_on != 0 && !check(kDetectionTables, detection_tables_)) {
    return false;
  }
  if (cache_in_use_ && !check(kCacheTables, cache_tables)) return false;
  expansion_tables_ = expansion_tables_ || detection_tables_ || cache_tables;
  return true;
}

int Refresh::read(const std::shared_ptr<const Table<EVEvent>> &current) {
  Steps steps(state_.database, kEventsPerStep);
  if (!state_.database.require_open(kRefreshEvents)) return -1;
  /* Check before reading: rows written in between are found by the next check. */
  if (!check_tables()) return -1;
  if (!list_tables_ && !expansion_tables_) return 0;

  TreeReader reader(state_.database);
  if (keep_rows_) reader.keep_rows();
  const int result = read_tables(reader, steps, current);
  overtaken_ = result != 0 && reader.overtaken();
  return result;
}

int Refresh::read_tables(TreeReader &reader, Steps &steps,
                         const std::shared_ptr<const Table<EVEvent>> &current) {
  expanded_reading_ = ++state_.readings;
  if (!reader.bind(kReadList)) {
    return fail(kRefreshEvents, "cannot read the tables");
  }
  event_count_ = reader.event_count();
  if (list_tables_) {
    if (read_list(state_, reader, steps, current, force_, reading_) != 0) {
      return fail(kRefreshEvents, "refreshEvent() error");
    }
    list_read_ = true;
    snapshots_ = reader.list_snapshots();
    response_.events_changed = force_ || reading_.differs ? 1 : 0;
  }

  if (!read_cached(reader, steps)) {
    return fail(kRefreshEvents, "refreshAssociations() error");
  }
  const bool detections = state_.detections_on != 0;
  /* Detections that are not kept current must not be shown. */
  if (!detections) new_detections_ = std::make_shared<Table<EVDetection>>();
  if (detections && (detection_tables_ || response_.events_changed != 0) &&
      !read_window(reader)) {
    return fail(kRefreshEvents, "refreshDetections() error");
  }
  /* Rows that could not be read may still exist: keep the old lists until they can be
   * read. */
  if (!reader.complete()) {
    return fail(kRefreshEvents, "cannot read the tables");
  }
  return 0;
}

/* Whether the list part of an event may have changed. */
bool Refresh::list_affects(int64_t evid) const {
  return list_read_ && (reading_.full || reading_.affected.contains(evid));
}

/* Reads the expanded events of the cache that may have changed. */
bool Refresh::read_cached(TreeReader &reader, Steps &steps) {
  const ExpandedReads &reads = state_.published.reads;
  std::vector<int64_t> evids = reads.evids();
  const int64_t last = force_ ? 0 : state_.expansion.reading();
  /* A client may have read an event since the last refresh, from any rows. */
  const auto may_stay = [&](int64_t evid) {
    return !list_affects(evid) && reads.keys(evid, last) != nullptr;
  };
  if (!expansion_tables_) std::erase_if(evids, may_stay);
  if (evids.empty()) return true;
  if (!reader.bind(expansion_tables(state_))) return false;
  std::optional<ExpansionChanges> changes;
  if (last != 0) changes = state_.expansion.changes(reader);
  if (changes.has_value()) {
    evids = reads.evids();
    std::erase_if(evids, [&](int64_t evid) {
      const std::shared_ptr<const ExpansionKeys> keys = reads.keys(evid, last);
      return !list_affects(evid) && keys != nullptr && !changes->concern(*keys);
    });
    confirmed_reading_ = last;
  } else {
    evids = reads.evids();
  }
  expansion_snapshots_ = reader.expansion_snapshots();
  epoch_ = state_.follower.epoch();
  return read_expanded(reader, steps, evids);
}

bool Refresh::read_expanded(TreeReader &reader, Steps &steps,
                            const std::vector<int64_t> &evids) {
  const long first = window_of(state_, reader).first;
  MessagesOfFailure messages;
  for (const int64_t evid : evids) {
    Expanded expanded{evid, EVEvent(), nullptr};
    const int result = reader.read_event_of(evid, first, *expanded.event);
    if (result == kNoRow) {
      expanded.event.reset();
    } else {
      /* An event that cannot be read stays in the cache as it was. */
      if (messages.note(result) < 0) return false;
      if (result > 0) {
        unread_.push_back(evid);
        continue;
      }
      if (messages.note(reader.expand(*expanded.event)) < 0) return false;
      expanded.keys = std::make_shared<const ExpansionKeys>(reader.taken_keys());
      gather_texts(*expanded.event);
    }
    expanded_.push_back(std::move(expanded));
    if (!steps.step(reader)) {
      messages.note(kFailed);
      return false;
    }
  }
  return true;
}

bool Refresh::read_window(TreeReader &reader) {
  if (!reader.bind(kReadDetections)) return false;
  const double latest =
      response_.events_changed != 0 ? reading_.summary.latest_time : latest_time_;
  const double tend = state_.age_ref_now != 0 ? std_now() : latest + kWindowAfterLatest;
  new_detections_ = std::make_shared<Table<EVDetection>>();
  MessagesOfFailure messages;
  if (messages.note(
          reader.read_detections(tend - kWindowLength, tend, *new_detections_)) < 0) {
    return false;
  }
  detection_count_ = reader.detection_count();
  return true;
}

}  // namespace ksutil::events
