/* A wrong precedence, type or null rule selects wrong records without any message. */
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "platform/clock/clock.h"
#include "tests/platform/expr/expr_test_support.h"

namespace ksutil::expr {
namespace {

struct TypeCase {
  const char *text;
  Type type;
};

TEST(Expression, KnowsItsTypeBeforeAnyRecord) {
  const Row row = example_row();
  for (const TypeCase &c : {TypeCase{"nass + 1", Type::kInteger},
                            TypeCase{"nass / 2", Type::kReal},
                            TypeCase{"nass + 0.5", Type::kReal},
                            TypeCase{"nass ^ 2", Type::kReal},
                            TypeCase{"time + 1", Type::kTime},
                            TypeCase{"1 + time", Type::kTime},
                            TypeCase{"time - 1", Type::kTime},
                            TypeCase{"1 - time", Type::kReal},
                            TypeCase{"time - endtime", Type::kReal},
                            TypeCase{"time + endtime", Type::kReal},
                            TypeCase{"-time", Type::kReal},
                            TypeCase{"time * 2", Type::kReal},
                            TypeCase{"abs(nass)", Type::kInteger},
                            TypeCase{"max(nass, lat)", Type::kReal},
                            TypeCase{"min(time, endtime)", Type::kTime},
                            TypeCase{"known ? nass : lat", Type::kReal},
                            TypeCase{"known ? time : '2000-01-01'", Type::kTime},
                            TypeCase{"known ? '2000-01-01' : time", Type::kTime},
                            TypeCase{"ifnull(endtime, '2000-01-01')", Type::kTime},
                            TypeCase{"lat < lon", Type::kBoolean},
                            TypeCase{"sta + 'x'", Type::kText}}) {
    const auto program = compile(c.text, row);
    ASSERT_NE(program, nullptr) << c.text;
    EXPECT_EQ(program->type(), c.type) << c.text;
    Workspace workspace;
    Value value;
    ASSERT_TRUE(program->evaluate(row, workspace, value)) << c.text;
    EXPECT_EQ(value.type, c.type) << c.text;
  }
}

TEST(Expression, ComputesWithFieldsAsWithConstants) {
  const Row row = example_row();
  for (const auto &[text, value] : std::vector<std::pair<const char *, const char *>>{
           {"nass % 5", "2"},
           {"-nass % 5", "-2"},
           {"mod(-nass, 5)", "3"},
           {"nass % -1", "0"},
           {"nass % 0", "null"},
           {"nass / 0", "null"},
           {"mod(nass, 0)", "null"},
           {"nass * 4611686018427387904", "null"},
           {"nass == 12.0", "true"},
           {"12 >= nass && nass <= 12 && !(nass < 12) && !(nass > 12)", "true"},
           {"depth > nass", "false"},
           {"nass - 2 - 3", "7"},
           {"nass - (2 - 3)", "13"},
           {"2 * -nass", "-24"},
           {"-depth ^ 2", "-64"},
           {"depth ^ -1", "0.125"},
           {"max(nass, depth, lat, 2)", "35.7695"},
           {"min(nass, 3, depth)", "3"},
           {"distance(0, nass, 0, -nass) < 24.001", "true"},
           {"sta >= 'TIN' && sta <= 'TIN' && sta == 'TIN'", "true"},
           {"sta == 'TIN '", "false"},
           {"upper(lower(sta) + 'x') + sta", "TINXTIN"},
           {"substr(sta, -1, 2) + substr(sta, 2, 9) + substr(sta, 9, 1)", "TIIN"},
           {"known == (lat > lon)", "true"},
           {"'2019-07-06' < time", "true"},
           {"\"2019-07-06T03:19:53\" + 'Z'", "2019-07-06T03:19:53Z"},
           {"'2019-07-07' - time > 0", "true"},
           {"mb ^ 2", "null"},
           {"-ndef", "null"},
           {"int(mb)", "null"},
           {"text(mb)", "null"},
           {"strtime(endtime)", "null"},
           {"distance(lat, lon, mb, 0)", "null"},
           {"isnull(mb + depth)", "true"},
           {"ndef * 1.0", "null"},
           {"ifnull(mb, ifnull(ndef, 3))", "3"},
           {"ifnull(known, false) || ndef == -1", "true"},
           {"(known ? mb : lat) > 0", "false"},
           {"known ? nass > 3 ? 'many' : 'some' : 'none'", "many"},
           {"nass < 3 ? 'few' : nass < 20 ? 'some' : 'many'", "some"},
           {"int(1e300)", "null"},
           {"int(-9.3e18)", "null"},
           {"real('nan')", "null"},
           {"length('')", "0"},
           {"'' == substr(sta, 1, 0)", "true"},
           {"text(time)", "2019-07-06T03:19:53.040"}}) {
    EXPECT_EQ(result_of(text, row), value) << text;
  }
}

/* What looks like a date is refused; what only resembles one is computed. */
TEST(Expression, ComputesWhatOnlyResemblesADate) {
  const Row row = example_row();
  for (const auto &[text, result] :
       {std::pair{"2012 - 08 - 31", "1973"}, std::pair{"2012-8-31", "1973"},
        std::pair{"2012-244", "1768"}, std::pair{"2012-13-31", "1968"},
        std::pair{"2012-10-32", "1970"}, std::pair{"2012-10-311", "1691"},
        std::pair{"12012-10-31", "11971"}, std::pair{"1+2012-10-31", "1972"},
        std::pair{"2012-10-31-1", "1970"}, std::pair{"2020/10/10+1", "21.2"},
        std::pair{"2012-10/31 < 2012", "true"}}) {
    EXPECT_EQ(result_of(text, row), result) << text;
  }
}

TEST(Expression, LogicReadsOnlyWhatDecides) {
  const Row row = example_row();
  EXPECT_EQ(result_of("lat > 0 || mb > 3 || depth > 1", row), "true");
  EXPECT_EQ(row.reads, 1);
  EXPECT_EQ(result_of("lat < 0 && mb > 3", row), "false");
  EXPECT_EQ(row.reads, 2);
  EXPECT_EQ(result_of("lat < 0 ? mb : depth", row), "8");
  EXPECT_EQ(row.reads, 4);
}

TEST(Expression, NullFieldKeepsItsOwnNumber) {
  const Row row = example_row();
  Workspace workspace;
  Value value;
  ASSERT_TRUE(compile("endtime", row)->evaluate(row, workspace, value));
  EXPECT_TRUE(value.null);
  EXPECT_EQ(value.real, 9999999999.999);
  ASSERT_TRUE(compile("known ? ndef : lat", row)->evaluate(row, workspace, value));
  EXPECT_TRUE(value.null);
  EXPECT_EQ(value.real, -1.0);
  ASSERT_TRUE(compile("endtime - time", row)->evaluate(row, workspace, value));
  EXPECT_TRUE(value.null);
  EXPECT_EQ(value.real, -999.0);
}

TEST(Expression, TellsConstantsAndBareFields) {
  const Row row = example_row();
  for (const char *text :
       {"1 + 2", "'a' + 'b'", "true && 1 < 2", "epoch('2000-01-01')"}) {
    EXPECT_TRUE(compile(text, row)->is_constant()) << text;
    EXPECT_EQ(compile(text, row)->only_slot(), -1) << text;
  }
  for (const char *text : {"now()", "lat", "now() > 0", "true || lat > 0"}) {
    EXPECT_FALSE(compile(text, row)->is_constant()) << text;
  }
  int slot = 0;
  Type type;
  ASSERT_TRUE(row.bind("depth", slot, type));
  EXPECT_EQ(compile("(depth)", row)->only_slot(), slot);
  EXPECT_EQ(compile("-depth", row)->only_slot(), -1);
  EXPECT_EQ(compile("depth == depth", row)->only_slot(), -1);
}

TEST(Expression, NowIsTheClockOfTheEvaluation) {
  const Row row = example_row();
  const auto program = compile("now() - 10", row);
  Workspace workspace;
  Value value;
  set_clock([] { return 110.5; });
  ASSERT_TRUE(program->evaluate(row, workspace, value));
  set_clock([] { return 210.5; });
  EXPECT_EQ(value.real, 100.5);
  ASSERT_TRUE(program->evaluate(row, workspace, value));
  set_clock(nullptr);
  EXPECT_EQ(value.real, 200.5);
}

TEST(Expression, UnreadableFieldEndsTheEvaluation) {
  Row row = example_row();
  Type type;
  ASSERT_TRUE(row.bind("depth", row.unreadable, type));
  elog_clear_register(0);
  EXPECT_EQ(result_of("lat > 0 && depth > 0", row), "error");
  EXPECT_EQ(taken_messages(), "Row: unreadable.\n");
}

TEST(Expression, FieldTextThatIsNoDateIsReported) {
  const Row row{{"note", Value::of_text("soon")},
                {"day", Value::of_text("2000-01-02")}};
  elog_clear_register(0);
  EXPECT_EQ(result_of("epoch(note)", row), "error");
  EXPECT_EQ(taken_messages(), "expr: 'soon' is not a date.\n");
  EXPECT_EQ(result_of("epoch(day) == 946771200", row), "true");
}

/* One workspace serves many programs, as a client does that evaluates several columns. */
TEST(Expression, WorkspaceMovesBetweenPrograms) {
  const Row row = example_row();
  const auto sum = compile("nass + 100", row), name = compile("sta + '/' + sta", row),
             range = compile("lat > 30 && depth < 50 && lon < 0", row);
  Workspace workspace;
  Value value;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(sum->evaluate(row, workspace, value));
    EXPECT_EQ(value.integer, 112);
    ASSERT_TRUE(name->evaluate(row, workspace, value));
    EXPECT_EQ(value.text, "TIN/TIN");
    ASSERT_TRUE(range->evaluate(row, workspace, value));
    EXPECT_EQ(value.integer, 1);
  }
}

/* A random formula with no more parentheses than it needs, beside its value. */
class Formula {
 public:
  explicit Formula(unsigned seed) : random_(seed) {}

