/* A check that misses a fault lets a server start on settings that it will trip over at
 * night; one that finds faults where there are none is switched off. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "config/kspf.h"
#include "tests/platform/pf/pf_test_support.h"
#include "tests/support/register.h"

namespace {

using ksutil::test::taken_messages;
using testing::ElementsAre;
using testing::IsEmpty;

KSPf file_of(const std::string &text, const std::string &name = "") {
  KSPf pf;
  EXPECT_EQ(pf.readText(text, name), 0);
  return pf;
}

KSPf_Constraint constraint_of(const std::string &rules) {
  KSPf_Constraint constraint;
  EXPECT_EQ(file_of(rules, "rules").readConstraint(constraint), 0) << taken_messages();
  return constraint;
}

std::vector<std::string> violations(const KSPf &pf, const KSPf_Constraint &constraint) {
  Table<KSPf_Violation> found;
  const int result = pf.check(constraint, found);
  EXPECT_EQ(result, found.size() > 0 ? 1 : 0);
  std::vector<std::string> texts;
  for (const KSPf_Violation &violation : found) {
    std::string place = violation.file;
    if (violation.line > 0) place += ":" + std::to_string(violation.line);
    texts.push_back(place + ": " + violation.path + ": " + violation.text);
  }
  return texts;
}

std::string block_of_manual(const std::string &fence) {
  std::ifstream file(KSUTIL_SOURCE_DIR "/docs/parameter-files.md");
  const std::string manual{std::istreambuf_iterator<char>(file), {}};
  const std::size_t begin = manual.find("\n```" + fence + "\n") + fence.size() + 5;
  return manual.substr(begin, manual.find("```", begin) - begin);
}

TEST(KspfCheck, TheManualsExampleFindsWhatItSays) {
  const KSPf pf = file_of(block_of_manual("pf file"), "server.pf");
  std::string text;
  for (const std::string &line :
       violations(pf, constraint_of(block_of_manual("pf rules")))) {
    text += line + "\n";
  }
  EXPECT_EQ(text, block_of_manual("text violations"));
}

struct TextCase {
  const char *name, *rule, *good, *bad, *fault;
};
class KspfTextRule : public testing::TestWithParam<TextCase> {};

/* The good and the bad texts of a rule, separated by "|". */
TEST_P(KspfTextRule, TellsGoodTextsFromBadOnes) {
  const KSPf_Constraint constraint = constraint_of(
      std::string("keys &Arr{\nk &Arr{\n") + GetParam().rule + "\n}\n}\n");
  const auto each = [&](const std::string &texts, const auto &body) {
    for (std::size_t at = 0; at <= texts.size();) {
      const std::size_t end = std::min(texts.find('|', at), texts.size());
      KSPf pf;
      EXPECT_EQ(pf.set("k", texts.substr(at, end - at)), 0);
      body(violations(pf, constraint));
      at = end + 1;
    }
  };
  each(GetParam().good, [](const auto &found) { EXPECT_THAT(found, IsEmpty()); });
  each(GetParam().bad, [](const auto &found) {
    EXPECT_THAT(found, ElementsAre(std::string(": k: ") + GetParam().fault));
  });
}
INSTANTIATE_TEST_SUITE_P(
    Rules, KspfTextRule,
    testing::Values(
        TextCase{"Integer", "type integer", "7|-3| 12 |9223372036854775807", "7.0",
                 "must be an integer, not '7.0'"},
        TextCase{"HugeInteger", "type integer", "0", "9223372036854775808",
                 "must be an integer, not '9223372036854775808'"},
        TextCase{"Minimum", "type integer\nmin -3", "-3|5", "-4",
                 "'-4' is below the minimum -3"},
        TextCase{"ExactMaximum", "type integer\nmax 9007199254740993",
                 "9007199254740993", "9007199254740994",
                 "'9007199254740994' is above the maximum 9007199254740993"},
        TextCase{"Real", "type real\nmin 0\nmax 1e3", "0|1000.0|.5", "nan",
                 "'nan' is below the minimum 0"},
        TextCase{"NoReal", "type real", "1e3|inf", "1,5",
                 "must be a real number, not '1,5'"},
        TextCase{"Empty", "type real", "1", "", "must be a real number, not empty"},
        TextCase{"EmptyAllowed", "type real\nempty yes", "|1", "x",
                 "must be a real number, not 'x'"},
        TextCase{"Boolean", "type boolean", "yes|0|off", "maybe",
                 "must be yes or no, not 'maybe'"},
        TextCase{"Time", "type time\nmax 2020-01-01", "2019-12-31 23:59|86400.5",
                 "2020-01-02", "'2020-01-02' is above the maximum 2020-01-01"},
        TextCase{"WholePattern", "pattern [a-z]+|[0-9]", "abc|7", "abc7",
                 "'abc7' does not match the pattern [a-z]+|[0-9]"},
        TextCase{"Words", "words &Tbl{\n&Arr{\ntype string\nrequired yes\n}\nreal\n}",
                 "ml|  ml\t5.0 ", "ml 5 6", "has more than 2 words"},
        TextCase{"FewWords",
                 "words &Tbl{\n&Arr{\ntype string\nrequired yes\n}\nreal\n}", "a", "",
                 "has 0 words, fewer than 1"}),
    [](const auto &test) { return test.param.name; });

