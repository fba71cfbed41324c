#include "platform/trace/internal/miniseed_waypoints.h"

#include <sys/stat.h>

#include <algorithm>
#include <list>
#include <mutex>
#include <utility>

namespace ksutil {
namespace {

constexpr std::size_t kMostRuns = 64, kMostWaypoints = 2048;

struct Run {
  MiniseedRunKey key;
  std::vector<MiniseedWaypoint> waypoints;  // ascending in `begin`
  std::int64_t step = kWaypointStep;
};

/* Never destroyed: threads may read until the process ends. */
struct Memory {
  std::mutex mutex;
  std::list<Run> runs;  // guarded by mutex; the last one used is the first
};
Memory &memory() {
  static Memory *const made = new Memory;
  return *made;
}

/* The run, moved to the front; null when it is not known.  Under the lock. */
Run *find_run(Memory &all, const MiniseedRunKey &key) {
  const auto found = std::find_if(all.runs.begin(), all.runs.end(),
                                  [&](const Run &run) { return run.key == key; });
  if (found == all.runs.end()) return nullptr;
  all.runs.splice(all.runs.begin(), all.runs, found);
  return &all.runs.front();
}

}  // namespace

bool MiniseedRunKey::set_file(int fd) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) return false;
  device = status.st_dev;
  inode = status.st_ino;
  size = status.st_size;
  seconds = status.st_mtim.tv_sec;
  nanoseconds = status.st_mtim.tv_nsec;
  return true;
}

bool find_waypoint(const MiniseedRunKey &key, std::int64_t sample,
                   MiniseedWaypoint &waypoint) {
  Memory &all = memory();
  const std::lock_guard lock(all.mutex);
  const Run *const run = find_run(all, key);
  if (run == nullptr) return false;
  const auto after = std::upper_bound(
      run->waypoints.begin(), run->waypoints.end(), sample,
      [](std::int64_t at, const MiniseedWaypoint &each) { return at < each.begin; });
  if (after == run->waypoints.begin()) return false;
  waypoint = *std::prev(after);
  return true;
}

void keep_waypoints(const MiniseedRunKey &key,
                    const std::vector<MiniseedWaypoint> &found) {
  if (found.empty()) return;
  Memory &all = memory();
  const std::lock_guard lock(all.mutex);
  Run *run = find_run(all, key);
  if (run == nullptr) {
    all.runs.push_front({key, {}});
    run = &all.runs.front();
    if (all.runs.size() > kMostRuns) all.runs.pop_back();
  }
  std::vector<MiniseedWaypoint> &kept = run->waypoints;
  for (const MiniseedWaypoint &each : found) {
    if (!kept.empty() && each.begin < kept.back().begin + run->step) continue;
    kept.push_back(each);
    if (kept.size() < kMostWaypoints) continue;
    std::size_t i = 0;
    std::erase_if(kept, [&](const MiniseedWaypoint &) { return i++ % 2 == 0; });
    run->step *= 2;
  }
}

}  // namespace ksutil
