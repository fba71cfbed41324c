/* A parameter text read differently from how its author meant it runs a network with the
 * wrong settings; one that is refused must say where. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/pf/pf_test_support.h"
#include "tests/support/register.h"

namespace {

using ksutil::test::taken_messages;
using testing::ElementsAre;

struct ValueCase {
  const char *name, *line, *value;
};
class PfValue : public testing::TestWithParam<ValueCase> {};

TEST_P(PfValue, IsReadAsWritten) {
  const PfHandle pf = compiled(GetParam().line);
  ASSERT_NE(pf, nullptr);
  EXPECT_STREQ(pfget_string(pf.get(), "key"), GetParam().value);
}
INSTANTIATE_TEST_SUITE_P(
    Lines, PfValue,
    testing::Values(ValueCase{"Plain", "key value", "value"},
                    ValueCase{"OuterBlanks", "  key \t a  b\tc \t", "a  b\tc"},
                    ValueCase{"CrLf", "key value\r\n", "value"},
                    ValueCase{"Alone", "key", ""},
                    ValueCase{"OnlyComment", "key # nothing", ""},
                    ValueCase{"Comment", "key a # b", "a"},
                    ValueCase{"HashInWord", "key a#b # c", "a#b"},
                    ValueCase{"PlainBackslash", "key C:\\new", "C:\\new"},
                    ValueCase{"BracesInside", "key {a}", "{a}"},
                    ValueCase{"Quoted", R"(key " a\n\t\r\"\\#{} " # c)",
                              " a\n\t\r\"\\#{} "},
                    ValueCase{"QuotedName", R"("key" "")", ""},
                    ValueCase{"NoBlock", "key &Table", "&Table"},
                    ValueCase{"ByteOrderMark", "\xEF\xBB\xBFkey value", "value"},
                    ValueCase{"LaterWins", "key a\nother\nkey b", "b"}),
    [](const auto &test) { return test.param.name; });

TEST(PfCompile, KeepsRuleTablesWithTheirTabs) {
  const PfHandle pf = compiled(
      "preferred_magnitudes &Tbl{\n\tmww\t\t7.0\n\tml\t\t-1.0\t5.0\n\n\t# "
      "none\n\tms\n}\n");
  ASSERT_NE(pf, nullptr);
  EXPECT_THAT(texts_of(pfget_tbl(pf.get(), "preferred_magnitudes")),
              ElementsAre("mww\t\t7.0", "ml\t\t-1.0\t5.0", "ms"));
}

TEST(PfCompile, BuildsNestedBlocks) {
  const PfHandle pf = compiled(
      "outer &Arr{ # comment\n  t & Tbl{\n  list &Tbl {\n one\n &Arr{\n x 1\n }\n "
      "&Tbl{}\n"
      " \"}\"\n} # end\n}\nafter yes\n");
  ASSERT_NE(pf, nullptr);
  void *outer = nullptr;
  ASSERT_EQ(pfget(pf.get(), "outer", &outer), PFARR);
  void *list = nullptr;
  ASSERT_EQ(pfget(static_cast<Pf *>(outer), "list", &list), PFTBL);
  Tbl *items = pf_tbl(static_cast<Pf *>(list));
  ASSERT_EQ(counttbl(items), 4);
  const auto item = [&](long i) { return static_cast<Pf *>(gettbl(items, i)); };
  EXPECT_STREQ(pf_text(item(0)), "one");
  EXPECT_STREQ(pfget_string(item(1), "x"), "1");
  EXPECT_EQ(pf_kind(item(2)), PFTBL);
  EXPECT_STREQ(pf_text(item(3)), "}");
  EXPECT_STREQ(pfget_string(static_cast<Pf *>(outer), "t"), "& Tbl{");
  EXPECT_STREQ(pfget_string(pf.get(), "after"), "yes");
}

struct ErrorCase {
  const char *name, *text, *message;
};
class PfSyntax : public testing::TestWithParam<ErrorCase> {};

TEST_P(PfSyntax, ErrorNamesLineAndCause) {
  elog_clear_register(0);
  Pf *pf = reinterpret_cast<Pf *>(1);
  EXPECT_EQ(pfcompile(GetParam().text, &pf), -1);
  EXPECT_EQ(pf, nullptr);
  EXPECT_EQ(taken_messages(), GetParam().message);
}
INSTANTIATE_TEST_SUITE_P(
    Texts, PfSyntax,
    testing::Values(
        ErrorCase{"Unclosed", "a 1\nt &Tbl{\nx\n",
                  "pfcompile: line 3: The block opened in line 2 is not closed.\n"},
        ErrorCase{"Unopened", "a 1\n\n}\n",
                  "pfcompile: line 3: A closing brace has no block to close.\n"},
        ErrorCase{"AfterOpening", "t &Tbl{ a }\n",
                  "pfcompile: line 1: There is text after the opening brace of a "
                  "block.\n"},
        ErrorCase{"AfterClosing", "t &Tbl{\n} x\n",
                  "pfcompile: line 2: There is text after a closing brace.\n"},
        ErrorCase{"OpenQuote", "a \"b\\\"\n",
                  "pfcompile: line 1: A quoted text is not ended on its line.\n"},
        ErrorCase{"AfterQuote", "a \"b\" c\n",
                  "pfcompile: line 1: There is text after a quoted text.\n"},
        ErrorCase{"Escape", "a \"\\q\"\n",
                  "pfcompile: line 1: Unknown escape \\q in a quoted text.\n"},
        ErrorCase{"QuotedName", "\"a\"b c\n",
                  "pfcompile: line 1: A blank must follow a quoted name.\n"},
        ErrorCase{"Nameless", "&Arr{\n}\n",
                  "pfcompile: line 1: A name is missing before &Arr{.\n"}),
    [](const auto &test) { return test.param.name; });

TEST(PfSyntax, BoundsNesting) {
  const auto nested = [](int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "a &Arr{\n";
    for (int i = 0; i < depth; ++i) text += "}\n";
    return text;
  };
  elog_clear_register(0);
  EXPECT_NE(compiled(nested(kPfMaxDepth)), nullptr);
  EXPECT_EQ(compiled(nested(kPfMaxDepth + 1)), nullptr);
  EXPECT_EQ(taken_messages(),
            "pfcompile: line 65: Blocks are nested deeper than 64.\n");
}

}  // namespace
