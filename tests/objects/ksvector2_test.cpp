/* A tag that finds a foreign or freed record, or a copy that shares memory with its
 * original, corrupts plots that have nothing to do with each other. */
#include "objects/ksvector2_support.h"

#include <gmock/gmock.h>

#include <cstring>

namespace {

using testing::HasSubstr;

class Ksvector2 : public Ksvector2Test {
 protected:
  /* A vector of two y values a point under `tag`. */
  ksvector2 *make_points(const char *name, int npts) {
    ksvector2 *const vector = ksvector2_create(npts, 2, name, tag);
    for (int i = 0; i < npts; ++i) {
      double *const values = ksutil::vector2::row(*vector, i);
      values[0] = i;
      values[1] = 10.0 * i;
      values[2] = -0.5 * i;
    }
    vector->npts = npts;
    return vector;
  }

  char tag[KS_TAG_SIZE] = "";
};

TEST_F(Ksvector2, OnlyRegisteredVectorsTakeANumber) {
  char next[KS_TAG_SIZE];
  const OwnedVector first(ksvector2_create(1, 1, nullptr, tag));
  const OwnedVector unseen(ksvector2_create(1, 1, nullptr, nullptr));
  const OwnedVector second(ksvector2_create(1, 1, nullptr, next));
  ASSERT_EQ(std::strncmp(tag, "2vect", 5), 0);
  EXPECT_EQ(std::atoi(next + 5), std::atoi(tag + 5) + 1);
  EXPECT_EQ(ksvector2_get_vector(tag), first.get());
}

TEST_F(Ksvector2, LooksUpOnlyItsOwn) {
  ksvector2 *const vector = make_points(nullptr, 1);
  EXPECT_EQ(ksvector2_get_vector("2vect"), nullptr);
  EXPECT_EQ(taken_messages(), "ksvector2_get_vector: Cannot find 2vect");
  EXPECT_EQ(ksvector2_get_vector(nullptr), nullptr);
  vector->ident[0] = 'X';
  EXPECT_EQ(ksvector2_get_vector(tag), nullptr);
  EXPECT_THAT(taken_messages(),
              HasSubstr(std::string("ksvector2_get_vector: Wrong ident for ") + tag));
  vector->ident[0] = 'k';
}

TEST_F(Ksvector2, FreeingAnUnknownTagKeepsTheRegister) {
  elog_log(0, "earlier\n");
  EXPECT_EQ(ksvector2_free("2vect"), 0);
  EXPECT_EQ(taken_messages(), "earlier\n");
}

TEST_F(Ksvector2, FreesAndCountsByName) {
  char kept[KS_TAG_SIZE], other[KS_TAG_SIZE];
  ksvector2_create(1, 1, "plot", tag);
  ksvector2_create(1, 1, "plot2", kept);
  ksvector2_create(200, 1, "plot", other);
  int count = -1;
  long bytes = -1;
  const long record = sizeof(ksvector2);
  EXPECT_EQ(ksvector2_get_heap_size("plot", nullptr, &count, &bytes), 0);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(bytes, 2 * record + 340 * 16);
  ksvector2_free_tag("plot");
  EXPECT_EQ(ksvector2_get_vector(tag), nullptr);
  EXPECT_EQ(ksvector2_get_vector(other), nullptr);
  EXPECT_EQ(ksvector2_get_heap_size(nullptr, kept, &count, &bytes), 0);
  EXPECT_EQ(bytes, record + 1600);
  EXPECT_EQ(ksvector2_get_heap_size(nullptr, nullptr, &count, &bytes), 0);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(ksvector2_get_heap_size(nullptr, tag, &count, &bytes), -1);
  EXPECT_EQ(count, 0);
  EXPECT_THAT(taken_messages(),
              HasSubstr("ksvector2_get_heap_size: ksvector2_get_vector() error.\n"));
}

TEST_F(Ksvector2, NamesAreCutTo63Characters) {
  const std::string name(100, 'n');
  const OwnedVector vector(ksvector2_create(1, 1, name.c_str(), nullptr));
  EXPECT_EQ(vector->name, name.substr(0, 63));
}

TEST_F(Ksvector2, CopiesPointsAndLabelsIntoItsOwnMemory) {
  ksvector2 *const vector = make_points("source", 130);
  ASSERT_TRUE(ksutil::vector2::set_label(*vector, 129, "last"));
  vector->labels[1] = ks_strdup("");
  char copied[KS_TAG_SIZE];
  ksvector2 *const copy = ksvector2_copy(tag, "copy", copied);
  ASSERT_NE(copy, nullptr);
  ksvector2_free(tag);
  EXPECT_EQ(copy->npts, 130);
  EXPECT_STREQ(copy->name, "copy");
  const double *const last = ksutil::vector2::row(*copy, 129);
  EXPECT_EQ(last[0], 129);
  EXPECT_EQ(last[2], -64.5);
  EXPECT_EQ(copy->labels[0], nullptr);
  EXPECT_STREQ(copy->labels[1], "");
  EXPECT_STREQ(copy->labels[129], "last");
  EXPECT_EQ(copy->heap_size, static_cast<int>(sizeof(ksvector2)) + copy->size + 4);
}

TEST_F(Ksvector2, CopiesSeries) {
  const double samples[] = {1, 1e31, -3};
  const OwnedVector series(ksvector2_create_tsamp(3, samples, nullptr, tag, 1.5e9, 40));
  const OwnedVector copy(ksvector2_copy(tag, nullptr, nullptr));
  EXPECT_EQ(copy->time, 1.5e9);
  EXPECT_EQ(copy->dt, 0.025);
  EXPECT_EQ(std::vector<double>(copy->data, copy->data + 3),
            std::vector<double>(samples, samples + 3));
  EXPECT_EQ(ksvector2_create_tsamp(3, samples, nullptr, tag, 0, 0), nullptr);
  EXPECT_THAT(taken_messages(),
              HasSubstr("ksvector2_create_tsamp: Sample rate must be positive.\n"));
}

/* Whichever allocation of a copy fails, nothing of it stays and its tag is empty. */
TEST_F(Ksvector2, AFailedCopyLeavesNothing) {
  ksvector2 *const vector = make_points(nullptr, 3);
  for (int i = 0; i < 3; ++i) ksutil::vector2::set_label(*vector, i, "label");
  int count = 0;
  long bytes = 0;
  for (long nth = 1; nth <= 6; ++nth) {
    char copied[KS_TAG_SIZE] = "stale";
    ks_test_fail_alloc(nth);
    EXPECT_EQ(ksvector2_copy(tag, nullptr, copied), nullptr) << nth;
    EXPECT_STREQ(copied, "");
    ksvector2_get_heap_size(nullptr, nullptr, &count, &bytes);
    EXPECT_EQ(count, 1) << nth;
  }
  ks_test_fail_alloc(0);
  EXPECT_THAT(taken_messages(),
              HasSubstr("ksvector2_copy: ksvector2_make_lblbuf() error.\n"));
}

TEST_F(Ksvector2, DumpsPointsInLinesOfLimitedLength) {
  make_points(nullptr, 3);
  char wide[KS_TAG_SIZE], series[KS_TAG_SIZE];
  ksvector2_create(1, 40, nullptr, wide)->npts = 1;
  const double sample = 1;
  ksvector2_create_tsamp(1, &sample, nullptr, series, 0, 1);
  const StdoutCapture out;
  EXPECT_EQ(ksvector2_dump(tag), 0);
  EXPECT_EQ(ksvector2_dump(wide), 0);
  EXPECT_EQ(ksvector2_dump(series), 0);
  std::string zeros = "0:";
  for (int i = 0; i < 21; ++i) zeros += " 0.000";
  EXPECT_EQ(out.text(),
            "0: 0.000 0.000 -0.000\n"
            "1: 1.000 10.000 -0.500\n"
            "2: 2.000 20.000 -1.000\n" +
                zeros + "\n");
  EXPECT_EQ(ksvector2_dump("2vect"), -1);
}

}  // namespace
