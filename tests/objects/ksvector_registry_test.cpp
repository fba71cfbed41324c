/* Every operation finds its record through the registry: a wrong entry frees a record that
 * somebody else plots, and a wrong count hides a leak from those who watch the memory. */
#include <gtest/gtest.h>

#include <cstring>

#include "objects/family/shared/tag_registry.h"
#include "tests/objects/ksvector_support.h"

namespace {

int number_of(const char *tag) { return std::atoi(tag + std::strlen("vect")); }

/* Bytes by the published formula. */
std::int64_t recount(const KSVector &vector) {
  std::size_t bytes = sizeof(KSVector);
  if (vector.name != nullptr) bytes += std::strlen(vector.name) + 1;
  const auto slots = static_cast<std::size_t>(vector.nalloc);
  const auto ny = static_cast<std::size_t>(vector.ny);
  bytes += slots * (vector.points != nullptr ? sizeof(KSVectorPoint) + ny * 8 : 8);
  return static_cast<std::int64_t>(bytes);
}

TEST(TagRegistry, NumbersFromZeroAndNeverReusesANumber) {
  static ksutil::TagRegistry<int> registry("word");
  int first = 1, second = 2;
  char tag[KS_TAG_SIZE];
  ASSERT_TRUE(registry.open());
  ASSERT_TRUE(registry.add(&first, tag));
  EXPECT_STREQ(tag, "word0");
  registry.remove(&first);
  EXPECT_EQ(registry.find("word0"), nullptr);
  ASSERT_TRUE(registry.add(&second, tag));
  EXPECT_STREQ(tag, "word1");
  registry.remove(&second);
}

TEST(KSVectorRegistry, OnlyRegisteredVectorsTakeANumber) {
  const TestVector before(1, {});
  KSVector *const unregistered = ksvector_create(3, 1, "loose", nullptr);
  ASSERT_NE(unregistered, nullptr);
  const TestVector after(1, {});
  EXPECT_EQ(number_of(after.tag), number_of(before.tag) + 1);
  EXPECT_EQ(ksvector_free_vector(unregistered), 0);
}

TEST(KSVectorRegistry, RefusesWhatIsNoVector) {
  const TestVector vector(1, {{1.0, {2.0}}});
  ks_clear_register(0);
  EXPECT_EQ(ksvector_get_vector("vect"), nullptr);
  EXPECT_EQ(taken_messages(), "ksvector_get_vector: Cannot find vect");
  EXPECT_EQ(ksvector_get_vector(nullptr), nullptr);
  EXPECT_EQ(taken_messages(), "ksvector_get_vector: Cannot find ");
  EXPECT_EQ(ksvector_resize(""), -1);
  EXPECT_EQ(taken_messages(),
            "ksvector_get_vector: Cannot find \n"
            "ksvector_resize: ksvector_get_vector() error.\n");
  KSVector *const record = ksvector_get_vector(vector.tag);
  record->ident[0] = 'X';
  EXPECT_EQ(ksvector_get_vector(vector.tag), nullptr);
  EXPECT_EQ(taken_messages(),
            std::string("ksvector_get_vector: Wrong ident for ") + vector.tag);
  record->ident[0] = 'k';
}

TEST(KSVectorRegistry, FreeingLeavesTheMessagesOfOthers) {
  char tag[KS_TAG_SIZE];
  KSVector *const record = ksvector_create(0, 1, nullptr, tag);
  ks_clear_register(0);
  ks_register_error(0, "mine\n");
  EXPECT_EQ(ksvector_free("nosuch"), 0);
  EXPECT_EQ(ksvector_free_vector(record), 0);
  EXPECT_EQ(ksvector_free(tag), 0);
  EXPECT_EQ(ksvector_free_vector(nullptr), 0);
  EXPECT_EQ(taken_messages(), "mine\n");
}

TEST(KSVectorRegistry, CountsAndFreesByName) {
  const TestVector kept(2, {}, "kept"), nameless(1, {});
  char tag[KS_TAG_SIZE];
  for (int i = 0; i < 3; i++) ksvector_create(0, 1, "group", tag);
  int count = -1;
  long bytes = -1, all = -1;
  EXPECT_EQ(ksvector_get_heap_size("group", kept.tag, &count, &bytes), 0);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(bytes, 3 * recount(*ksvector_get_vector(tag)));
  EXPECT_EQ(ksvector_get_heap_size(nullptr, nullptr, &count, &all), 0);
  EXPECT_EQ(count, 5);
  EXPECT_EQ(all, bytes + recount(*ksvector_get_vector(kept.tag)) +
                     recount(*ksvector_get_vector(nameless.tag)));
  EXPECT_EQ(ksvector_free_tag(nullptr), 0);
  EXPECT_EQ(ksvector_free_tag("group"), 0);
  EXPECT_EQ(ksvector_get_heap_size("group", nullptr, &count, &bytes), 0);
  EXPECT_EQ(std::pair(count, bytes), std::pair(0, 0L));
  EXPECT_EQ(ksvector_get_heap_size(nullptr, kept.tag, &count, &bytes), 0);
  EXPECT_EQ(std::pair(count, bytes),
            std::pair(1, static_cast<long>(recount(*kept.operator->()))));
  ks_clear_register(0);
  EXPECT_EQ(ksvector_get_heap_size(nullptr, tag, &count, &bytes), -1);
  EXPECT_EQ(std::pair(count, bytes), std::pair(0, 0L));
  EXPECT_NE(
      taken_messages().find("\nksvector_get_heap_size: ksvector_get_vector() error.\n"),
      std::string::npos);
  ks_test_fail_alloc(1);
  EXPECT_EQ(ksvector_get_heap_size(nullptr, nullptr, &count, &bytes), -1);
  ks_test_fail_alloc(0);
  EXPECT_EQ(taken_messages(),
            "ksvector_get_heap_size: malloc() error.\nCannot allocate memory\n");
}

/* The name may be that of the first vector to go. */
TEST(KSVectorRegistry, FreesAGroupByTheNameOfOneOfIt) {
  char tag[KS_TAG_SIZE];
  const KSVector *const first = ksvector_create(0, 1, "a group of three", tag);
  for (int i = 0; i < 2; i++) ksvector_create(0, 1, "a group of three", tag);
  EXPECT_EQ(ksvector_free_tag(first->name), 0);
  int count = -1;
  long bytes = -1;
  EXPECT_EQ(ksvector_get_heap_size("a group of three", nullptr, &count, &bytes), 0);
  EXPECT_EQ(count, 0);
}

TEST(KSVectorCreate, AllocatesAFifthMoreThanHinted) {
  for (const auto &[hint, nalloc] : {std::pair(-3, 100), {0, 100}, {1, 1}, {9, 10}}) {
    char tag[KS_TAG_SIZE];
    const KSVector *const vector = ksvector_create(hint, 3, "a", tag);
    EXPECT_EQ(vector->nalloc, nalloc);
    EXPECT_EQ(vector->heap_size, recount(*vector));
    EXPECT_EQ(vector->points[nalloc - 1].y[2], 0.0);
    ksvector_free(tag);
  }
  const double samples[] = {1.5, 2.5};
  char tag[KS_TAG_SIZE];
  const KSVector *series = ksvector_create_tsamp(0, samples, nullptr, tag, 0.0, 4.0);
  EXPECT_EQ(std::pair(series->nalloc, series->npts), std::pair(1000, 0));
  EXPECT_EQ(series->heap_size, recount(*series));
  ksvector_free(tag);
}

TEST(KSVectorCreate, RefusesWhatCannotBe) {
  char tag[KS_TAG_SIZE] = "old";
  const double sample = 0.0;
  EXPECT_EQ(ksvector_create(5, 0, nullptr, tag), nullptr);
  EXPECT_STREQ(tag, "");
  EXPECT_EQ(ksvector_create(std::numeric_limits<int>::max(), 1, nullptr, tag), nullptr);
  for (const double rate : {0.0, -1.0, kNaN, kInfinity}) {
    ks_clear_register(0);
    EXPECT_EQ(ksvector_create_tsamp(1, &sample, nullptr, tag, 0.0, rate), nullptr);
    EXPECT_EQ(taken_messages(),
              "ksvector_create_tsamp: Sample rate must be positive.\n");
  }
  EXPECT_EQ(ksvector_create_tsamp(1, nullptr, nullptr, tag, 0.0, 1.0), nullptr);
  EXPECT_EQ(taken_messages(), "ksvector_create_tsamp: No samples.\n");
}

/* Each allocation of a creation fails once: nothing may leak, be registered or be counted
 * as given away. */
TEST(KSVectorCreate, GivesUpCleanlyWhenMemoryIsShort) {
  const TestVector before(1, {});
  int refused = 0;
  for (bool made = false; !made;) {
    char tag[KS_TAG_SIZE] = "old";
    ks_test_fail_alloc(++refused);
    made = ksvector_create(4, 2, "name", tag) != nullptr;
    ks_test_fail_alloc(0);
    ks_clear_register(0);
    if (made) {
      EXPECT_EQ(number_of(tag), number_of(before.tag) + 1);
      ksvector_free(tag);
    } else {
      EXPECT_STREQ(tag, "");
    }
    int count = 0;
    long bytes = 0;
    ksvector_get_heap_size(nullptr, nullptr, &count, &bytes);
    EXPECT_EQ(count, 1);
  }
  EXPECT_GT(refused, 4);
}

TEST(KSVectorCopy, CopiesPointsColumnsAndSeries) {
  const TestVector vector(3, {{1.0, {1.0, 2.0, 3.0}, "a"}, {0.5, {4.0, 5.0, 6.0}}});
  TestVector copy, column, series_copy;
  const KSVector *record = ksvector_copy(vector.tag, "copy", copy.tag);
  ASSERT_NE(record, nullptr);
  EXPECT_STREQ(record->name, "copy");
  EXPECT_EQ(copy.points(), vector.points());
  EXPECT_NE(record->points[0].label, vector->points[0].label);
  ASSERT_NE(ksvector_copy_1y(vector.tag, 1, nullptr, column.tag), nullptr);
  EXPECT_EQ(column.points(), (std::vector<TestPoint>{{1.0, {2.0}, "a"}, {0.5, {5.0}}}));
  EXPECT_EQ(column->heap_size, recount(*column.operator->()));
  ks_clear_register(0);
  TestVector none;
  EXPECT_EQ(ksvector_copy_1y(vector.tag, 3, nullptr, none.tag), nullptr);
  EXPECT_EQ(taken_messages(), "ksvector_copy_1y: Illegal yindex value.\n");

  /* 1 / (1 / 0.0x31) is not 0x31 for some intervals: the copy must not go that way. */
  const TestVector series({5.0, 1e31, 7.0}, 100.0, 49.0);
  ASSERT_NE(ksvector_copy(series.tag, nullptr, series_copy.tag), nullptr);
  EXPECT_EQ(series_copy->dt, series->dt);
  EXPECT_EQ(series_copy->time, 100.0);
  EXPECT_EQ(series_copy->npts, 3);
  EXPECT_EQ(series_copy->data[1], 1e31);
  EXPECT_EQ(series_copy->points, nullptr);
}

TEST(KSVectorCopy, MayWriteTheNewTagOverTheOld) {
  const TestVector vector(1, {{1.0, {2.0}}});
  TestVector copy;
  std::strcpy(copy.tag, vector.tag);
  ASSERT_NE(ksvector_copy(copy.tag, nullptr, copy.tag), nullptr);
  EXPECT_STRNE(copy.tag, vector.tag);
  EXPECT_EQ(copy.points(), vector.points());
}

}  // namespace
