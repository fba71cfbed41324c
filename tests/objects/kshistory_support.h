/* Histories for tests. */
#ifndef KSUTIL_TESTS_OBJECTS_KSHISTORY_SUPPORT_H
#define KSUTIL_TESTS_OBJECTS_KSHISTORY_SUPPORT_H

#include <string>
#include <utility>
#include <vector>

#include "objects/kshistory.h"
#include "tests/platform/trace/list_files.h"

namespace ksutil::test {

using Points = std::vector<std::pair<double, double>>;

/* A history, freed at the end of its scope. */
class History {
 public:
  explicit History(int maxn, const char *file = nullptr)
      : record_(kshistory_create(maxn, "test", file, tag_)) {}
  ~History() {
    if (record_ != nullptr) kshistory_free(tag_);
  }
  History(const History &) = delete;
  History &operator=(const History &) = delete;

  bool made() const { return record_ != nullptr; }
  const char *tag() const { return tag_; }
  bool add(double time, double value) const {
    return kshistory_add(tag_, time, value) == 0;
  }
  Points points() const {
    int n = -1;
    double *times = nullptr, *values = nullptr;
    if (kshistory_get_points(tag_, &n, &times, &values) != 0) return {{-1, -1}};
    Points found;
    for (int i = 0; i < n; ++i) found.emplace_back(times[i], values[i]);
    std::free(times);
    std::free(values);
    return found;
  }

 private:
  char tag_[KS_TAG_SIZE] = "untouched";
  KSHistory *record_;
};

}  // namespace ksutil::test
#endif
