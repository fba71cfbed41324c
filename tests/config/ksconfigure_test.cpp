/* Settings decide what a server does: one stored in the wrong member, half applied or
 * silently refused changes its results, and a stale entry writes into freed memory. */
#include "config/ksconfigure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>

#include "core/register.h"
#include "tests/platform/pf/pf_test_support.h"
#include "tests/support/register.h"

namespace {

using ksutil::test::taken_messages;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

constexpr int kNullOk = KS_CONFIGURE_NULL_OK;

/* A parser of one member beside a canary on each side. */
struct Members {
  int before = 77;
  union {
    int number;
    double real;
    char *text;
  };
  int after = 77;
};

class ParseValue : public testing::Test {
 protected:
  ParseValue() { members_.real = 0.0; }
  void SetUp() override { elog_clear_register(0); }

  int parse(const char *type, const char *value, int flags = 0) {
    spec_ = {type, "setting", nullptr, offsetof(Members, real), flags, nullptr};
    const int result =
        KS_ParseConfigValue(&spec_, const_cast<char *>(value),
                            reinterpret_cast<char *>(&members_), nullptr);
    EXPECT_EQ(members_.before + members_.after, 154);
    return result;
  }
  bool changed() const { return (spec_.flags & KS_CONFIGURE_CHANGED) != 0; }

