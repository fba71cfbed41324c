/* list_reader: reads the event list, in full or only the events that have changed. */
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

struct ServerState;

/* The result of a reading. */
struct ListReading {
  struct Replaced {
    long place;
    EVEvent event;
  };

  bool full = true;                // false: the followed list with the changes below
  Table<EVEvent> events;           // the list, or events to append to it
  std::vector<Replaced> replaced;  // new versions of events, ascending by index
  RowWindow window;
  long epoch = 0;  // of the follower
  ListSummary summary;
  std::unordered_set<int64_t> affected;  // evids that were read again, if not `full`

  bool differs = false;  // from the list before
  Table<long> changed_evids, removed_evids;

  bool changes_list() const { return full || !replaced.empty() || events.size() > 0; }
  /* Applies the changes to the followed list. */
  void apply(Table<EVEvent> &list);
};

/* Events that are read in one step of the lock. */
inline constexpr int kEventsPerStep = 1024;

/* The event rows that the list shows under the current limit. */
RowWindow window_of(const ServerState &state, const TreeReader &reader);

/* The tables that expanded events need, for TreeReader::bind. */
unsigned expansion_tables(const ServerState &state);

/* Reads the list from the reader's snapshots and compares it with `current`; 0 or -1.
 * The follower then holds notes about it, which finish() completes. */
int read_list(ServerState &state, TreeReader &reader, Steps &steps,
              const std::shared_ptr<const Table<EVEvent>> &current, bool in_full,
              ListReading &reading);

}  // namespace ksutil::events
#endif
