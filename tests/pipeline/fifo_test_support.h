/* What the tests of the fifo share. */
#ifndef KSUTIL_TESTS_PIPELINE_FIFO_TEST_SUPPORT_H
#define KSUTIL_TESTS_PIPELINE_FIFO_TEST_SUPPORT_H

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "pipeline/internal/pmtfifo_record.h"
#include "pipeline/internal/pthread_lock.h"
#include "pipeline/pmtfifo.h"
#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tests/support/register.h"

using ksutil::test::taken_messages;

struct FifoDestroy {
  void operator()(pmtfifo *fifo) const { pmtfifo_destroy(fifo, nullptr); }
};
using FifoHandle = std::unique_ptr<pmtfifo, FifoDestroy>;

inline FifoHandle new_fifo(int maxsize, int block, int reg = 0) {
  return FifoHandle(pmtfifo_create(maxsize, block, reg));
}

/* Items are small numbers in place of addresses. */
inline void *item(long number) { return reinterpret_cast<void *>(number); }
inline long number(void *data) { return reinterpret_cast<long>(data); }

/* Result and item of one pop; the item is written over to see that pop nulls it. */
using Popped = std::pair<int, long>;
inline Popped pop(const FifoHandle &fifo) {
  void *data = item(-1);
  const int result = pmtfifo_pop(fifo.get(), &data);
  return {result, number(data)};
}

inline std::future<Popped> pop_async(const FifoHandle &fifo) {
  return std::async(std::launch::async, [&fifo] { return pop(fifo); });
}

inline std::future<int> push_async(const FifoHandle &fifo, long value) {
  return std::async(std::launch::async,
                    [&fifo, value] { return pmtfifo_push(fifo.get(), item(value)); });
}

/* Returns when `readers` and `pushers` threads wait in the fifo; each holds its mutex until
 * it waits. */
inline void await_waiting(const FifoHandle &fifo, int readers, int pushers) {
  for (;;) {
    {
      const ksutil::PthreadLock lock(fifo->mutex);
      if (fifo->waiting_readers == readers && fifo->waiting_pushers == pushers) return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

inline bool still_waits(const auto &future) {
  return future.wait_for(std::chrono::milliseconds(30)) == std::future_status::timeout;
}

#endif
