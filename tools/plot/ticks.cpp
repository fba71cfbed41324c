#include "tools/plot/ticks.h"

#include <algorithm>
#include <cmath>

#include "platform/stock/text.h"
#include "tools/plot/canvas.h"

namespace ksutil::plot {
namespace {

/* 10^exponent in typographic form. */
std::string power_of_ten(int exponent) {
  static constexpr const char *kDigits[] = {"⁰", "¹", "²", "³", "⁴",
                                            "⁵", "⁶", "⁷", "⁸", "⁹"};
  std::string text = "10";
  for (const char c : std::to_string(exponent)) {
    text += c == '-' ? "⁻" : kDigits[c - '0'];
  }
  return text;
}

/* The nearest step of 1, 2 or 5 times a power of ten that gives at most `count` ticks. */
double nice_step(double range, double count) {
  const double rough = range / std::max(count, 1.0);
  const double power = std::pow(10.0, std::floor(std::log10(rough)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= rough * (1.0 - 1e-9)) return factor * power;
  }
  return 10.0 * power;
}

std::string with_decimals(double value, int decimals) {
  std::string text = format_text("%.*f", decimals, value);
  if (text.front() == '-' && text.find_first_of("123456789") == std::string::npos) {
    text.erase(0, 1);
  }
  if (text.front() == '-') text.replace(0, 1, "−");
  return text;
}

int decimals_of(double step) {
  const double digits = -std::floor(std::log10(step) + 1e-9);
  return static_cast<int>(std::clamp(digits, 0.0, 17.0));
}

/* Calls `use` with each multiple of step within the range. */
template <class Use>
void each_multiple(double low, double high, double step, Use use) {
  const double slack = 1e-9 * step;
  const double first = std::ceil((low - slack) / step);
  /* Counted, because adding a step that is lost in rounding would never reach the end. */
  for (int i = 0; i < 100; i++) {
    const double value = (first + i) * step;
    if (value > high + slack) return;
    use(std::clamp(value, low, high));
  }
}

std::string decade_label(int exponent, bool plain) {
  return plain ? with_decimals(std::pow(10.0, exponent), std::max(-exponent, 0))
               : power_of_ten(exponent);
}

/* The ticks; of an axis of whole numbers without those between. */
Ticks whole_only(const Axis &axis, Ticks ticks) {
  if (axis.whole) {
    std::erase_if(ticks.ticks, [](const Tick &tick) {
      return std::abs(tick.value - std::round(tick.value)) > 1e-6;
    });
  }
  return ticks;
}

}  // namespace

Ticks linear_ticks(double low, double high, int count) {
  Ticks result;
  double step = nice_step(high - low, count);
  /* One label tells no scale. */
  for (double more = count; std::floor(high / step) - std::ceil(low / step) < 1.0;) {
    step = nice_step(high - low, more *= 1.3);
  }
  const double size = std::max(std::abs(low), std::abs(high));
  double unit = 1.0;
  if (size >= 1e5 || size < 1e-3) {
    const int exponent = 3 * static_cast<int>(std::floor(std::log10(size) / 3.0));
    unit = std::pow(10.0, exponent);
    result.factor = "×" + power_of_ten(exponent);
  }
  const int decimals = decimals_of(step / unit);
  each_multiple(low, high, step, [&](double value) {
    result.ticks.push_back({value, with_decimals(value / unit, decimals), ""});
  });
  return result;
}

Ticks log_ticks(double low, double high, int count) {
  const int first = static_cast<int>(std::ceil(std::log10(low) - 1e-9));
  const int last = static_cast<int>(std::floor(std::log10(high) + 1e-9));
  const double decades = std::log10(high / low);
  if (last < first || decades < 0.7) return linear_ticks(low, high, count);
  const int stride = std::max(1, (last - first + count) / std::max(count, 1));
  const bool plain = first >= -3 && last <= 4;
  const bool halves = plain && stride == 1 && decades < 2.0;
  Ticks result;
  for (int exponent = first - 1; exponent <= last; exponent++) {
    const double power = std::pow(10.0, exponent);
    const bool labelled = (exponent - first) % stride == 0;
    for (int digit = 1; digit < 10; digit++) {
      const double value = digit * power;
      if (value < low * (1.0 - 1e-9) || value > high * (1.0 + 1e-9)) continue;
      if (digit == 1) {
        result.ticks.push_back(
            {value, labelled ? decade_label(exponent, plain) : "", ""});
      } else if (stride == 1) {
        const bool shown = halves && (digit == 2 || digit == 5);
        result.ticks.push_back(
            {value, shown ? with_decimals(value, std::max(-exponent, 0)) : "", ""});
      }
    }
  }
  return result;
}

Ticks degree_ticks(double low, double high, int count, TickForm form) {
  Ticks result;
  const double range = high - low;
  double step = nice_step(range, count);
  for (const double nice : {10.0, 15.0, 30.0, 45.0, 60.0, 90.0}) {
    if (range > 45.0 && range / nice <= count) {
      step = nice;
      break;
    }
  }
  const int decimals = decimals_of(step);
  each_multiple(low, high, step, [&](double value) {
    const bool longitude = form == TickForm::kLongitude;
    const double shown = longitude ? std::remainder(value, 360.0) : value;
    std::string text = with_decimals(std::abs(shown), decimals) + "°";
    const bool pole = longitude && std::abs(shown) == 180.0;
    if (std::abs(shown) > 1e-9 && !pole) {
      text += longitude ? (shown > 0.0 ? "E" : "W") : (shown > 0.0 ? "N" : "S");
    }
    result.ticks.push_back({value, std::move(text), ""});
  });
  return result;
}

Ticks axis_ticks(const Axis &axis, double low, double high, int count) {
  if (!axis.names.empty()) {
    Ticks named;
    for (const NamedTick &each : axis.names) {
      if (each.value >= low && each.value <= high) {
        named.ticks.push_back({each.value, printable(each.text), ""});
      }
    }
    return named;
  }
  if (axis.scale == Scale::kLog) return whole_only(axis, log_ticks(low, high, count));
  if (axis.scale == Scale::kTime) return time_ticks(low, high, count);
  if (axis.form != TickForm::kNumber) return degree_ticks(low, high, count, axis.form);
  if (axis.whole) count = static_cast<int>(std::clamp(high - low, 1.0, count * 1.0));
  return whole_only(axis, linear_ticks(low, high, count));
}

std::string short_number(double value, double range) {
  const double size = std::max(std::abs(value), std::abs(range));
  if (size != 0.0 && (size >= 1e6 || size < 1e-3)) return format_text("%.3g", value);
  if (range <= 0.0) return format_text("%.6g", value);
  return with_decimals(value, decimals_of(nice_step(range, 20)));
}

}  // namespace ksutil::plot
