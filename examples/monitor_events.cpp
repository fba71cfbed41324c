/* Follows the events of a database through an event view.
 *
 * The view's monitor looks at the tables every PERIOD seconds.  Its callback, on a thread
 * of its own, reads the events when something has changed, sorts them by time and prints
 * what changed and the latest event; the main thread waits until REPORTS changes have been
 * reported (0: until it is interrupted).
 *
 * Usage: monitor_events DATABASE PERIOD REPORTS */
#include <ksutil.h>

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

namespace {

/* What the callback and the main thread share. */
struct Monitor {
  KSEventView *view = nullptr;
  std::mutex lock;  // guards `reports`
  std::condition_variable reported;
  long reports = 0;
};

void print_changes(rbtree *changes) {
  Tbl *const tables = keysarr(changes);
  std::string line;
  for (long i = 0; i < counttbl(tables); i++) {
    const auto *table = static_cast<const char *>(gettbl(tables, i));
    line += (i == 0 ? "" : ", ") + std::string(table) + " " +
            static_cast<const char *>(getarr(changes, table));
  }
  freetbl(tables, nullptr);
  std::printf("changed: %s\n", line.c_str());
}

void print_latest(KSEventView &view) {
  Tbl *events = nullptr;
  if (view.refreshEvents(&events) < 0) {
    elog_complain(0, "cannot read the events.\n");
    return;
  }
  view.sortEvents(events, 1);  // the latest first
  const long count = counttbl(events);
  std::printf("%ld events\n", count);
  const auto *event = static_cast<const KSEVEvent *>(gettbl(events, 0));
  const auto *origin =
      event == nullptr
          ? nullptr
          : static_cast<const KSEVOrigin *>(gettbl(event->origins, event->pref_origin));
  if (origin != nullptr) {
    std::fputs(ksutil::format_text("latest: %ld %s %.3f %.3f %s %.2f\n",
                                   static_cast<long>(event->evid),
                                   ksutil::time_text(event->time).c_str(), origin->lat,
                                   origin->lon, event->magtype, event->magnitude)
                   .c_str(),
               stdout);
  }
  std::fflush(stdout);
  view.freeEvents(events);
}

int on_check(int, void *monitor_pointer, void *changes_pointer) {
  Monitor &monitor = *static_cast<Monitor *>(monitor_pointer);
  auto *const changes = static_cast<rbtree *>(changes_pointer);
  if (countarr(changes) == 0) return 0;
  print_changes(changes);
  print_latest(*monitor.view);
  const std::lock_guard lock(monitor.lock);
  monitor.reports++;
  monitor.reported.notify_one();
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  double period = 0;
  std::int64_t reports = 0;
  if (argc != 4 || !ksutil::parse_real(argv[2], period) || !(period > 0) ||
      !ksutil::parse_integer(argv[3], reports)) {
    std::fputs("usage: monitor_events DATABASE PERIOD REPORTS\n", stderr);
    return 2;
  }
  /* Declared in this order, so that the view, whose destructor waits for the callback, is
   * destroyed before the data that the callback uses. */
  Monitor monitor;
  KSEventView view(nullptr);
  monitor.view = &view;
  if (view.configure("dbname", argv[1], static_cast<char *>(nullptr)) < 0 ||
      view.monitorChangesThread(period, on_check, &monitor) < 0) {
    elog_complain(0, "cannot follow %s.\n", argv[1]);
    return 1;
  }
  std::unique_lock lock(monitor.lock);
  monitor.reported.wait(lock,
                        [&] { return reports > 0 && monitor.reports >= reports; });
  return 0;
}
