/* pmtcomp_record: the records behind a pmtcomp, for the pipeline's own files and
 * tests. */
#ifndef KSUTIL_PIPELINE_INTERNAL_PMTCOMP_RECORD_H
#define KSUTIL_PIPELINE_INTERNAL_PMTCOMP_RECORD_H

#include <pthread.h>

#include <atomic>
#include <cstddef>

#include "pipeline/internal/brief_wait.h"
#include "pipeline/pmtcomp.h"
#include "platform/stock/tbl.h"

struct Pmtcomp {
  pthread_mutex_t mutex;  // held for a whole operation; taken before a thread's
  Tbl *threads;           // PmtcompThread, by index; guarded by mutex
  std::atomic<int> destroying;
};

/* `start` and `quit` are written under the thread's mutex; a worker that has not fallen
 * asleep yet reads them without it.  The worker stores `result` before it sets
 * `finished`, and reads its binding only during a step; the controlling thread reads
 * `result` after it has seen `finished`, and changes the binding only between steps. */
struct PmtcompThread {
  pthread_t thread;  // for the controlling thread; the worker asks pthread_self
  pthread_mutex_t mutex;
  pthread_cond_t start_cond;
  pthread_cond_t finish_cond;
  std::atomic<long> start;  // a step has been asked for
  std::atomic<long> finished;
  std::atomic<long> quit;
  long index;  // constant
  long result;
  PmtcompSub comp_sub;
  void *arg1;
  long arg2;
  void *arg3;
  ksutil::BriefWait wait_for_start;
  ksutil::BriefWait wait_for_finish;
};

namespace ksutil {

/* Bytes allocated for the records; messages show these numbers. */
inline constexpr std::size_t kCompBytes = 80;
inline constexpr std::size_t kCompThreadBytes = 240;
static_assert(sizeof(Pmtcomp) <= kCompBytes);
static_assert(sizeof(PmtcompThread) <= kCompThreadBytes);

/* What workers print to standard output: 0 nothing; 1 their start, their end and the
 * time of each step; above 1 every event of the lock-step. */
extern std::atomic<int> comp_verbosity;

/* The body of a worker; `thread` is its PmtcompThread. */
void *run_comp_thread(void *thread);

}  // namespace ksutil
#endif
