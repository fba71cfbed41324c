/* A history is asked what a monitored quantity was at a time; an interpolation off by one
 * entry, or a list that loses its newest instead of its oldest, is a wrong answer that
 * looks like a right one. */
#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "platform/stock/memory.h"
#include "tests/objects/kshistory_support.h"

namespace ksutil::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

class Kshistory : public ListFolder {};

/* Stands first: the registry comes with the first history of a process. */
TEST_F(Kshistory, TellsAnEmptyRegistryFromAnUnknownTag) {
  EXPECT_EQ(kshistory_get_history("thst0"), nullptr);
  EXPECT_EQ(messages(), "kshistory_get_history: No historys defined");
  EXPECT_EQ(kshistory_free("thst0"), -1);
  EXPECT_EQ(messages(), "kshistory_free: No kshistorys defined");

  KSHistory *const untagged = kshistory_create(3, nullptr, nullptr, nullptr);
  ASSERT_NE(untagged, nullptr);
  char first[KS_TAG_SIZE], second[KS_TAG_SIZE];
  ASSERT_NE(kshistory_create(3, "a", nullptr, first), nullptr);
  ASSERT_NE(kshistory_create(3, "b", nullptr, second), nullptr);
  EXPECT_STREQ(first, "thst0");
  EXPECT_STREQ(second, "thst1");
  EXPECT_EQ(kshistory_free_history(untagged), 0);
  EXPECT_EQ(kshistory_free_tag("a"), 0);
  EXPECT_EQ(messages(), "");

  EXPECT_EQ(kshistory_get_history(first), nullptr);
  EXPECT_EQ(messages(), "kshistory_get_history: Cannot find thst0");
  EXPECT_EQ(kshistory_free(first), -1);
  EXPECT_EQ(messages(), "kshistory_free: Cannot find thst0");
  EXPECT_EQ(kshistory_add(first, 1, 2), -1);
  EXPECT_EQ(messages(),
            "kshistory_get_history: Cannot find thst0\n"
            "kshistory_add: kshistory_get_history() error.\n");
  EXPECT_EQ(kshistory_free(second), 0);
  EXPECT_EQ(kshistory_get_history(second), nullptr);
}

TEST_F(Kshistory, EvaluatesBetweenAndBeyondItsEntries) {
  struct Case {
    const char *name;
    Points entries;
    double time, value;
  };
  const Points steps = {{10, 1}, {20, 3}, {20, 7}, {40, -1}};
  const Case cases[] = {
      {"one entry", {{10, 5}}, 99, 5},
      {"before the first", steps, -kInfinity, 1},
      {"on the first", steps, 10, 1},
      {"between", steps, 12.5, 1.5},
      {"just before a step", steps, std::nextafter(20, 0), 3},
      {"on a step", steps, 20, 5},
      {"after a step", steps, 25, 5},
      {"on the last", steps, 40, -1},
      {"after the last", steps, 1e9, -1},
      {"step at the beginning", {{10, 1}, {10, 2}, {20, 9}}, 10, 1.5},
      {"before that", {{10, 1}, {10, 2}, {20, 9}}, 9, 1},
      {"step at the end", {{0, 0}, {10, 1}, {10, 2}}, 10, 1.5},
      {"after that", {{0, 0}, {10, 1}, {10, 2}}, 11, 2},
      {"values that overflow their sum", {{1, 1e308}, {1, 1.5e308}}, 1, 1.25e308},
  };
  for (const Case &c : cases) {
    const History history(10);
    for (const auto &[time, value] : c.entries) ASSERT_TRUE(history.add(time, value));
    double value = -99;
    EXPECT_EQ(kshistory_eval(history.tag(), &value, c.time), 0) << c.name;
    EXPECT_NEAR(value, c.value, 1e-12 * std::abs(c.value)) << c.name;
  }
}

TEST_F(Kshistory, KeepsTheNewestEntriesAndTheirExtremes) {
  const History history(3);
  double value = -99, tmin = -99, tmax = -99, vmin = -99, vmax = -99;
  EXPECT_EQ(history.points(), Points{});
  EXPECT_EQ(kshistory_eval(history.tag(), &value, 1), -1);
  EXPECT_EQ(messages(), std::string("kshistory_eval: No points in kshistory ") +
                            history.tag() + ".\n");
  EXPECT_EQ(kshistory_maxmin(history.tag(), &tmin, &tmax, &vmin, &vmax), -1);
  EXPECT_EQ(messages(), std::string("kshistory_maxmin: No points in kshistory ") +
                            history.tag() + ".\n");
  EXPECT_EQ((std::vector<double>{value, tmin, tmax, vmin, vmax}),
            std::vector<double>(5, -99));

  for (const auto &[time, v] : Points{{1, 99}, {2, 5}, {3, -7}, {4, 2}}) {
    ASSERT_TRUE(history.add(time, v));
  }
  EXPECT_EQ(history.points(), (Points{{2, 5}, {3, -7}, {4, 2}}));
  EXPECT_EQ(kshistory_maxmin(history.tag(), &tmin, &tmax, &vmin, &vmax), 0);
  EXPECT_EQ((std::vector<double>{tmin, tmax, vmin, vmax}),
            (std::vector<double>{2, 4, -7, 5}));
}

/* Address sanitizer tells of what a failed call does not free. */
TEST_F(Kshistory, SurvivesTheLossOfAnyAllocation) {
  int failures = 0;
  for (const char *const file : {static_cast<const char *>(nullptr), file_.c_str()}) {
    bool made = false;
    for (long n = 1; !made; ++n) {
      ks_test_fail_alloc(n);
      const History history(3, file);
      made = history.made();
      ks_test_fail_alloc(0);
      if (made) break;
      ++failures;
      EXPECT_STREQ(history.tag(), "");
      EXPECT_THAT(messages(), testing::HasSubstr("kshistory_create: ")) << n;
    }
  }
  EXPECT_GE(failures, 8);
  const History history(3);
  ASSERT_TRUE(history.add(1, 2));
  for (const long n : {1, 2}) {
    ks_test_fail_alloc(n);
    EXPECT_EQ(history.points(), (Points{{-1, -1}}));
    ks_test_fail_alloc(0);
    EXPECT_THAT(messages(),
                testing::StartsWith("kshistory_get_points: malloc() error.\n"));
  }
}

}  // namespace
}  // namespace ksutil::test
