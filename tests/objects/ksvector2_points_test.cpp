/* Points share one array: a wrong stride or a lost label on growing or inserting shows as
 * values of one curve in another. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "objects/ksvector2_support.h"

namespace {

using ksutil::MallocPtr;
using testing::ElementsAre;
using testing::HasSubstr;

class Ksvector2Points : public Ksvector2Test {
 protected:
  void make(int ny) { vector.reset(ksvector2_create(0, ny, nullptr, tag)); }
  long labels_and_data() const {
    long bytes = sizeof(ksvector2) + vector->size;
    for (int i = 0; vector->labels != nullptr && i < vector->nalloc; ++i) {
      if (vector->labels[i] != nullptr)
        bytes += static_cast<long>(std::strlen(vector->labels[i]));
    }
    return bytes;
  }

  char tag[KS_TAG_SIZE] = "";
  OwnedVector vector;
};

struct Point {
  double x;
  std::vector<double> y;
  std::string label;
};

/* Random edits of the vector and of a list of points, compared at the end. */
TEST_F(Ksvector2Points, EditsLikeAListOfPoints) {
  make(2);
  std::vector<Point> model;
  std::mt19937 random(3);
  const auto below = [&random](int n) {
    return static_cast<int>(random() % static_cast<unsigned>(n));
  };
  for (int step = 0; step < 1500; ++step) {
    const int npts = static_cast<int>(model.size());
    const Point point{step * 0.5,
                      {step + 0.25, -1.0 * step},
                      below(3) == 0 ? "" : "label " + std::to_string(step)};
    const char *const label = point.label.c_str();
    if (npts == 0 || below(3) != 0) {
      const int index = below(npts + 4) - 2;
      ASSERT_EQ(ksvector2_append(tag, index, point.y.data(), label, point.x), 0);
      const bool inside = index >= 0 && index < npts;
      model.insert(inside ? model.begin() + index : model.end(), point);
    } else if (below(2) == 0) {
      const int index = below(npts);
      ASSERT_EQ(ksvector2_put(tag, index, point.y.data(), label, point.x), 0);
      model[static_cast<std::size_t>(index)] = point;
    } else {
      const int index = below(npts);
      ASSERT_EQ(ksvector2_puty(tag, index, point.y.data(), nullptr), 0);
      model[static_cast<std::size_t>(index)].y = point.y;
    }
  }
  EXPECT_EQ(vector->heap_size, labels_and_data());
  int npts = 0, iy = -1;
  double *x = nullptr;
  void *y = nullptr;
  char **labels = nullptr;
  ASSERT_EQ(ksvector2_get_points(tag, &npts, &iy, &x, &y, &labels), 0);
  auto **const columns = static_cast<double **>(y);
  ASSERT_EQ(npts, static_cast<int>(model.size()));
  EXPECT_EQ(iy, 2);
  for (int i = 0; i < npts; ++i) {
    const Point &point = model[static_cast<std::size_t>(i)];
    ASSERT_EQ(x[i], point.x) << i;
    ASSERT_THAT(point.y, ElementsAre(columns[0][i], columns[1][i])) << i;
    ASSERT_EQ(labels[i] == nullptr ? "" : labels[i], point.label) << i;
    std::free(labels[i]);
  }
  std::free(columns[0]);
  std::free(columns[1]);
  for (void *block : {static_cast<void *>(x), y, static_cast<void *>(labels)})
    std::free(block);
}

TEST_F(Ksvector2Points, GrowsByDoublingUntilOneIsFree) {
  make(1);
  vector->npts = 100;
  EXPECT_EQ(ksvector2_resize(tag), 0);
  EXPECT_EQ(vector->nalloc, 200);
  EXPECT_EQ(vector->data[399], 0);
  vector->npts = 199;
  EXPECT_EQ(ksvector2_resize(tag), 0);
  EXPECT_EQ(vector->nalloc, 200);
  vector->npts = 200;
  ks_test_fail_alloc(1);
  EXPECT_EQ(ksvector2_resize(tag), -1);
  EXPECT_EQ(vector->nalloc, 200);
  EXPECT_THAT(taken_messages(), HasSubstr("ksvector2_resize: realloc() error.\n"));
  vector->npts = 2147483647;
  EXPECT_EQ(ksvector2_resize(tag), -1);
  vector->npts = 0;
}

