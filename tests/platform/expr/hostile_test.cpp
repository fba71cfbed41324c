/* Client queries come over the network of an institute: whatever the bytes, the server
 * must answer with an error and go on. */
#include <gtest/gtest.h>

#include <random>

#include "platform/expr/internal/machine.h"
#include "tests/platform/expr/expr_test_support.h"

namespace ksutil::expr {
namespace {

std::string repeated(const std::string &piece, std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) text += piece;
  return text;
}

TEST(HostileExpression, NestingIsBounded) {
  const Row row = example_row();
  struct Case {
    const char *open, *middle, *close;
  };
  for (const Case &c : {Case{"(", "1", ")"},
                        {"-", "1", ""},
                        {"!", "known", ""},
                        {"abs(", "1", ")"},
                        {"1^", "1", ""},
                        {"known?1:", "1", ""},
                        {"known?", "1", ":1"},
                        {"- (", "lat", ")"}}) {
    const auto nested = [&](std::size_t n) {
      return repeated(c.open, n) + c.middle + repeated(c.close, n);
    };
    EXPECT_NE(result_of(nested(90), row), "error") << c.open;
    for (const std::size_t n : {1000U, 7000U}) {
      Error error;
      EXPECT_EQ(Program::compile(nested(n), row, error), nullptr) << c.open;
      EXPECT_EQ(error.message, "expected less nesting") << c.open;
    }
  }
  EXPECT_EQ(result_of(repeated("(", 60000), row), "error");
}

/* Clients build long lists of ids; these do not nest. */
TEST(HostileExpression, LongChainsWork) {
  const Row row = example_row();
  EXPECT_EQ(result_of("0" + repeated("+1", 30000), row), "30000");
  EXPECT_EQ(result_of("nass" + repeated("+1", 29000), row), "29012");
  EXPECT_EQ(result_of("nass" + repeated("-nass", 10000), row), "-119988");
  EXPECT_EQ(
      result_of("evid==0" + repeated("||evid==1", 6000) + "||evid==38457511", row),
      "true");
  EXPECT_EQ(result_of("1" + repeated("+1", 40000), row), "error");
  EXPECT_EQ(result_of("nass" + repeated("+1", 32000), row), "error");
}

TEST(HostileExpression, TextsAreBounded) {
  const std::string big(kMaxTextLength / 2 + 1, 'x');
  const Row row{{"big", Value::of_text(big)}, {"a", Value::of_text("a")}};
  elog_clear_register(0);
  EXPECT_EQ(result_of("big + big", row), "error");
  EXPECT_EQ(taken_messages(), "expr: text longer than 65536 bytes.\n");
  EXPECT_EQ(result_of("length(big + a)", row), std::to_string(big.size() + 1));
  EXPECT_EQ(result_of("a" + repeated("+a", 8000), row), "error");
  EXPECT_EQ(taken_messages(),
            "expr: more than 1048576 bytes of text in one evaluation.\n");
  EXPECT_EQ(result_of("glob(big, a)", row), "error");
  EXPECT_EQ(taken_messages(), "expr: pattern longer than 1024 bytes.\n");
  /* The bound is of one evaluation, not of the workspace. */
  const auto program = compile("length(upper(big))", row);
  Workspace workspace;
  Value value;
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(program->evaluate(row, workspace, value));
}

TEST(HostileExpression, RandomBytesNeverCrash) {
  const Row row = example_row();
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    std::string text(random() % 40, '\0');
    for (char &c : text) c = static_cast<char>(random() % (i % 2 == 0 ? 256 : 128));
    result_of(text, row);
  }
  elog_clear_register(0);
}

/* Random words of the language reach far deeper than bytes; a few of them compile, and
 * every result must have the type that the program promised. */
TEST(HostileExpression, RandomWordsNeverCrash) {
  const Row row = example_row();
  const std::vector<std::string> words = {"1",        "2.5",     "'2000-01-01'",
                                          "'a'",      "true",    "lat",
                                          "time",     "mb",      "sta",
                                          "auth",     "nass",    "(",
                                          ")",        ",",       "?",
                                          ":",        "+",       "-",
                                          "*",        "/",       "%",
                                          "^",        "!",       "==",
                                          "!=",       "<",       ">=",
                                          "&&",       "||",      "=~",
                                          "=*",       "!~",      "abs(",
                                          "min(",     "isnull(", "text(",
                                          "strtime(", "substr(", "ifnull(",
                                          "int("};
  std::mt19937 random(2);
  const auto value_word = [&] { return words[random() % 11]; };
  int compiled = 0;
  for (int i = 0; i < 60000; ++i) {
    std::string text;
    const auto count = random() % 6 + 1;
    for (std::size_t k = 0; k < count; ++k) {
      /* Half of them alternate values and operators, so that many compile. */
      if (i % 2 == 0) {
        text += words[random() % words.size()] + " ";
      } else {
        text += value_word() + " ";
        if (k + 1 < count) text += words[16 + random() % 16] + " ";
      }
    }
    const auto program = compile(text, row);
    if (program == nullptr) continue;
    ++compiled;
    Workspace workspace;
    Value value;
    if (program->evaluate(row, workspace, value)) {
      EXPECT_EQ(value.type, program->type()) << text;
    }
  }
  EXPECT_GT(compiled, 3000);
  elog_clear_register(0);
}

}  // namespace
}  // namespace ksutil::expr
