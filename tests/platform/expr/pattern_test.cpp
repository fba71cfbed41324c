/* Station and channel selections are patterns: a wrong match loses stations silently, and
 * a pattern that runs away stops a server. */
#include <gtest/gtest.h>
#include <regex.h>

#include <chrono>
#include <random>

#include "platform/expr/shared/pattern.h"
#include "tests/platform/expr/expr_test_support.h"

namespace ksutil::expr {
namespace {

bool found(const std::string &pattern, std::string_view text) {
  Pattern compiled;
  std::size_t position = 0;
  std::string message;
  EXPECT_TRUE(compiled.compile(pattern, position, message)) << pattern << message;
  PatternScratch scratch;
  return compiled.found_in(text, scratch);
}

TEST(Pattern, FindsWhatItDescribes) {
  struct Case {
    const char *pattern, *text;
    bool found;
  };
  for (const Case &c : {Case{"", "", true},
                        {"a", "", false},
                        {"^$", "", true},
                        {"^$", "a", false},
                        {"b", "abc", true},
                        {"^b", "abc", false},
                        {"c$", "abc", true},
                        {"a|^c|b$", "xb", true},
                        {"^(ab){2,3}$", "abab", true},
                        {"^(ab){2,3}$", "ab", false},
                        {"^(ab){2,3}$", "abababab", false},
                        {"^a{2,}$", "aaaa", true},
                        {"^a{0}b$", "b", true},
                        {"^(a*)*$", "aaab", false},
                        {"^()*$", "", true},
                        {"[]a]", "]", true},
                        {"[^]a]", "]a", false},
                        {"[a-]", "-", true},
                        {"^[^a-z]+$", "A1", true},
                        {"[[:digit:]x]", "ax", true},
                        {"\\d\\D\\s\\S\\w\\W", "1a _z-", true},
                        {"\\*", "a*", true},
                        {"[\\]", "\\", true},
                        {".", "\n", true},
                        {"a.c", "a\xffz", false},
                        {"\\.$", "ab.", true}}) {
    EXPECT_EQ(found(c.pattern, c.text), c.found) << c.pattern << " on " << c.text;
  }
  EXPECT_TRUE(found("b", std::string_view("a\0b", 3)));
}

TEST(Pattern, RefusesWhatItDoesNotKnow) {
  for (const char *pattern :
       {"(",      ")",          "a)",    "(a",  "[",      "[a", "[]",
        "[b-a]",  "[[:what:]]", "*",     "a|*", "(+)",    "a{", "a{1",
        "a{2,1}", "a{256}",     "a{,2}", "\\",  "(a)\\1", "\\b"}) {
    Pattern compiled;
    std::size_t position = 0;
    std::string message;
    EXPECT_FALSE(compiled.compile(pattern, position, message)) << pattern;
    EXPECT_TRUE(message.starts_with("expected ")) << pattern << ": " << message;
    EXPECT_LE(position, std::string_view(pattern).size()) << pattern;
  }
}

/* The same answers as the C library's extended regular expressions. */
TEST(Pattern, AgreesWithRandomExtendedExpressions) {
  std::mt19937 random(7);
  const char *const pieces[] = {"a", "b", "c", ".", "[ab]", "[^a]",  "(", ")",
                                "|", "*", "+", "?", "{2}",  "{1,2}", "^", "$"};
  int compared = 0;
  for (int i = 0; i < 60000; ++i) {
    std::string pattern;
    for (auto n = random() % 9; n > 0; --n) pattern += pieces[random() % 16];
    Pattern compiled;
    std::size_t position = 0;
    std::string message;
    if (!compiled.compile(pattern, position, message)) continue;
    regex_t other;
    if (regcomp(&other, pattern.c_str(), REG_EXTENDED | REG_NOSUB) != 0) continue;
    PatternScratch scratch;
    for (int k = 0; k < 8; ++k) {
      std::string text;
      for (auto n = random() % 7; n > 0; --n) text += "abc"[random() % 3];
      EXPECT_EQ(compiled.found_in(text, scratch),
                regexec(&other, text.c_str(), 0, nullptr, 0) == 0)
          << pattern << " on " << text;
      ++compared;
    }
    regfree(&other);
  }
  EXPECT_GT(compared, 50000);
}

TEST(Pattern, NeitherGrowsNorRunsAway) {
  const Row row = example_row();
  for (const char *pattern : {"((((a{99}){99}){99}){99})", "(((((a*)*)*)*)*){200}",
                              "a{255}{255}", "(a|b|c){255}{9}"}) {
    EXPECT_EQ(compile("sta =~ '" + std::string(pattern) + "'", row), nullptr)
        << pattern;
  }
  EXPECT_EQ(compile("sta =~ '" + std::string(2000, '(') + "'", row), nullptr);
  EXPECT_EQ(compile("sta =~ '" + std::string(1025, 'a') + "'", row), nullptr);
  const auto begin = std::chrono::steady_clock::now();
  std::string nearly(60000, 'a');
  nearly += 'b';
  EXPECT_FALSE(found("^(a+)+$", nearly));
  EXPECT_FALSE(found("(a*)*(a*)*(a|aa)+c", std::string(60000, 'a')));
  EXPECT_FALSE(found("(x+x+)+y", std::string(60000, 'x')));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

}  // namespace
}  // namespace ksutil::expr
