/* Settings read with the wrong type or a destroyed default start a server that looks
 * healthy and computes nonsense. */
#include "core/params.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstddef>
#include <limits>

#include "tests/platform/pf/pf_test_support.h"
#include "tests/support/register.h"

namespace {

using ksutil::test::taken_messages;

class ParseParam : public testing::Test {
 protected:
  void SetUp() override {
    pf_ = compiled(
        "hex 0x1F\noctal 010\ntrail 12abc\nword abc\nreal 2.5\nlarge 1e300\n"
        "greatest 3.4028235e+38\nwide 65537\n"
        "text hello world\nempty\nt &Tbl{\na\nb\n}\nm &Arr{\nk v\n}\n");
    elog_clear_register(0);
  }

  /* The value stored, `untouched` when nothing was. */
  template <class T>
  T parsed(const char *name, int type, T untouched, int expected = 0) {
    EXPECT_EQ(parse_param(pf_.get(), name, type, 0, &untouched), expected);
    return untouched;
  }

  PfHandle pf_;
};

TEST_F(ParseParam, ReadsIntegersInEveryBaseAndTruncatesThem) {
  EXPECT_EQ(parsed("hex", P_INT, 0), 31);
  EXPECT_EQ(parsed("octal", P_INT, 0), 8);
  EXPECT_EQ(parsed("trail", P_INT, 0), 12);
  EXPECT_EQ(parsed<short>("wide", P_SHORT, 0), 1);
  EXPECT_EQ(taken_messages(), "");
  EXPECT_EQ(parsed("word", P_INT, 77, -1), 77);
  EXPECT_EQ(taken_messages(),
            "parse_param: strtol(abc) error.\n"
            "parse_param: Unable to parse integer value for word.\n");
}

TEST_F(ParseParam, ReadsReals) {
  EXPECT_EQ(parsed("real", P_FLOAT, 0.0F), 2.5F);
  EXPECT_EQ(parsed("large", P_DOUBLE, 0.0), 1e300);
  EXPECT_EQ(parsed("large", P_FLOAT, 0.0F), std::numeric_limits<float>::infinity());
  /* The shortest text of the greatest float is a double slightly above it. */
  EXPECT_EQ(parsed("greatest", P_FLOAT, 0.0F), std::numeric_limits<float>::max());
  EXPECT_EQ(parsed("word", P_DOUBLE, 9.0), 0.0);
  EXPECT_EQ(taken_messages(), "pfget_double: Cannot parse 'abc' for word.\n");
}

TEST_F(ParseParam, CopiesTexts) {
  char *copy = nullptr;
  ASSERT_EQ(parse_param(pf_.get(), "text", P_STRING, 1, &copy), 0);
  EXPECT_NE(copy, pfget_string(pf_.get(), "text"));
  EXPECT_EQ(taken(copy), "hello world");
  char buffer[32] = "unchanged";
  ASSERT_EQ(parse_param(pf_.get(), "text", P_STRCPY, 1, buffer), 0);
  EXPECT_STREQ(buffer, "hello world");
  copy = buffer;
  ks_test_fail_alloc(1);
  EXPECT_EQ(parse_param(pf_.get(), "text", P_STRING, 1, &copy), -1);
  EXPECT_EQ(copy, buffer);
  EXPECT_EQ(taken_messages(),
            "parse_param: strdup(hello world) error.\nCannot allocate memory\n");
}

TEST_F(ParseParam, TakesUnknownWordsAsTrue) {
  for (const char *word : {"0", "n", "N", "No", "f", "FALSE"}) {
    pfput_string(pf_.get(), "flag", word);
    EXPECT_EQ(parsed("flag", P_BOOL, 9), 0) << word;
  }
  for (const char *word : {"off", "2", "", "00", "falsehood", "yes"}) {
    pfput_string(pf_.get(), "flag", word);
    EXPECT_EQ(parsed("flag", P_BOOL, 9), 1) << word;
  }
}

TEST_F(ParseParam, GivesBlocksByReferenceAndByCopy) {
  void *table = nullptr, *map = nullptr;
  pfget(pf_.get(), "t", &table);
  pfget(pf_.get(), "m", &map);
  EXPECT_EQ(parsed<Pf *>("t", P_TBLPF, nullptr), table);
  EXPECT_EQ(parsed<Pf *>("m", P_ARRPF, nullptr), map);
  EXPECT_EQ(parsed<Tbl *>("t", P_TBL, nullptr), pf_tbl(static_cast<Pf *>(table)));
  EXPECT_EQ(parsed<Arr *>("m", P_ARR, nullptr), pf_arr(static_cast<Pf *>(map)));
  EXPECT_THAT(texts_of(parsed<Tbl *>("t", P_TBLCOPY, nullptr)),
              testing::ElementsAre("a", "b"));
  Arr *const copy = parsed<Arr *>("m", P_ARRCOPY, nullptr);
  EXPECT_STREQ(static_cast<char *>(getarr(copy, "k")), "v");
  freearr(copy, nullptr);
}

TEST_F(ParseParam, MissingOnesMatterOnlyWhenRequired) {
  errno = ENOENT;  // of an earlier call: no cause of what follows
  for (int type = P_SHORT; type <= P_STRCPY; ++type) {
    const bool table = type >= P_TBL && type <= P_TBLPF;
    const bool array = type >= P_ARR && type <= P_ARRPF;
    const char *const noun = table ? "table" : array ? "array" : "parameter";
    const char *const wrong_kind = table ? "text" : array ? "t" : "m";
    for (const char *name : {"absent", wrong_kind}) {
      char storage[16] = "untouched bytes";
      elog_clear_register(0);
      EXPECT_EQ(parse_param(pf_.get(), name, type, 0, storage), 0);
      EXPECT_EQ(taken_messages(), "");
      EXPECT_EQ(parse_param(pf_.get(), name, type, 1, storage), -1);
      EXPECT_EQ(taken_messages(),
                std::string("parse_param: Cannot find '") + name + "' " + noun + ".\n");
      EXPECT_STREQ(storage, "untouched bytes");
    }
  }
  elog_clear_register(0);
  EXPECT_EQ(parse_param(pf_.get(), "text", -1, 0, nullptr), -1);
  EXPECT_EQ(parse_param(pf_.get(), "text", P_STRCPY + 1, 0, nullptr), -1);
  EXPECT_EQ(taken_messages(),
            "parse_param: Illegal type value.\nparse_param: Illegal type value.\n");
}

TEST_F(ParseParam, FillsAStructureUpToTheFirstFailure) {
  struct Settings {
    double real = -1;
    int hex = -1;
    int word = -1;
    int trail = -1;
  } settings;
  const Pf2StrucMember members[] = {
      {"real", P_DOUBLE, 1, offsetof(Settings, real)},
      {"absent", P_INT, 0, offsetof(Settings, hex)},
      {"hex", P_INT, 1, offsetof(Settings, hex)},
      {"word", P_INT, 1, offsetof(Settings, word)},
      {"trail", P_INT, 1, offsetof(Settings, trail)},
  };
  EXPECT_EQ(pf2struc(pf_.get(), 3, members, &settings), 0);
  settings.hex = -1;
  EXPECT_EQ(pf2struc(pf_.get(), 5, members, &settings), -1);
  EXPECT_EQ(settings.real, 2.5);
  EXPECT_EQ(settings.hex, 31);
  EXPECT_EQ(settings.word, -1);
  EXPECT_EQ(settings.trail, -1);
  EXPECT_TRUE(taken_messages().ends_with("pf2struc: parse_param(word) error.\n"));
}

}  // namespace
