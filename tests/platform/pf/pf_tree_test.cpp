/* Trees are changed and written back by programs: a value that does not survive the round
 * trip is a setting lost, and a stale list or map points into freed memory. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "tests/platform/pf/pf_test_support.h"
#include "tests/support/register.h"

namespace {

using ksutil::test::taken_messages;
using testing::ElementsAre;

/* Makes the text of a random tree in a form of its own, everything quoted, so that the
 * library's writer is compared with what was meant and not with itself. */
class RandomTree {
 public:
  explicit RandomTree(unsigned seed) : random_(seed) {}

  std::string entries(int depth) {
    std::string text;
    for (int n = pick(5); n > 0; --n) text += quoted() + " " + value(depth) + "\n";
    return text;
  }

 private:
  int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }

  std::string quoted() {
    static const std::vector<std::string> kPieces = {
        "a", " ", "#",     " #", "\\n",   "\\t",      "\\r", "\\\"", "\\\\",
        "{", "}", "&Tbl{", "&",  "\\\\n", "\xc3\xa9", "\v",  "x y",  "&Arr{}"};
    std::string text = "\"";
    for (int n = pick(5); n > 0; --n) {
      text += kPieces[static_cast<std::size_t>(pick(static_cast<int>(kPieces.size())))];
    }
    return text + "\"";
  }

  std::string value(int depth) {
    const int kind = depth > 4 ? 0 : pick(4);
    if (kind < 2) return quoted();
    if (kind == 2) return "&Arr{\n" + entries(depth + 1) + "}";
    std::string text = "&Tbl{\n";
    for (int n = pick(4); n > 0; --n) text += value(depth + 1) + "\n";
    return text + "}";
  }

  std::mt19937 random_;
};

TEST(PfWrite, CompilesToAnEqualTreeInTheSameOrder) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    const PfHandle pf = compiled(RandomTree(seed).entries(0));
    ASSERT_NE(pf, nullptr);
    const std::string text = taken(pf2string(pf.get()));
    const PfHandle again = compiled(text);
    ASSERT_NE(again, nullptr) << text << taken_messages();
    EXPECT_EQ(pfequal(pf.get(), again.get()), 1) << text;
    EXPECT_EQ(texts_of(pfkeys_in_order(pf.get())),
              texts_of(pfkeys_in_order(again.get())));
  }
}

TEST(PfEqual, SeesEveryDifferenceButTheOrderOfKeys) {
  const PfHandle pf = compiled("a 1\nb &Tbl{\nx\ny\n}\n");
  EXPECT_EQ(pfequal(pf.get(), compiled("b &Tbl{\nx\ny\n}\na 1\n").get()), 1);
  for (const char *other : {"a 1\nb &Tbl{\ny\nx\n}\n", "a 1\nb &Tbl{\nx\n}\n", "a 1\n",
                            "a 2\nb &Tbl{\nx\ny\n}\n", "c 1\nb &Tbl{\nx\ny\n}\n",
                            "a 1\nb &Arr{\nx\ny\n}\n"}) {
    EXPECT_EQ(pfequal(pf.get(), compiled(other).get()), 0) << other;
  }
}

TEST(PfEdit, ListsAndMapsFollowChanges) {
  const PfHandle pf = compiled("b 1\na 2\nsub &Arr{\nk v\n}\n");
  Arr *const map = pf_arr(pf.get());
  EXPECT_EQ(pfput_string(pf.get(), "c", "3"), 0);
  EXPECT_EQ(pfput_string(pf.get(), "b", pfget_string(pf.get(), "a")), 0);
  EXPECT_EQ(pfput_string(pf.get(), "a", nullptr), 0);
  EXPECT_EQ(pfput_string(pf.get(), "absent", nullptr), 0);
  EXPECT_EQ(pf_arr(pf.get()), map);
  EXPECT_EQ(containsarr(map, "a"), 0);
  EXPECT_STREQ(pf_text(static_cast<Pf *>(getarr(map, "b"))), "2");
  EXPECT_STREQ(pf_text(static_cast<Pf *>(getarr(map, "c"))), "3");
  EXPECT_THAT(texts_of(pfkeys_in_order(pf.get())), ElementsAre("b", "sub", "c"));
  EXPECT_THAT(texts_of(pfkeys(pf.get())), ElementsAre("b", "c", "sub"));
  EXPECT_EQ(pfput_string(nullptr, "a", "1"), -1);
}