  Members members_;
  KS_ConfigureSpec spec_{};
};

TEST_F(ParseValue, IntTakesNothingAsZeroAndRefusesRemainders) {
  for (const auto &[text, number] :
       std::vector<std::pair<const char *, int>>{{"12", 12},
                                                 {"-0x10", -16},
                                                 {"010", 8},
                                                 {" 7", 7},
                                                 {"abc", 0},
                                                 {"2147483647", 2147483647},
                                                 {"", 0},
                                                 {nullptr, 0}}) {
    members_.number = -5;
    EXPECT_EQ(parse("int", text), 0) << text;
    EXPECT_EQ(members_.number, number);
    EXPECT_TRUE(changed());
    EXPECT_EQ(parse("int", text), 0);
    EXPECT_FALSE(changed());
  }
  EXPECT_EQ(taken_messages(), "");
  members_.number = -5;
  for (const std::string text :
       {"12abc", "12 ", "0x", "2147483648", "-99999999999999999999"}) {
    elog_clear_register(0);
    EXPECT_EQ(parse("int", text.c_str()), -1) << text;
    EXPECT_EQ(taken_messages(),
              "KS_ParseConfigValue: Unable to parse KS_CONFIGURE_INT '" + text +
                  "' for setting.\n");
    EXPECT_EQ(members_.number, -5);
  }
}

TEST_F(ParseValue, DoubleTakesTrailingText) {
  EXPECT_EQ(parse("double", "1.5xyz"), 0);
  EXPECT_EQ(members_.real, 1.5);
  EXPECT_TRUE(changed());
  EXPECT_EQ(parse("double", "1.5"), 0);
  EXPECT_FALSE(changed());
  EXPECT_EQ(parse("double", "nan"), 0);
  EXPECT_EQ(parse("double", "nan"), 0);
  EXPECT_FALSE(changed());
  for (const std::string text : {"abc", ""}) {
    elog_clear_register(0);
    EXPECT_EQ(parse("double", text.c_str()), -1);
    EXPECT_EQ(taken_messages(),
              "KS_ParseConfigValue: Unable to parse KS_CONFIGURE_DOUBLE '" + text +
                  "' for setting.\n");
  }
  EXPECT_EQ(parse("double", nullptr), -1);
  EXPECT_THAT(taken_messages(), EndsWith("'' for setting.\n"));
  EXPECT_TRUE(std::isnan(members_.real));
}

TEST_F(ParseValue, BooleanHoldsMinusOneUntilItIsGiven) {
  EXPECT_EQ(parse("boolean", nullptr), 0);
  EXPECT_EQ(members_.number, -1);
  EXPECT_EQ(parse("boolean", "yes", kNullOk), 0) << "null is allowed but not given";
  EXPECT_EQ(members_.number, 1);
  EXPECT_TRUE(changed());
  EXPECT_EQ(parse("boolean", "YES"), -1);
  EXPECT_EQ(members_.number, 1);
  EXPECT_THAT(taken_messages(),
              EndsWith("KS_ParseConfigValue: KS_ParseBoolean() error for setting.\n"));
}

TEST_F(ParseValue, StringsAreCopiesAndPointersAreNot) {
  const std::string null_message =
      "KS_ParseConfigValue: Cannot set NULL value if not KS_CONFIGURE_NULL_OK for "
      "setting.\n";
  char text[] = "abc";
  members_.text = nullptr;
  EXPECT_EQ(parse("string", text), 0);
  EXPECT_TRUE(changed());
  text[0] = 'x';
  EXPECT_STREQ(members_.text, "abc");
  EXPECT_EQ(parse("uid", members_.text), 0) << "the member's own text";
  EXPECT_FALSE(changed());
  EXPECT_EQ(parse("uid", nullptr), -1);
  EXPECT_EQ(taken_messages(), null_message);
  EXPECT_STREQ(members_.text, "abc");
  EXPECT_EQ(parse("uid", nullptr, kNullOk), 0);
  EXPECT_TRUE(changed());
  EXPECT_EQ(members_.text, nullptr);

  EXPECT_EQ(parse("ptr", text), 0);
  EXPECT_TRUE(changed());
  EXPECT_EQ(members_.text, text);
  elog_clear_register(0);
  EXPECT_EQ(parse("ptr", nullptr), -1);
  EXPECT_EQ(taken_messages(), null_message);
  EXPECT_EQ(parse("ptr", nullptr, kNullOk), 0);
  EXPECT_EQ(members_.text, nullptr);
  EXPECT_EQ(parse("strange", "x"), 3);
  EXPECT_EQ(members_.text, nullptr);
}

using ParseValueDeathTest = ParseValue;

TEST_F(ParseValueDeathTest, MisuseEndsTheProcessWithItsMessage) {
  const auto dies = [&](const char *type, const char *value, const std::string &text) {
    EXPECT_EXIT(parse(type, value, kNullOk), testing::ExitedWithCode(1),
                "KS_ParseConfigValue: " + text + " for setting\\.\n");
  };
  const std::string null_ok = "Cannot set KS_CONFIGURE_NULL_OK for KS_CONFIGURE_";
  dies("boolean", nullptr, null_ok + "BOOlEAN value");
  dies("double", "", null_ok + "DOUBLE value");
  dies("int", nullptr, null_ok + "INT value");
  dies("custom", "x", "customPtr NULL for KS_CONFIGURE_CUSTOM");
  KS_ConfigureCustom custom{};
  KS_ConfigureSpec spec = {"custom", "setting", nullptr, 0, 0, &custom};
  EXPECT_EXIT(KS_ParseConfigValue(&spec, nullptr, nullptr, nullptr),
              testing::ExitedWithCode(1),
              "KS_ParseConfigValue: customPtr->parseProc NULL for KS_CONFIGURE_CUSTOM "
              "for setting\\.\n");
}

/* What a custom parser was called with. */
struct CustomCall {
  KS_ConfigureSpec *spec;
  std::string value;
  char *record;
  int offset;
  void *client_data;
};

int record_call(KS_ConfigureSpec *spec, void *custom_data, char *value, char *record,
                int offset, void *client_data) {
  static_cast<std::vector<CustomCall> *>(custom_data)
      ->push_back(
          {spec, value == nullptr ? "(null)" : value, record, offset, client_data});
  return value != nullptr && std::string(value) == "bad" ? -1 : 4;
}

/* A type of an application's own: the length of the text. */
int parse_length(KS_ConfigureSpec *spec, char *value, char *record, void *client_data) {
  const auto length = static_cast<int>(std::string(value).size());
  *reinterpret_cast<int *>(record + spec->offset) = length;
  *static_cast<int *>(client_data) += 1;
  return 2;
}

struct Settings {
  int flag, count, length;
  double span;
  char *name, *path;
};

class Configure : public testing::Test {
 protected:
  void SetUp() override {
    elog_clear_register(0);
    ASSERT_EQ(configure_.addTypeParser("length", parse_length), 0);
    specs_ = {{"boolean", "flag", nullptr, offsetof(Settings, flag), 0, nullptr},
              {"int", "count", "5", offsetof(Settings, count), 0, nullptr},
              {"length", "length", "four", offsetof(Settings, length), 0, nullptr},
              {"double", "span", nullptr, offsetof(Settings, span),
               KS_CONFIGURE_NODEFAULT, nullptr},
              {"string", "name", nullptr, offsetof(Settings, name), kNullOk, nullptr},
              {"custom", "made", "m", offsetof(Settings, path), 0, &custom_},
              {"string", "path", "/tmp", offsetof(Settings, path), 0, nullptr},
              {"end", nullptr, nullptr, 0, 0, nullptr}};
    ASSERT_EQ(add(specs_, settings_, 1), 0);
  }
  void TearDown() override {
    free(settings_.name);
    free(settings_.path);
  }

