/* quakeml_writer_values: gives values of records as the texts of elements; "" for nulls. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_QUAKEML_WRITER_VALUES_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_QUAKEML_WRITER_VALUES_H

#include <algorithm>
#include <string>

#include "formats/exchange/records.h"
#include "formats/exchange/text/value_text.h"

namespace ksutil::exchange::quakeml {

inline constexpr double kNone = -999.0;
inline constexpr double kMetres = 1000.0;  // in a kilometre
inline constexpr double kPercent = 100.0;

inline std::string real(double value, double null = kNone) {
  return value == null ? "" : number_text(value);
}

inline std::string positive(double value, double factor = 1.0) {
  return value < 0.0 ? "" : scaled_text(value, factor);
}

inline std::string count_text(std::int64_t count) {
  return count < 0 ? "" : std::to_string(count);
}

inline bool has_tensor(const MomentTensor &tensor) {
  return std::all_of(tensor.elements.begin(), tensor.elements.end(),
                     [](double element) { return element != kNone; });
}

inline bool has_centroid(const MomentTensor &tensor) {
  return tensor.time != kNoTime && is_writable_time(tensor.time) &&
         tensor.lat != kNone && tensor.lon != kNone;
}

/* Whether there is more than planes and axes: an element momentTensor. */
inline bool is_given(const MomentTensor &tensor) {
  return has_tensor(tensor) || tensor.moment != kNone || has_centroid(tensor);
}

/* The identifier of a focalMechanism; `id` is that of its tensor, if it has one. */
inline std::string mechanism_id(const MomentTensor &tensor, const std::string &id) {
  return is_given(tensor) ? id + "/mechanism" : id;
}

}  // namespace ksutil::exchange::quakeml
#endif
