/* Command texts are split on several threads at once, and a list half made must neither
 * leak nor be read. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "core/params.h"
#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tests/support/register.h"

namespace {

using testing::ElementsAre;

std::vector<std::string> split(const char *text, const char *delims = nullptr) {
  int argc = -1;
  char **argv = nullptr;
  EXPECT_EQ(delims == nullptr ? splitlist(text, &argc, &argv)
                              : splitlistc(text, &argc, &argv, delims),
            0);
  EXPECT_EQ(argv == nullptr, argc == 0);
  const std::vector<std::string> words(argv, argv + argc);
  freeargs(argc, argv);
  return words;
}

TEST(WordList, SplitsAtRunsOfDelimiters) {
  EXPECT_THAT(split("  a\tbb  ccc "), ElementsAre("a", "bb", "ccc"));
  EXPECT_THAT(split("a,,b c", ","), ElementsAre("a", "b c"));
  EXPECT_THAT(split(""), ElementsAre());
  EXPECT_THAT(split(" \t "), ElementsAre());
  EXPECT_THAT(split("a b", ""), ElementsAre("a b"));
  freeargs(0, nullptr);
  freeargs(3, nullptr);
}

TEST(WordList, ThreadsSplitIndependently) {
  std::vector<std::thread> threads;
  for (const char *text : {"a b c", "d e f"}) {
    threads.emplace_back([text] {
      for (int i = 0; i < 2000; ++i) {
        const std::vector<std::string> words = split(text);
        ASSERT_EQ(words[0] + " " + words[1] + " " + words[2], text);
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
}

/* The allocations of two words, in order: the copy, the array, word 1, the grown array,
 * word 2. */
struct ShortageCase {
  int allocation;
  const char *message;
  int argc;
  bool touched;
};
class WordListShortage : public testing::TestWithParam<ShortageCase> {};

TEST_P(WordListShortage, LeavesTheStatedCountAndNoArray) {
  elog_clear_register(0);
  char *const marker = nullptr;
  char **argv = const_cast<char **>(&marker);
  int argc = 77;
  ks_test_fail_alloc(GetParam().allocation);
  EXPECT_EQ(splitlist("one two", &argc, &argv), -1);
  ks_test_fail_alloc(0);
  EXPECT_EQ(argc, GetParam().argc);
  EXPECT_EQ(argv == nullptr, GetParam().touched);
  EXPECT_EQ(ksutil::test::taken_messages(),
            std::string(GetParam().message) + "Cannot allocate memory\n");
}
INSTANTIATE_TEST_SUITE_P(
    Allocations, WordListShortage,
    testing::Values(ShortageCase{1, "splitlist: strdup() error.\n", 77, false},
                    ShortageCase{2, "splitlist: malloc() error.\n", 1, true},
                    ShortageCase{3, "splitlist: strdup() error.\n", 0, true},
                    ShortageCase{4, "splitlist: realloc() error.\n", 2, true},
                    ShortageCase{5, "splitlist: strdup() error.\n", 0, true}));

}  // namespace
