/* Every failure in the library is told through this register.  A message lost, garbled or
 * wiped by another thread's clean-up leaves an operator with a wrong result and no reason. */
#include "platform/elog/elog.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/elog/elog_take.h"
#include "platform/stock/memory.h"
#include "support/comma_locale.h"

namespace {

std::string registered() {
  const ksutil::MallocPtr<char> text(elog_string(0));
  return text ? text.get() : "(no memory)";
}

class Elog : public testing::Test {
 protected:
  void SetUp() override { elog_clear_register(0); }
  void TearDown() override {
    ks_test_fail_alloc(0);
    elog_set_sink(nullptr, nullptr);
    elog_set_program(nullptr);
    elog_clear_register(0);
  }
};

TEST_F(Elog, KeepsTextsAndStartsEachMessageOnANewLine) {
  elog_log(0, "a: %d %ld %s %.2f", 1, 2L, "three", 4.5);
  elog_log(0, "b: error.\n");
  elog_log(0, "c: no end");
  EXPECT_EQ(registered(), "a: 1 2 three 4.50\nb: error.\nc: no end");
  EXPECT_EQ(elog_clear_register(0), 3);
  EXPECT_EQ(registered(), "");
}

TEST_F(Elog, TakesTheMessagesOfThisThreadSinceAMarkAndNoOthers) {
  elog_log(0, "before.\n");
  const int mark = elog_mark();
  EXPECT_STREQ(ksutil::MallocPtr<char>(elog_take(mark)).get(), "");
  elog_log(0, "first");
  std::thread([] { elog_log(0, "other thread.\n"); }).join();
  elog_log(0, "second.\n");
  EXPECT_STREQ(ksutil::MallocPtr<char>(elog_take(mark)).get(), "first\nsecond.\n");
  EXPECT_STREQ(ksutil::MallocPtr<char>(elog_take(mark)).get(), "");
  EXPECT_EQ(registered(), "before.\nother thread.\n");
}

TEST_F(Elog, AppendsTheErrorOfTheCallOnALineOfItsOwnAndKeepsErrno) {
  errno = ENOENT;
  elog_log(1, "open() error.\n");
  EXPECT_EQ(errno, ENOENT);
  elog_log(3, "no end");
  errno = 0;
  elog_log(1, "nothing wrong.\n");
  errno = ENOSPC;
  elog_log(2, "not asked.\n");
  EXPECT_EQ(registered(),
            "open() error.\nNo such file or directory\nno end\n"
            "No such file or directory\nnothing wrong.\nnot asked.\n");
}

TEST_F(Elog, BreaksAnOverlongMessageOffAndKeepsItsError) {
  const std::string huge(200000, 'x');
  errno = ENOMEM;
  elog_log(1, "%s", huge.c_str());
  const std::string text = registered();
  EXPECT_LE(text.size(), static_cast<std::size_t>(kElogMaxLength));
  EXPECT_GT(text.size(), static_cast<std::size_t>(kElogMaxLength) - 10);
  EXPECT_TRUE(text.ends_with("x\nCannot allocate memory\n"));
}

TEST_F(Elog, DropsTheOldestOfAFullRegisterAndCountsThem) {
  for (int i = 0; i < kElogMaxMessages + 10; ++i) elog_log(0, "m%d.\n", i);
  const std::string text = registered();
  EXPECT_TRUE(text.starts_with("elog: 10 older messages were dropped.\nm10.\n"));
  EXPECT_TRUE(text.ends_with("m4105.\n"));
  EXPECT_EQ(elog_clear_register(0), kElogMaxMessages);
  elog_log(0, "after.\n");
  EXPECT_EQ(registered(), "after.\n");
}

TEST_F(Elog, FlushTakesBackToTheMarkOnly) {
  elog_log(0, "before.\n");
  const int outer = elog_mark();
  elog_log(0, "outer.\n");
  {
    const ksutil::ElogScope scope;
    elog_log(0, "inner.\n");
  }
  EXPECT_EQ(registered(), "before.\nouter.\n");
  elog_flush(0, outer);
  EXPECT_EQ(registered(), "before.\n");
  elog_flush(0, outer);
  EXPECT_EQ(registered(), "before.\n");
}

/* A mark stays good when the register was cleared or has overflowed since. */
TEST_F(Elog, MarkOutlivesTheMessagesAroundIt) {
  const int mark = elog_mark();
  for (int i = 0; i < 2 * kElogMaxMessages; ++i) elog_log(0, "m.\n");
  elog_clear_register(0);
  elog_log(0, "late.\n");
  elog_flush(0, mark);
  EXPECT_EQ(registered(), "");
}

TEST_F(Elog, FlushSparesTheMessagesOfOtherThreads) {
  elog_log(0, "main.\n");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 300; ++i) {
        elog_log(0, "kept %d %d.\n", t, i);
        const ksutil::ElogScope scope;
        elog_log(0, "gone %d.\n", t);
        errno = 0;
        elog_log(1, "gone too %d.\n", t);
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  const std::string text = registered();
  EXPECT_EQ(text.find("gone"), std::string::npos);
  for (int t = 0; t < 4; ++t) {
    std::size_t at = 0;
    for (int i = 0; i < 300; ++i) {
      at = text.find("kept " + std::to_string(t) + " " + std::to_string(i) + ".\n", at);
      ASSERT_NE(at, std::string::npos) << "thread " << t << " message " << i;
    }
  }
  EXPECT_EQ(elog_clear_register(0), 1201);
}

TEST_F(Elog, ComplainPrintsEveryLineAfterTheNameAndClears) {
  elog_set_program("prog");
  elog_log(0, "first.\nsecond.");
  testing::internal::CaptureStderr();
  errno = EACCES;
  elog_complain(1, "third.\n");
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "prog: first.\nprog: second.\nprog: third.\nprog: Permission denied\n");
  EXPECT_EQ(registered(), "");
}