  /* `strength` 1: sums, 2: products, 3: powers, 4: what needs no parentheses. */
  double make(int depth, int strength, std::string &text) {
    const int kind = depth == 0 ? 0 : static_cast<int>(random_() % 7);
    if (kind == 0) {
      const int number = static_cast<int>(random_() % 9) + 1;
      text += std::to_string(number) + ".0";
      return number;
    }
    const int own = kind <= 2 ? 1 : kind <= 4 ? 2 : 3;
    const bool enclosed = own < strength;
    if (enclosed) text += "(";
    double value = 0.0;
    if (kind == 6) {
      text += "-";
      value = -make(depth - 1, 3, text);
    } else {
      /* From left to right, so the right side must bind more; powers the other way. */
      const bool power = kind == 5;
      value = make(depth - 1, power ? 4 : own, text);
      text += std::string(1, "+-*/^"[kind - 1]);
      const double right = make(power ? 0 : depth - 1, own + 1, text);
      switch (kind) {
        case 1:
          value += right;
          break;
        case 2:
          value -= right;
          break;
        case 3:
          value *= right;
          break;
        case 4:
          value /= right;
          break;
        default:
          value = std::pow(value, right);
      }
    }
    if (enclosed) text += ")";
    return value;
  }

 private:
  std::mt19937 random_;
};

TEST(Expression, AgreesWithRandomFormulas) {
  const Row row{{"one", Value::of_real(1.0)}};
  int compared = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    std::string text;
    const double expected = Formula(seed).make(6, 1, text);
    if (!std::isfinite(expected) || std::fabs(expected) > 1e100) continue;
    /* Once as constants, once as arithmetic on fields. */
    std::string of_fields;
    for (const char c : text) {
      of_fields += c;
      if (c == '0')
        of_fields.replace(of_fields.size() - 3, 3,
                          "(" + of_fields.substr(of_fields.size() - 3) + "*one)");
    }
    for (const std::string &formula : {text, of_fields}) {
      const auto program = compile(formula, row);
      ASSERT_NE(program, nullptr) << formula;
      Workspace workspace;
      Value value;
      ASSERT_TRUE(program->evaluate(row, workspace, value)) << formula;
      if (value.null) continue;  // an overflow on the way
      EXPECT_NEAR(value.real, expected, 1e-9 * std::fabs(expected)) << formula;
      ++compared;
    }
  }
  EXPECT_GT(compared, 4000);
}

