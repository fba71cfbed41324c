/* nearest_float: gives a double as a float. */
#ifndef KSUTIL_PLATFORM_STOCK_NEAREST_FLOAT_H
#define KSUTIL_PLATFORM_STOCK_NEAREST_FLOAT_H

#include <limits>

namespace ksutil {

/* The float nearest to a number; infinity beyond half a step from the greatest float, NaN for
 * NaN.  Defined for each double, since floats of IEC 559 end with infinity. */
inline float nearest_float(double value) {
  static_assert(std::numeric_limits<float>::is_iec559);
  return static_cast<float>(value);
}

}  // namespace ksutil
#endif
