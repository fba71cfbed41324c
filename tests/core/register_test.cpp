/* Operators find out what went wrong from these texts alone. */
#include "core/register.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/clock/clock.h"
#include "platform/stock/memory.h"

namespace {

std::string registered() {
  const ksutil::MallocPtr<char> text(ks_elog_string(0));
  return text == nullptr ? "(null)" : text.get();
}

TEST(Register, KeepsArgumentsAndClears) {
  ks_clear_register(0);
  ks_register_error(0, "f: %ld %.2f %s %d%%\n", 1234567890123L, 2.5, "three", 4);
  EXPECT_EQ(registered(), "f: 1234567890123 2.50 three 4%\n");
  errno = ENOENT;
  ks_register_error(1, "g: open() error.\n");
  EXPECT_THAT(registered(), testing::HasSubstr("g: open() error.\n"));
  EXPECT_THAT(registered(), testing::HasSubstr(std::strerror(ENOENT)));
  EXPECT_EQ(ks_clear_register(0), 2);
  EXPECT_EQ(registered(), "");
}

TEST(Register, ComplainPrintsEverythingAndDieEndsTheProcess) {
  ks_clear_register(0);
  ks_register_error(0, "f: first %d.\n", 1);
  testing::internal::CaptureStderr();
  ks_complain(0, "g: second %s.\n", "two");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::AllOf(testing::HasSubstr("f: first 1.\n"),
                             testing::HasSubstr("g: second two.\n")));
  EXPECT_EQ(registered(), "");
  EXPECT_EXIT(ks_die(0, "h: %g.\n", 1.5), testing::ExitedWithCode(1), "h: 1.5.");
}

TEST(ParseBoolean, KnowsItsWordsAndRefusesAllOthers) {
  const auto parsed = [](const char *word) {
    int result = 99;
    EXPECT_EQ(KS_ParseBoolean(word, &result), 0) << (word == nullptr ? "null" : word);
    return result;
  };
  for (const char *word : {"t", "true", "y", "yes", "on", "1"})
    EXPECT_EQ(parsed(word), 1);
  for (const char *word : {"f", "false", "n", "no", "off", "0"})
    EXPECT_EQ(parsed(word), 0);
  EXPECT_EQ(parsed(nullptr), -1);
  EXPECT_EQ(parsed(""), -1);
  ks_clear_register(0);
  int result = 99;
  errno = ENOENT;  // of an earlier call: no cause of what follows
  EXPECT_EQ(KS_ParseBoolean("Yes", &result), -1);
  EXPECT_EQ(KS_ParseBoolean("2", &result), -1);
  EXPECT_EQ(result, 99);
  EXPECT_EQ(registered(),
            "KS_ParseBoolean: Unrecognized value 'Yes'\n"
            "KS_ParseBoolean: Unrecognized value '2'\n");
}

TEST(Strcmp, TakesNulls) {
  EXPECT_EQ(KS_Strcmp(nullptr, nullptr), 0);
  EXPECT_EQ(KS_Strcmp(nullptr, "a"), 1);
  EXPECT_EQ(KS_Strcmp("a", nullptr), 1);
  EXPECT_LT(KS_Strcmp("a", "b"), 0);
  EXPECT_GT(KS_Strcmp("b", "a"), 0);
}

double g_now = 0.0;

TEST(Stopwatch, PrintsTimesSinceResetAndSinceTheCallBefore) {
  set_clock([] { return g_now; });
  testing::internal::CaptureStdout();
  g_now = 50.0;
  ks_ptimes("off", 1);
  exec_times_debug = 1;
  g_now = 100.0;
  ks_ptimes("first", 0);
  g_now = 101.5;
  ks_ptimes("second", 0);
  g_now = 103.25;
  char label[] = "third";
  ks_ptimes(label, 0);
  ks_ptimes("again", 1);
  g_now = 104.0;
  ks_ptimes(static_cast<const char *>(nullptr), 0);
  exec_times_debug = 0;
  set_clock(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\n     0.000      0.000: first\n"
            "     1.500      1.500: second\n"
            "     3.250      1.750: third\n"
            "\n     0.000      0.000: again\n"
            "     0.750      0.750: \n");
}

}  // namespace
