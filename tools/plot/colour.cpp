#include "tools/plot/colour.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "platform/stock/text.h"

namespace ksutil::plot {
namespace {

Colour rgb(unsigned value) {
  return {((value >> 16) & 255U) / 255.0, ((value >> 8) & 255U) / 255.0,
          (value & 255U) / 255.0, 1.0};
}

ColourMap map_of(std::initializer_list<unsigned> values) {
  ColourMap map;
  for (const unsigned value : values) map.stops.push_back(rgb(value));
  return map;
}

int channel(double value) {
  return static_cast<int>(std::lround(std::clamp(value, 0.0, 1.0) * 255.0));
}

}  // namespace

Colour series_colour(std::size_t index) {
  static constexpr std::array<unsigned, 8> kSeries = {
      0x0072B2, 0xD55E00, 0x009E73, 0xCC79A7, 0xE69F00, 0x56B4E9, 0x555555, 0xB8A800};
  return rgb(kSeries[index % kSeries.size()]);
}

Colour with_opacity(const Colour &colour, double opacity) {
  return {colour.r, colour.g, colour.b, opacity};
}

Colour darker(const Colour &colour, double amount) {
  const double keep = 1.0 - amount;
  return {colour.r * keep, colour.g * keep, colour.b * keep, colour.a};
}

std::string hex_text(const Colour &colour) {
  return format_text("#%02x%02x%02x", channel(colour.r), channel(colour.g),
                     channel(colour.b));
}

bool parse_colour(std::string_view text, Colour &colour) {
  if (text.size() < 4 || text.front() != '#') return false;
  text.remove_prefix(1);
  if (text.size() != 3 && text.size() != 6 && text.size() != 12) return false;
  const std::size_t digits = text.size() / 3;
  const double full = std::pow(16.0, static_cast<double>(digits)) - 1.0;
  std::array<double, 3> channels{};
  for (std::size_t i = 0; i < 3; i++) {
    unsigned value = 0;
    const char *const begin = text.data() + i * digits;
    const auto [end, error] = std::from_chars(begin, begin + digits, value, 16);
    if (error != std::errc() || end != begin + digits) return false;
    channels[i] = value / full;
  }
  colour = {channels[0], channels[1], channels[2], 1.0};
  return true;
}

Colour ColourMap::at(double fraction) const {
  const double last = static_cast<double>(stops.size() - 1);
  const double place = fraction > 0.0 ? std::min(fraction, 1.0) * last : 0.0;
  const double below = std::min(std::floor(place), last - 1.0);
  const double part = place - below;
  const Colour &from = stops[static_cast<std::size_t>(below)];
  const Colour &to = stops[static_cast<std::size_t>(below) + 1];
  const auto mix = [part](double u, double v) { return u + part * (v - u); };
  return {mix(from.r, to.r), mix(from.g, to.g), mix(from.b, to.b), mix(from.a, to.a)};
}

const ColourMap &sequential_map() {
  static const ColourMap map = map_of({0x440154, 0x472D7B, 0x3B528B, 0x2C728E, 0x21918C,
                                       0x28AE80, 0x5EC962, 0xADDC30, 0xFDE725});
  return map;
}

const ColourMap &diverging_map() {
  static const ColourMap map =
      map_of({0x053061, 0x2166AC, 0x4393C3, 0x92C5DE, 0xD1E5F0, 0xF7F7F7, 0xFDDBC7,
              0xF4A582, 0xD6604D, 0xB2182B, 0x67001F});
  return map;
}

}  // namespace ksutil::plot
