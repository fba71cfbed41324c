/* A record that is handed out twice, or an account of bytes that drifts, shows as one plot
 * drawing into another, or as a cache that grows without limit or never helps. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "objects/ksvector2_support.h"
#include "platform/stock/memory.h"

namespace {

using testing::HasSubstr;

class Ksvector2Cache : public Ksvector2Test {};

int heap_bytes(int capacity, int values) {
  return static_cast<int>(sizeof(ksvector2)) + capacity * values * 8;
}

std::string told(const char *format, int a, int b, int c, int d = 0, int e = 0) {
  char text[200];
  std::snprintf(text, sizeof text, format, a, b, c, d, e);
  return text;
}

TEST(Ksvector2NoCache, EveryFreeReleases) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that never had a cache
  const auto scenario = [] {
    const StdoutCapture out;
    ksvector2_set_verbose(1);
    ksvector2_free_vector(ksvector2_create(10, 1, nullptr, nullptr));
    ksvector2_free_vector(ksvector2_create(10, 1, nullptr, nullptr));
    const int bytes = heap_bytes(100, 2);
    const std::string once =
        told("malloced %d bytes %d %d for %d %d\n", bytes, 100, 1, 10, 1) +
        told("Freeing %d bytes %d %d\n", bytes, 100, 1);
    std::exit(out.text() == once + once ? 0 : 1);
  };
  EXPECT_EXIT(scenario(), testing::ExitedWithCode(0), "");
}

TEST_F(Ksvector2Cache, CapacityOfNewRecords) {
  const OwnedVector small(ksvector2_find_space(50, 2, 0));
  const OwnedVector large(ksvector2_find_space(1000, 2, 0));
  const OwnedVector series(ksvector2_find_space(1000, 7, 1));
  EXPECT_EQ(small->nalloc, 100);
  EXPECT_EQ(large->nalloc, 1200);
  EXPECT_EQ(large->heap_size, heap_bytes(1200, 3));
  EXPECT_EQ(series->size, 1200 * 8);
  EXPECT_EQ(series->ny, 1);
}

TEST_F(Ksvector2Cache, ReusesTheTightestOfItsKind) {
  ksvector2 *roomy = ksvector2_find_space(125, 1, 0);   // 150
  ksvector2 *tight = ksvector2_find_space(100, 1, 0);   // 120
  ksvector2 *second = ksvector2_find_space(100, 1, 0);  // 120, freed later
  ksvector2 *series =
      ksvector2_find_space(100, 1, 1);               // fits exactly, of the other kind
  ksvector2 *two = ksvector2_find_space(100, 2, 0);  // the same with another ny
  ksvector2_set_cache(1 << 20);
  for (ksvector2 *each : {roomy, tight, second, series, two})
    ksvector2_free_vector(each);
  const OwnedVector first(ksvector2_find_space(100, 1, 0));
  const OwnedVector next(ksvector2_find_space(100, 1, 0));
  const OwnedVector last(ksvector2_find_space(100, 1, 0));
  EXPECT_EQ(first.get(), tight);
  EXPECT_EQ(next.get(), second);
  EXPECT_EQ(last.get(), roomy);
  const OwnedVector other(ksvector2_find_space(100, 3, 0));
  EXPECT_NE(other.get(), two);
}

TEST_F(Ksvector2Cache, AReusedRecordIsClean) {
  ksvector2_set_cache(1 << 20);
  char tag[KS_TAG_SIZE];
  ksvector2 *const used = ksvector2_create(100, 1, "used", tag);
  std::fill_n(used->data, used->nalloc * 2, 7.0);
  used->npts = 5;
  ASSERT_EQ(ksvector2_make_lblbuf(used), 0);
  ksvector2_free(tag);
  EXPECT_EQ(ksvector2_get_vector(tag), nullptr);
  const OwnedVector again(ksvector2_create(100, 1, nullptr, nullptr));
  ASSERT_EQ(again.get(), used);
  EXPECT_EQ(again->npts, 0);
  EXPECT_STREQ(again->name, "");
  EXPECT_EQ(again->labels, nullptr);
  EXPECT_EQ(std::count(again->data, again->data + again->nalloc * 2, 0.0), 240);
}

TEST_F(Ksvector2Cache, ASecondFreeLeavesTheRecordInTheCacheOnce) {
  ksvector2_set_cache(1 << 20);
  ksvector2_set_verbose(1);
  const StdoutCapture out;
  char other[KS_TAG_SIZE];
  const OwnedVector bystander(ksvector2_create(10, 3, nullptr, other));
  ksvector2 *const twice = ksvector2_create(10, 1, nullptr, nullptr);
  ksvector2_free_vector(twice);
  ksvector2_free_vector(twice);
  EXPECT_THAT(out.text(),
              HasSubstr(told("Adding %d bytes %d %d to cache\n"
                             "leaving %d bytes %d",
                             twice->heap_size, 100, 1, twice->heap_size, 100)));
  EXPECT_EQ(ksvector2_get_vector(other), bystander.get());
  const OwnedVector first(ksvector2_create(10, 1, nullptr, nullptr));
  const OwnedVector next(ksvector2_create(10, 1, nullptr, nullptr));
  EXPECT_EQ(first.get(), twice);
  EXPECT_NE(next.get(), twice);
}

TEST_F(Ksvector2Cache, ALimitOfZeroKeepsNothing) {
  ksvector2_set_verbose(1);
  const StdoutCapture out;
  ksvector2_free_vector(ksvector2_create(10, 1, nullptr, nullptr));
  EXPECT_THAT(out.text(), HasSubstr("Freeing "));
}

TEST_F(Ksvector2Cache, IgnoresWhatIsNoVector) {
  ksvector2 foreign = {};
  ksvector2_free_vector(&foreign);
  ksvector2_free_vector(nullptr);
  EXPECT_EQ(ksvector2_make_lblbuf(&foreign), -1);
}

/* What does not fit the record's int members is refused, and so is what memory refuses. */
TEST_F(Ksvector2Cache, FailsWithoutAResultOrALeak) {
  char tag[KS_TAG_SIZE] = "stale";
  EXPECT_EQ(ksvector2_create(1 << 29, 1, nullptr, tag), nullptr);
  EXPECT_STREQ(tag, "");
  EXPECT_EQ(ksvector2_create(10, 2147483647, nullptr, tag), nullptr);
  EXPECT_EQ(ksvector2_create(10, 0, nullptr, tag), nullptr);
  for (const long nth : {1, 2}) {
    elog_clear_register(0);
    ks_test_fail_alloc(nth);
    EXPECT_EQ(ksvector2_create(10, 1, nullptr, nullptr), nullptr);
    const std::string text = taken_messages();
    EXPECT_THAT(text, HasSubstr("ksvector2_find_space: malloc() error.\n"));
    EXPECT_THAT(text, HasSubstr("ksvector2_create: ksvector2_find_space() error.\n"));
  }
}

