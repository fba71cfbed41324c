/* Reading the event list: whole, or what has changed of it. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_LIST_READER_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_LIST_READER_H

#include <cstdint>
#include <memory>
#include <unordered_set>
#include <vector>

#include "core/Table.h"
#include "events/database/internal/watched_database.h"
#include "events/reading/internal/tree_reader.h"
#include "events/records.h"
#include "events/server/internal/list_follower.h"

namespace ksutil::events {

/* What a reading has brought. */
struct ListReading {
  struct Replaced {
    long place;
    EVEvent event;
  };

  bool full = true;                // else: the followed list with the changes below
  Table<EVEvent> events;           // the list; or what comes to its end
  std::vector<Replaced> replaced;  // events of the list in their new form, by place
  RowWindow window;
  long epoch = 0;  // of the follower
  ListSummary summary;
  std::unordered_set<int64_t> affected;  // evids that a reading in part was about

  bool differs = false;  // from the list before
  Table<long> changed_evids, removed_evids;

  bool changes_list() const { return full || !replaced.empty() || events.size() > 0; }
  /* Brings the list that was read in part up to date. */
  void apply(Table<EVEvent> &list);
};

/* Events read in one step of the lock. */
inline constexpr int kEventsPerStep = 1024;

/* The rows of event that the list shows under the current limit. */
RowWindow window_of(const ServerState &state, const TreeReader &reader);

/* What expanded events need of the tables, for TreeReader::bind. */
unsigned expansion_tables(const ServerState &state);

/* Reads what the reader's snapshots show, against the list `current`, and leaves the
 * follower with notes of it.  0 or -1. */
int read_list(ServerState &state, TreeReader &reader, Steps &steps,
              const std::shared_ptr<const Table<EVEvent>> &current, bool in_full,
              ListReading &reading);

}  // namespace ksutil::events
#endif