  int add(std::vector<KS_ConfigureSpec> &specs, Settings &settings, int defaults) {
    return configure_.setConfigureSpecs(specs.data(), bytes(settings), "settings",
                                        &lengths_, defaults);
  }
  static char *bytes(Settings &settings) { return reinterpret_cast<char *>(&settings); }
  int from_text(const std::string &text, int flags) {
    return configure_.configurePf(compiled(text).get(), flags);
  }
  std::vector<std::string> changed() const {
    std::vector<std::string> names;
    for (const KS_ConfigureSpec &spec : specs_) {
      if ((spec.flags & KS_CONFIGURE_CHANGED) != 0) names.emplace_back(spec.name);
    }
    return names;
  }

  KSConfigure configure_;
  std::vector<CustomCall> calls_;
  int lengths_ = 0;
  KS_ConfigureCustom custom_{record_call, nullptr, &calls_};
  Settings settings_{};
  std::vector<KS_ConfigureSpec> specs_;
};

TEST_F(Configure, AppliesDefaultsWithOwnTypesAndCustomParsers) {
  EXPECT_EQ(settings_.flag, -1);
  EXPECT_EQ(settings_.count, 5);
  EXPECT_EQ(settings_.length, 4);
  EXPECT_EQ(lengths_, 1);
  EXPECT_EQ(settings_.span, 0.0);
  EXPECT_STREQ(settings_.path, "/tmp");
  EXPECT_THAT(changed(), ElementsAre("flag", "count", "path"));
  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_EQ(calls_[0].spec, &specs_[5]);
  EXPECT_EQ(calls_[0].value, "m");
  EXPECT_EQ(calls_[0].record, bytes(settings_));
  EXPECT_EQ(calls_[0].offset, static_cast<int>(offsetof(Settings, path)));
  EXPECT_EQ(calls_[0].client_data, &lengths_);
  specs_[3].flags = 0;
  EXPECT_EQ(add(specs_, settings_, 1), -1) << "a double needs a default";
  EXPECT_EQ(taken_messages(),
            "KS_ParseConfigValue: Unable to parse KS_CONFIGURE_DOUBLE '' for span.\n"
            "KSConfigure::configurePf: KS_ParseConfigValue() error for default.\n"
            "KSConfigure::setConfigureSpecs: this->configure(default) error.");
}

TEST_F(Configure, SkipsUnknownTypesWithAComplaint) {
  std::vector<KS_ConfigureSpec> specs = {
      {"colour", "odd", "x", 0, 0, nullptr},
      {"int", "even", "2", offsetof(Settings, count), 0, nullptr},
      {"end", nullptr, nullptr, 0, 0, nullptr}};
  testing::internal::CaptureStderr();
  EXPECT_EQ(add(specs, settings_, 1), 0);
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      testing::HasSubstr("KSConfigure::setConfigureSpecs: Cannot find parser for "
                         "type 'colour' for name 'odd'\n"));
  EXPECT_EQ(settings_.count, 2);
  const PfHandle pf = compiled("odd 7\neven 8\n");
  EXPECT_EQ(configure_.configurePf(specs.data(), pf.get(), bytes(settings_), 32), 0);
  EXPECT_EQ(settings_.count, 8);
  EXPECT_EQ(configure_.configure("odd", "1", (char *)nullptr), 2);
}

