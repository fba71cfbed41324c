/* pmtfifo_record: the record behind a pmtfifo, for the pipeline's own files and
 * tests. */
#ifndef KSUTIL_PIPELINE_INTERNAL_PMTFIFO_RECORD_H
#define KSUTIL_PIPELINE_INTERNAL_PMTFIFO_RECORD_H

#include <pthread.h>
#include <time.h>

#include <atomic>

#include "pipeline/internal/brief_wait.h"
#include "pipeline/internal/pmtfifo_items.h"

namespace ksutil {

/* The time at which a wait of `timeout` seconds that begins at `now` (epoch seconds)
 * ends: `now` itself for NaN, the end of year 9999 at the latest. */
timespec fifo_deadline(double now, double timeout);

}  // namespace ksutil

/* `mutex` guards every field that is neither constant nor atomic.  The atomic fields
 * are written by pmtfifo_flush, or cleared by pmtfifo_pop, without the mutex. */
struct pmtfifo {
  pthread_mutex_t mutex;
  pthread_cond_t space;  // room has become free; pushers wait on it
  pthread_cond_t data;   // data has come, or a reader is released; readers wait on it
  int maxsize;           // constant; 0 or less: no limit
  int registered;        // constant, also in a destroyed record
  std::atomic<int> count;
  std::atomic<int> flushed;   // one-shot: the next pusher that wakes up gives up
  std::atomic<int> released;  // one-shot: the next reader that wakes up gives up
  std::atomic<int> releases;  // counts releases, for a reader that has not slept yet
  int block;                  // reader mode 0, 1 or 2
  double timeout;             // seconds, in mode 2
  ksutil::FifoItems items;
  ksutil::BriefWait wait_for_space;
  ksutil::BriefWait wait_for_data;
  int waiting_readers;  // threads asleep or about to be: without any, no signal is sent
  int waiting_pushers;
  pmtfifo *next_in_pool;  // guarded by the registry's mutex
};

#endif