TEST_F(Ksvector2Points, YValuesThatComeIntoUseAreZero) {
  make(2);
  const double y[] = {5, 6};
  double x = 0, got[4] = {};
  for (int i = 0; i < 3; ++i) ksvector2_append(tag, -1, y, nullptr, i);
  EXPECT_EQ(ksvector2_resize_y(tag, 1), 0);
  EXPECT_EQ(vector->nyalloc, 2);
  EXPECT_EQ(ksvector2_resize_y(tag, 2), 0);
  ksvector2_get_point(tag, 2, &x, got, nullptr);
  EXPECT_THAT(got, ElementsAre(5, 0, 0, 0));
  EXPECT_EQ(ksvector2_resize_y(tag, 4), 0);
  EXPECT_EQ(vector->nyalloc, 4);
  ksvector2_get_point(tag, 2, &x, got, nullptr);
  EXPECT_EQ(x, 2);
  EXPECT_THAT(got, ElementsAre(5, 0, 0, 0));
  EXPECT_EQ(vector->heap_size, labels_and_data());
  EXPECT_EQ(ksvector2_resize_y(tag, 0), -1);
  EXPECT_EQ(ksvector2_resize_y(tag, 2147483647), -1);
}

TEST_F(Ksvector2Points, LabelsAreReplacedRemovedAndKept) {
  make(1);
  const double y = 1;
  char label[32] = "untouched";
  double x = 0, got = 0;
  ksvector2_append(tag, 0, &y, "a", 1);
  ksvector2_append(tag, 1, &y, nullptr, 2);
  ksvector2_get_point(tag, 1, &x, &got, label);
  EXPECT_STREQ(label, "untouched");
  ksvector2_puty(tag, 0, &y, nullptr);
  ksvector2_get_point(tag, 0, &x, &got, label);
  EXPECT_STREQ(label, "a");
  ksvector2_put(tag, 0, &y, "longer", 1);
  EXPECT_STREQ(vector->labels[0], "longer");
  ksvector2_puty(tag, 0, &y, "");
  EXPECT_EQ(vector->labels[0], nullptr);
  EXPECT_EQ(vector->heap_size, labels_and_data());
}

TEST_F(Ksvector2Points, RefusesWhatIsNotThere) {
  make(1);
  const double y = 1;
  double x = 0, got = 0;
  EXPECT_EQ(ksvector2_put(tag, 0, &y, nullptr, 0), -1);
  EXPECT_EQ(ksvector2_puty(tag, -1, &y, nullptr), -1);
  EXPECT_EQ(ksvector2_get_point(tag, 0, &x, &got, nullptr), -1);
  int npts = -7, iy = 1;
  double *all = nullptr;
  void *column = nullptr;
  EXPECT_EQ(ksvector2_get_points(tag, &npts, &iy, &all, &column, nullptr), -1);
  double time = 0, samprate = 0;
  EXPECT_EQ(ksvector2_get_tsamp(tag, &npts, &time, &samprate, &all), -1);
  EXPECT_EQ(npts, -7);
  EXPECT_EQ(taken_messages(),
            "ksvector2_put: Illegal ix value\n"
            "ksvector2_puty: Illegal ix value\n"
            "ksvector2_get_point: Illegal index value\n"
            "ksvector2_get_points: index out of range.\n"
            "ksvector2_get_tsamp: Not a time-sampled vector.\n");
}

/* A series has times instead of x values, and can be edited in its samples only. */
TEST_F(Ksvector2Points, Series) {
  const double samples[] = {1, 2, 3};
  vector.reset(ksvector2_create_tsamp(3, samples, nullptr, tag, 100, 4));
  const double y = -2;
  EXPECT_EQ(ksvector2_append(tag, 0, &y, nullptr, 0), -1);
  EXPECT_EQ(ksvector2_put(tag, 0, &y, nullptr, 0), -1);
  EXPECT_EQ(ksvector2_resize_y(tag, 2), -1);
  EXPECT_EQ(taken_messages(),
            "ksvector2_append: Cannot append to time sample vector\n"
            "ksvector2_put: Cannot put X(time) value for constant sampled data.\n"
            "ksvector2_resize_y: Cannot resize time sample data.\n");
  EXPECT_EQ(ksvector2_puty(tag, 1, &y, "ignored"), 0);
  int npts = 0, iy = 0;
  double *x = nullptr, time = 0, samprate = 0, *copy = nullptr;
  void *column = nullptr;
  char **labels = nullptr;
  ASSERT_EQ(ksvector2_get_points(tag, &npts, &iy, &x, &column, &labels), 0);
  const MallocPtr<double> owned_x(x), owned_y(static_cast<double *>(column));
  const MallocPtr<char *> owned_labels(labels);
  EXPECT_THAT(std::vector(x, x + npts), ElementsAre(100, 100.25, 100.5));
  EXPECT_EQ(labels[1], nullptr);
  ASSERT_EQ(ksvector2_get_tsamp(tag, &npts, &time, &samprate, &copy), 0);
  const MallocPtr<double> owned_copy(copy);
  EXPECT_THAT(std::vector(copy, copy + npts), ElementsAre(1, -2, 3));
  EXPECT_EQ(samprate, 4);
  vector->npts = 100;
  EXPECT_EQ(ksvector2_resize(tag), 0);
  EXPECT_EQ(vector->size, 200 * 8);
  EXPECT_EQ(vector->data[199], 0);
}

}  // namespace
