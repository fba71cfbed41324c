/* Refresh: reads the rows that have changed, publishes the new lists and reports the
 * changes. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_REFRESH_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_REFRESH_H

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "events/records.h"
#include "events/server/internal/list_reader.h"
#include "events/server/internal/server_state.h"

namespace ksutil::events {

/* Runs on a thread that holds the refresh mutex and no lock. */
class Refresh {
 public:
  /* keep_rows   holds all rows that are read meanwhile, see TreeReader::keep_rows */
  Refresh(ServerState &state, bool force, bool keep_rows)
      : state_(state), force_(force), keep_rows_(keep_rows) {}

  /* Reads and publishes the changes; 0 or -1.  After a failure nothing is published,
   * and the next refresh reads everything. */
  int run();

  /* Whether it failed because other programs changed the rows during the reading. */
  bool overtaken() const { return overtaken_; }

  /* The report for the clients; null: nothing has changed. */
  const EVResponse *report() const;

 private:
  /* A new version of an expanded event; empty: it is no longer in the database. */
  struct Expanded {
    int64_t evid;
    std::optional<EVEvent> event;
    std::shared_ptr<const ExpansionKeys> keys;
  };

  int read(const std::shared_ptr<const Table<EVEvent>> &current);
  int read_tables(TreeReader &reader, Steps &steps,
                  const std::shared_ptr<const Table<EVEvent>> &current);
  template <std::size_t N>
  bool check(const char *const (&names)[N], bool &changed);
  bool check_tables();
  bool read_cached(TreeReader &reader, Steps &steps);
  bool read_expanded(TreeReader &reader, Steps &steps,
                     const std::vector<int64_t> &evids);
  bool read_window(TreeReader &reader);
  bool list_affects(int64_t evid) const;

  void publish();
  bool has_news() const;
  void follow(const std::shared_ptr<const Table<EVEvent>> &list);
  void follow_expanded();
  bool lists_freed() const;
  bool publish_list();
  void publish_expanded();
  void note_summary();

  ServerState &state_;
  const bool force_, keep_rows_;
  bool overtaken_ = false;
  bool cache_in_use_ = false;
  bool list_tables_ = false, expansion_tables_ = false, detection_tables_ = false;

  std::weak_ptr<const Table<EVEvent>>
      base_;                  // the list that was published when the refresh began
  double latest_time_ = 0.0;  // of that list

  bool list_read_ = false;
  ListReading reading_;
  ListSnapshots snapshots_;
  long event_count_ = 0, detection_count_ = 0;
  std::shared_ptr<Table<EVEvent>>
      new_list_;  // null: the published list is changed in place
  std::shared_ptr<Table<EVDetection>> new_detections_;  // null: not read
  int64_t expanded_reading_ = 0;  // number of the reading that made `expanded_`
  int64_t confirmed_reading_ =
      0;  // events of this reading have not changed unless they
          // are in `expanded_`
  std::optional<ExpansionSnapshots> expansion_snapshots_;  // of `expanded_`, once bound
  std::vector<int64_t> unread_;  // evids of expanded events that could not be read
  long epoch_ = 0;               // of the follower when these were bound
  std::vector<Expanded> expanded_;
  EVResponse response_;
};

inline constexpr int kAlreadyRunning = 11;

/* Refreshes and notifies the clients, and repeats this if the limit of events was
 * changed meanwhile.  The result of Refresh::run, or kAlreadyRunning. */
int refresh_lists(ServerState &state, bool force);

/* Asks for a repetition of the refresh that is running, because the limit of events has
 * been changed. */
void ask_for_repetition(ServerState &state);

}  // namespace ksutil::events
#endif
