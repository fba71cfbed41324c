/* Columns: reads the values of one line of fixed columns, and notes the first fault.
 *
 * Columns are counted from 1, as the descriptions of the formats count them.  A line that
 * ends before a column has a blank there.  A blank value leaves the variable as it is. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_COLUMNS_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_COLUMNS_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace ksutil::exchange {

/* A text for the records: valid UTF-8 stays, other bytes count as Latin-1, and control
 * characters become blanks.  Blanks at both ends go. */
std::string record_text(std::string_view text);

/* "name is 'text'": what a message says about a value.  At most 60 bytes of it are shown,
 * control characters as question marks. */
std::string fault_text(const char *name, std::string_view text);

/* The words of a line, between blanks; `most` bounds their number. */
std::vector<std::string_view> words_of(std::string_view line, std::size_t most = 64);

/* Reads a finite number in [low, high]; false, with `problem` set, for any other text. */
bool read_real(std::string_view text, const char *name, double low, double high,
               double &value, std::string &problem);

/* The bounds of a value, both allowed. */
struct Range {
  double low = -std::numeric_limits<double>::max();
  double high = std::numeric_limits<double>::max();
};
inline constexpr Range kAnyReal{};
inline constexpr Range kNotNegative{0.0, std::numeric_limits<double>::max()};
inline constexpr Range kLatitudeRange{-90.0, 90.0};
inline constexpr Range kLongitudeRange{-180.0, 360.0};
inline constexpr Range kDepthRange{-100.0, 6371.0};  // km
inline constexpr Range kDistanceRange{0.0, 180.0};   // degrees
inline constexpr Range kAzimuthRange{0.0, 360.0};    // degrees
inline constexpr Range kMagnitudeRange{-10.0, 12.0};

/* Longitudes beyond 180 degrees are west. */
inline double wrapped_longitude(double lon) { return lon > 180.0 ? lon - 360.0 : lon; }

class Columns {
 public:
  explicit Columns(std::string_view line) : line_(line) {}

  /* The characters without blanks at both ends. */
  std::string_view text(std::size_t first, std::size_t last) const;
  char at(std::size_t column) const {
    return column <= line_.size() ? line_[column - 1] : ' ';
  }
  bool blank(std::size_t first, std::size_t last) const {
    return text(first, last).empty();
  }

  void real(std::size_t first, std::size_t last, const char *name, const Range &range,
            double &value);
  /* A number without decimals, 0 or more. */
  void count(std::size_t first, std::size_t last, const char *name,
             std::int64_t &value);
  /* A value that must be there. */
  void needed(std::size_t first, std::size_t last, const char *name);
  void fault(const char *name, std::string_view text);

  bool good() const { return problem_.empty(); }
  /* The first fault. */
  const std::string &problem() const { return problem_; }

 private:
  std::string_view line_;
  std::string problem_;
};

}  // namespace ksutil::exchange
#endif
