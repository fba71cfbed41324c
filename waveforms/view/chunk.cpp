#include "waveforms/view/internal/chunk.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "platform/trace/shared/waveform_samples.h"
#include "platform/trace/trace.h"

namespace ksutil::scv {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

bool is_gap(double value) { return !std::isfinite(value) || is_gap_sample(value); }

PackedExtremes packed_counts(std::int32_t min, std::int32_t max) { return {min, max}; }
PackedExtremes packed_floats(float min, float max) {
  return {std::bit_cast<std::int32_t>(min), std::bit_cast<std::int32_t>(max)};
}

/* The floats next to a double that are not above and not below it. */
float rounded_down(double value) {
  const auto nearest = static_cast<float>(value);
  return static_cast<double>(nearest) > value ? std::nextafter(nearest, -kInfinity)
                                              : nearest;
}
float rounded_up(double value) {
  const auto nearest = static_cast<float>(value);
  return static_cast<double>(nearest) < value ? std::nextafter(nearest, kInfinity)
                                              : nearest;
}

PackedExtremes packed(const std::vector<std::int32_t> &samples, std::size_t first,
                      std::size_t end) {
  std::int32_t min = samples[first], max = min;
  for (std::size_t i = first + 1; i < end; i++) {
    min = std::min(min, samples[i]);
    max = std::max(max, samples[i]);
  }
  return packed_counts(min, max);
}

template <class Real>
Extremes extremes_of_reals(const std::vector<Real> &samples, std::size_t first,
                           std::size_t end) {
  Extremes found;
  for (std::size_t i = first; i < end; i++) {
    const auto value = static_cast<double>(samples[i]);
    if (!is_gap(value)) found.add({value, value});
  }
  return found;
}

template <class Real>
PackedExtremes packed(const std::vector<Real> &samples, std::size_t first,
                      std::size_t end) {
  const Extremes found = extremes_of_reals(samples, first, end);
  if (found.empty()) return packed_floats(kInfinity, -kInfinity);
  return packed_floats(rounded_down(found.min), rounded_up(found.max));
}

template <class Sample>
void build(const std::vector<Sample> &samples, Levels &fine, Levels &coarse) {
  constexpr bool kCounts = std::is_same_v<Sample, std::int32_t>;
  const auto n = static_cast<std::int64_t>(samples.size());
  fine.reserve(level_begin(n, kFineShift, kCoarseShift));
  coarse.reserve(level_begin(n, kCoarseShift, kChunkShift + 1));
  constexpr std::size_t kBlock = std::size_t{1} << kFineShift;
  for (std::size_t i = 0; i < samples.size(); i += kBlock) {
    fine.push_back(packed(samples, i, std::min(i + kBlock, samples.size())));
  }
  Levels *from = &fine;
  std::size_t begin = 0;
  for (int level = kFineShift + 1; level <= kChunkShift; level++) {
    const std::size_t end = begin + blocks_of(n, level - 1);
    Levels *const to = level < kCoarseShift ? &fine : &coarse;
    const std::size_t next = to == from ? end : 0;
    for (std::size_t i = begin; i < end; i += 2) {
      const PackedExtremes left = (*from)[i];
      to->push_back(i + 1 < end ? merged(left, (*from)[i + 1], kCounts) : left);
    }
    from = to;
    begin = next;
  }
}

}  // namespace

bool is_counts(const WaveformSegment &row) {
  const std::string &type = row.datatype;
  return type == "s4" || type == "i4" || type == "s3" || type == "s2" || type == "i2";
}

std::size_t kept_size(const WaveformSegment &row) {
  const bool small = is_counts(row) || row.datatype == "t4" || row.datatype == "f4";
  return small ? sizeof(std::int32_t) : sizeof(double);
}

Extremes unpacked(PackedExtremes extremes, bool counts) {
  if (counts) {
    if (extremes.min > extremes.max) return {};
    return {static_cast<double>(extremes.min), static_cast<double>(extremes.max)};
  }
  return {static_cast<double>(std::bit_cast<float>(extremes.min)),
          static_cast<double>(std::bit_cast<float>(extremes.max))};
}

PackedExtremes merged(PackedExtremes a, PackedExtremes b, bool counts) {
  if (a == kUnknown || b == kUnknown) return kUnknown;
  if (counts) return packed_counts(std::min(a.min, b.min), std::max(a.max, b.max));
  return packed_floats(
      std::min(std::bit_cast<float>(a.min), std::bit_cast<float>(b.min)),
      std::max(std::bit_cast<float>(a.max), std::bit_cast<float>(b.max)));
}

Extremes extremes_of(const Samples &samples, std::size_t first, std::size_t end) {
  if (const auto *counts = std::get_if<0>(&samples)) {
    return unpacked(packed(*counts, first, end), true);
  }
  if (const auto *floats = std::get_if<1>(&samples)) {
    return extremes_of_reals(*floats, first, end);
  }
  return extremes_of_reals(std::get<2>(samples), first, end);
}

double sample_at(const Samples &samples, std::size_t index) {
  const double value = std::visit(
      [index](const auto &numbers) { return static_cast<double>(numbers[index]); },
      samples);
  return is_gap(value) ? kGap : value;
}

void build_levels(const Samples &samples, Levels &fine, Levels &coarse) {
  std::visit([&](const auto &numbers) { build(numbers, fine, coarse); }, samples);
}

bool read_chunk(const WaveformSegment &row, std::int64_t first, std::int64_t count,
                Samples &samples) {
  if (is_counts(row)) {
    std::vector<std::int32_t> counts;
    if (!read_samples_into<std::int32_t>(row, first, count, [&] {
          counts.resize(static_cast<std::size_t>(count));
          return counts.data();
        })) {
      return false;
    }
    samples = std::move(counts);
    return true;
  }
  if (kept_size(row) == sizeof(float)) {
    std::vector<float> floats;
    if (!read_samples(row, first, count, floats)) return false;
    samples = std::move(floats);
    return true;
  }
  std::vector<double> reals;
  if (!read_samples(row, first, count, reals)) return false;
  samples = std::move(reals);
  return true;
}

}  // namespace ksutil::scv
