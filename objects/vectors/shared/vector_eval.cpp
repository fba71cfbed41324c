#include "objects/vectors/shared/internal/vector_eval.h"

namespace ksutil::vectors {

double gap_value() {
  /* A constant: the two families may be used on different threads. */
  static const float gap = [] {
    float value = 0.0F;
    trfill_gap(&value, 1);
    return value;
  }();
  return gap;
}

}  // namespace ksutil::vectors
