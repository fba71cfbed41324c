#include "pipeline/pmtfifo.h"

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "pipeline/internal/pmtfifo_record.h"
#include "pipeline/internal/pmtfifo_registry.h"
#include "pipeline/internal/pthread_lock.h"
#include "platform/clock/clock.h"
#include "platform/elog/failure.h"

using ksutil::fail;
using ksutil::fail_memory;
using ksutil::FifoItems;
using ksutil::PthreadLock;

namespace {

/* Returns whether a registered fifo has been destroyed, with a message if it has. */
bool is_gone(const pmtfifo *fifo, const char *function) {
  if (fifo->registered == 0 || ksutil::is_registered_fifo(fifo)) return false;
  fail(function, "mtfifo no longer exists");
  return true;
}

void signal_reader(pmtfifo *fifo) {
  if (fifo->waiting_readers > 0) pthread_cond_signal(&fifo->data);
}

void signal_pusher(pmtfifo *fifo) {
  if (fifo->waiting_pushers > 0) pthread_cond_signal(&fifo->space);
}

/* Adds to the count; the caller holds the fifo's mutex. */
void count_items(pmtfifo *fifo, int change) {
  fifo->count.store(fifo->count.load(std::memory_order_relaxed) + change,
                    std::memory_order_relaxed);
}

/* Forgets a release that no waiting reader has taken. */
void clear_released(pmtfifo *fifo) {
  if (fifo->released.load(std::memory_order_relaxed) != 0) fifo->released = 0;
}

void release_reader(pmtfifo *fifo) {
  fifo->released = 1;
  fifo->releases.store(fifo->releases.load(std::memory_order_relaxed) + 1,
                       std::memory_order_release);
  signal_reader(fifo);
}

/* Unlocks the fifo for a moment in which `changed` may come, or even `plenty`, which
 * spares the next wait.  Returns whether `changed` has come; this counts as a wake-up,
 * so a mark that stood before the wait does not end it. */
template <class Plenty, class Changed>
bool wait_awake(pmtfifo *fifo, ksutil::BriefWait &wait, const Plenty &plenty,
                const Changed &changed) {
  if (wait.skip()) return changed();
  pthread_mutex_unlock(&fifo->mutex);
  const bool seen = wait.until(plenty);
  pthread_mutex_lock(&fifo->mutex);
  return seen || changed();
}

/* Waits until there is room; false when a flush has ended the wait. */
bool wait_for_room(pmtfifo *fifo) {
  const auto has_room = [fifo] {
    return fifo->count.load(std::memory_order_acquire) < fifo->maxsize;
  };
  /* With one free slot at a time the two sides would switch at every item. */
  const auto has_much_room = [fifo] {
    return fifo->count.load(std::memory_order_acquire) <= fifo->maxsize / 2;
  };
  while (fifo->maxsize > 0 && !has_room()) {
    if (!wait_awake(fifo, fifo->wait_for_space, has_much_room, has_room)) {
      ++fifo->waiting_pushers;
      pthread_cond_wait(&fifo->space, &fifo->mutex);
      --fifo->waiting_pushers;
    }
    if (fifo->flushed.load(std::memory_order_acquire) != 0) {
      fifo->flushed = 0;
      return false;
    }
  }
  return true;
}

int insert(pmtfifo *fifo, void *data, bool (FifoItems::*add)(void *),
           bool keep_locked_on_failure) {
  if (fifo == nullptr) return 0;
  if (is_gone(fifo, "pmtfifo_push")) return -1;
  PthreadLock lock(fifo->mutex);
  if (!wait_for_room(fifo)) return 0;
  if (!(fifo->items.*add)(data)) {
    fail_memory("pmtfifo_push");
    if (keep_locked_on_failure) lock.release();
    return -1;
  }
  count_items(fifo, 1);
  if (fifo->block != 0) signal_reader(fifo);
  return 0;
}

/* Takes the oldest item; the caller holds the fifo's mutex. */
void *take_item(pmtfifo *fifo) {
  void *const data = fifo->items.take();
  count_items(fifo, -1);
  if (fifo->maxsize > 0 && fifo->count < fifo->maxsize) signal_pusher(fifo);
  return data;
}

enum class Wait { kAgain, kReleased, kTimedOut };

/* Sleeps as the present reader mode demands; true when the time-out of a wait that
 * began at `began` has expired. */
bool sleep_for_data(pmtfifo *fifo, double began) {
  int result = 0;
  ++fifo->waiting_readers;
  if (fifo->block == 2) {
    const timespec deadline = ksutil::fifo_deadline(began, fifo->timeout);
    result = pthread_cond_timedwait(&fifo->data, &fifo->mutex, &deadline);
  } else {
    pthread_cond_wait(&fifo->data, &fifo->mutex);
  }
  --fifo->waiting_readers;
  return result == ETIMEDOUT;
}

/* One wait of a reader. */
Wait wait_for_data(pmtfifo *fifo) {
  const double began = std_now();
  const int before = fifo->releases.load(std::memory_order_relaxed);
  const auto changed = [fifo, before] {
    return fifo->count.load(std::memory_order_acquire) > 0 ||
           fifo->releases.load(std::memory_order_acquire) != before;
  };
  if (!wait_awake(fifo, fifo->wait_for_data, changed, changed) &&
      sleep_for_data(fifo, began)) {
    /* An item that arrived together with the time-out is taken. */
    return fifo->items.empty() ? Wait::kTimedOut : Wait::kAgain;
  }
  if (fifo->released != 0) {
    fifo->released = 0;
    return Wait::kReleased;
  }
  return Wait::kAgain;
}

void drop_items(pmtfifo *fifo, PmtfifoFree free_function) {
  while (!fifo->items.empty()) {
    void *const data = fifo->items.take();
    if (free_function != nullptr) free_function(data);
  }
}

}  // namespace