TEST_F(Configure, PairsReportUnknownNamesAndStopAtTheFirstBadValue) {
  taken_messages();
  char name[] = "count";
  EXPECT_EQ(configure_.configure("count", "5", "name", "x", (char *)nullptr), 0);
  EXPECT_THAT(changed(), ElementsAre("name"));
  EXPECT_EQ(
      configure_.configure(name, "6", "bogus", "1", "span", "2.5", (char *)nullptr), 2);
  EXPECT_EQ(taken_messages(),
            "KSConfigure::configureVarargs: Input parameter bogus not in config "
            "specs.\n");
  EXPECT_EQ(settings_.span, 2.5);
  EXPECT_EQ(configure_.configure("bogus", "1", "flag", "1", "count", "7z", "name", "y",
                                 (char *)nullptr),
            -1);
  EXPECT_EQ(
      taken_messages(),
      "KSConfigure::configureVarargs: Input parameter bogus not in config specs.\n"
      "KS_ParseConfigValue: Unable to parse KS_CONFIGURE_INT '7z' for count.\n"
      "KSConfigure::configureVarargs: KS_ParseConfigValue() error for parameter.\n"
      "KSConfigure::configure: KS_ConfigureVarargs() error.");
  EXPECT_EQ(settings_.flag, 1);
  EXPECT_EQ(settings_.count, 6);
  EXPECT_STREQ(settings_.name, "x");
  EXPECT_EQ(configure_.configure("made", "bad", (char *)nullptr), -1);
  EXPECT_THAT(taken_messages(),
              StartsWith("KS_ParseConfigValue: KS_CONFIGURE_CUSTOM error for made.\n"));
  EXPECT_EQ(configure_.configure((const char *)nullptr), 0);
  EXPECT_THAT(changed(), ElementsAre());
}

TEST_F(Configure, TreesApplyKeysInSortedOrderUntilOneFails) {
  taken_messages();
  const PfHandle pf = compiled("span bad\ncount 9\nzzz 1\nname n\n");
  EXPECT_EQ(configure_.configure(pf.get()), -1);
  EXPECT_EQ(taken_messages(),
            "KS_ParseConfigValue: Unable to parse KS_CONFIGURE_DOUBLE 'bad' for span.\n"
            "KSConfigure::configurePf: KS_ParseConfigValue() error for parameter.\n"
            "KSConfigure::configure: KS_ConfigurePf() error.");
  EXPECT_EQ(settings_.count, 9);
  EXPECT_STREQ(settings_.name, "n");
  EXPECT_THAT(changed(), ElementsAre("count", "name"));
}

TEST_F(Configure, ReportsKeysAndEntriesWithoutAPartnerWhenAsked) {
  taken_messages();
  std::vector<KS_ConfigureSpec> specs = {
      {"int", "count", "1", offsetof(Settings, count), 0, nullptr},
      {"end", nullptr, nullptr, 0, 0, nullptr}};
  const PfHandle pf = compiled("count 2\npf_revision_time 1\n");
  const PfHandle more = compiled("count 3\nnew 1\nother &Tbl{\n}\n");
  const auto apply = [&](Pf *tree, int flags) {
    return configure_.configurePf(specs.data(), tree, bytes(settings_), flags);
  };
  EXPECT_EQ(apply(pf.get(), 32), 0);
  EXPECT_EQ(apply(more.get(), 0), 0);
  EXPECT_EQ(taken_messages(), "");
  const std::string unknown =
      "KSConfigure::configurePf: Input parameter new not in config specs.\n"
      "KSConfigure::configurePf: Input parameter other not in config specs.\n";
  EXPECT_EQ(apply(more.get(), 32), 2);
  EXPECT_EQ(taken_messages(), unknown);
  EXPECT_EQ(configure_.configurePf(more.get(), 32), 2);
  EXPECT_EQ(taken_messages(), unknown);
  EXPECT_EQ(from_text("count 1\nspan 1\nflag 1\nlength x\nmade x\npath x\n", 64), 2);
  EXPECT_EQ(taken_messages(),
            "KSConfigure::configurePf: Spec parameter name not in pf.\n");
  EXPECT_EQ(configure_.configurePf(nullptr, 1 | 64), 0) << "no tree to miss them in";
  EXPECT_EQ(settings_.count, 5);
}

TEST_F(Configure, NestedValuesAreRefusedOrGivenAsTextThatCompilesBack) {
  taken_messages();
  const PfHandle pf = compiled("name &Arr{\n\"a b\" \" #\"\nc &Tbl{\nx\n}\n}\n");
  const PfHandle table = compiled("name &Tbl{\none\n}\n");
  EXPECT_EQ(configure_.configurePf(pf.get(), 0), -1);
  EXPECT_EQ(configure_.configurePf(specs_.data(), table.get(), bytes(settings_), 2),
            -1);
  EXPECT_EQ(taken_messages(),
            "KSConfigure::configurePf: Input parameter name is not allowed to be an "
            "array.\n"
            "KSConfigure::configurePf: Input parameter name is not allowed to be a "
            "table.\n");
  EXPECT_EQ(configure_.configurePf(pf.get(), 2), 0);
  EXPECT_THAT(settings_.name, StartsWith("name &Arr{\n"));
  EXPECT_EQ(pfequal(compiled(settings_.name).get(), pf.get()), 1) << settings_.name;
  EXPECT_EQ(configure_.configurePf(table.get(), 2), 0);
  EXPECT_STREQ(settings_.name, "name &Tbl{\none\n}\n");
}

