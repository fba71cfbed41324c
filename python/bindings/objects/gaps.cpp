#include "bindings/objects/gaps.h"

#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include <ksutil/platform/trace/trace.h>

#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/locks.h"

namespace ksutil::python {
namespace {

template <class Value>
py::object masked_gaps(const py::array_t<Value> &samples) {
  const auto n = static_cast<std::size_t>(samples.size());
  std::vector<std::uint8_t> mask(n);
  bool any = false;
  const Value *const data = samples.data();
  released([&] {
    for (std::size_t i = 0; i < n; ++i) {
      const bool gap = is_gap(static_cast<double>(data[i]));
      mask[i] = gap ? 1 : 0;
      any = any || gap;
    }
  });
  return masked_array(samples, std::move(mask), any);
}

}  // namespace

bool is_gap(double sample) { return is_gap_sample(sample) || !std::isfinite(sample); }

py::object without_gaps(const py::array_t<double> &samples) {
  return masked_gaps(samples);
}
py::object without_gaps(const py::array_t<float> &samples) {
  return masked_gaps(samples);
}

}  // namespace ksutil::python