TEST(Conversion, GivesTheFormsOfAssignment) {
  Workspace workspace;
  Value out;
  EXPECT_TRUE(convert(Value::of_text(" 42 "), Type::kInteger, workspace, out));
  EXPECT_EQ(out.integer, 42);
  EXPECT_TRUE(convert(Value::of_text("4.9"), Type::kInteger, workspace, out));
  EXPECT_EQ(out.integer, 4);
  EXPECT_TRUE(convert(Value::of_text("1970-01-02"), Type::kTime, workspace, out));
  EXPECT_EQ(out.real, 86400.0);
  EXPECT_TRUE(convert(Value::of_real(-2.9), Type::kInteger, workspace, out));
  EXPECT_EQ(out.integer, -2);
  EXPECT_TRUE(convert(Value::of_integer(7), Type::kBoolean, workspace, out));
  EXPECT_EQ(out.integer, 1);
  EXPECT_TRUE(convert(Value::of_real(1e22), Type::kText, workspace, out));
  EXPECT_EQ(out.text, "1e+22");
  const Value before = out;
  EXPECT_FALSE(convert(Value::of_real(1e22), Type::kInteger, workspace, out));
  EXPECT_FALSE(convert(Value::of_text("x"), Type::kReal, workspace, out));
  EXPECT_FALSE(convert(Value::of_text("inf"), Type::kReal, workspace, out));
  EXPECT_EQ(out.text, before.text);
  EXPECT_TRUE(convert(null_of(Value::of_integer(-1)), Type::kReal, workspace, out));
  EXPECT_TRUE(out.null);
  EXPECT_EQ(out.real, -1.0);
  EXPECT_TRUE(convert(null_of(Value::of_real(-999)), Type::kText, workspace, out));
  EXPECT_TRUE(out.null);
  EXPECT_EQ(out.text, "-");
}

}  // namespace
}  // namespace ksutil::expr
