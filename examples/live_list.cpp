/* Shows a list of events that is sorted and stays current.
 *
 * The list is that of an event server, and a tab holds its order: which event stands in which
 * row.  Each time the server has published another list, its events are sorted anew by
 * QUERY, the greatest first, and the first ROWS rows are printed.  "*" marks an event that is
 * new or has changed, "^" one that stands higher than before.  A program with a display
 * does the same: it draws the rows that are visible, and keeps the row that the user has
 * marked with its event (findEvidRow).
 * The program ends after LISTS lists (0: it goes on until it is interrupted).
 *
 * Usage: live_list DATABASE QUERY ROWS LISTS */
#include <ksutil.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace {

class LiveList : public EVClient {
 public:
  LiveList(EVServer *server_in, const char *query, long rows)
      : EVClient(server_in), query_(query), rows_(rows) {
    take_list();
  }
  ~LiveList() { server->deregisterClient(this); }

  /* Whether the query can be evaluated on every event; the register says why not. */
  bool is_good() { return checkSortQuery(events_.get(), query_) == 0; }

  void print() {
    EVConstEventsTab tab;
    tab.events = events_.get();
    sort(&tab, query_, 1);
    std::map<long, int> places;
    for (int row = 0; row < std::min(rows_, tab.index.size()); row++) {
      const EVEvent &event = *events_->ptr(getIndex(&tab, row));
      std::printf("%c %2d %8ld  %s  %5.2f %s\n", mark(event.evid, row), row + 1,
                  static_cast<long>(event.evid), ksutil::time_text(event.time).c_str(),
                  event.magnitude, event.magtype.c_str());
      places[event.evid] = row;
    }
    std::printf("%ld events by %s\n", events_->size(), query_.c_str());
    std::fflush(stdout);
    places_ = std::move(places);
  }

  void wait_for_change() {
    {
      std::unique_lock lock(mutex_);
      arrived_.wait(lock, [this] { return changes_; });
      changes_ = false;
      changed_ = std::exchange(news_, {});
    }
    take_list();
  }

  /* On the server's thread: notes the changes and leaves the work to the other thread. */
  void responseCallback(EVResponse response) override {
    if (response.events_changed == 0) return;
    const std::lock_guard lock(mutex_);
    news_.insert(response.changed_evids.begin(), response.changed_evids.end());
    changes_ = true;
    arrived_.notify_one();
  }

 private:
  /* The pointer keeps this list as it is, so no lock is held while it is sorted. */
  void take_list() {
    grabEventsLock();
    events_ = eventsList();
    releaseEventsLock();
  }
  char mark(long evid, int row) const {
    if (changed_.contains(evid)) return '*';
    const auto before = places_.find(evid);
    return before != places_.end() && before->second > row ? '^' : ' ';
  }

  const std::string query_;
  const long rows_;
  std::shared_ptr<const Table<EVEvent>> events_;
  std::set<long> changed_;      // in this list
  std::map<long, int> places_;  // the rows printed last, by evid

  std::mutex mutex_;  // guards what follows
  std::condition_variable arrived_;
  bool changes_ = false;
  std::set<long> news_;  // changed since the list was taken
};

}  // namespace

int main(int argc, char **argv) {
  std::int64_t rows = 0, lists = 0;
  if (argc != 5 || !ksutil::parse_integer(argv[3], rows) || rows < 1 ||
      !ksutil::parse_integer(argv[4], lists) || lists < 0) {
    std::fputs("usage: live_list DATABASE QUERY ROWS LISTS\n", stderr);
    return 2;
  }
  try {
    EVServer server(argv[1], 0, 0, -1);  // reads the events
    LiveList list(&server, argv[2], rows);
    if (!list.is_good()) {
      ks_complain(0, "cannot sort by %s.\n", argv[2]);
      return 2;
    }
    list.print();
    server.autoRefreshEvents(0.5);
    for (std::int64_t n = 1; lists == 0 || n < lists; n++) {
      list.wait_for_change();
      list.print();
    }
  } catch (const char *) {
    return 1;  // the server has printed why
  }
}