/* A "ptr" member points to the text that its parser was given. */
TEST_F(Configure, NestedTextsLiveUntilTheNext) {
  char *kept = nullptr;
  KS_ConfigureSpec specs[] = {{"ptr", "kept", nullptr, 0, kNullOk, nullptr},
                              {"end", nullptr, nullptr, 0, 0, nullptr}};
  ASSERT_EQ(configure_.setConfigureSpecs(specs, reinterpret_cast<char *>(&kept), "kept",
                                         nullptr, 1),
            0);
  for (const std::string text : {"kept &Tbl{\none\n}\n", "kept &Tbl{\ntwo\n}\n"}) {
    EXPECT_EQ(from_text(text, 2), 0);
    EXPECT_EQ(kept, text);
  }
}

TEST_F(Configure, ALaterTableTakesOverANameAndTheListForgetsTheOldEntry) {
  Settings other{};
  std::vector<KS_ConfigureSpec> later = {
      {"int", "count", "8", offsetof(Settings, count), 0, nullptr},
      {"int", "count", "9", offsetof(Settings, flag), 0, nullptr},
      {"end", nullptr, nullptr, 0, 0, nullptr}};
  EXPECT_EQ(add(later, other, 0), 0);
  specs_[1].flags |= KS_CONFIGURE_CHANGED;
  EXPECT_EQ(configure_.configurePf(nullptr, 1), 0);
  EXPECT_EQ(settings_.count, 5);
  EXPECT_EQ(other.count, 0) << "replaced within its own table";
  EXPECT_EQ(other.flag, 9);
  EXPECT_NE(specs_[1].flags & KS_CONFIGURE_CHANGED, 0) << "no longer registered";
  EXPECT_EQ(configure_.configure("count", "3", (char *)nullptr), 0);
  EXPECT_EQ(other.flag, 3);
  EXPECT_EQ(settings_.count, 5);
}

TEST_F(Configure, OnlyCustomParsersDoWithoutARecord) {
  std::vector<KS_ConfigureSpec> specs = {
      {"custom", "made", "first", 3, 0, &custom_},
      {"int", "count", "8", offsetof(Settings, count), KS_CONFIGURE_NODEFAULT, nullptr},
      {"end", nullptr, nullptr, 0, 0, nullptr}};
  ASSERT_EQ(configure_.setConfigureSpecs(specs.data(), nullptr, nullptr, this, 1), 0);
  EXPECT_EQ(configure_.configure("made", "second", (char *)nullptr), 0);
  EXPECT_EQ(calls_.back().value, "second");
  EXPECT_EQ(calls_.back().record, nullptr);
  EXPECT_EQ(calls_.back().client_data, this);
  taken_messages();
  EXPECT_EQ(configure_.configure("count", "6", (char *)nullptr), -1);
  EXPECT_THAT(taken_messages(),
              StartsWith("KS_ParseConfigValue: There is no record for count.\n"));
}

TEST_F(Configure, KeepsTheEarlierEntryWhenMemoryIsShort) {
  taken_messages();
  Settings other{};
  std::vector<KS_ConfigureSpec> later = {
      {"int", "count", "8", offsetof(Settings, count), 0, nullptr},
      {"end", nullptr, nullptr, 0, 0, nullptr}};
  for (long n = 1; n <= 2; ++n) {
    ks_test_fail_alloc(n);
    EXPECT_EQ(add(later, other, 1), -1);
    EXPECT_THAT(taken_messages(), StartsWith("KSConfigure::setConfigureSpecs: new "
                                             "KSConfigureSpecs() error.\n"));
  }
  EXPECT_EQ(configure_.configure("count", "6", (char *)nullptr), 0);
  EXPECT_EQ(settings_.count, 6);
}

}  // namespace
