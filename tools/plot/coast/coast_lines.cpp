#include "tools/plot/coast/coast_lines.h"

namespace ksutil::embedded {
extern const char coast_110m[];
extern const char coast_50m[];
}  // namespace ksutil::embedded

namespace ksutil::plot {
namespace {

/* The form of the texts is described in make_coast, which writes them. */
class CoastText {
 public:
  explicit CoastText(const char *text) : at_(text) {}

  bool next(GeoLine &line) {
    if (*at_ == '\0') return false;
    line.border = *at_++ == 'b';
    line.points.clear();
    int lon = 0, lat = 0;
    while (*at_ != '\n' && *at_ != '\0') {
      lon += number();
      lat += number();
      line.points.push_back(
          {static_cast<float>(lon) / kUnits, static_cast<float>(lat) / kUnits});
    }
    if (*at_ == '\n') at_++;
    return true;
  }

 private:
  static constexpr float kUnits = 100.0F;  // of a degree

  int number() {
    unsigned value = 0;
    for (unsigned shift = 0; *at_ >= 63 && shift < 32; shift += 5) {
      const auto group = static_cast<unsigned>(*at_++ - 63);
      value |= (group & 31U) << shift;
      if (group < 32U) break;
    }
    const auto half = static_cast<int>(value >> 1U);
    return (value & 1U) != 0 ? -half - 1 : half;
  }

  const char *at_;
};

std::vector<GeoLine> lines_of(const char *text) {
  std::vector<GeoLine> lines;
  CoastText coast(text);
  for (GeoLine line; coast.next(line);) lines.push_back(line);
  return lines;
}

}  // namespace

const std::vector<GeoLine> &coast_lines(bool fine) {
  if (fine) {
    static const std::vector<GeoLine> lines = lines_of(embedded::coast_50m);
    return lines;
  }
  static const std::vector<GeoLine> lines = lines_of(embedded::coast_110m);
  return lines;
}

}  // namespace ksutil::plot