timespec ksutil::fifo_deadline(double now, double timeout) {
  constexpr double kLatest = 253402300799.0;  // 9999-12-31T23:59:59
  const double end = std::isnan(timeout) ? now : now + timeout;
  const double deadline = std::isnan(end) ? 0.0 : std::clamp(end, 0.0, kLatest);
  timespec time{};
  time.tv_sec = static_cast<time_t>(deadline);
  time.tv_nsec =
      static_cast<long>(1e9 * (deadline - static_cast<double>(time.tv_sec)) + 0.5);
  if (time.tv_nsec >= 1000000000L) {
    time.tv_nsec -= 1000000000L;
    ++time.tv_sec;
  }
  return time;
}

pmtfifo *pmtfifo_create(int maxsize, int block, int reg) {
  pmtfifo *const fifo = ksutil::new_fifo_record(maxsize, reg);
  if (fifo == nullptr) {
    return fail_memory("pmtfifo_create");
  }
  fifo->block = block;
  const ksutil::Registry registry = ksutil::open_fifo_registry();
  if (registry == ksutil::Registry::kJustFailed) {
    /* The record stays allocated: after the process's first failure nothing is
     * certain. */
    fail("pmtfifo_create", "newarr() error");
    return nullptr;
  }
  if (registry == ksutil::Registry::kAbsent && reg != 0) {
    fail("pmtfifo_create", "newarr() error");
    ksutil::retire_fifo_record(fifo);
    return nullptr;
  }
  if (reg != 0 && !ksutil::register_fifo(fifo)) {
    fail("pmtfifo_create", "setarr() error");
    ksutil::retire_fifo_record(fifo);
    return nullptr;
  }
  return fifo;
}

int pmtfifo_set_timeout(pmtfifo *fifo, double timeout) {
  if (fifo == nullptr) return 0;
  if (is_gone(fifo, "pmtfifo_set_timeout")) return -1;
  const PthreadLock lock(fifo->mutex);
  if (timeout < 0.0) {
    fifo->block = 1;
    return 0;
  }
  if (fifo->block != 0) release_reader(fifo);
  if (timeout == 0.0) {
    fifo->block = 0;
  } else {
    fifo->block = 2;
    fifo->timeout = timeout;
  }
  return 0;
}

int pmtfifo_push(pmtfifo *fifo, void *data) {
  return insert(fifo, data, &FifoItems::append, false);
}

/* The fifo stays locked when memory is short: later items must not overtake one that
 * could not go back to its place. */
int pmtfifo_unpop(pmtfifo *fifo, void *data) {
  return insert(fifo, data, &FifoItems::prepend, true);
}

int pmtfifo_pop(pmtfifo *fifo, void **data) {
  *data = nullptr;
  if (fifo == nullptr) return 3;
  if (is_gone(fifo, "pmtfifo_pop")) return -1;
  PthreadLock lock(fifo->mutex);
  if (fifo->block == 0 && fifo->items.empty()) {
    lock.unlock();
    clear_released(fifo);
    return 3;
  }
  while (fifo->items.empty()) {
    const Wait end = wait_for_data(fifo);
    if (end == Wait::kReleased) return 0;
    if (end == Wait::kTimedOut) {
      lock.unlock();
      clear_released(fifo);
      return 2;
    }
  }
  *data = take_item(fifo);
  lock.unlock();
  clear_released(fifo);
  return 1;
}

int pmtfifo_data_available(pmtfifo *fifo) {
  if (fifo == nullptr) return 0;
  const PthreadLock lock(fifo->mutex);
  return fifo->items.empty() ? 0 : fifo->count.load();
}

int pmtfifo_release_block(pmtfifo *fifo) {
  if (fifo == nullptr) return 0;
  const PthreadLock lock(fifo->mutex);
  if (fifo->block != 0) release_reader(fifo);
  return 0;
}

int pmtfifo_release_blocks(pmtfifo *fifo) {
  if (fifo == nullptr) return 0;
  const PthreadLock lock(fifo->mutex);
  if (fifo->block != 0) release_reader(fifo);
  fifo->block = 0;
  return 0;
}

int pmtfifo_flush(pmtfifo *fifo, PmtfifoFree free_function) {
  if (fifo == nullptr) return 0;
  const PthreadLock lock(ksutil::fifo_registry_mutex());
  /* The fifo's own mutex is not locked.  A pusher that wakes up during the flush reads
   * only the mark and the count, so the list is emptied first, and the mark is set
   * before the count: a pusher that sees room also sees the mark. */
  drop_items(fifo, free_function);
  fifo->flushed.store(1, std::memory_order_release);
  fifo->count.store(0, std::memory_order_release);
  pthread_cond_signal(&fifo->space);
  return 0;
}

int pmtfifo_destroy(pmtfifo *fifo, PmtfifoFree free_function) {
  if (fifo == nullptr) return 0;
  /* A record that is in the pool already must not enter it again. */
  if (fifo->registered != 0 && !ksutil::deregister_fifo(fifo)) return 0;
  drop_items(fifo, free_function);
  ksutil::retire_fifo_record(fifo);
  return 0;
}