TEST(PfMerge, TakesATreesOwnPart) {
  const PfHandle pf = compiled("s &Arr{\ns &Arr{\nx 1\n}\ny 2\n}\n");
  void *sub = nullptr;
  ASSERT_EQ(pfget(pf.get(), "s", &sub), PFARR);
  EXPECT_EQ(pfmerge(pf.get(), static_cast<Pf *>(sub)), 0);
  EXPECT_EQ(taken(pf2string(pf.get())),
            "s &Arr{\n  s &Arr{\n    x 1\n  }\n  y 2\n  x 1\n}\ny 2\n");
}

TEST(PfMerge, RefusesATreeThatGrowsTooDeep) {
  std::string text;
  for (int i = 0; i < 40; ++i) text += "a &Arr{\n";
  text += "end yes\n";
  for (int i = 0; i < 40; ++i) text += "}\n";
  const PfHandle pf = compiled(text), other = compiled(text);
  void *inner = pf.get();
  for (int i = 0; i < 40; ++i) pfget(static_cast<Pf *>(inner), "a", &inner);
  EXPECT_EQ(pfmerge(static_cast<Pf *>(inner), other.get()), -1);
  EXPECT_EQ(pfequal(pf.get(), other.get()), 1);
}

TEST(PfLookUp, GivesKindsTextsAndNulls) {
  const PfHandle pf =
      compiled("t &Tbl{\na\n&Tbl{\n}\n}\nm &Arr{\nk v\nn &Arr{\n}\n}\ns x\n");
  EXPECT_THAT(texts_of(pfget_tbl(pf.get(), "t")), ElementsAre("a", "(null)"));
  Arr *const map = pfget_arr(pf.get(), "m");
  EXPECT_STREQ(static_cast<char *>(getarr(map, "k")), "v");
  EXPECT_EQ(containsarr(map, "n"), 1);
  EXPECT_EQ(getarr(map, "n"), nullptr);
  freearr(map, nullptr);
  EXPECT_EQ(pfget_tbl(pf.get(), "m"), nullptr);
  EXPECT_EQ(pfget_arr(pf.get(), "absent"), nullptr);
  EXPECT_EQ(pfget_string(pf.get(), "t"), nullptr);
  void *value = pf.get();
  EXPECT_EQ(pfget(pf.get(), "absent", &value), PFINVALID);
  EXPECT_EQ(value, nullptr);
  ASSERT_EQ(pfget(pf.get(), "t", &value), PFTBL);
  pffree(static_cast<Pf *>(value));
  EXPECT_EQ(counttbl(pf_tbl(static_cast<Pf *>(value))), 2) << "a sub-tree was freed";
}

TEST(PfLookUp, ReadsNumbersInTheCLocale) {
  const PfHandle pf = compiled("a 7.25\nb 12abc\nc 1e3\nd 99999999999\ne -12\n");
  elog_clear_register(0);
  EXPECT_EQ(pfget_double(pf.get(), "a"), 7.25);
  EXPECT_EQ(pfget_double(pf.get(), "c"), 1000.0);
  EXPECT_EQ(pfget_int(pf.get(), "e"), -12);
  EXPECT_EQ(pfget_double(pf.get(), "absent"), 0.0);
  EXPECT_EQ(taken_messages(), "");
  EXPECT_EQ(pfget_double(pf.get(), "b"), 0.0);
  EXPECT_EQ(pfget_int(pf.get(), "d"), 0);
  EXPECT_EQ(taken_messages(),
            "pfget_double: Cannot parse '12abc' for b.\n"
            "pfget_int: Cannot parse '99999999999' for d.\n");
}

TEST(PfLookUp, ManyThreadsReadOneTree) {
  const PfHandle pf = compiled("t &Tbl{\na\nb\n}\nm &Arr{\nk v\n}\n");
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&pf] {
      void *table = nullptr;
      pfget(pf.get(), "t", &table);
      EXPECT_EQ(counttbl(pf_tbl(static_cast<Pf *>(table))), 2);
      EXPECT_NE(getarr(pf_arr(pf.get()), "m"), nullptr);
    });
  }
  for (std::thread &reader : readers) reader.join();
}

TEST(PfMemory, ShortageIsRegisteredAndLeavesTheTree) {
  const PfHandle pf = compiled("a 1\n");
  elog_clear_register(0);
  ks_test_fail_alloc(1);
  EXPECT_EQ(pf2string(pf.get()), nullptr);
  ks_test_fail_alloc(0);
  EXPECT_TRUE(taken_messages().starts_with("pf2string: malloc() error.\n"));
  EXPECT_EQ(taken(pf2string(pf.get())), "a 1\n");
}

}  // namespace
