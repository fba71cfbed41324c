#include "objects/plot/internal/plot_labels.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <new>
#include <string>

#include "platform/elog/failure.h"
#include "platform/geo/geo.h"
#include "platform/stock/arr.h"
#include "platform/stock/memory.h"
#include "platform/stock/text.h"
#include "platform/stock/verbose.h"

namespace ksutil {
namespace {

constexpr double kLightness = 0.6;
constexpr double kSaturationBase = 0.3, kSaturationSpan = 0.7, kSaturation = 0.9;
constexpr double kWholeNumbers = 9007199254740992.0;  // above it there are no fractions
constexpr const char *kSymbols[] = {"point",  "cross",  "x",    "triangle",
                                    "square", "circle", "star", "diamond"};
constexpr int kSymbolCount = 8;

/* Where a value stands between the smallest (0) and the largest (1) of all rows. */
class Span {
 public:
  Span(const LabelValues *values, int n, double LabelValues::*member)
      : member_(member) {
    for (int i = 0; i < n; i++) {
      low_ = std::min(low_, values[i].*member);
      high_ = std::max(high_, values[i].*member);
    }
    range_ = high_ - low_;
    if (range_ == 0.0) range_ = 1.0;
  }
  /* `span` times (value - smallest) / range; exactly `span` for the largest, where the
   * quotient could end just beside it and a size or a saturation one turn away. */
  double scaled(double span, const LabelValues &row) const {
    const double above = row.*member_ - low_;
    return above == range_ ? span : span * above / range_;
  }

 private:
  double LabelValues::*member_;
  double low_ = std::numeric_limits<double>::infinity();
  double high_ = -std::numeric_limits<double>::infinity();
  double range_ = 1.0;
};

/* Above 360 only as many whole degrees are taken off as lead to 360 or less: 370 gives
 * 360, 370.5 gives 359.5. */
double folded(double hue) {
  if (hue > kWholeNumbers) return 360.0;
  if (hue > 360.0) hue -= std::ceil(hue - 360.0);
  if (hue < 0.0) hue += 360.0 * std::ceil(-hue / 360.0);
  if (hue < 0.0) hue += 360.0;  // the quotient was rounded to a whole number
  return hue;
}

unsigned channel(double value) {
  const double scaled = std::min(value * 65535.0, 65535.0);
  return scaled > 0.0 ? static_cast<unsigned>(scaled) : 0U;
}

std::string colour_text(double hue, double saturation) {
  double r = 0.0, g = 0.0, b = 0.0;
  hls2rgb(hue, kLightness, saturation, &r, &g, &b);
  return format_text("#%4.4x%4.4x%4.4x", channel(r), channel(g), channel(b));
}

class Labeller {
 public:
  Labeller(int flags, const LabelValues *values, int n, int fill, int maxsize,
           double hue_centre, double hue_range)
      : flags_(flags),
        fill_(fill != 0),
        size_span_(maxsize - 1.0),
        hue_centre_(hue_centre),
        hue_range_(hue_range),
        hue_(values, n, &LabelValues::hue),
        saturation_(values, n, &LabelValues::saturation),
        size_(values, n, &LabelValues::size) {}

  /* The label, and its colour for the line of verbosity. */
  std::string text(const LabelValues &row, std::string &hls) const {
    std::string label = "{";
    if ((flags_ & (kLabelHue | kLabelSaturation)) != 0) {
      const double hue = hue_of(row), saturation = saturation_of(row);
      const std::string colour = colour_text(hue, saturation);
      label += " o=" + colour;
      if (fill_) label += " f=" + colour;
      hls = format_text("hls=(%3.0f %.3f %.3f)", hue, kLightness, saturation);
    }
    if ((flags_ & kLabelSize) != 0) label += format_text(" sz=%d", size_of(row));
    if ((flags_ & kLabelSymbol) != 0) {
      const int index = static_cast<int>(row.symbol) % kSymbolCount;
      label += format_text(" sy=%s", kSymbols[std::max(index, 0)]);
    }
    return label + " }";
  }

 private:
  double hue_of(const LabelValues &row) const {
    if ((flags_ & kLabelHue) == 0) return hue_centre_;
    const double start = hue_centre_ - hue_range_ / 2.0;
    const double hue = start + hue_.scaled(hue_range_, row);
    return std::isfinite(hue) ? folded(hue) : hue_centre_;
  }

  double saturation_of(const LabelValues &row) const {
    if ((flags_ & kLabelSaturation) == 0) return kSaturation;
    const double saturation =
        kSaturationBase + saturation_.scaled(kSaturationSpan, row);
    if (!std::isfinite(saturation)) return kSaturation;
    if (saturation > 1.0) return saturation - 1.0;
    return saturation < 0.0 ? saturation + 1.0 : saturation;
  }

  int size_of(const LabelValues &row) const {
    const double size = 1.0 + size_.scaled(size_span_, row);
    return std::isfinite(size) ? static_cast<int>(size) : 1;
  }

  int flags_;
  bool fill_;
  double size_span_, hue_centre_, hue_range_;
  Span hue_, saturation_, size_;
};

}  // namespace

void set_labels(KSVector &vector, int flags, const LabelValues *values, int n, int fill,
                int maxsize, double hue_centre, double hue_range) {
  at_boundary("db2vector", [&] {
    const Labeller labeller(flags, values, n, fill, maxsize, hue_centre, hue_range);
    const bool verbose = verbose_exists() != 0;
    for (int i = 0; i < n; i++) {
      const LabelValues &row = values[i];
      std::string hls;
      const std::string label = labeller.text(row, hls);
      char *const copy = ks_strdup(label.c_str());
      if (copy == nullptr) fail_errno("db2vector", "strdup() error");
      std::free(vector.points[i].label);
      vector.points[i].label = copy;
      if (verbose) {
        std::fputs(format_text("%4.0f %8.3f %8.3f => %s  %s\n", row.hue, row.saturation,
                               row.size, label.c_str(), hls.c_str())
                       .c_str(),
                   stdout);
      }
    }
  });
}

int symbolize(const char *name) {
  static Arr *registry = nullptr;
  static int next = 0;
  if (registry == nullptr) registry = newarr(nullptr);
  /* The index is stored plus 1, so that the first is not null.  The stored number is
   * returned as it is: after its first use a name has the next index. */
  if (void *const stored = getarr(registry, name); stored != nullptr) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(stored));
  }
  const int index = next;
  setarr(registry, name,
         reinterpret_cast<void *>(static_cast<std::intptr_t>(index + 1)));
  if (containsarr(registry, name) == 0) {
    /* The name is not known yet: its next sighting is the first. */
    errno = ENOMEM;
    fail_errno("db2vector", registry == nullptr ? "newarr() error" : "setarr() error");
    return index;
  }
  next = (next + 1) % kSymbolCount;
  return index;
}

}  // namespace ksutil
