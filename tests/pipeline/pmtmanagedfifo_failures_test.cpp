/* Refusals and shortages in a managed fifo: a message that is not there leaves an operator
 * searching, and a set-up that is half undone blocks the name that the program needs. */
#include <gmock/gmock.h>

#include <functional>

#include "tests/pipeline/managedfifo_test_support.h"

namespace {

TEST(ManagedFifoNames, AreRefusedTwice) {
  const ManagedHandle fifo = new_managed("names", {"reader"});
  ASSERT_EQ(pmtmanagedfifo_set_producer(fifo.get(), "writer"), 0);
  EXPECT_EQ(pmtmanagedfifo_push_eof(fifo.get(), "writer"), 0);
  elog_clear_register(0);
  EXPECT_EQ(pmtmanagedfifo_create("names"), nullptr);
  EXPECT_EQ(pmtmanagedfifo_set_consumer(fifo.get(), "reader", 0, 0), nullptr);
  EXPECT_EQ(pmtmanagedfifo_set_producer(fifo.get(), "writer"), -1);
  EXPECT_EQ(take(fifo.get(), "stranger").result, -1);
  EXPECT_EQ(pmtmanagedfifo_get_consumer(fifo.get(), "stranger"), nullptr);
  EXPECT_EQ(taken_messages(),
            "pmtmanagedfifo_create: name 'names' already in use.\n"
            "pmtmanagedfifo_set_consumer: consumer name 'reader' already in use in "
            "fifo 'names'.\n"
            "pmtmanagedfifo_set_producer: producer name 'writer' already in use in "
            "fifo 'names'.\n"
            "pmtmanagedfifo_pop: unknown consumer name 'stranger' in fifo 'names'.\n");
}

TEST(ManagedFifoNames, OfFifosAreCutAt63Characters) {
  const std::string kept(63, 'n');
  const ManagedHandle fifo = new_managed((kept + "first").c_str(), {});
  ASSERT_NE(fifo, nullptr);
  EXPECT_EQ(pmtmanagedfifo_get((kept + "other end").c_str()), fifo.get());
  EXPECT_EQ(pmtmanagedfifo_create(kept.c_str()), nullptr);
  EXPECT_EQ(pmtmanagedfifo_get("never created"), nullptr);
}

TEST(ManagedFifoNames, AreDisplayed) {
  const ManagedHandle fifo = new_managed("shown", {"zoe", "adam"});
  elog_set_program("prog");
  elog_clear_register(0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(pmtmanagedfifo_display(nullptr, fifo.get()), 0);
  pmtmanagedfifo_set_producer(fifo.get(), "done");
  pmtmanagedfifo_push_eof(fifo.get(), "done");
  EXPECT_EQ(pmtmanagedfifo_display("> ", fifo.get()), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "prog:        shown Consumers:\n"
            "prog:                      adam\n"
            "prog:                       zoe\n"
            "prog: >        shown Consumers:\n"
            "prog: >                      adam\n"
            "prog: >                       zoe\n"
            "prog: >        shown Producers:\n"
            "prog: >                      done\n");
  const ManagedHandle other = new_managed("shown too", {});
  testing::internal::CaptureStderr();
  EXPECT_EQ(pmtmanagedfifo_display("", nullptr), 0);
  const std::string all = testing::internal::GetCapturedStderr();
  EXPECT_NE(all.find("       shown Consumers:\n"), std::string::npos);
  EXPECT_NE(all.find("   shown too Consumers:\n"), std::string::npos);
}

TEST(ManagedFifoFailure, IsToldAndLeavesTheCallersBlockAlone) {
  const ManagedHandle fifo = new_managed("failures", {"only"});
  const MallocPtr<void> block(block_of(1));
  elog_clear_register(0);
  EXPECT_EQ(pmtmanagedfifo_push(fifo.get(), block.get(), nullptr, 0), -1);
  EXPECT_EQ(pmtmanagedfifo_push(fifo.get(), block.get(), no_copy, 1), -1);
  EXPECT_EQ(taken_messages(),
            "pmtmanagedfifo_push: Must provide copyproc callback for fifo "
            "'failures'.\n"
            "pmtmanagedfifo_push: copyproc() error for fifo 'failures'.\n");
  ks_test_fail_alloc(1);
  EXPECT_EQ(pmtmanagedfifo_push(fifo.get(), block.get(), copy_block, 0), -1);
  EXPECT_TRUE(taken_messages().starts_with(
      "pmtmanagedfifo_push: malloc(PmtmanagedfifoData,32) error for fifo "
      "'failures'.\n"));
  ks_test_fail_alloc(2);
  EXPECT_EQ(pmtmanagedfifo_push(fifo.get(), block.get(), copy_block, 0), -1);
  EXPECT_TRUE(taken_messages().ends_with(
      "pmtmanagedfifo_push: pmtfifo_push() error for fifo 'failures'.\n"));
  ks_test_fail_alloc(1);
  EXPECT_EQ(pmtmanagedfifo_push_eof(fifo.get(), nullptr), -1);
  EXPECT_TRUE(taken_messages().ends_with(
      "pmtmanagedfifo_push: pmtfifo_push_eof() error for fifo 'failures'.\n"));
  EXPECT_EQ(take(fifo.get(), "only").result, 3);
  ASSERT_EQ(push_number(fifo.get(), 2), 0);
  EXPECT_EQ(take(fifo.get(), "only").value, 2);
}

TEST(ManagedFifoFailure, AtTheSecondConsumerLeavesTheItemToTheFirst) {
  const ManagedHandle fifo = new_managed("half", {"first", "second"});
  void *const block = block_of(1);
  ks_test_fail_alloc(3);  // item, node of the first, node of the second
  EXPECT_EQ(pmtmanagedfifo_push(fifo.get(), block, copy_block, 0), -1);
  EXPECT_EQ(take(fifo.get(), "first"), Taken(1, 1, 0));
  EXPECT_EQ(take(fifo.get(), "second").result, 3);
  elog_clear_register(0);
}

/* Calls `make` with the first, second, ... allocation failing until it succeeds; the
 * different messages on the way, without what errno adds. */
std::vector<std::string> messages_until(const std::function<bool()> &make) {
  std::vector<std::string> messages;
  for (long n = 1; n < 20; ++n) {
    elog_clear_register(0);
    ks_test_fail_alloc(n);
    const bool made = make();
    ks_test_fail_alloc(0);
    const std::string text = taken_messages();
    EXPECT_EQ(text.empty(), made) << text;
    if (made) return messages;
    const std::string last = text.substr(text.rfind("pmtmanagedfifo_"));
    const std::string message = last.substr(0, last.find('\n'));
    if (messages.empty() || messages.back() != message) messages.push_back(message);
  }
  ADD_FAILURE() << "never succeeds";
  return messages;
}

TEST(ManagedFifoFailure, OfSettingUpIsUndone) {
  using testing::ElementsAre;
  /* The process's first fifos also set up the registries. */
  const ManagedHandle first(pmtmanagedfifo_create("first"));
  ASSERT_NE(pmtmanagedfifo_set_consumer(first.get(), "c", 0, 0), nullptr);
  ManagedHandle fifo;
  EXPECT_THAT(messages_until([&] {
                fifo.reset(pmtmanagedfifo_create("set up"));
                EXPECT_EQ(pmtmanagedfifo_get("set up"), fifo.get());
                return fifo != nullptr;
              }),
              ElementsAre("pmtmanagedfifo_create: malloc() error.",
                          "pmtmanagedfifo_create: newtbl() error.",
                          "pmtmanagedfifo_create: newarr() error.",
                          "pmtmanagedfifo_create: setarr() error."));
  EXPECT_THAT(
      messages_until([&] {
        pmtfifo *const made = pmtmanagedfifo_set_consumer(fifo.get(), "c", 0, 0);
        EXPECT_EQ(pmtmanagedfifo_get_consumer(fifo.get(), "c"), made);
        return made != nullptr;
      }),
      ElementsAre("pmtmanagedfifo_set_consumer: pmtfifo_create() error for consumer "
                  "name 'c' fifo 'set up'.",
                  "pmtmanagedfifo_set_consumer: setarr() error.",
                  "pmtmanagedfifo_set_consumer: settbl() error."));
  EXPECT_THAT(
      messages_until([&] { return pmtmanagedfifo_set_producer(fifo.get(), "p") == 0; }),
      ElementsAre("pmtmanagedfifo_set_producer: newarr() error.",
                  "pmtmanagedfifo_set_producer: malloc() error.",
                  "pmtmanagedfifo_set_producer: setarr() error."));
}

TEST(ManagedFifoNull, IsNoErrorWhereZeroIsTheAnswer) {
  void *data = &data;
  EXPECT_EQ(pmtmanagedfifo_pop(nullptr, "c", &data, nullptr), 0);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(pmtmanagedfifo_push(nullptr, nullptr, copy_block, 0), 0);
  EXPECT_EQ(pmtmanagedfifo_push_eof(nullptr, "p"), 0);
  EXPECT_EQ(pmtmanagedfifo_destroy(nullptr), 0);
  EXPECT_EQ(pmtmanagedfifo_get_consumer(nullptr, "c"), nullptr);
  EXPECT_EQ(pmtmanagedfifo_get(nullptr), nullptr);
  pmtmanagedfifo_free_data(nullptr);
  elog_clear_register(0);
  EXPECT_EQ(pmtmanagedfifo_create(nullptr), nullptr);
  EXPECT_EQ(pmtmanagedfifo_set_consumer(nullptr, "c", 0, 0), nullptr);
  EXPECT_EQ(pmtmanagedfifo_set_producer(nullptr, "p"), -1);
  EXPECT_EQ(taken_messages(),
            "pmtmanagedfifo_create: name must be given.\n"
            "pmtmanagedfifo_set_consumer: fifo and name must be given.\n"
            "pmtmanagedfifo_set_producer: fifo and name must be given.\n");
}

}  // namespace