TEST(KspfCheck, CountsAndKindsOfBlocks) {
  const KSPf_Constraint constraint = constraint_of(
      "keys &Arr{\nt &Arr{\nmax_count 2\nitems integer\n}\n"
      "a &Arr{\nmin_count 2\nothers real\n}\nfree array\nopen any\n}\n");
  EXPECT_THAT(violations(file_of("t &Tbl{\n1\n2\n}\na &Arr{\nx 1\ny 2\n}\n"
                                 "free &Arr{\nany &Tbl{\n}\n}\nopen &Tbl{}\n"),
                         constraint),
              IsEmpty());
  EXPECT_THAT(
      violations(file_of("t &Tbl{\n1\n&Tbl{}\n3\n}\na &Arr{\nx y\nx 1\n}\nfree 1\n"),
                 constraint),
      ElementsAre(":1: t: holds 3 items, more than 2",
                  ":3: t[1]: must be a text, not a table",
                  ":6: a: holds 1 key, fewer than 2",
                  ":10: free: must be an array, not a text"));
}

TEST(KspfCheck, TellsOfATextOnOneLine) {
  KSPf pf;
  ASSERT_EQ(pf.set("k", "a\n\tb\x1b[2J"), 0);
  EXPECT_THAT(violations(pf, constraint_of("keys &Arr{\nk integer\n}\n")),
              ElementsAre(": k: must be an integer, not 'a\\n\\x09b\\x1b[2J'"));
}

TEST(KspfCheck, NamesTheFileThatAMergedValueCameFrom) {
  KSPf pf = file_of("a 1\nm &Arr{\nb 2\n}\n", "site.pf");
  ASSERT_EQ(pf.merge(file_of("\n\na x\nm &Arr{\nc y\n}\n", "user.pf")), 0);
  ASSERT_EQ(pf.set("m.b", "z"), 0);
  EXPECT_THAT(violations(pf, constraint_of("keys &Arr{\na integer\nm &Arr{\nothers "
                                           "integer\n}\n}\n")),
              ElementsAre("user.pf:3: a: must be an integer, not 'x'",
                          "site.pf:3: m.b: must be an integer, not 'z'",
                          "user.pf:5: m.c: must be an integer, not 'y'"));
}

TEST(KspfCheck, ListsABoundedNumberOfViolations) {
  std::string text = "t &Tbl{\n";
  for (int i = 0; i < 3000; ++i) text += "x\n";
  const auto found = violations(
      file_of(text + "}\n"), constraint_of("keys &Arr{\nt &Arr{\nitems real\n}\n}\n"));
  EXPECT_EQ(found.size(), static_cast<std::size_t>(kKSPfMaxViolations));
}

TEST(KspfConstraint, EveryFaultIsNamedByItsLine) {
  KSPf_Constraint constraint;
  constraint.name = "kept";
  elog_clear_register(0);
  EXPECT_EQ(file_of("keys &Arr{\n"
                    "a colour\n"
                    "b &Arr{\ntyp string\n}\n"
                    "c &Arr{\ntype integer\nmin 5\nmax 4\n}\n"
                    "d &Arr{\npattern (\n}\n"
                    "e &Arr{\ntype string\nmin 1\nrequired maybe\n}\n"
                    "f &Tbl{\n}\n"
                    "g &Arr{\ntype table\nkeys &Arr{\nx any\n}\n}\n"
                    "}\n",
                    "rules.pf")
                .readConstraint(constraint),
            -1);
  EXPECT_EQ(constraint.name, "kept");
  EXPECT_EQ(
      taken_messages(),
      "KSPf::readConstraint: rules.pf:2: keys.a: there is no type 'colour'.\n"
      "KSPf::readConstraint: rules.pf:4: keys.b.typ: a constraint knows no such word.\n"
      "KSPf::readConstraint: rules.pf:6: keys.c: min is above max.\n"
      "KSPf::readConstraint: rules.pf:11: keys.d: the pattern is faulty at character "
      "2: "
      "expected ')'.\n"
      "KSPf::readConstraint: rules.pf:17: keys.e.required: it must be yes or no.\n"
      "KSPf::readConstraint: rules.pf:14: keys.e: min and max are for integer, real "
      "and "
      "time.\n"
      "KSPf::readConstraint: rules.pf:19: keys.f: a constraint is a type or an array.\n"
      "KSPf::readConstraint: rules.pf:21: keys.g: keys and others are for array.\n");
}

TEST(KspfConstraint, OneMadeByAProgramIsCheckedAsWell) {
  KSPf_Constraint whole, key;
  key.name = "a.b";
  key.type = "integer";
  key.min = "x";
  whole.keys.push(key);
  Table<KSPf_Violation> found;
  elog_clear_register(0);
  EXPECT_EQ(KSPf().check(whole, found), -1);
  EXPECT_EQ(taken_messages(),
            "KSPf::check: Faulty constraint: a.b: min or max is not of the type.\n");
  whole.keys.ptr(0)->min = "1";
  whole.keys.ptr(0)->required = true;
  EXPECT_THAT(violations(KSPf(), whole),
              ElementsAre(": \"a.b\": is required but missing"));
}

}  // namespace