/* The cache as one would write it without care for speed, telling what it would do. */
class Model {
 public:
  struct Record {
    int tsamp, ny, capacity, bytes;
  };

  void limit(long bytes) { limit_ = bytes; }

  Record create(int npts, int ny, int tsamp) {
    auto best = free_.end();
    for (auto each = free_.begin(); each != free_.end(); ++each) {
      if (each->tsamp != tsamp || (tsamp == 0 && each->ny != ny)) continue;
      if (each->capacity < npts) continue;
      if (best == free_.end() || each->capacity < best->capacity) best = each;
    }
    if (best != free_.end()) {
      const Record found = *best;
      free_.erase(best);
      text += told("used cache %d bytes %d %d for %d %d\n", found.bytes, found.capacity,
                   found.ny, npts, ny);
      return found;
    }
    const int capacity = std::max(static_cast<int>(1.2 * npts), 100);
    const Record made{tsamp, tsamp ? 1 : ny, capacity,
                      heap_bytes(capacity, tsamp ? 1 : ny + 1)};
    text += told("malloced %d bytes %d %d for %d %d\n", made.bytes, made.capacity,
                 made.ny, npts, ny);
    return made;
  }

  void free(const Record &record) {
    long sum = record.bytes;
    for (const Record &each : free_) sum += each.bytes;
    const bool kept = sum <= limit_;
    text += told(kept ? "Adding %d bytes %d %d to cache\n" : "Freeing %d bytes %d %d\n",
                 record.bytes, record.capacity, record.ny);
    if (kept) free_.push_back(record);
  }

  std::string text;

 private:
  long limit_ = 0;
  std::vector<Record> free_;
};

TEST_F(Ksvector2Cache, AccountsLikeTheModelOverRandomUse) {
  std::mt19937 random(20100520);
  const auto below = [&random](int n) {
    return static_cast<int>(random() % static_cast<unsigned>(n));
  };
  struct Live {
    ksvector2 *vector;
    Model::Record expected;
  };
  std::vector<Live> live;
  Model model;
  ksvector2_set_verbose(1);
  const StdoutCapture out;
  for (int step = 0; step < 3000; ++step) {
    const int action = below(100);
    if (action < 2) {
      const long limit = 2000L * below(60);
      ksvector2_set_cache(limit);
      model.limit(limit);
    } else if (action < 40 || live.empty()) {
      const int npts = below(400), tsamp = below(3) == 0, ny = tsamp ? 1 : 1 + below(3);
      live.push_back(
          {ksvector2_find_space(npts, ny, tsamp), model.create(npts, ny, tsamp)});
      ASSERT_NE(live.back().vector, nullptr);
    } else if (action < 60) {
      Live &one = live[static_cast<std::size_t>(below(static_cast<int>(live.size())))];
      if (one.vector->tsamp != 0) continue;
      char *const *labels = one.vector->labels;
      const std::size_t before = labels && labels[7] ? std::strlen(labels[7]) : 0;
      const std::string label(static_cast<std::size_t>(below(50)), 'x');
      ASSERT_TRUE(ksutil::vector2::set_label(*one.vector, 7, label.c_str()));
      one.expected.bytes += static_cast<int>(label.size()) - static_cast<int>(before);
      ASSERT_EQ(one.vector->heap_size, one.expected.bytes);
    } else {
      const auto which = static_cast<std::size_t>(below(static_cast<int>(live.size())));
      model.free(live[which].expected);
      ksvector2_free_vector(live[which].vector);
      live.erase(live.begin() + static_cast<std::ptrdiff_t>(which));
    }
  }
  EXPECT_EQ(out.text(), model.text);
  for (const Live &each : live) ksvector2_free_vector(each.vector);
}

}  // namespace