TEST_F(Elog, FlushDeliversOnlyItsOwnMessages) {
  elog_set_program("prog");
  elog_log(0, "stays.\n");
  const int mark = elog_mark();
  elog_log(0, "goes out.\n");
  testing::internal::CaptureStderr();
  elog_flush(1, mark);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "prog: goes out.\n");
  EXPECT_EQ(registered(), "stays.\n");
}

TEST_F(Elog, DiePrintsTheRegisterAndExitsWithOne) {
  elog_log(0, "cause.\n");
  EXPECT_EXIT(elog_die(0, "end %d.\n", 7), testing::ExitedWithCode(1),
              "test_elog: cause.\ntest_elog: end 7.\n");
}

/* The counting line tells that something was lost even then. */
TEST_F(Elog, CountsAMessageForWhichMemoryIsShort) {
  ks_test_fail_alloc(1);
  elog_log(0, "lost.\n");
  EXPECT_EQ(registered(), "elog: 1 older messages were dropped.\n");
  ks_test_fail_alloc(1);
  EXPECT_EQ(elog_string(0), nullptr);
}

struct Heard {
  std::vector<std::pair<int, std::string>> messages;
};

void hear(int severity, const char *message, void *context) {
  static_cast<Heard *>(context)->messages.emplace_back(severity, message);
  elog_log(0, "from the sink.\n");  // a breach of its contract that must not lock up
}

TEST_F(Elog, SinkHearsEachMessageOnceWithItsSeverity) {
  Heard heard;
  elog_set_sink(hear, &heard);
  elog_log(0, "a.\n");
  errno = ENOENT;
  testing::internal::CaptureStderr();
  elog_complain(1, "b.\n");
  testing::internal::GetCapturedStderr();
  elog_set_sink(nullptr, nullptr);
  elog_log(0, "c.\n");
  const std::vector<std::pair<int, std::string>> expected = {
      {0, "a.\n"}, {2, "b.\nNo such file or directory\n"}};
  EXPECT_EQ(heard.messages, expected);
}

TEST_F(Elog, ManyThreadsMayUseEverythingAtOnce) {
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i) {
        elog_log(0, "t%d i%d.\n", t, i);
        if (i % 50 == t) elog_notify(0, "notify.\n");
        if (i % 70 == t) elog_clear_register(0);
        if (i % 30 == t) elog_set_program(i % 2 == 0 ? "a" : "b");
        if (i % 10 == t) registered();
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  /* No line may be torn by another thread's printing. */
  std::istringstream lines(testing::internal::GetCapturedStderr());
  int notified = 0;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t name = line.find(": ");
    ASSERT_NE(name, std::string::npos) << line;
    const std::string rest = line.substr(name + 2);
    ASSERT_TRUE(rest == "notify." || rest.starts_with("t")) << line;
    notified += rest == "notify.";
  }
  EXPECT_LE(notified, 16);
  EXPECT_GT(notified, 0);
}

TEST_F(Elog, WritesRealsWithAPointInEveryLocale) {
  const CommaLocale locale;
  ASSERT_TRUE(locale.ready()) << "the package locales is missing";
  elog_log(0, "%.1f", 1.5);
  EXPECT_EQ(registered(), "1.5");
}

}  // namespace
