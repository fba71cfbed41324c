/* What the readers of vectors have in common. */
#ifndef KSUTIL_TESTS_FUZZ_VECTOR_SUBJECT_H
#define KSUTIL_TESTS_FUZZ_VECTOR_SUBJECT_H

#include <vector>

#include "objects/ksvector.h"
#include "tests/fuzz/subject.h"

namespace ksutil::fuzz {

/* Uses and frees a vector that was read; "" when none was. */
inline void use_vector(const char *tag) {
  const KSVector *const vector = *tag == '\0' ? nullptr : ksvector_get_vector(tag);
  if (vector == nullptr) return;
  require(vector->npts <= vector->nalloc, "points have slots");
  std::vector<double> y(static_cast<std::size_t>(vector->ny));
  ksvector_eval(tag, y.data(), 1.0);
  double xmin = 0, xmax = 0, ymin = 0, ymax = 0;
  ksvector_maxmin(tag, -1, &xmin, &xmax, &ymin, &ymax);
  ksvector_free(tag);
}

}  // namespace ksutil::fuzz
#endif
