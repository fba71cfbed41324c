/* Every public function fails through these: a wrong result sends a caller on with data
 * that is not there, and an exception that gets out ends the program of a C caller. */
#include "platform/elog/failure.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/stock/memory.h"
#include "support/comma_locale.h"
#include "support/register.h"

namespace {

using ksutil::at_boundary;
using ksutil::fail;
using ksutil::fail_errno;

std::string taken() { return ksutil::test::taken_messages(); }

class Failure : public testing::Test {
 protected:
  void SetUp() override { elog_clear_register(0); }
  void TearDown() override {
    ks_test_fail_alloc(0);
    elog_clear_register(0);
  }
};

int failed_int() { return fail("f", "no number"); }
long failed_long() { return fail("f", "no long"); }
double failed_double() { return fail("f", "no double"); }
bool failed_bool() { return fail("f", "no truth"); }
const char *failed_text() { return fail("f", "no text"); }
std::unique_ptr<int> failed_owner() { return fail("f", "no owner"); }

TEST_F(Failure, IsMinusOneFalseOrNullAsTheFunctionReturns) {
  EXPECT_EQ(failed_int(), -1);
  EXPECT_EQ(failed_long(), -1);
  EXPECT_EQ(failed_double(), -1.0);
  EXPECT_FALSE(failed_bool());
  EXPECT_EQ(failed_text(), nullptr);
  EXPECT_EQ(failed_owner(), nullptr);
}

TEST_F(Failure, NamesTheFunctionAndEndsTheTextAndKeepsErrno) {
  const CommaLocale comma;
  errno = ENOENT;
  fail("ks_open", "%s: %d of %.1f", "a.b", 3, 2.5);
  fail_errno("ks_open", "open(%s) error", "a.b");
  EXPECT_EQ(errno, ENOENT);
  fail("100%s", "%d %%", 5);
  EXPECT_EQ(taken(),
            "ks_open: a.b: 3 of 2.5.\n"
            "ks_open: open(a.b) error.\nNo such file or directory\n"
            "100%s: 5 %.\n");
}

TEST_F(Failure, KeepsALongTextWholeAndItsBeginningWhenMemoryIsShort) {
  const std::string path(5000, 'p');
  fail("f", "%s", path.c_str());
  EXPECT_EQ(taken(), "f: " + path + ".\n");
  ks_test_fail_alloc(1);
  errno = EACCES;
  fail_errno("f", "%s", path.c_str());
  const std::string cut = taken();
  EXPECT_EQ(cut.substr(0, 300), "f: " + path.substr(0, 297));
  EXPECT_NE(cut.find("Permission denied"), std::string::npos);
}

TEST_F(Failure, LetsNoExceptionPastTheBoundary) {
  const auto shortage = [](auto result) {
    return [result] {
      if (errno != -1) throw std::bad_alloc();
      return result;
    };
  };
  errno = 0;
  EXPECT_EQ(at_boundary("A::f", shortage(0)), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(at_boundary("g", 7L, shortage(0L)), 7L);
  EXPECT_EQ(at_boundary("h", shortage(std::make_shared<int>(1).get())), nullptr);
  EXPECT_EQ(taken(),
            "A::f: malloc() error.\nCannot allocate memory\n"
            "g: malloc() error.\nCannot allocate memory\n"
            "h: malloc() error.\nCannot allocate memory\n");
  EXPECT_FALSE(at_boundary("k", [] { return std::vector<bool>(1).at(3) != false; }));
  at_boundary("v", [] { throw std::runtime_error("50% of it"); });
  const std::string text = taken();
  EXPECT_EQ(text.substr(0, 3), "k: ");
  EXPECT_NE(text.find("v: 50% of it.\n"), std::string::npos);
  EXPECT_EQ(at_boundary("ok", [] { return 5; }), 5);
  EXPECT_EQ(taken(), "");
}

TEST_F(Failure, ScopeDropsWhatWasSkippedAndKeepsWhatFailed) {
  {
    ksutil::ElogScope scope;
    fail("row", "skipped");
    EXPECT_EQ(scope.note(10), 10);
    fail("table", "gone");
    EXPECT_EQ(scope.note(-1), -1);
    fail("row", "skipped after it");
    EXPECT_EQ(scope.note(10), 10);
  }
  EXPECT_EQ(taken(), "table: gone.\nrow: skipped after it.\n");
  {
    ksutil::ElogScope scope;
    fail("row", "unread");
    scope.note(0);
  }
  EXPECT_EQ(taken(), "");
}

}  // namespace
