/* pmtmanagedfifo_stream: pushes items and end marks into a managed fifo and pops
 * them. */
#include <unistd.h>

#include <cstdlib>
#include <mutex>

#include "pipeline/internal/pmtfifo_record.h"
#include "pipeline/internal/pmtmanagedfifo_record.h"
#include "platform/elog/failure.h"

static_assert(sizeof(PmtmanagedfifoData) == 32, "the size is part of a message");

using ksutil::fail;
using ksutil::fail_errno;

namespace {

constexpr useconds_t kRoomPoll = 1000;  // microseconds between looks for room

/* A consumer by its place in the list; null past the end. */
pmtfifo *consumer_at(pmtmanagedfifo *fifo, long i) {
  const std::lock_guard state(fifo->state_mutex);
  return static_cast<pmtfifo *>(gettbl(fifo->consumers.get(), i));
}

/* Waits until every consumer has room.  The caller holds the push mutex, so that no
 * consumer loses its room before the push that follows; a consumer added after this
 * call is empty.  Therefore no push blocks while the state mutex is held. */
void wait_for_room(pmtmanagedfifo *fifo) {
  for (long i = 0;; ++i) {
    pmtfifo *const consumer = consumer_at(fifo, i);
    if (consumer == nullptr) return;
    while (consumer->maxsize >= 1 &&
           pmtfifo_data_available(consumer) >= consumer->maxsize) {
      usleep(kRoomPoll);
    }
  }
}

/* Pushes an item, or the end mark (null), to all consumers; the caller holds the state
 * mutex.  False at the first consumer that fails: the consumers before it keep the
 * item. */
bool push_to_all(pmtmanagedfifo *fifo, PmtmanagedfifoData *item) {
  for (long i = 0; i < counttbl(fifo->consumers.get()); ++i) {
    if (item != nullptr) ++item->references;
    auto *const consumer = static_cast<pmtfifo *>(gettbl(fifo->consumers.get(), i));
    if (pmtfifo_push(consumer, item) < 0) {
      if (item != nullptr) --item->references;
      return false;
    }
  }
  return true;
}

/* Marks a producer as ended; returns whether others are still live. */
bool end_producer(pmtmanagedfifo *fifo, const char *producer) {
  const std::lock_guard lock(fifo->producers_mutex);
  Arr *const producers = fifo->producers.get();
  if (void *const live = getarr(producers, producer); live != nullptr) {
    setarr(producers, producer, nullptr);
    std::free(live);
    --fifo->live_producers;
  }
  return fifo->live_producers > 0;
}

/* An item with no number and no references yet; null after a message. */
PmtmanagedfifoData *new_item(const pmtmanagedfifo *fifo, void *data,
                             PmtmanagedfifoCopy copyproc, int copy) {
  auto *const item =
      static_cast<PmtmanagedfifoData *>(ks_calloc(1, sizeof(PmtmanagedfifoData)));
  if (item == nullptr) {
    return fail_errno("pmtmanagedfifo_push",
                      "malloc(PmtmanagedfifoData,%ld) error for fifo '%s'",
                      static_cast<long>(sizeof(PmtmanagedfifoData)), fifo->name);
  }
  item->data = copy != 0 ? copyproc(data) : data;
  if (copy != 0 && item->data == nullptr) {
    fail("pmtmanagedfifo_push", "copyproc() error for fifo '%s'", fifo->name);
    std::free(item);
    return nullptr;
  }
  item->copyproc = copyproc;
  return item;
}

}  // namespace

void ksutil::drop_managed_item(void *item) {
  auto *const dropped = static_cast<PmtmanagedfifoData *>(item);
  if (dropped != nullptr && --dropped->references == 0) pmtmanagedfifo_free_data(item);
}

int pmtmanagedfifo_push(pmtmanagedfifo *fifo, void *data, PmtmanagedfifoCopy copyproc,
                        int copy) {
  if (fifo == nullptr) return 0;
  if (copyproc == nullptr) {
    return fail("pmtmanagedfifo_push", "Must provide copyproc callback for fifo '%s'",
                fifo->name);
  }
  PmtmanagedfifoData *const item = new_item(fifo, data, copyproc, copy);
  if (item == nullptr) return -1;
  const std::lock_guard push(fifo->push_mutex);
  wait_for_room(fifo);
  const std::lock_guard state(fifo->state_mutex);
  item->sequence = fifo->sequence++;
  if (!push_to_all(fifo, item)) {
    fail("pmtmanagedfifo_push", "pmtfifo_push() error for fifo '%s'", fifo->name);
    /* The consumers that have the item free it with its data. */
    if (item->references == 0) std::free(item);
    return -1;
  }
  return 0;
}

int pmtmanagedfifo_push_eof(pmtmanagedfifo *fifo, const char *producer) {
  if (fifo == nullptr) return 0;
  if (producer != nullptr && end_producer(fifo, producer)) return 0;
  const std::lock_guard push(fifo->push_mutex);
  wait_for_room(fifo);
  const std::lock_guard state(fifo->state_mutex);
  if (!push_to_all(fifo, nullptr)) {
    return fail("pmtmanagedfifo_push", "pmtfifo_push_eof() error for fifo '%s'",
                fifo->name);
  }
  return 0;
}

int pmtmanagedfifo_pop(pmtmanagedfifo *fifo, const char *consumer, void **data,
                       long *sequence) {
  *data = nullptr;
  if (fifo == nullptr) return 0;
  pmtfifo *const queue = pmtmanagedfifo_get_consumer(fifo, consumer);
  if (queue == nullptr) {
    return fail("pmtmanagedfifo_pop", "unknown consumer name '%s' in fifo '%s'",
                consumer == nullptr ? "" : consumer, fifo->name);
  }
  void *popped = nullptr;
  const int result = pmtfifo_pop(queue, &popped);
  if (result < 0) {
    return fail("pmtmanagedfifo_pop",
                "pmtfifo_pop() error for consumer name '%s' in fifo '%s'", consumer,
                fifo->name);
  }
  if (result != 1) return result;
  if (popped == nullptr) return 4;
  auto *const item = static_cast<PmtmanagedfifoData *>(popped);
  *data = item->copyproc(item->data);
  if (sequence != nullptr) *sequence = item->sequence;
  const std::lock_guard state(fifo->state_mutex);
  ksutil::drop_managed_item(item);
  return 1;
}

/* Frees the data as a hook without a release function does. */
void pmtmanagedfifo_free_data(void *item) {
  auto *const freed = static_cast<PmtmanagedfifoData *>(item);
  if (freed == nullptr) return;
  std::free(freed->data);
  std::free(freed);
}
