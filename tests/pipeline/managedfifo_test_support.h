/* What the tests of the managed fifo share. */
#ifndef KSUTIL_TESTS_PIPELINE_MANAGEDFIFO_TEST_SUPPORT_H
#define KSUTIL_TESTS_PIPELINE_MANAGEDFIFO_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "pipeline/pmtmanagedfifo.h"
#include "platform/stock/memory.h"
#include "tests/pipeline/fifo_test_support.h"

using ksutil::MallocPtr;

/* Fifos keep their names for ever, so every case takes a name of its own. */
struct ManagedDestroy {
  void operator()(pmtmanagedfifo *fifo) const { pmtmanagedfifo_destroy(fifo); }
};
using ManagedHandle = std::unique_ptr<pmtmanagedfifo, ManagedDestroy>;

inline ManagedHandle new_managed(const char *name,
                                 const std::vector<const char *> &consumers,
                                 int maxsize = 0, int block = 0) {
  ManagedHandle fifo(pmtmanagedfifo_create(name));
  for (const char *consumer : consumers) {
    EXPECT_NE(pmtmanagedfifo_set_consumer(fifo.get(), consumer, maxsize, block),
              nullptr);
  }
  return fifo;
}

/* Data are numbers, each in a block of its own. */
inline void *block_of(long value) {
  auto *const block = static_cast<long *>(std::malloc(sizeof(long)));
  *block = value;
  return block;
}
inline void *copy_block(void *data) { return block_of(*static_cast<long *>(data)); }
inline void *no_copy(void *) { return nullptr; }

inline int push_number(pmtmanagedfifo *fifo, long value, int copy = 0) {
  MallocPtr<void> block(block_of(value));
  const int result = pmtmanagedfifo_push(fifo, block.get(), copy_block, copy);
  if (copy == 0 && result == 0) block.release();
  return result;
}

struct Taken {
  int result;
  long value, sequence;
  bool operator==(const Taken &) const = default;
};
inline Taken take(pmtmanagedfifo *fifo, const char *consumer) {
  Taken taken{0, -1, -1};
  void *data = &taken;
  taken.result = pmtmanagedfifo_pop(fifo, consumer, &data, &taken.sequence);
  const MallocPtr<long> number(static_cast<long *>(data));
  if (number != nullptr) taken.value = *number;
  return taken;
}

#endif
