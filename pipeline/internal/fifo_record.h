/* The record behind a pmtfifo, for the pipeline's own files and its tests. */
#ifndef KSUTIL_PIPELINE_INTERNAL_FIFO_RECORD_H
#define KSUTIL_PIPELINE_INTERNAL_FIFO_RECORD_H

#include <pthread.h>
#include <time.h>

#include <atomic>

namespace ksutil {

struct FifoNode {
  void *data;
  FifoNode *next;      // newer
  FifoNode *previous;  // older
};

/* How often a thread that has to wait lets others run before it falls asleep: the other
 * side is often about to come, and waking a sleeper costs more than its work.  A few
 * microseconds in all, which even a reader that always waits in vain does not feel. */
inline constexpr int kFifoYields = 16;

/* Spare nodes that a fifo keeps; the rest of a burst goes back to the system. */
inline constexpr int kFifoMaxSpare = 1024;

/* When a wait of `timeout` seconds that begins at `now` (epoch seconds) ends: at once for
 * NaN, at the end of year 9999 at the latest. */
timespec fifo_deadline(double now, double timeout);

}  // namespace ksutil

/* `mutex` guards every field that is neither constant nor atomic.  The atomics are those
 * that pmtfifo_flush writes, or pmtfifo_pop clears, without it. */
struct pmtfifo {
  pthread_mutex_t mutex;
  pthread_cond_t space;  // room has become free; pushers wait on it
  pthread_cond_t data;   // data has come, or a reader is released; readers wait on it
  int maxsize;           // constant; 0 or less: no limit
  int registered;        // constant, also in a destroyed record
  std::atomic<int> count;
  std::atomic<int> flushed;   // one-shot: the next pusher that wakes up gives up
  std::atomic<int> released;  // one-shot: the next reader that wakes up gives up
  std::atomic<int>
      releases;            // how many there were; tells a reader that has not slept yet
  int block;               // reader mode 0, 1 or 2
  double timeout;          // seconds, in mode 2
  ksutil::FifoNode *head;  // oldest item
  ksutil::FifoNode *tail;
  int waiting_readers;      // threads asleep, or about to be: a signal that nobody can
  int waiting_pushers;      // receive is not sent
  ksutil::FifoNode *spare;  // nodes to be used again, linked by next
  int spare_count;
  pmtfifo *next_in_pool;  // guarded by the registry's mutex
};

#endif
