/* nearest_sample: gives a number of a file as a sample. */
#ifndef KSUTIL_PLATFORM_TRACE_INTERNAL_NEAREST_SAMPLE_H
#define KSUTIL_PLATFORM_TRACE_INTERNAL_NEAREST_SAMPLE_H

#include <type_traits>

#include "platform/stock/nearest_float.h"

namespace ksutil {

/* The sample nearest to a number: infinity for what lies beyond the range of Sample. */
template <class Sample, class Number>
Sample nearest_sample(Number value) {
  if constexpr (std::is_same_v<Sample, float> && std::is_same_v<Number, double>) {
    return nearest_float(value);
  } else {
    return static_cast<Sample>(value);
  }
}

}  // namespace ksutil
#endif
