/* miniseed_waypoints: remembers where in a file samples of a run of records lie, so that the
 * next window of the same run need not walk through all records before it. */
#ifndef KSUTIL_PLATFORM_TRACE_INTERNAL_MINISEED_WAYPOINTS_H
#define KSUTIL_PLATFORM_TRACE_INTERNAL_MINISEED_WAYPOINTS_H

#include <compare>
#include <cstdint>
#include <vector>

namespace ksutil {

/* A run of records in a file as it was at one time. */
struct MiniseedRunKey {
  std::uint64_t device = 0, inode = 0;
  std::int64_t size = 0, seconds = 0, nanoseconds = 0;  // the time of change
  std::int64_t foff = 0;
  double time = 0.0, samprate = 0.0;
  auto operator<=>(const MiniseedRunKey &) const =
      default;  // NOLINT(modernize-use-nullptr)

  /* False when the file cannot be looked at. */
  bool set_file(int fd);
};

/* A record that follows the samples before it. */
struct MiniseedWaypoint {
  std::int64_t offset = 0;  // of the record in the file
  std::int64_t begin = 0;   // the place of its first sample in the run, above 0
  double time = 0.0;        // at which the run goes on
};

/* The last waypoint at or before a sample; false for none.  Safe from any thread. */
bool find_waypoint(const MiniseedRunKey &run, std::int64_t sample,
                   MiniseedWaypoint &waypoint);

/* Remembers waypoints of a walk, in the order of `begin`.  Some are dropped: those of a run
 * lie tens of thousands of samples apart, and memory holds at most 2048 each of the 64 runs
 * that were used last.  Safe from any thread. */
void keep_waypoints(const MiniseedRunKey &run,
                    const std::vector<MiniseedWaypoint> &found);

/* The least distance of waypoints, in samples. */
inline constexpr std::int64_t kWaypointStep = std::int64_t{1} << 15;

}  // namespace ksutil
#endif
