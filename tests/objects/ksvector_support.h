#ifndef KSUTIL_TESTS_OBJECTS_KSVECTOR_SUPPORT_H
#define KSUTIL_TESTS_OBJECTS_KSVECTOR_SUPPORT_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "core/register.h"
#include "objects/ksvector.h"
#include "platform/stock/memory.h"
#include "tests/support/folder.h"
#include "tests/support/register.h"

inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kInfinity = std::numeric_limits<double>::infinity();

using ksutil::test::taken_messages;
using ksutil::test::TempFolder;

/* A point in a test's own terms; no label is an empty one. */
struct TestPoint {
  double x;
  std::vector<double> y;
  std::string label = "";
  bool operator==(const TestPoint &) const = default;
};

/* A registered vector and its tag, freed at the end of the scope. */
class TestVector {
 public:
  TestVector() = default;
  TestVector(int ny, const std::vector<TestPoint> &points, const char *name = nullptr) {
    ksvector_create(static_cast<int>(points.size()), ny, name, tag);
    for (const TestPoint &point : points) {
      ksvector_append(tag, -1, point.y.data(), point.label.c_str(), point.x);
    }
  }
  TestVector(const std::vector<double> &samples, double time, double samprate) {
    ksvector_create_tsamp(static_cast<int>(samples.size()), samples.data(), nullptr,
                          tag, time, samprate);
  }
  ~TestVector() { ksvector_free(tag); }
  TestVector(const TestVector &) = delete;
  TestVector &operator=(const TestVector &) = delete;

  KSVector *operator->() const { return ksvector_get_vector(tag); }

  std::vector<TestPoint> points() const { return points_of(ksvector_get_vector(tag)); }

  static std::vector<TestPoint> points_of(const KSVector *vector) {
    std::vector<TestPoint> points;
    for (int i = 0; vector != nullptr && i < vector->npts; i++) {
      const KSVectorPoint &point = vector->points[i];
      points.push_back({point.x,
                        {point.y, point.y + vector->ny},
                        point.label == nullptr ? "" : point.label});
    }
    return points;
  }

  char tag[KS_TAG_SIZE] = "";
};

/* A file in memory, for tests that write thousands of them. */
class MemoryFile {
 public:
  MemoryFile() : fd_(memfd_create("ksutil", MFD_CLOEXEC)) {
    path_ = "/proc/self/fd/" + std::to_string(fd_);
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  const char *path() const { return path_.c_str(); }
  /* Gives the file another content. */
  const char *write(const std::string &bytes) const {
    const auto size = static_cast<ssize_t>(bytes.size());
    EXPECT_EQ(ftruncate(fd_, 0), 0);
    EXPECT_EQ(pwrite(fd_, bytes.data(), bytes.size(), 0), size);
    return path();
  }

 private:
  int fd_;
  std::string path_;
};

/* Calls `check` with each prefix of a text, and with the text after each of some changes. */
inline void for_each_damage(const std::string &text,
                            const std::function<void(const std::string &)> &check) {
  static const std::vector<std::string> pieces{
      std::string(1, '\0'),   "\n",   "#", "-",    "1e999", "nan",
      "99999999999999999999", "%s%n", " ", "\xff", "\r\n",  "\t,"};
  for (std::size_t size = 0; size <= text.size(); size++) check(text.substr(0, size));
  std::mt19937 random(3);
  for (std::size_t at = 0; at < text.size(); at++) {
    std::string changed = text;
    changed[at] = static_cast<char>(changed[at] ^ (1 << random() % 8));
    check(changed);
    changed = text;
    check(changed.insert(at, pieces[random() % pieces.size()]));
  }
}

#endif
