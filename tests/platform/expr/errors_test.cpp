/* An error that points to the wrong place, or a text that compiles though it means
 * nothing, costs the user who typed it an hour. */
#include <gtest/gtest.h>

#include "tests/platform/expr/expr_test_support.h"

namespace ksutil::expr {
namespace {

struct ErrorCase {
  const char *text;
  std::size_t position;
  const char *message;
};

TEST(ExpressionError, NamesThePlaceAndWhatWasExpected) {
  const Row row = example_row();
  for (const ErrorCase &c : {
           ErrorCase{"", 0, "expected a number, text, field, function or '('"},
           {"  ", 2, "expected a number, text, field, function or '('"},
           {"lat >", 5, "expected a number, text, field, function or '('"},
           {"(lat", 4, "expected an operator or ')'"},
           {"lat)", 3, "expected an operator or the end"},
           {"lat lon", 4, "expected an operator or the end"},
           {"lat > 1 and lon > 1", 8,
            "expected an operator or the end (and is written &&)"},
           {"(known or known)", 7, "expected an operator or ')' (or is written ||)"},
           {"1 + nosuch", 4, "expected a known field, found 'nosuch'"},
           {"origin.nosuch", 0, "expected a known field, found 'origin.nosuch'"},
           {"2 * half(3)", 4, "expected a known function, found 'half'"},
           {"mod(1)", 0, "expected 2 arguments of mod"},
           {"1 + abs()", 4, "expected 1 argument of abs"},
           {"max(1)", 0, "expected 2 or more arguments of max"},
           {"abs(1, 2)", 0, "expected 1 argument of abs"},
           {"abs(1", 5, "expected an operator, ',' or ')'"},
           {"lat = 3", 4, "expected '==', '=~' or '=*'"},
           {"lat & lon", 4, "expected '&&'"},
           {"lat | lon", 4, "expected '||'"},
           {"lat # 3", 4, "expected a number, text, name or operator"},
           {"'abc", 4, "expected a closing '"},
           {"3km", 1, "expected an operator"},
           {"1e999", 0, "expected a real number within the range of doubles"},
           {"9223372036854775808", 0,
            "expected an integer of at most 9223372036854775807"},
           {"lat + 'x'", 6, "expected a number, found a text"},
           {"sta + 1", 6, "expected a text, found an integer"},
           {"lat == 'x'", 7,
            "expected a value to compare with a real number, found a text"},
           {"sta < 3", 6, "expected a value to compare with a text, found an integer"},
           {"1 < 2 < 3", 8,
            "expected a value to compare with a boolean, found an integer"},
           {"known < known", 0, "expected a number, text or time, found a boolean"},
           {"lat && known", 0, "expected a boolean, found a real number"},
           {"known || 1", 9, "expected a boolean, found an integer"},
           {"!lat", 1, "expected a boolean, found a real number"},
           {"-sta", 1, "expected a number, found a text"},
           {"lat ? 1 : 2", 0, "expected a boolean, found a real number"},
           {"known ? 1 : 'x'", 12, "expected an integer, found a text"},
           {"known ? 1", 9, "expected ':'"},
           {"time>=2012-08-31", 6,
            "expected a date in quotes, \"2012-08-31\", found 2012-08-31 without them"},
           {"time < 2012/10/31", 7,
            "expected a date in quotes, \"2012/10/31\", found 2012/10/31 without them"},
           {"1 + 2012-08-31T10:30:00.5", 4,
            "expected a date in quotes, \"2012-08-31T10:30:00.5\", found "
            "2012-08-31T10:30:00.5 without them"},
           {"time > 'today'", 7, "expected a date, found 'today'"},
           {"ifnull(time, 'x')", 13, "expected a date, found 'x'"},
           {"epoch('x')", 6, "expected a date, found 'x'"},
           {"sin(sta)", 4, "expected a number, found a text"},
           {"substr(sta, 1.0, 2)", 12, "expected an integer, found a real number"},
           {"min(1, sta)", 7, "expected a number, found a text"},
           {"ifnull(sta, 1)", 12, "expected a text, found an integer"},
           {"sta =~ sta", 7, "expected a constant pattern"},
           {"sta =~ '(ab'", 7, "expected ')' at byte 3 of the pattern"},
           {"lat =~ 'a'", 0, "expected a text, found a real number"},
       }) {
    Error error;
    EXPECT_EQ(Program::compile(c.text, row, error), nullptr) << c.text;
    EXPECT_EQ(error.message, c.message) << c.text;
    EXPECT_EQ(error.position, c.position) << c.text;
  }
}

TEST(ExpressionError, CompilingLeavesTheRegisterAlone) {
  const Row row = example_row();
  elog_clear_register(0);
  elog_log(0, "before\n");
  compile("epoch('x')", row);
  compile(
      "glob('" + std::string(1000, 'x') + "' + '" + std::string(100, 'x') + "', sta)",
      row);
  EXPECT_EQ(taken_messages(), "before\n");
}

}  // namespace
}  // namespace ksutil::expr
