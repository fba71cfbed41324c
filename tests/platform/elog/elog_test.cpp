/* Every failure in the library is told through this register.  A message lost, garbled or
 * wiped by another thread's clean-up leaves an operator with a wrong result and no reason. */
#include "platform/elog/elog.h"

#include <gtest/gtest.h>
#include <locale.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/stock/memory.h"

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

}  // namespace
