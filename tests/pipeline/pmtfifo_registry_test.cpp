/* Programs that keep a pointer too long are told so instead of touching freed memory. */
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "tests/pipeline/fifo_test_support.h"

namespace {

TEST(PmtfifoRegistry, RefusesCallsOnADestroyedFifo) {
  pmtfifo *const stale = pmtfifo_create(2, 0, 1);
  EXPECT_EQ(pmtfifo_push(stale, item(1)), 0);
  pmtfifo_destroy(stale, nullptr);
  elog_clear_register(0);
  void *data = item(1);
  errno = ENOENT;  // of an earlier call: no cause of what follows
  EXPECT_EQ(pmtfifo_set_timeout(stale, 1.0), -1);
  EXPECT_EQ(pmtfifo_push(stale, item(1)), -1);
  EXPECT_EQ(pmtfifo_unpop(stale, item(1)), -1);
  EXPECT_EQ(pmtfifo_pop(stale, &data), -1);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(taken_messages(),
            "pmtfifo_set_timeout: mtfifo no longer exists.\n"
            "pmtfifo_push: mtfifo no longer exists.\n"
            "pmtfifo_push: mtfifo no longer exists.\n"
            "pmtfifo_pop: mtfifo no longer exists.\n");
}

/* Two fifos in one record would take each other's items. */
TEST(PmtfifoRegistry, ASecondDestroyFreesNoRecordTwice) {
  pmtfifo *const stale = pmtfifo_create(0, 0, 1);
  EXPECT_EQ(pmtfifo_destroy(stale, nullptr), 0);
  EXPECT_EQ(pmtfifo_destroy(stale, nullptr), 0);
  const FifoHandle first = new_fifo(0, 0, 1), second = new_fifo(0, 0, 1);
  EXPECT_NE(first.get(), second.get());
}

TEST(PmtfifoRegistry, ReusedRecordStartsAnew) {
  pmtfifo *const old = pmtfifo_create(2, 1, 1);
  pmtfifo_push(old, item(1));
  pmtfifo_flush(old, nullptr);
  pmtfifo_release_block(old);
  pmtfifo_push(old, item(2));
  pmtfifo_destroy(old, nullptr);
  const FifoHandle unregistered = new_fifo(0, 0, 0);
  EXPECT_NE(unregistered.get(), old);
  const FifoHandle fifo = new_fifo(1, 0, 1);
  ASSERT_EQ(fifo.get(), old);
  EXPECT_EQ(pmtfifo_data_available(fifo.get()), 0);
  EXPECT_EQ(pop(fifo), Popped(3, 0));
  EXPECT_EQ(fifo->flushed, 0);
  EXPECT_EQ(fifo->released, 0);
  EXPECT_EQ(fifo->maxsize, 1);
}

TEST(PmtfifoRegistry, ShortageForAnEntryKeepsTheFifoOut) {
  const FifoHandle first = new_fifo(0, 0, 1);
  elog_clear_register(0);
  pmtfifo_destroy(pmtfifo_create(0, 0, 1), nullptr);
  ks_test_fail_alloc(1);
  EXPECT_EQ(pmtfifo_create(0, 0, 1), nullptr);
  ks_test_fail_alloc(0);
  EXPECT_EQ(taken_messages(), "pmtfifo_create: setarr() error.\n");
  const FifoHandle next = new_fifo(0, 0, 1);
  EXPECT_EQ(pmtfifo_push(next.get(), item(1)), 0);
}

#if !defined(__SANITIZE_THREAD__)
/* In a process of its own, which has not made a fifo yet. */
TEST(PmtfifoRegistry, CannotBeMadeLater) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto create_all = [] {
    const std::string message = "pmtfifo_create: newarr() error.\n";
    ks_test_fail_alloc(2);
    if (pmtfifo_create(0, 0, 0) != nullptr || taken_messages() != message) _exit(1);
    if (pmtfifo_create(0, 0, 1) != nullptr) _exit(2);
    if (taken_messages() != message) _exit(3);
    if (pmtfifo_create(0, 0, 0) == nullptr) _exit(4);
    _exit(0);
  };
  EXPECT_EXIT(create_all(), testing::ExitedWithCode(0), "");
}
#endif

}  // namespace
