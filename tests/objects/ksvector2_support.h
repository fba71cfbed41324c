/* What the tests of ksvector2 share. */
#ifndef KSUTIL_TESTS_OBJECTS_KSVECTOR2_SUPPORT_H
#define KSUTIL_TESTS_OBJECTS_KSVECTOR2_SUPPORT_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "objects/ksvector2.h"
#include "objects/vectors/cached/internal/vector2.h"
#include "platform/elog/elog.h"
#include "tests/support/register.h"

struct FreeVector2 {
  void operator()(ksvector2 *vector) const { ksvector2_free_vector(vector); }
};
using OwnedVector = std::unique_ptr<ksvector2, FreeVector2>;

/* What is printed within a scope, until it is asked for; that also ends verbosity. */
class StdoutCapture {
 public:
  StdoutCapture() { testing::internal::CaptureStdout(); }
  ~StdoutCapture() { text(); }
  StdoutCapture(const StdoutCapture &) = delete;
  StdoutCapture &operator=(const StdoutCapture &) = delete;
  const std::string &text() const {
    if (!taken_) text_ = testing::internal::GetCapturedStdout();
    taken_ = true;
    ksvector2_set_verbose(0);
    return text_;
  }

 private:
  mutable bool taken_ = false;
  mutable std::string text_;
};

using ksutil::test::taken_messages;

/* Begins with an empty cache of limit 0, an empty register and no vectors. */
class Ksvector2Test : public testing::Test {
 protected:
  void SetUp() override {
    forget_vectors();
    elog_clear_register(0);
  }
  /* Vectors stay: members of the test may still own them. */
  void TearDown() override { ksvector2_set_verbose(0); }

 private:
  static void forget_vectors() {
    for (ksvector2 *each : ksutil::vector2::Vectors2::records()) {
      ksvector2_free_vector(each);
    }
    ksvector2_set_cache(0);
    for (int ny = 1; ny < 8; ++ny) drain(ny, 0);
    drain(1, 1);
  }

  /* Takes records of a kind out of the cache until one has to be made. */
  static void drain(int ny, int tsamp) {
    for (long before = -1, now = 0; before != now;) {
      ksvector2_get_counters(&before, nullptr, nullptr, nullptr);
      ksvector2_free_vector(ksvector2_find_space(0, ny, tsamp));
      ksvector2_get_counters(&now, nullptr, nullptr, nullptr);
      if (now != before) break;
      before = -1;
    }
  }
};

#endif
